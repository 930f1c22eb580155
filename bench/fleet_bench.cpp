/*
 * So many simulated gateways in this process, and an etcd of their own beside it: what a document costs that all of
 * them follow. What is measured is the store, not a thousand gateways' work on the processors of one machine.
 *
 * usage: fleet_bench [GATEWAYS [RULES]]   1000 and 100000 without them; with more rules, none starts with nothing
 */
#include <sys/resource.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "config/notation.h"
#include "records/families.h"
#include "rule_data.h"
#include "simulated_gateway.h"
#include "socket_meter.h"
#include "tests/fleet/etcd_process.h"
#include "tools/fleet/pusher.h"

namespace {

/** Of a line of /proc/PID/status, in MiB. */
long memory_of(pid_t pid, const std::string &name) {
    const std::string text = text_of("/proc/" + std::to_string(pid) + "/status");
    const size_t at = text.find(name + ":");
    return at == std::string::npos ? 0 : strtol(text.c_str() + at + name.size() + 1, nullptr, 10) >> 10;
}

double processor_seconds_of(pid_t pid) {
    const std::string text = text_of("/proc/" + std::to_string(pid) + "/stat");
    std::istringstream fields(text.substr(text.rfind(')') + 1));
    std::string skipped;
    for (int field = 3; field < 14; ++field) {
        fields >> skipped;
    }
    double user = 0;
    double system = 0;
    fields >> user >> system;
    return (user + system) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

class bench_t {
public:
    bench_t(size_t gateways, size_t rules) : rules_(random_rules(rules)), gateways_(gateways) {
        store_.endpoints = {"http://" + process_.place()};
        store_.prefix = "edge";
    }

    int run() {
        if (!process_.is_up()) {
            fprintf(stderr, "%s\n", process_.log().c_str());
            return 1;
        }
        if (!push()) return 1;
        printf("%zu gateways, %zu rules: %.1f MB in %zu chunks, which etcd holds in %ld MiB\n", gateways_.size(),
               rules_.size(), static_cast<double>(pushed_.bytes) / 1e6, pushed_.chunks.size(),
               memory_of(process_.pid(), "VmRSS"));
        printf("%-20s %-31s %9s %9s %9s %17s %15s\n", "", " seconds until they have it", "", "MB from", "kB to",
               "MiB of etcd", "processor s");
        printf("%-20s %7s %7s %7s %7s %9s %9s %9s %8s %8s %7s %7s\n", "", "first", "median", "last", "told", "requests",
               "etcd", "each", "most", "then", "etcd", "here");
        begin();
        start(names_of(pushed_));
        row("start with it", true);
        begin();
        turn_until([this] { return seconds_now() - began_s_ > idle_s; });
        row("30 s without news", false);
        change();
        if (!push()) return 1;
        await_all();
        row("a rule changed", true);
        check_whole();
        for (auto &gateway : gateways_) {
            gateway.reset();
        }
        if (rules_.size() > most_rules_for_all) return 0;
        begin();
        start(nullptr);
        row("start with nothing", true);
        return 0;
    }

private:
    static constexpr double idle_s = 30;
    static constexpr size_t most_rules_for_all = 100000; /* that every gateway fetches at once */

    std::string text() const {
        const record_family_t &family = *record_find_family("mapt bmr");
        std::string text;
        for (const fwx_nat64_mapt_bmr_t &rule : rules_) {
            text += command_line(family, FWX_NAT64_OP_ADD, &rule) + '\n';
        }
        return text;
    }
    void change() {
        uint32_t &domain = rules_[rules_.size() / 2].domain_id;
        domain = (domain + 1) % 64;
    }

    /** Puts the document in force; what is measured begins when its chunks are there. */
    bool push() {
        etcd_options_t patient; /* what reads manifests for all gateways here keeps the pusher waiting */
        patient.timeout_ms = 60000;
        etcd_t etcd(loop_, store_, patient);
        pusher_t pusher(loop_, etcd, "bench@bench");
        push_result_t result;
        result.manifest.document.items = rules_.size();
        etcd_result_t<manifest_read_t> before = loop_.run(read_manifest(etcd, fleet_keys_t(store_.prefix)));
        etcd_error_t error = std::move(before.error);
        if (!error) error = loop_.run(pusher.lock().take("bench"));
        if (!error) error = loop_.run(pusher.put_chunks(text(), result));
        begin();
        if (!error) error = loop_.run(pusher.publish(std::move(before.value), result));
        if (!error) error = loop_.run(pusher.collect(result));
        if (!error) error = loop_.run(pusher.lock().release());
        if (error) fprintf(stderr, "%s\n", error.text.c_str());
        pushed_ = result.manifest.document;
        return !error;
    }

    /** What each gateway does beside, when it puts the document together: that is this machine's work only here. */
    void check_whole() {
        const std::string whole = text();
        std::map<std::string, std::string_view> pieces;
        for (const std::string_view piece : cut_chunks(whole)) {
            pieces.emplace(name_chunk(piece).hash, piece);
        }
        etcd_t etcd(loop_, store_);
        const double began_s = seconds_now();
        auto work = read_document(etcd, fleet_keys_t(store_.prefix), pushed_, [&pieces](const chunk_t &chunk) {
            return std::optional<std::string>(pieces.at(chunk.hash));
        });
        const bool is_whole = loop_.run(std::move(work)).value == whole;
        printf("%-20s %7.2f%s\n", "its check by one", seconds_now() - began_s, is_whole ? "" : " is wrong");
    }

    void start(const names_t &held) {
        size_t number = 0;
        for (auto &gateway : gateways_) {
            gateway = std::make_unique<simulated_gateway_t>(loop_, store_, ++number, held);
            gateway->start();
        }
        await_all();
    }
    /** Until each holds what was pushed, and the store has its word of that. */
    void await_all() {
        turn_until([this] {
            return std::all_of(gateways_.begin(), gateways_.end(),
                               [this](const auto &gateway) { return gateway->told_version() == pushed_.version; });
        });
    }
    template <class condition_t>
    void turn_until(condition_t condition) {
        while (!condition()) {
            fwx_host_loop_run_once(loop_, 100);
        }
    }

    struct moment_t {
        traffic_t bytes = traffic();
        double etcd_s = 0;
        double own_s = processor_seconds_of(getpid());
    };

    void begin() {
        std::ofstream("/proc/" + std::to_string(process_.pid()) + "/clear_refs") << 5; /* the most begins anew */
        before_ = moment_t();
        before_.etcd_s = processor_seconds_of(process_.pid());
        began_s_ = seconds_now();
    }

    void row(const char *name, bool has_arrivals) {
        const moment_t now;
        const double etcd_s = processor_seconds_of(process_.pid());
        std::vector<double> arrivals;
        double told_s = 0;
        uint64_t failures = 0;
        for (const auto &gateway : gateways_) {
            if (!gateway) continue;
            arrivals.push_back(gateway->arrived_s() - began_s_);
            told_s = std::max(told_s, gateway->told_s() - began_s_);
            failures += gateway->failures();
        }
        std::sort(arrivals.begin(), arrivals.end());
        printf("%-20s ", name);
        if (has_arrivals) {
            printf("%7.2f %7.2f %7.2f %7.2f ", arrivals.front(), arrivals[arrivals.size() / 2], arrivals.back(),
                   told_s);
        } else {
            printf("%31s ", "");
        }
        const double received = static_cast<double>(now.bytes.received_bytes - before_.bytes.received_bytes);
        printf("%9lu %9.1f %9.1f %8ld %8ld %7.2f %7.2f", now.bytes.requests - before_.bytes.requests, received / 1e6,
               received / 1e3 / static_cast<double>(gateways_.size()), memory_of(process_.pid(), "VmHWM"),
               memory_of(process_.pid(), "VmRSS"), etcd_s - before_.etcd_s, now.own_s - before_.own_s);
        if (failures != 0) printf("  %lu failures so far", failures);
        printf("\n");
        fflush(stdout);
    }

    etcd_process_t process_{{"--unsafe-no-fsync=false"}};
    fwx::host::loop loop_;
    store_t store_;
    std::vector<fwx_nat64_mapt_bmr_t> rules_;
    fleet_document_t pushed_;
    std::vector<std::unique_ptr<simulated_gateway_t>> gateways_;
    moment_t before_;
    double began_s_ = 0;
};

}  // namespace

int main(int argc, char **argv) {
    rlimit files{};
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = files.rlim_max;
    setrlimit(RLIMIT_NOFILE, &files);
    const size_t gateways = argc > 1 ? strtoul(argv[1], nullptr, 10) : 1000;
    const size_t rules = argc > 2 ? strtoul(argv[2], nullptr, 10) : 100000;
    if (gateways == 0 || rules == 0) {
        fprintf(stderr, "usage: fleet_bench [GATEWAYS [RULES]]\n");
        return 2;
    }
    return bench_t(gateways, rules).run();
}
