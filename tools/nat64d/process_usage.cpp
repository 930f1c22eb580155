#include "tools/nat64d/process_usage.h"

#include <sys/resource.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "state/time_text.h"

namespace {

double seconds_of(const timeval &time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

const double start_s = seconds_now();

}  // namespace

process_usage_t process_usage() {
    process_usage_t usage;
    usage.start_s = start_s;
    rusage times{};
    if (getrusage(RUSAGE_SELF, &times) == 0) usage.cpu_s = seconds_of(times.ru_utime) + seconds_of(times.ru_stime);
    uint64_t virtual_pages = 0;
    uint64_t resident_pages = 0;
    if (std::ifstream("/proc/self/statm") >> virtual_pages >> resident_pages) {
        const auto page_bytes = static_cast<uint64_t>(sysconf(_SC_PAGESIZE));
        usage.virtual_bytes = virtual_pages * page_bytes;
        usage.resident_bytes = resident_pages * page_bytes;
    }
    std::error_code failed;
    for (auto at = std::filesystem::directory_iterator("/proc/self/fd", failed);
         !failed && at != std::filesystem::directory_iterator(); at.increment(failed)) {
        ++usage.open_fds;
    }
    if (usage.open_fds != 0) --usage.open_fds; /* the descriptor that this function uses */
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) usage.most_fds = limit.rlim_cur;
    return usage;
}
