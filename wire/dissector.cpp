/* Prints docs/fwx_nat64.lua, the dissector of capture files, from the message description. */
#include <cstdio>

#include "fwx_nat64/result.h"
#include "wire/dissector_code.h"
#include "wire/messages.h"

namespace {

constexpr const char *introduction =
    R"(-- A Wireshark dissector for capture files of the messages between the NAT64 client library and the server.
--
-- tshark -X lua_script:fwx_nat64.lua -r FILE, or put this file into Wireshark's folder of personal Lua plugins.
-- Filters: fwx_nat64.message == "timeout_set", fwx_nat64.result != 0, fwx_nat64.MESSAGE.FIELD for every other field.
--
-- Printed by fwx_nat64_dissector from the description in wire/; do not edit it by hand.
)";

struct result_name_t {
    uint32_t code;
    const char *name;
};
#define RESULT_NAME(code) \
    { code, #code }
constexpr result_name_t result_names[] = {
    RESULT_NAME(FWX_NAT64_ERR_AGAIN),
    RESULT_NAME(FWX_NAT64_ERR_NOMEM),
    RESULT_NAME(FWX_NAT64_ERR_NOT_READY),
    RESULT_NAME(FWX_NAT64_ERR_INVALID),
    RESULT_NAME(FWX_NAT64_ERR_BAD_ARG),
    RESULT_NAME(FWX_NAT64_ERR_COMINGUP_NOMEM),
    RESULT_NAME(FWX_NAT64_ERR_COMINGUP_NO_INFO),
    RESULT_NAME(FWX_NAT64_ERR_CGM_INVALID),
    RESULT_NAME(FWX_NAT64_ERR_EXISTS),
    RESULT_NAME(FWX_NAT64_ERR_NOT_FOUND),
    RESULT_NAME(FWX_NAT64_ERR_PLU_FAILED),
};
#undef RESULT_NAME

/** Name of a kind in the dissector. */
const char *kind_key(wire_kind_t kind) {
    switch (kind) {
        case wire_kind_t::number:
            return "number";
        case wire_kind_t::hex:
            return "hex";
        case wire_kind_t::flag:
            return "flag";
        case wire_kind_t::operation:
            return "operation";
        case wire_kind_t::code:
            return "code";
        case wire_kind_t::bytes:
            return "bytes";
        case wire_kind_t::ipv4:
            return "ipv4";
        case wire_kind_t::ipv4_swapped:
            return "ipv4_swapped";
        case wire_kind_t::ipv6_swapped:
            return "ipv6_swapped";
        case wire_kind_t::address:
            return "address";
        case wire_kind_t::prefix:
            return "prefix";
    }
    return "";
}

void print_result_names() {
    std::printf("\nlocal result_names = {\n  [0] = \"success\",\n");
    for (const result_name_t &result : result_names) {
        std::printf("  [0x%08x] = \"%s\",\n", result.code, result.name);
    }
    std::printf("}\n");
}

void print_fields(const char *indent, const wire_field_t *fields, size_t count) {
    std::printf("%sfields = {%s", indent, count == 0 ? "" : "\n");
    for (const wire_field_t *field = fields; field != fields + count; ++field) {
        std::printf("%s  { \"%s\", %u, %u, \"%s\" },\n", indent, field->name, field->offset, field->width,
                    kind_key(field->kind));
    }
    std::printf("%s},\n", count == 0 ? "" : indent);
}

void print_entry(const wire_message_t &message) {
    std::printf("    entry = {\n      name = \"%s\", offset = %u, size = %u,", message.entry_name, message.entry_offset,
                message.entry_size);
    if (message.entry_count_offset != 0) std::printf(" count_offset = %u,", message.entry_count_offset);
    std::printf("\n");
    print_fields("      ", message.entry_fields, message.entry_field_count);
    std::printf("    },\n");
}

bool is_unsolicited(const wire_message_t &message) {
    return message.direction == wire_direction_t::to_client && message.form == wire_form_t::async &&
           message.msgno == FWX_NAT64_MSG_UNSOL_SETUP;
}

void print_message(const wire_message_t &message) {
    const bool is_sync = message.form == wire_form_t::sync;
    const bool has_short_header = is_sync || is_unsolicited(message);
    const bool may_be_longer = message.open_ended || message.entry_name != nullptr;
    std::printf("  {\n    name = \"%s\",\n    purpose = \"%s\",\n", message.name, message.purpose);
    std::printf("    direction = %d, type = 0x%x, body = %zu, size = %u,", static_cast<int>(message.direction),
                (is_sync ? FWX_NAT64_MSG_SYNC : FWX_NAT64_MSG_ASYNC) | message.msgno,
                has_short_header ? sizeof(fwx_nat64_sync_hdr_t) : sizeof(fwx_nat64_msg_hdr_t), message.size);
    if (message.selector != wire_no_selector) {
        std::printf(" selector = %d, selector_offset = %u,", message.selector, message.selector_offset);
    }
    if (!may_be_longer) std::printf(" exact = true,");
    if (message.open_ended) std::printf(" open = true,");
    if (is_unsolicited(message)) std::printf(" unsolicited = true,");
    std::printf("\n");
    print_fields("    ", message.fields, message.field_count);
    if (message.entry_name != nullptr) print_entry(message);
    std::printf("  },\n");
}

}  // namespace

int main() {
    size_t count = 0;
    const wire_message_t *messages = wire_messages(&count);
    std::fputs(introduction, stdout);
    print_result_names();
    std::printf("\nlocal messages = {\n");
    for (const wire_message_t *message = messages; message != messages + count; ++message) {
        print_message(*message);
    }
    std::printf("}\n");
    std::fputs(dissector_code, stdout);
    return std::fflush(stdout) == 0 ? 0 : 1;
}
