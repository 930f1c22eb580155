/* Prevents the process from opening descriptors. */
#ifndef TESTS_SUPPORT_NO_DESCRIPTORS_H
#define TESTS_SUPPORT_NO_DESCRIPTORS_H

#include <sys/resource.h>

/** No descriptor can be opened while the object exists. Not for use with sanitizers, whose checks open descriptors. */
class no_descriptors_t {
public:
    no_descriptors_t() {
        getrlimit(RLIMIT_NOFILE, &before_);
        const rlimit none = {0, before_.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~no_descriptors_t() { setrlimit(RLIMIT_NOFILE, &before_); }
    no_descriptors_t(const no_descriptors_t &) = delete;
    no_descriptors_t &operator=(const no_descriptors_t &) = delete;

private:
    rlimit before_{};
};

#endif
