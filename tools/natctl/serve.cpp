#include "tools/natctl/serve.h"

#include <memory>
#include <optional>

#include "fwx_host/fwx_host.h"
#include "fwx_nat64/client.h"
#include "model/model.h"
#include "net/json.h"
#include "net/log_writer.h"
#include "tools/natctl/state_file.h"
#include "tools/signals.h"
#include "wire/messages.h"

namespace {

constexpr uint64_t retry_delay_ms = 1000; /* between tries to save the state */

class server_t {
public:
    explicit server_t(const serve_options_t &options)
        : options_(options),
          loop_(fwx_host_loop_create(), fwx_host_loop_destroy),
          model_(fwx_nat64_model_t::create(loop_.get(), FWX_NAT64_CHANNEL_NAME)) {}

    /** Reads the state and opens the doors; returns why that failed, empty when it did not. */
    std::string open() {
        const auto end = [](void *arg) { static_cast<server_t *>(arg)->ended_ = true; };
        const bool can_run =
            model_ != nullptr && signals_.fd() >= 0 && fwx_host_loop_watch(loop_.get(), signals_.fd(), end, this) == 0;
        if (!can_run) return "no descriptors or no memory left to run a server with";
        model_->observe_refusals(refused, this);
        if (!options_.state_file.empty()) {
            state_.emplace(options_.state_file, *model_,
                           [this](const std::string &text) { log_.write(nullptr, "natctl: " + clean_line(text)); });
            std::string error = state_->open();
            if (!error.empty()) return error;
        }
        const uint32_t rc = fwx_host_server_listen(fwx_host_server_find(FWX_NAT64_CHANNEL_NAME), options_.name.c_str());
        return rc == 0 ? "" : options_.name + ": " + xerr_strerror(rc);
    }

    /** Serves until a signal; returns why the state could not be saved, empty when it was. */
    std::string run() {
        while (!ended_) {
            fwx_host_loop_run_once(loop_.get(), -1);
            model_->commit();
            plan_retry();
        }
        log_.finish();
        return state_ ? state_->commit() : "";
    }

private:
    void plan_retry() {
        const bool is_due = state_ && state_->is_unsaved() && !is_retry_planned_;
        if (!is_due) return;
        is_retry_planned_ = fwx_host_timer_add(loop_.get(), retry_delay_ms, retry, this) != 0;
    }
    static void retry(void *arg) {
        auto &self = *static_cast<server_t *>(arg);
        self.is_retry_planned_ = false;
        self.state_->commit();
    }
    static std::string left_out_text(uint64_t count) { return "natctl: " + count_text(count, "line") + " left out"; }
    static void refused(void *arg, const fwx_host_peer_t *peer, const void *msg, size_t size, uint32_t code) {
        const wire_message_t *message = wire_find(wire_direction_t::to_server, msg, size);
        const std::string name = message == nullptr ? "a message" : message->name;
        static_cast<server_t *>(arg)->log_.write(
            peer, "natctl: refused " + name + " of " + std::to_string(size) + " bytes: " + xerr_strerror(code));
    }

    const serve_options_t &options_;
    log_writer_t log_{left_out_text};
    const signals_t signals_{SIGINT, SIGTERM};
    std::unique_ptr<fwx_host_loop_t, void (*)(fwx_host_loop_t *)> loop_;
    std::unique_ptr<fwx_nat64_model_t> model_;
    std::optional<state_file_t> state_;
    bool is_retry_planned_ = false;
    bool ended_ = false;
};

}  // namespace

outcome_t serve(const serve_options_t &options, output_t &output) {
    outcome_t outcome;
    outcome.command = "serve";
    server_t server(options);
    outcome.error = server.open();
    if (outcome.error.empty()) {
        output.announce(outcome, "serving", options.name);
        /* The caller waits for this line, so failing to write it must end the server. */
        if (!output.flush()) return outcome;
        outcome.error = server.run();
    }
    if (!outcome.error.empty()) outcome.status = status_t::usage;
    return outcome;
}
