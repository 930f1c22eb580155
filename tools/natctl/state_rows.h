/* The commands that a server keeps: what each is called, and its record as the payload that is kept and back. */
#ifndef TOOLS_NATCTL_STATE_ROWS_H
#define TOOLS_NATCTL_STATE_ROWS_H

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "fwx_nat64/fwx_nat64.h"
#include "records/family.h"

/** A payload of FWX_NAT64_MODEL_SAVED_BASIC_RULE. */
struct saved_rule_t {
    uint32_t index;
    fwx_nat64_mapt_bmr_t rule;
};

struct state_row_t {
    uint32_t op_code;        /* FWX_NAT64_CFG_ or FWX_NAT64_MODEL_SAVED_ */
    std::string_view family; /* as record_find_family takes it */
    uint32_t op;             /* FWX_NAT64_OP_ */
    size_t payload_size;
    void (*to_record)(const uint8_t *payload, uint8_t *record);
    void (*to_payload)(const uint8_t *record, uint8_t *payload); /* which is zeros */
    size_t flag_at = SIZE_MAX; /* where the payload has a word that is `flag`; SIZE_MAX: it has none */
    uint32_t flag = 0;
};

/** The row by which a payload is read; null: there is none. */
const state_row_t *state_row_of_payload(uint32_t op_code, const uint8_t *payload, size_t size);
/** The row of a command; null: nothing of it is kept. */
const state_row_t *state_row_of_command(const record_family_t &family, uint32_t op, const uint8_t *record);

template <typename type_t>
type_t from_bytes(const void *bytes) {
    type_t value;
    std::memcpy(&value, bytes, sizeof value);
    return value;
}

#endif
