/* Replaces the WIRE_ words of templates, and defines those that are a size, offset or constant of the layout. */
#include "wire/documents/words.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

namespace {

constexpr const char *prefix = "WIRE_";
constexpr const char *word_characters = "ABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_";

/* Returns the hexadecimal digit above the message number in a type word. */
std::string form_digit(unsigned form) {
    return {"0123456789ABCDEF"[form / (FWX_NAT64_MSG_NUMBER_MASK + 1)]};
}

/* Two words: offset and size of a struct member. */
#define PLACE(name, struct_, member)                                   \
    {"WIRE_" name "_AT", std::to_string(offsetof(struct_, member))}, { \
        "WIRE_" name "_SIZE", std::to_string(sizeof(struct_::member))  \
    }
#define NUMBER(name, value) \
    { "WIRE_" name, std::to_string(value) }
#define MESSAGE_NUMBER(name) NUMBER("MSG_" #name, FWX_NAT64_MSG_##name)

}  // namespace

std::string hex(uint32_t value, int digits) {
    char text[16];
    std::snprintf(text, sizeof text, "0x%0*x", digits, value);
    return text;
}

std::string value_list(const wire_names_t &names) {
    return joined(names.begin(), names.count, ", ",
                  [](const wire_value_name_t &each) { return std::to_string(each.value) + " " + each.name; });
}

std::string filled(const std::string &text, const words_t &words) {
    std::string result;
    size_t done = 0;
    for (size_t at = text.find(prefix); at != std::string::npos; at = text.find(prefix, done)) {
        const size_t end = std::min(text.find_first_not_of(word_characters, at), text.size());
        const auto word = words.find(text.substr(at, end - at));
        if (word == words.end()) throw std::runtime_error(text.substr(at, end - at) + " has no value");
        result.append(text, done, at - done).append(word->second);
        done = end;
    }
    return result.append(text, done);
}

words_t layout_words() {
    return {
        NUMBER("DOMAIN", FWX_NAT64_MSG_DOMAIN),
        {"WIRE_NUMBER_MASK", hex(FWX_NAT64_MSG_NUMBER_MASK, 4)},
        {"WIRE_NUMBER_END", hex(FWX_NAT64_MSG_NUMBER_MASK + 1)},
        NUMBER("NUMBER_BITS", __builtin_popcount(FWX_NAT64_MSG_NUMBER_MASK)),
        {"WIRE_ASYNC_FORM", form_digit(FWX_NAT64_MSG_ASYNC)},
        {"WIRE_SYNC_FORM", form_digit(FWX_NAT64_MSG_SYNC)},

        NUMBER("TO_SERVER", static_cast<int>(wire_direction_t::to_server)),
        NUMBER("TO_CLIENT", static_cast<int>(wire_direction_t::to_client)),
        NUMBER("SHORT_HEADER_SIZE", sizeof(fwx_nat64_sync_hdr_t)),
        NUMBER("HEADER_SIZE", sizeof(fwx_nat64_msg_hdr_t)),
        PLACE("TYPE", fwx_nat64_msg_hdr_t, type),
        PLACE("DOMAIN", fwx_nat64_msg_hdr_t, domain),
        PLACE("SHORT_RESERVED", fwx_nat64_sync_hdr_t, reserved4),
        NUMBER("SHORT_RESERVED_LAST", sizeof(fwx_nat64_sync_hdr_t) - 1),
        PLACE("CONTEXT", fwx_nat64_msg_hdr_t, clnt_ctx),
        PLACE("EPOCH", fwx_nat64_msg_hdr_t, epoch),
        NUMBER("CONTEXT_AND_EPOCH_SIZE", sizeof(fwx_nat64_msg_hdr_t::clnt_ctx) + sizeof(fwx_nat64_msg_hdr_t::epoch)),
        PLACE("RESERVED", fwx_nat64_msg_hdr_t, reserved28),

        NUMBER("FAMILY_IPV4", FWX_NAT64_FAMILY_IPV4),
        PLACE("FAMILY", fwx_nat64_addr_t, family),
        PLACE("ADDRESS", fwx_nat64_addr_t, addr),
        NUMBER("IPV4_SIZE", sizeof(uint32_t)),
        NUMBER("IPV4_END", offsetof(fwx_nat64_addr_t, addr) + sizeof(uint32_t)),
        PLACE("PREFIX", fwx_nat64_prefix_t, prefix),
        PLACE("PREFIX_RESERVED", fwx_nat64_prefix_t, reserved),
        PLACE("PREFIX_LENGTH", fwx_nat64_prefix_t, prefix_len),

        {"WIRE_OPERATIONS", value_list(wire_operation_names)},
        {"WIRE_DEBUG_SELECTORS", value_list(wire_debug_selector_names)},
        {"WIRE_INIT_CODE", hex(FWX_NAT64_INIT_CODE, 8)},
        NUMBER("NO_SECOND_PART", FWX_NAT64_DMAPPING_NO_SECOND_PART),
        NUMBER("LOGGING_MODE", FWX_NAT64_LOGGING_MODE),
        NUMBER("REPLY_MIN_SIZE", FWX_NAT64_REPLY_MIN_SIZE),
        NUMBER("OP_ADD", FWX_NAT64_OP_ADD),
        NUMBER("OP_DEL", FWX_NAT64_OP_DEL),
        NUMBER("RULE_BMR", FWX_NAT64_MAPT_RULE_BMR),

        MESSAGE_NUMBER(RESULT),
        MESSAGE_NUMBER(UNSOL_SETUP),
        MESSAGE_NUMBER(INIT),
        MESSAGE_NUMBER(CONFIG),
        MESSAGE_NUMBER(STATS_SYS),
        MESSAGE_NUMBER(SESSION_WALK),
        MESSAGE_NUMBER(CGM_REPLY),
        MESSAGE_NUMBER(CGM_REPLY2),
        MESSAGE_NUMBER(PAL_CMD_Q_RESUME),
        MESSAGE_NUMBER(MAPT_RULE),
    };
}
