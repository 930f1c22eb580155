/* The commands `natctl dev server`: they make the embedded server model misbehave or send notifications, and show the
 * counters and the identity of any server. */
#include <functional>

#include "fwx_nat64/fwx_nat64.h"
#include "fwx_nat64/wire.h"
#include "model/model.h"
#include "records/family.h"
#include "tools/natctl/decode.h"
#include "tools/natctl/grammar.h"

namespace {

using model_fn_t = std::function<uint32_t(fwx_nat64_model_t *)>;

command_spec_t &model_command(grammar_t &grammar, const char *verb, const char *summary, model_fn_t act) {
    return grammar.embedded(verb, summary,
                            [act = std::move(act)](call_t &, fwx_nat64_model_t &model) { return act(&model); });
}

/** Wraps an action of the model that cannot fail. */
template <typename fn_t>
model_fn_t always(fn_t act) {
    return [act](fwx_nat64_model_t *model) {
        std::invoke(act, model);
        return 0U;
    };
}

void on_off_command(grammar_t &grammar, const char *verb, const char *summary,
                    void (fwx_nat64_model_t::*set)(bool on)) {
    auto on = grammar.record<uint32_t>();
    command_spec_t &app =
        model_command(grammar, verb, summary, always([on, set](fwx_nat64_model_t *model) { (model->*set)(*on != 0); }));
    choice_field(app, "state", *on, {{"on", 1}, {"off", 0}}, "whether it does").required();
}

void add_misbehaviour(grammar_t &grammar) {
    struct refusal_t {
        uint32_t code;
        uint32_t count = 1;
    };
    auto refusal = grammar.record<refusal_t>();
    command_spec_t &fail =
        model_command(grammar, "fail-next", "Refuses the next commands",
                      always([refusal](auto *model) { model->fail_next(refusal->code, refusal->count); }));
    number_field(fail, "--code", refusal->code, "the code that it answers with", 1).required();
    number_field(fail, "--count", refusal->count, "how many commands, 1 without it", 1);

    auto delay = grammar.record<uint64_t>();
    command_spec_t &delay_app = model_command(grammar, "delay", "Delays every reply",
                                              always([delay](auto *model) { model->delay_set(*delay); }));
    number_field(delay_app, "--ms", *delay, "milliseconds, 0 for none", 0, UINT32_MAX).required();

    model_command(grammar, "hold", "Holds all replies back until release", always(&fwx_nat64_model_t::hold));
    auto order = grammar.record<uint32_t>();
    command_spec_t &release =
        model_command(grammar, "release", "Sends the held replies",
                      always([order](auto *model) { model->release(static_cast<fwx_nat64_model_order_t>(*order)); }));
    choice_field(release, "--order", *order,
                 {{"in-order", static_cast<uint32_t>(fwx_nat64_model_order_t::in_order)},
                  {"reverse", static_cast<uint32_t>(fwx_nat64_model_order_t::reverse)},
                  {"shuffled", static_cast<uint32_t>(fwx_nat64_model_order_t::shuffled)}},
                 "in which order, in-order without it");

    on_off_command(grammar, "silent", "Carries commands out without an answer", &fwx_nat64_model_t::silent_set);
    on_off_command(grammar, "pause", "Takes no messages, so that the channel fills", &fwx_nat64_model_t::pause_set);
    on_off_command(grammar, "cleanup", "Orders a clean-up of the rule table with the delete of the last rule",
                   &fwx_nat64_model_t::order_cleanup);
    model_command(grammar, "drop", "Drops the channels of all clients", always(&fwx_nat64_model_t::drop_clients));

    auto copies = grammar.record<uint32_t>();
    command_spec_t &duplicate = model_command(grammar, "duplicate", "Sends every reply several times",
                                              always([copies](auto *model) { model->duplicate_set(*copies); }));
    number_field(duplicate, "--copies", *copies, "how many times", 1).required();
}

void add_notifications(grammar_t &grammar) {
    grammar.subfamily("notify", "Sends a notification");
    model_command(grammar, "event", "Notifies the event", &fwx_nat64_model_t::notify_event);

    struct record_t {
        uint32_t add = 1;
        uint32_t words[3] = {};
    };
    auto record = grammar.record<record_t>();
    command_spec_t &record_app = model_command(grammar, "record", "Notifies a record", [record](auto *model) {
        const uint32_t *words = record->words;
        return model->notify_record(record->add != 0, words[0], words[1], words[2]);
    });
    choice_field(record_app, "--op", record->add, {{record_add.word.data(), 1}, {record_del.word.data(), 0}},
                 "operation, add without it");
    number_field(record_app, "--word1", record->words[0], "first word of the record");
    number_field(record_app, "--word2", record->words[1], "second word of the record");
    number_field(record_app, "--word3", record->words[2], "third word of the record");

    struct mapping_t {
        uint32_t id;
        uint32_t active = 1;
        uint32_t value;
    };
    auto mapping = grammar.record<mapping_t>();
    command_spec_t &mapping_app = model_command(grammar, "mapping", "Notifies a mapping", [mapping](auto *model) {
        return model->notify_mapping(mapping->id, mapping->active != 0, mapping->value);
    });
    number_field(mapping_app, "--id", mapping->id, "the mapping").required();
    number_field(mapping_app, "--active", mapping->active, "whether it is active, 1 without it", 0, 1);
    number_field(mapping_app, "--value", mapping->value, "its value");

    struct debug_t {
        uint32_t selector;
        uint32_t on;
    };
    auto debug = grammar.record<debug_t>();
    command_spec_t &debug_app =
        model_command(grammar, "debug", "Sets debug flags of the library",
                      [debug](auto *model) { return model->notify_debug(debug->selector, debug->on); });
    choice_field(debug_app, "--class", debug->selector,
                 {{"info", FWX_NAT64_UNSOL_DEBUG_INFO},
                  {"trace", FWX_NAT64_UNSOL_DEBUG_TRACE},
                  {"warning", FWX_NAT64_UNSOL_DEBUG_WARNING},
                  {"error", FWX_NAT64_UNSOL_DEBUG_ERROR},
                  {"all", FWX_NAT64_UNSOL_DEBUG_ALL}},
                 "which flags")
        .required();
    number_field(debug_app, "--on", debug->on, "1 on, 0 off", 0, 1).required();
}

/** Shows a record of the server: directly from the embedded model, or by a query to a server in another process. */
template <typename record_t>
uint32_t show_record(call_t &call, uint32_t sel, record_t (fwx_nat64_model_t::*get)() const) {
    const wire_message_t &reply = reply_described(FWX_NAT64_MSG_STATS_SYS, sel);
    if (call.pal.model() != nullptr) {
        call.awaited = false;
        const record_t record = (call.pal.model()->*get)();
        call.outcome.data = decode_entries(reply, &record, 1).front();
        return 0;
    }
    const auto ask = [sel](void *pal_ctx, uint64_t, uint64_t) { return fwx_nat64_stats_sys_query_a(sel, pal_ctx); };
    return call.pal.begin_list(call, FWX_NAT64_MSG_STATS_SYS, 0, 1, ask);
}

uint32_t show_counts(call_t &call) {
    return show_record(call, FWX_NAT64_SEL_COUNTS, &fwx_nat64_model_t::counts);
}

uint32_t show_boot(call_t &call) {
    return show_record(call, FWX_NAT64_SEL_BOOT, &fwx_nat64_model_t::boot);
}

}  // namespace

void add_server_commands(grammar_t &grammar) {
    grammar.family("server", "The server model");
    add_misbehaviour(grammar);
    model_command(grammar, "wakeup", "Wakes the command queue up", &fwx_nat64_model_t::wakeup);
    grammar.command("counts", "Shows what the server has counted", show_counts);
    grammar.command("boot",
                    "Shows the identity of the server's present run, and the number of its changes since the start",
                    show_boot);
    add_notifications(grammar);

    grammar.subfamily("sessions", "Sessions that the model generates");
    auto sessions = grammar.record<uint64_t>();
    command_spec_t &generate = model_command(grammar, "generate", "Replaces the sessions made before",
                                             always([sessions](auto *model) { model->sessions_generate(*sessions); }));
    number_field(generate, "count", *sessions, "how many", 0, FWX_NAT64_MODEL_MAX_SESSIONS).required();
}
