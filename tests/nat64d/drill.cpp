/* Kills the server under nat64d many times, while the document is edited once a second. After each kill nat64d must
 * find the new server within two seconds, and the server itself must report the whole document within two more. nat64d
 * must not grow.
 *
 *     daemon_drill [KILLS [ITEMS]]
 *     daemon_drill answers RULES     measures how long scrapes wait while nat64d sends RULES rules
 */
#include <cstdio>

#include "config/load.h"
#include "config/notation.h"
#include "fwx_host/adapter.hpp"
#include "reconcile/server_document.h"
#include "tests/nat64d/documents.h"
#include "tests/nat64d/process.h"
#include "tests/support/runtime_directory.h"
#include "tests/support/stopwatch.h"
#include "tests/tools/server_process.h"

namespace nat64 = fwx::nat64;

namespace {

constexpr double longest_absence_s = 2;
constexpr double longest_replay_s = 2;
constexpr double longest_answer_s = 0.1; /* of a release build on an idle machine */
constexpr long long grown_kib = 8192;    /* allowed growth of the heap between a tenth of the kills and the end */

[[noreturn]] void fail(const std::string &what, const daemon_process_t &daemon) {
    std::fprintf(stderr, "%s\n%s\n", what.c_str(), daemon.log().c_str());
    std::exit(1);
}

long long resident_kib(pid_t pid) {
    const std::string text = text_of("/proc/" + std::to_string(pid) + "/status");
    const size_t at = text.find("VmRSS:");
    return at == std::string::npos ? 0 : std::atoll(text.c_str() + at + 6);
}

/** Asks the server what it holds. Empty if it holds the document in one of the given editions, otherwise an error. */
std::string look_at_server(uint32_t count, uint32_t oldest, uint32_t newest) {
    const fwx::host::loop loop;
    std::error_code error;
    nat64::client client("dril", loop.get(), {}, fwx::host::adapter, error);
    if (error) return error.message();
    const server_document_t held = loop.run(read_server(loop, client));
    if (held.error) return held.error.message();
    const std::string lines = write_lines(held.document);
    for (uint32_t edition = oldest; edition <= newest; ++edition) {
        problems_t problems;
        if (lines == write_lines(load_document(document_text(count, edition), problems))) return "";
    }
    return "it holds " + std::to_string(held.document.size()) + " items, and not the document";
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
    size_t fds = 0;
    clock_type::time_point edited = clock_type::now();
    /* Edits the document once a second until the condition is true. Returns the seconds that it took. */
    const auto wait_for = [&](const std::string &what, double most_s, auto condition) {
        const clock_type::time_point begin = clock_type::now();
        const bool has_come = eventually([&] {
            if (seconds_since(edited) >= 1) {
                replace_file(document, document_text(count, ++edition));
                edited = clock_type::now();
            }
            return condition(daemon_process_t::status());
        });
        const double time_s = seconds_since(begin);
        if (!has_come || time_s > most_s) fail(what + " only after " + std::to_string(time_s) + " s", daemon);
        return time_s;
    };
    std::string boot_id;
    for (uint64_t kill = 0; kill <= kills; ++kill) {
        const bool keeps_state = kill / 2 % 2 == 1; /* two of four: the second starts with the state of the first */
        server_process_t server(keeps_state ? directory.path() + "/alpha.state" : "");
        const double absence = wait_for("found", longest_absence_s, [&](const json_t &status) {
            return status.is_object() && status["server_up"] == true && status["boot_id"] != boot_id;
        });
        const double replay = wait_for("in step", longest_replay_s, [&](const json_t &status) {
            boot_id = status["boot_id"].get<std::string>();
            return status.is_object() && status["in_step"] == true;
        });
        longest_absence = std::max(longest_absence, absence);
        longest_replay = std::max(longest_replay, replay);
        const std::string wrong = look_at_server(count, edition - std::min(edition, 5U) + 1, edition);
        if (!wrong.empty()) fail("kill " + std::to_string(kill) + ": " + wrong, daemon);
        if (kill == kills / 10) {
            kib = resident_kib(daemon.pid());
            fds = daemon.descriptors();
        }
        if (kill == kills) break;
        server.end(SIGKILL);
    }
    const long long end_kib = resident_kib(daemon.pid());
    size_t end_fds = 0;
    const bool are_closed = eventually([&] { /* those of the last channel are closed in the background */
                                             end_fds = daemon.descriptors();
                                             return end_fds <= fds + 1;
    });
    const json_t status = daemon_process_t::status();
    std::printf(
        "%llu kills, %u items: found within %.2f s, replayed within %.2f s, %s edits; %lld KiB then %lld, %zu "
        "descriptors then %zu\n",
        static_cast<unsigned long long>(kills), 3 * count + 1, longest_absence, longest_replay,
        status["edits"].dump().c_str(), kib, end_kib, fds, end_fds);
    if (end_kib > kib + grown_kib || !are_closed) fail("it has grown", daemon);
    return 0;
}

/** Scrapes the metrics every 50 ms while nat64d applies a document of rules. */
int measure_answers(uint32_t count) {
    const runtime_directory_t directory;
    setenv("XDG_STATE_HOME", directory.path().c_str(), 1);
    std::string text;
    for (uint32_t i = 0; i < count; ++i) {
        const std::string v6 = "2001:db8:" + std::to_string(i / 10000) + ':' + std::to_string(i % 10000) + "::/64\n";
        text +=
            "mapt bmr add --rule " + std::to_string(i + 1) + " --domain 1 --v4 " + address_in(40, i) + "/32 --v6 " + v6;
    }
    const std::string document = directory.path() + "/document";
    replace_file(document, document_text(1, 1));
    const server_process_t server;
    const daemon_process_t daemon(directory.path());
    if (!eventually([] { return daemon_process_t::is("in_step", true); })) fail("never in step", daemon);
    replace_file(document, text);
    const clock_type::time_point begin = clock_type::now();
    double slowest = 0;
    int answers = 0;
    const auto is_done = [&] {
        usleep(50000);
        const clock_type::time_point asked = clock_type::now();
        if (daemon.get("/metrics").find(" 200 ") == std::string::npos) fail("no metrics", daemon);
        slowest = std::max(slowest, seconds_since(asked));
        ++answers;
        return daemon_process_t::is("edits", 1);
    };
    if (!eventually(is_done)) fail("never in force", daemon);
    std::printf("%u rules in force after %.2f s, %d times asked for metrics meanwhile: slowest answer %.0f ms\n", count,
                seconds_since(begin), answers, slowest * 1000);
    return slowest <= longest_answer_s ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) try {
    if (argc > 2 && std::string(argv[1]) == "answers")
        return measure_answers(static_cast<uint32_t>(std::strtoul(argv[2], nullptr, 10)));
    const uint64_t kills = argc > 1 ? std::strtoull(argv[1], nullptr, 10) : 5;
    return drill(kills, static_cast<uint32_t>(argc > 2 ? std::strtoul(argv[2], nullptr, 10) / 3 : 70));
} catch (const std::exception &error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
