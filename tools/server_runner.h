/*
 * Runs a server as a process: its loop, signals, log and state file. `natctl serve` and nat64-gateway use it.
 *
 *     error = runner.load(state_file);   restores the saved configuration
 *     error = runner.listen(name);       accepts clients
 *     error = runner.run();              serves until SIGINT or SIGTERM
 */
#ifndef TOOLS_SERVER_RUNNER_H
#define TOOLS_SERVER_RUNNER_H

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "fwx_host/loop.h"
#include "net/log_writer.h"
#include "server/server.h"
#include "tools/signals.h"
#include "tools/state_file.h"

using host_loop_t = std::unique_ptr<fwx_host_loop_t, void (*)(fwx_host_loop_t *)>;
inline host_loop_t make_host_loop() {
    return {fwx_host_loop_create(), fwx_host_loop_destroy};
}

/** Writes lines to standard error, each prefixed with the program's name. */
class server_log_t {
public:
    explicit server_log_t(std::string program);
    const std::string &program() const { return program_; }
    /** `source` as in log_writer_t::write. */
    void write(const std::string &text, const void *source = nullptr);
    void finish() { writer_.finish(); }

private:
    const std::string program_;
    log_writer_t writer_;
};

class server_runner_t {
public:
    /** `server` belongs to `loop`. All three must outlive the runner. */
    server_runner_t(fwx_host_loop_t *loop, server_log_t &log, nat64_server_t &server)
        : loop_(loop), log_(log), server_(server) {}

    /** Restores the configuration from `state_file`, unless that is empty. Returns an error text, empty on success. */
    std::string load(const std::string &state_file);
    /** Accepts clients from other processes. Returns an error text, empty on success. */
    std::string listen(const std::string &name);
    /** Serves until SIGINT or SIGTERM, and calls `turn_ended` after each turn of the loop. Returns why the state could
     * not be saved, empty if it was. */
    std::string run(const std::function<void()> &turn_ended = {});

private:
    void plan_retry();
    static void retry(void *arg);
    static void refused(void *arg, const fwx_host_peer_t *peer, const void *msg, size_t size, uint32_t code);

    fwx_host_loop_t *const loop_;
    server_log_t &log_;
    nat64_server_t &server_;
    const signals_t signals_{SIGINT, SIGTERM};
    std::optional<state_file_t> state_;
    bool is_retry_planned_ = false;
    bool ended_ = false;
};

#endif
