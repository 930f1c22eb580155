#include "tools/natctl/serve.h"

#include <memory>

#include "fwx_nat64/client.h"
#include "model/model.h"
#include "tools/server_runner.h"

outcome_t serve(const serve_options_t &options, output_t &output) {
    outcome_t outcome;
    outcome.command = "serve";
    server_log_t log("natctl");
    const host_loop_t loop = make_host_loop();
    const auto model = fwx_nat64_model_t::create(loop.get(), FWX_NAT64_CHANNEL_NAME);
    if (model == nullptr) {
        outcome.status = status_t::usage;
        outcome.error = "no descriptors or no memory left to run a server with";
        return outcome;
    }
    server_runner_t runner(loop.get(), log, model->server());
    outcome.error = runner.load(options.state_file);
    if (outcome.error.empty()) outcome.error = runner.listen(options.name);
    if (outcome.error.empty()) {
        output.announce(outcome, "serving", options.name);
        /* The caller waits for this line, so failing to write it must end the server. */
        if (!output.flush()) return outcome;
        outcome.error = runner.run();
    }
    if (!outcome.error.empty()) outcome.status = status_t::usage;
    return outcome;
}
