/*
 * Two operators with separate state directories, nat64d, and a client that takes no lock change one server at random.
 * After each round, the server's configuration must be what the last of them was told, and nothing may be missing that
 * nobody deleted. The configuration is read from the server itself.
 *
 *     operators_drill ROUNDS SEED
 */
#include <cstdio>
#include <cstdlib>
#include <map>
#include <random>
#include <stdexcept>

#include "tests/nat64d/process.h"
#include "tests/support/eventually.h"
#include "tests/support/other_client.h"
#include "tests/support/runtime_directory.h"
#include "tests/tools/server_process.h"

namespace {

/** The items of a server or a document: the beginning of each line, which names the item, and the rest of the line. */
using items_t = std::map<std::string, std::string>;

items_t items_of(const std::string &text) {
    items_t items;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (line.empty() || line.front() == '#') continue;
        const size_t verb = line.find(" --");
        const size_t first = line.find(" --", verb + 1);
        items[line.substr(0, first)] = first == std::string::npos ? "" : line.substr(first);
    }
    return items;
}

std::string lines_of(const items_t &items) {
    std::string text;
    for (const auto &[name, rest] : items) {
        text += name + rest + "\n";
    }
    return text;
}

class drill_t {
public:
    explicit drill_t(uint64_t seed) : random_(seed) { fwx_host_connect_set(FWX_NAT64_CHANNEL_NAME, nullptr); }

    void round(int number) {
        number_ = number;
        const items_t before = held();
        switch (below(7)) {
            case 0:
            case 1:
                return apply(below(2), random_document());
            case 2:
                return apply_at_once();
            case 3:
                return roll_back(below(2));
            case 4:
                return keep(before);
            case 5:
                return apply_beside_another();
            default:
                return apply_and_end();
        }
    }
    void print(int rounds) const {
        std::printf("%d rounds:", rounds);
        for (const auto &[what, count] : counts_) {
            std::printf(" %s %d ", what.c_str(), count);
        }
        std::printf("\n");
    }

private:
    size_t below(size_t count) { return random_() % count; }

    items_t random_document() {
        std::string text = "timeout set --type udp --value " + std::to_string(1 + below(3)) + "\n";
        for (uint32_t id = 1; id <= 12; ++id) {
            const std::string name = std::to_string(id);
            const std::string end = std::to_string(1 + below(2));
            if (below(2) == 0) continue;
            text += "pool add --id " + name + " --param 1 --start 10.0." + name + ".1 --end 10.0." + name + "." + end +
                    "\n";
            text += "mapt bmr add --rule " + name + " --domain 1 --v6 2001:db8:" + name + "::/48 --v4 20.0." + name +
                    ".0/24" + " --ea-len " + std::to_string(8 + below(2)) + "\n";
        }
        return items_of(text);
    }

    std::string file_of(const items_t &document) {
        std::string path = directory_.path() + "/document" + std::to_string(++files_ % 4);
        replace_file(path, lines_of(document));
        return path;
    }
    std::string command_of(size_t operator_number, const std::string &command) const {
        return "XDG_STATE_HOME=" + directory_.path() + "/home" + std::to_string(operator_number) + " exec " +
               NATCTL_PATH + " --connect alpha " + command + " 2>&1";
    }
    FILE *start(size_t operator_number, const std::string &command) const {
        return popen(command_of(operator_number, command).c_str(), "r");
    }
    /** Runs natctl, which must succeed, and returns its output. */
    std::string run(size_t operator_number, const std::string &command) const {
        const auto [status, said] = end_of(start(operator_number, command));
        if (status != 0) fail(command + ": " + said);
        return said;
    }
    items_t held() const { return items_of(run(0, "config show")); }
    void expect(const char *what, const items_t &document) {
        const items_t now = held();
        if (now != document) {
            fail(std::string(what) + ": wanted\n" + lines_of(document) + "but it holds\n" + lines_of(now));
        }
        ++counts_[what];
    }
    [[noreturn]] void fail(const std::string &text) const {
        throw std::runtime_error("round " + std::to_string(number_) + ": " + text);
    }

    void apply(size_t by, const items_t &document) {
        run(by, "config apply " + file_of(document));
        expect("applied", document);
    }

    void apply_at_once() {
        const items_t documents[] = {random_document(), random_document()};
        FILE *both[2];
        for (size_t i = 0; i < 2; ++i) {
            both[i] = start(i, "config apply " + file_of(documents[i]));
        }
        for (FILE *each : both) {
            if (end_of(each).status != 0) fail("one of two simultaneous applies failed");
        }
        expect("at once", held() == documents[0] ? documents[0] : documents[1]);
    }

    void roll_back(size_t by) {
        run(by, "--json config rollback");
        const std::string log = run(by, "--csv config log");
        const size_t at = log.rfind("config rollback ");
        if (at == std::string::npos) return; /* there was no change to roll back */
        const std::string number = log.substr(at + 16, log.find(',', at) - at - 16);
        const auto [status, text] = end_of(start(by, "config show " + number));
        if (number != "0" && status != 0) return; /* that version is not stored any more */
        const bool is_latest = log.find('\n', at) + 1 >= log.size();
        if (is_latest) expect("rolled back", number == "0" ? items_t() : items_of(text));
    }

    /** Runs nat64d with a document. It must reconcile its own items, and leave all others unchanged. */
    void keep(const items_t &before) {
        const items_t document = random_document();
        items_t wanted = document;
        for (const auto &[name, rest] : before) {
            const bool is_foreign = owned_.count(name) == 0;
            if (is_foreign) wanted.emplace(name, rest);
        }
        replace_file(directory_.path() + "/document", lines_of(document));
        {
            daemon_process_t daemon(
                {"alpha", "--config", directory_.path() + "/document", "--state", directory_.path() + "/daemon"},
                directory_.path() + "/log");
            if (!eventually([] { return daemon_process_t::is("in_step", true); })) fail("nat64d: " + daemon.log());
            const ran_t refused = end_of(start(1, "config apply " + file_of(random_document())));
            if (refused.status != 5) fail("nat64d's lock does not hold: " + refused.output);
            daemon.end(SIGTERM);
        }
        owned_ = document;
        expect("kept", wanted);
    }

    /** Runs natctl while another client, which takes no lock, adds a pool. */
    void apply_beside_another() {
        const items_t document = random_document();
        FILE *natctl = start(0, "config apply " + file_of(document));
        if (!others_add_pool(99, "10.0.99.1")) fail("the other client failed");
        const auto [status, said] = end_of(natctl);
        items_t with_other = document;
        with_other["pool add --id 99"] = " --param 1 --start 10.0.99.1 --end 10.0.99.1";
        /* The server must have the document, with or without the pool, depending on which came last. */
        const items_t now = held();
        const bool is_true = now == document || now == with_other;
        if (!is_true || status > 1) fail("beside another: " + said + lines_of(now));
        ++counts_[status == 0 ? "beside another" : "told that another was there"];
    }

    /** Interrupts or kills natctl while it applies a document. The next natctl must recover. */
    void apply_and_end() {
        items_t document = random_document();
        for (int id = 1; id <= 10000; ++id) {
            document["dmapping add --id " + std::to_string(id)] = " --type address-dependent";
        }
        const items_t before = held();
        const std::string output = directory_.path() + "/output";
        const std::string command = "echo; exec >" + output + "; " + command_of(0, "config apply " + file_of(document));
        child_t natctl;
        natctl.start([&](int ready) {
            dup2(ready, STDOUT_FILENO);
            execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
        });
        usleep(static_cast<useconds_t>(20000 + below(150000)));
        const int status = natctl.end(below(2) == 0 ? SIGKILL : SIGINT); /* -1: killed */
        const std::string said = text_of(output);
        const bool is_told = status == 2;
        const items_t now = held();
        const bool says_how_far =
            said.find(" of ") != std::string::npos || said.find("nothing was sent") != std::string::npos;
        if (is_told && (now != before || !says_how_far)) fail("wrong result of an interrupted apply: " + said);
        if (status == 0 && now != document) fail("reported ok, but the server has another configuration: " + said);
        ++counts_[is_told ? "undone" : status >= 0 ? "too late to interrupt" : "killed"];
        apply(1, random_document());
    }

    const runtime_directory_t directory_;
    const server_process_t server_;
    std::mt19937_64 random_;
    items_t owned_; /* the items that nat64d owns */
    std::map<std::string, int> counts_;
    size_t files_ = 0;
    int number_ = 0;
};

}  // namespace

int main(int argc, char **argv) try {
    const int rounds = argc > 1 ? std::atoi(argv[1]) : 30;
    drill_t drill(argc > 2 ? std::strtoull(argv[2], nullptr, 10) : 1);
    for (int i = 1; i <= rounds; ++i) {
        drill.round(i);
    }
    drill.print(rounds);
    return 0;
} catch (const std::exception &error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
}
