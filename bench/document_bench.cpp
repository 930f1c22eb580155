/*
 * Measures each step of applying a document of COUNT MAP-T rules to a server in another process. Prints, for each step,
 * elapsed seconds, processor seconds of this process, and its peak memory so far.
 * usage: document_bench [COUNT]   default 1000000
 */
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "config/load.h"
#include "config/notation.h"
#include "config/plan_run.h"
#include "fwx_host/fwx_host.h"
#include "fwx_nat64/fwx_nat64.h"
#include "model/model.h"
#include "records/families.h"
#include "rule_data.h"
#include "tests/support/child.h"
#include "tools/seed.h"

namespace {

constexpr size_t window = 256;
constexpr const char *server_name = "bench";

/** A temporary directory for the document and the server's socket. */
class work_directory_t {
public:
    work_directory_t() { setenv("XDG_RUNTIME_DIR", mkdtemp(path_), 1); }
    ~work_directory_t() { std::filesystem::remove_all(path_); }
    work_directory_t(const work_directory_t &) = delete;
    work_directory_t &operator=(const work_directory_t &) = delete;
    std::string file() const { return std::string(path_) + "/document"; }

private:
    char path_[32] = "/tmp/document_bench.XXXXXX";
};

class stopwatch_t {
public:
    void lap(const char *name) {
        const moment_t now;
        printf("%-24s %7.2f s %7.2f s %6ld MiB\n", name, now.seconds - start_.seconds, now.work - start_.work,
               now.usage.ru_maxrss >> 10);
        start_ = moment_t();
    }

private:
    struct moment_t {
        rusage usage{};
        double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
        double work = 0;

        moment_t() {
            getrusage(RUSAGE_SELF, &usage);
            for (const timeval &time : {usage.ru_utime, usage.ru_stime}) {
                work += static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
            }
        }
    };
    moment_t start_;
};

/** Writes the document in a child process, so that the memory for it is not counted. */
void write_document(const std::string &file, size_t count) {
    const pid_t child = fork();
    if (child == 0) {
        std::ofstream out(file);
        const record_family_t &family = record_family_of(family_kind_t::basic_rule);
        for (const fwx_nat64_mapt_bmr_t &rule : random_rules(count)) {
            out << command_line(family, FWX_NAT64_OP_ADD, &rule) << '\n';
        }
        out.close();
        _exit(0);
    }
    waitpid(child, nullptr, 0);
}

std::string content_of(const std::string &file) {
    std::string text(std::filesystem::file_size(file), '\0');
    std::ifstream(file).read(text.data(), static_cast<std::streamsize>(text.size()));
    return text;
}

document_t load(const std::string &text) {
    problems_t problems;
    document_t document = load_document(text, problems);
    if (has_error(problems)) printf("%s\n", problems.front().text().c_str());
    return document;
}

void serve(int ready) {
    fwx_host_loop_t *loop = fwx_host_loop_create();
    const auto model = fwx_nat64_model_t::create(loop, FWX_NAT64_CHANNEL_NAME);
    if (fwx_host_server_listen(fwx_host_server_find(FWX_NAT64_CHANNEL_NAME), server_name) != 0) return;
    if (write(ready, "", 1) != 1) return;
    for (;;) {
        fwx_host_loop_run_once(loop, -1);
    }
}

plan_run_t *run;
size_t outstanding;

void answered(fwx_nat64_cmd_result_t *result) {
    --outstanding;
    run->answered(reinterpret_cast<size_t>(result->pal_ctx), result->result == 0);
}

/** Sends the plan's commands, up to `window` outstanding. The rules have distinct prefixes, so the library's
 * rule table never needs a repair. */
void apply(fwx_host_loop_t *loop, const plan_t &plan) {
    plan_run_t of_plan(plan);
    run = &of_plan;
    while (!run->is_over()) {
        const plan_command_t *command = outstanding < window ? run->next() : nullptr;
        if (command != nullptr) {
            ++outstanding;
            auto *ctx = reinterpret_cast<void *>(run->ticket());
            if (command->family->send(command->op, command->record.bytes, ctx) == 0) continue;
            --outstanding;
            run->answered(run->ticket(), false);
            continue;
        }
        do { /* until half are answered, because sending one by one would wake both processes each time */
            fwx_host_loop_run_once(loop, -1);
        } while (outstanding > window / 2);
    }
    if (run->refused() != plan.size()) printf("command %zu was refused\n", run->refused());
}

}  // namespace

int main(int argc, char **argv) {
    const size_t count = argc > 1 ? strtoul(argv[1], nullptr, 10) : 1000000;
    const work_directory_t directory;
    write_document(directory.file(), count);
    child_t server;
    if (!server.start(serve)) return 1;
    seed_random();

    stopwatch_t watch;
    const document_t none;
    const document_t document = load(content_of(directory.file()));
    watch.lap("read and check");
    const plan_t plan(none, document);
    watch.lap("plan from nothing");
    fwx_host_loop_t *loop = fwx_host_loop_create();
    fwx_host_connect_set(FWX_NAT64_CHANNEL_NAME, server_name);
    const fwx_nat64_reply_cbs_t replies{answered, nullptr, nullptr, nullptr, nullptr, nullptr};
    if (fwx_nat64_bind(nullptr, loop, nullptr, &replies) != 0) return 1;
    apply(loop, plan);
    watch.lap("carry adds out");
    const plan_t back(document, none);
    watch.lap("plan to nothing");
    apply(loop, back);
    watch.lap("carry deletes out");
    fwx_nat64_unbind();
    fwx_host_loop_destroy(loop);

    const plan_t same(document, document);
    watch.lap("plan of no difference");
    const std::string lines = write_lines(document);
    watch.lap("write lines");
    const std::string json = write_json(document);
    watch.lap("write JSON");
    const document_t again = load(json);
    watch.lap("read JSON and check");
    const bool is_same = same.size() == 0 && plan_t(document, again).size() == 0;
    return is_same ? 0 : 1;
}
