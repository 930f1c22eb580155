#include "tools/natctl/server_records.h"

#include <cstring>

#include "tools/natctl/decode.h"

namespace {

template <typename record_t, json_t (*row)(const record_t &)>
json_t row_of(const void *bytes) {
    record_t record;
    std::memcpy(&record, bytes, sizeof record);
    return row(record);
}

}  // namespace

json_t counts_row(const fwx_nat64_model_counts_t &counts) {
    return {
        {"commands", counts.commands},         {"malformed", counts.malformed}, {"refused", counts.refused},
        {"replies", counts.replies},           {"held", counts.held},           {"clients", counts.clients},
        {"queued_bytes", counts.queued_bytes}, {"dropped", counts.dropped},     {"turned_away", counts.turned_away}};
}

json_t boot_row(const fwx_nat64_model_boot_t &boot) {
    return {{"boot_id", hex_number(boot.boot_id)}, {"changes", boot.changes}};
}

record_row_fn_t server_record_row(uint32_t sel) {
    switch (sel) {
        case FWX_NAT64_MODEL_SEL_COUNTS:
            return row_of<fwx_nat64_model_counts_t, counts_row>;
        case FWX_NAT64_MODEL_SEL_BOOT:
            return row_of<fwx_nat64_model_boot_t, boot_row>;
        default:
            return nullptr;
    }
}
