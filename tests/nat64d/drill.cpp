/* Kills the server under nat64d again and again, while the document is edited once a second. After each kill the new
 * server must be found within two seconds and hold every item exactly once; nat64d must not grow. */
#include <cstdio>
#include <cstdlib>

#include "fwx_host/adapter.hpp"
#include "tests/nat64d/documents.h"
#include "tests/nat64d/process.h"
#include "tests/support/runtime_directory.h"
#include "tests/tools/server_process.h"

namespace nat64 = fwx::nat64;

namespace {

using clock_type = std::chrono::steady_clock;
constexpr double longest_absence_s = 2;
constexpr long long grown_kib = 8192; /* that the allocator may keep more at the end than after a tenth of the kills */

double seconds_since(clock_type::time_point begin) {
    return std::chrono::duration<double>(clock_type::now() - begin).count();
}

[[noreturn]] void fail(const std::string &what, const daemon_process_t &daemon) {
    std::fprintf(stderr, "%s\n%s\n", what.c_str(), daemon.log().c_str());
    std::exit(1);
}

long long resident_kib(pid_t pid) {
    const std::string text = text_of("/proc/" + std::to_string(pid) + "/status");
    const size_t at = text.find("VmRSS:");
    return at == std::string::npos ? 0 : std::atoll(text.c_str() + at + 6);
}

long descriptors(pid_t pid) {
    std::error_code failed;
    const std::filesystem::directory_iterator entries("/proc/" + std::to_string(pid) + "/fd", failed);
    return std::distance(begin(entries), end(entries));
}

/** Empty when the server has the items from 1 to `count` of each kind, once each, and nothing else. */
nat64::task<std::string> look(nat64::client &client, uint64_t count) {
    const nat64::record_result<fwx_nat64_stats_sys_entry_t> totals = co_await client.stats_totals();
    const bool is_whole = totals && totals.record.pools == count && totals.record.static_mappings == count &&
                          totals.record.rules == count && totals.record.pool_ranges == 0;
    if (!is_whole) {
        co_return "totals: " + totals.error.message() + ", pools " + std::to_string(totals.record.pools) +
            ", mappings " + std::to_string(totals.record.static_mappings) + ", rules " +
            std::to_string(totals.record.rules);
    }
    const nat64::list<fwx_nat64_stats_pool_entry_t> pools = co_await client.stats_pools();
    const nat64::list<fwx_nat64_stats_mapping_entry_t> mappings = co_await client.stats_mappings();
    std::vector<uint64_t> times(count + 1);
    for (const fwx_nat64_stats_pool_entry_t &pool : pools) {
        ++times.at(pool.id);
    }
    for (const fwx_nat64_stats_mapping_entry_t &mapping : mappings) {
        ++times.at(mapping.id);
    }
    for (uint64_t id = 1; id <= count; ++id) {
        if (times[id] != 2) co_return "items of id " + std::to_string(id) + ": " + std::to_string(times[id]);
    }
    co_return "";
}

std::string look_at_server(uint64_t count) {
    const fwx::host::loop loop;
    std::error_code error;
    nat64::client client("dril", loop.get(), {}, fwx::host::adapter, error);
    return error ? error.message() : loop.run(look(client, count));
}

int drill(uint64_t kills, uint32_t count) {
    const runtime_directory_t directory;
    const std::string document = directory.path() + "/document";
    setenv("XDG_STATE_HOME", directory.path().c_str(), 1);
    fwx_host_connect_set(FWX_NAT64_CHANNEL_NAME, "alpha");
    uint32_t edition = 1;
    replace_file(document, document_text(count, edition));
    const daemon_process_t daemon(directory.path());

    double longest_absence = 0;
    double longest_replay = 0;
    long long kib = 0;
    long fds = 0;
    clock_type::time_point edited = clock_type::now();
    const auto wait_for = [&](const char *what, auto condition) {
        const bool has_come = eventually([&] {
            if (seconds_since(edited) >= 1) {
                replace_file(document, document_text(count, ++edition));
                edited = clock_type::now();
            }
            return condition(daemon_process_t::ask("status"));
        });
        if (!has_come) fail(std::string("never: ") + what, daemon);
    };
    std::string boot_id;
    for (uint64_t kill = 0; kill <= kills; ++kill) {
        server_process_t server;
        const clock_type::time_point begin = clock_type::now();
        wait_for("the new server is found", [&](const json_t &status) {
            return status.is_object() && status["server_up"] == true && status["boot_id"] != boot_id;
        });
        const double absence = seconds_since(begin);
        const clock_type::time_point found = clock_type::now();
        wait_for("in step", [&](const json_t &status) {
            boot_id = status["boot_id"].get<std::string>();
            return status.is_object() && status["in_step"] == true;
        });
        longest_replay = std::max(longest_replay, seconds_since(found));
        longest_absence = std::max(longest_absence, absence);
        if (absence > longest_absence_s) fail("found only after " + std::to_string(absence) + " s", daemon);
        const std::string wrong = look_at_server(count);
        if (!wrong.empty()) fail("kill " + std::to_string(kill) + ": " + wrong, daemon);
        const bool is_warm = kill == kills / 10;
        if (is_warm) {
            kib = resident_kib(daemon.pid());
            fds = descriptors(daemon.pid());
        }
        if (kill == kills) break;
        server.end(SIGKILL);
    }
    const long long end_kib = resident_kib(daemon.pid());
    const long end_fds = descriptors(daemon.pid());
    const json_t status = daemon_process_t::ask("status");
    std::printf(
        "%llu kills, %u items: found within %.2f s, replayed within %.2f s, %s edits; %lld KiB then %lld, %ld "
        "descriptors then %ld\n",
        static_cast<unsigned long long>(kills), 3 * count + 1, longest_absence, longest_replay,
        status["edits"].dump().c_str(), kib, end_kib, fds, end_fds);
    if (end_kib > kib + grown_kib || end_fds > fds + 1) fail("it has grown", daemon);
    return 0;
}

}  // namespace

int main(int argc, char **argv) try {
    const uint64_t kills = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 5;
    return drill(kills, static_cast<uint32_t>(argc > 2 ? std::strtoul(argv[2], nullptr, 10) / 3 : 70));
} catch (const std::exception &error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
