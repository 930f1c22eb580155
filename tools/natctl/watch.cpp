#include "tools/natctl/watch.h"

#include <string_view>

#include "state/time_text.h"
#include "tools/natctl/interrupt.h"

namespace {

json_t event_of(const json_t &message) {
    constexpr std::string_view prefix = "unsol_";
    const auto name = message["message"].get<std::string>();
    json_t event = {{"time", time_text()},
                    {"notification", name.rfind(prefix, 0) == 0 ? name.substr(prefix.size()) : name}};
    for (const auto &[key, value] : message["fields"].items()) {
        if (key != "event") event[key] = value;
    }
    if (message["fields"].empty()) event["hex"] = message["hex"];
    return event;
}

}  // namespace

outcome_t watch(pal_t &pal, output_t &output) {
    output.quiet(); /* the user ends it, so no "ok" */
    pal.show_unsolicited([&output](const json_t &message) { output.print_event(event_of(message)); });
    const interrupt_t interrupt(pal.loop());
    outcome_t outcome = pal.bind();
    outcome.command = "watch";
    if (outcome.status != status_t::ok) return outcome;
    while (!interrupt.is_raised() && pal.is_connected() && output.flush()) {
        fwx_host_loop_run_once(pal.loop(), -1);
    }
    if (!interrupt.is_raised() && !pal.is_connected()) {
        outcome.status = status_t::no_server;
        outcome.error = "the server went away";
    }
    return outcome;
}
