/* `natctl dev cgm`: delivers notifications of the classifier manager to the library. */
#include "fwx_nat64/fwx_nat64.h"
#include "tools/natctl/grammar.h"

namespace {

struct notification_t {
    uint32_t batch;
    bool async;
    uint8_t data[sizeof(fwx_nat64_classifier_update_t::data)];
};

/** A synchronous notification returns the server's result at once. The result of an asynchronous one comes later, with
 * the context. */
uint32_t notify(call_t &call, uint32_t op, notification_t &notification) {
    call.awaited = notification.async;
    void *data = notification.data;
    return fwx_host_cgm_notify(FWX_NAT64_CGM_CLIENT_ID, op, &data, notification.batch, notification.async ? 1 : 0,
                               reinterpret_cast<void *>(call.id));
}

}  // namespace

void add_classifier_commands(grammar_t &grammar) {
    grammar.family("cgm", "Notifications of the classifier manager");
    struct form_t {
        const char *verb;
        const char *summary;
        uint32_t op;
    };
    for (const form_t &form : {form_t{"end-batch", "Ends a classifier batch", FWX_NAT64_CGM_OP_END_BATCH},
                               form_t{"update", "Updates a classifier", FWX_NAT64_CGM_OP_CLASSIFIER_UPDATE}}) {
        auto notification = grammar.record<notification_t>();
        command_spec_t &app = grammar.command(form.verb, form.summary, [notification, op = form.op](call_t &call) {
            return notify(call, op, *notification);
        });
        number_field(app, "--batch", notification->batch, "identifier of the batch").required();
        flag_field(app, "--async", notification->async, "Delivers the outcome asynchronously");
        if (form.op != FWX_NAT64_CGM_OP_CLASSIFIER_UPDATE) continue;
        hex_field(app, "--data", notification->data, sizeof notification->data, "the classifier data").required();
    }
}
