/* Whether a test gave everything back and did nothing wrong, by the platform's counters. */
#ifndef TESTS_SUPPORT_PLATFORM_WATCH_H
#define TESTS_SUPPORT_PLATFORM_WATCH_H

#include <string>

#include "fwx_host/inspect.h"

/** Compares with the moment at which it was made. */
class platform_watch_t {
public:
    platform_watch_t();

    /** What is live now and was not, or the other way round, and what was still in use when its pool or list was
     * destroyed: "2 lists, 1 channels"; empty when all is as it was. Trees are left out: there is no way to end one, an
     * empty one goes when its complex gets another. */
    std::string left() const;
    /** Elements of pools and lists that a test loses on purpose; the test says why. */
    void expect_destroyed_in_use(uint64_t elements) { destroyed_in_use_expected_ += elements; }
    /** The errors counted since, in the same form. */
    std::string faults() const;
    fwx_host_errors_t errors() const;

private:
    fwx_host_live_t live_before_{};
    fwx_host_errors_t errors_before_{};
    uint64_t destroyed_in_use_expected_ = 0;
};

#endif
