/* The descriptors of the process: their number, and limits on it that end with their objects. */
#ifndef TESTS_SUPPORT_DESCRIPTOR_LIMIT_H
#define TESTS_SUPPORT_DESCRIPTOR_LIMIT_H

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <vector>

#include "host/loop/descriptor.h"

/** The number of open descriptors of a process; 0 if it is gone. */
inline size_t open_descriptors(const std::string &process = "self") {
    using iterator_t = std::filesystem::directory_iterator;
    std::error_code failed;
    return static_cast<size_t>(std::distance(iterator_t("/proc/" + process + "/fd", failed), iterator_t()));
}

/** Sets the limit of descriptors, at most to the highest that the system allows. With 0 none can be opened: not for use
 * with sanitizers, whose checks open descriptors. */
class descriptor_limit_t {
public:
    explicit descriptor_limit_t(rlim_t limit) {
        EXPECT_EQ(getrlimit(RLIMIT_NOFILE, &before_), 0);
        const rlimit now = {std::min(limit, before_.rlim_max), before_.rlim_max};
        EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &now), 0);
    }
    ~descriptor_limit_t() { EXPECT_EQ(setrlimit(RLIMIT_NOFILE, &before_), 0); }
    descriptor_limit_t(const descriptor_limit_t &) = delete;
    descriptor_limit_t &operator=(const descriptor_limit_t &) = delete;

private:
    rlimit before_{};
};

/** Takes every descriptor that is free below `highest`, and forbids higher ones. */
class no_free_descriptors_t {
public:
    explicit no_free_descriptors_t(const descriptor_t &highest) : limit_(static_cast<rlim_t>(highest.get()) + 1) {
        do {
            taken_.emplace_back(dup(highest.get()));
        } while (taken_.back().is_open());
    }

private:
    const descriptor_limit_t limit_;
    std::vector<descriptor_t> taken_;
};

#endif
