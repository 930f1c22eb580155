/* Checks by the platform's counters that a test released all objects and caused no errors. */
#ifndef TESTS_SUPPORT_PLATFORM_WATCH_H
#define TESTS_SUPPORT_PLATFORM_WATCH_H

#include <string>

#include "fwx_host/inspect.h"

class platform_watch_t {
public:
    platform_watch_t();

    /** Describes the differences in live objects, and the elements that were in use when their pool or list was
     * destroyed, as "2 lists, 1 channels". Empty when there are none. Does not count trees, because no operation
     * destroys a tree: an empty tree is freed when another is created for its complex. */
    std::string left() const;
    /** Announces elements that the test leaves in use on purpose; left() then does not report them. */
    void expect_destroyed_in_use(uint64_t elements) { destroyed_in_use_expected_ += elements; }
    /** Describes the errors counted since its creation, in the same form. */
    std::string faults() const;
    fwx_host_errors_t errors() const;

private:
    fwx_host_live_t live_before_{};
    fwx_host_errors_t errors_before_{};
    uint64_t destroyed_in_use_expected_ = 0;
};

#endif
