#include "tools/natctl/serve.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <csignal>
#include <memory>

#include "fwx_host/fwx_host.h"
#include "fwx_nat64/client.h"
#include "model/model.h"
#include "tools/natctl/state_file.h"
#include "wire/messages.h"

namespace {

constexpr uint64_t save_delay_ms = 100; /* changes that come in a row are written once */

/** Makes SIGINT and SIGTERM readable instead of deadly, while it lives. */
class end_signals_t {
public:
    end_signals_t() {
        sigset_t ends;
        sigemptyset(&ends);
        sigaddset(&ends, SIGINT);
        sigaddset(&ends, SIGTERM);
        sigprocmask(SIG_BLOCK, &ends, &before_);
        fd_ = signalfd(-1, &ends, SFD_CLOEXEC | SFD_NONBLOCK);
    }
    ~end_signals_t() {
        signalfd_siginfo taken{};
        while (read(fd_, &taken, sizeof(taken)) > 0) {
        }
        close(fd_);
        sigprocmask(SIG_SETMASK, &before_, nullptr);
    }
    end_signals_t(const end_signals_t &) = delete;
    end_signals_t &operator=(const end_signals_t &) = delete;
    int fd() const { return fd_; }

private:
    sigset_t before_{};
    int fd_ = -1;
};

class server_t {
public:
    server_t(const serve_options_t &options, output_t &output)
        : options_(options),
          output_(output),
          loop_(fwx_host_loop_create(), fwx_host_loop_destroy),
          model_(fwx_nat64_model_t::create(loop_.get(), FWX_NAT64_CHANNEL_NAME)) {
        model_->observe_refusals(refused, this);
        fwx_host_loop_watch(
            loop_.get(), signals_.fd(), [](void *arg) { static_cast<server_t *>(arg)->ended_ = true; }, this);
    }

    /** Reads the state and opens the doors; returns why that failed, empty when it did not. */
    std::string open() {
        if (!options_.state_file.empty()) {
            std::string error = state_file_read(options_.state_file, model_.get());
            if (!error.empty()) return error;
        }
        saved_commands_ = commands();
        const uint32_t rc = fwx_host_server_listen(fwx_host_server_find(FWX_NAT64_CHANNEL_NAME), options_.name.c_str());
        return rc == 0 ? "" : options_.name + ": " + xerr_strerror(rc);
    }

    /** Serves until a signal; returns why the state could not be written, empty when it was. */
    std::string run() {
        while (!ended_) {
            fwx_host_loop_run_once(loop_.get(), -1);
            const bool is_due = !save_is_planned_ && !options_.state_file.empty() && commands() != saved_commands_;
            if (is_due) {
                save_is_planned_ = true;
                fwx_host_timer_add(
                    loop_.get(), save_delay_ms, [](void *arg) { static_cast<server_t *>(arg)->save(); }, this);
            }
        }
        return save();
    }

private:
    uint64_t commands() const { return model_->counts().commands; }

    std::string save() {
        save_is_planned_ = false;
        saved_commands_ = commands();
        if (options_.state_file.empty()) return "";
        std::string error = state_file_write(options_.state_file, model_.get());
        if (!error.empty() && !ended_) output_.note("natctl: " + error);
        return error;
    }

    static void refused(void *arg, const void *msg, size_t size, uint32_t code) {
        const wire_message_t *message = wire_find(wire_direction_t::to_server, msg, size);
        const std::string name = message == nullptr ? "a message" : message->name;
        static_cast<server_t *>(arg)->output_.note("natctl: refused " + name + " of " + std::to_string(size) +
                                                   " bytes: " + xerr_strerror(code));
    }

    const serve_options_t &options_;
    output_t &output_;
    end_signals_t signals_;
    std::unique_ptr<fwx_host_loop_t, void (*)(fwx_host_loop_t *)> loop_;
    std::unique_ptr<fwx_nat64_model_t> model_;
    uint64_t saved_commands_ = 0;
    bool save_is_planned_ = false;
    bool ended_ = false;
};

}  // namespace

outcome_t serve(const serve_options_t &options, output_t &output) {
    outcome_t outcome;
    outcome.command = "serve";
    server_t server(options, output);
    outcome.error = server.open();
    if (outcome.error.empty()) {
        output.announce(outcome, "serving", options.name);
        /* Who waits to hear that would wait for ever. */
        if (!output.flush()) return outcome;
        outcome.error = server.run();
    }
    if (!outcome.error.empty()) outcome.status = status_t::usage;
    return outcome;
}
