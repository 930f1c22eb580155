/*
 * Measures round trips of a command, from the call to the callback: in one process, between two processes, and with the
 * same messages over a bare ring. All variants run in each of five rounds. The output is the medians.
 * usage: channel_bench [--quick]
 *        channel_bench NAME one|64 COUNT [sleeps|spins]
 * The second form runs the variant NAME of the first column alone: on one processor, or with sleeps or spins on two.
 */
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "channel_bench.h"

namespace {

constexpr uint32_t window = 64;
constexpr uint32_t usual_spin_us = 20;

struct contestant_t {
    const char *name;
    double (*run)(const setting_t &);
    bool is_two_processes; /* also runs with spinning, and with a processor for each process */
};

constexpr contestant_t contestants[] = {
    {"in-process", run_in_process, false},
    {"between", run_between_processes, true},
    {"bare-ring", run_bare_ring, true},
};

struct line_t {
    const contestant_t *contestant;
    int server_cpu;
    uint32_t spin_us;
    std::vector<double> one;
    std::vector<double> many;
};

std::vector<line_t> all_lines() {
    std::vector<line_t> lines;
    const bool has_two_cpus = sysconf(_SC_NPROCESSORS_ONLN) > 1;
    for (int server_cpu = 0; server_cpu <= (has_two_cpus ? 1 : 0); ++server_cpu) {
        for (const uint32_t spin : {0U, usual_spin_us}) {
            for (const contestant_t &contestant : contestants) {
                const bool takes_two = spin != 0 || server_cpu != 0;
                if (takes_two && !contestant.is_two_processes) continue;
                lines.push_back({&contestant, server_cpu, spin, {}, {}});
            }
        }
    }
    return lines;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

void compare(uint32_t count) {
    std::vector<line_t> lines = all_lines();
    for (int round = 0; round < 5; ++round) {
        for (line_t &line : lines) {
            const auto run = line.contestant->run;
            line.one.push_back(run({0, line.server_cpu, line.spin_us, 1, count}));
            line.many.push_back(run({0, line.server_cpu, line.spin_us, window, 4 * count}));
        }
    }
    printf("%-12s %-5s %-8s %22s %22s\n", "", "cpus", "waiting", "one at a time, us", "64 outstanding, 1000/s");
    for (const line_t &line : lines) {
        printf("%-12s %-5d %-8s %22.2f %22.1f\n", line.contestant->name, line.server_cpu + 1,
               line.spin_us == 0 ? "sleeps" : "spins", median(line.one) * 1e6, 1e-3 / median(line.many));
    }
}

/** A temporary directory for the sockets of one run. */
class runtime_directory_t {
public:
    runtime_directory_t() { setenv("XDG_RUNTIME_DIR", mkdtemp(path_), 1); }
    ~runtime_directory_t() { std::filesystem::remove_all(path_); }
    runtime_directory_t(const runtime_directory_t &) = delete;
    runtime_directory_t &operator=(const runtime_directory_t &) = delete;

private:
    char path_[32] = "/tmp/channel_bench.XXXXXX";
};

}  // namespace

int main(int argc, char **argv) {
    const runtime_directory_t directory;
    const bool is_apart = argc == 5;
    const bool spins = is_apart && strcmp(argv[4], "spins") == 0;
    if (argc == 4 || spins || (is_apart && strcmp(argv[4], "sleeps") == 0)) {
        for (const contestant_t &contestant : contestants) {
            if (strcmp(contestant.name, argv[1]) != 0) continue;
            const uint32_t outstanding = strcmp(argv[2], "one") == 0 ? 1 : window;
            const double seconds = contestant.run(
                {0, is_apart ? 1 : 0, spins ? usual_spin_us : 0, outstanding, static_cast<uint32_t>(atoi(argv[3]))});
            printf("%.4f us\n", seconds * 1e6);
            return 0;
        }
    }
    const bool is_quick = argc == 2 && strcmp(argv[1], "--quick") == 0;
    if (argc > 1 && !is_quick) {
        fprintf(stderr, "usage: %s [--quick]\n       %s NAME one|64 COUNT [sleeps|spins]\n", argv[0], argv[0]);
        return 2;
    }
    compare(is_quick ? 500 : 10000);
    return 0;
}
