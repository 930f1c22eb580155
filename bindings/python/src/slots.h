/* The commands that are under way, and what came of them. */
#ifndef FWX_NAT64_PYTHON_SLOTS_H
#define FWX_NAT64_PYTHON_SLOTS_H

#include "engine.h"

#define SLOT_NO_DEADLINE UINT64_MAX

typedef struct {
    uint64_t deadline; /* of the platform's clock */
    uint64_t wire_ctx; /* under which the server knows a query or a rule */
    nat64_load_t *load;
    uint32_t index; /* in the load */
    uint32_t generation;
    uint32_t next_free;
    uint32_t timeout_ms;
    uint32_t is_under_way;
    uint32_t is_query;
    uint32_t rule_op; /* of `rule`, 0 for anything but a basic mapping rule */
    fwx_nat64_mapt_bmr_t rule;
} slot_t;

extern uint32_t slots_under_way;
extern uint64_t slots_next_deadline; /* no slot has an earlier one */

/** A slot for a command that begins, or null without memory. No slot stays where it is over this call. */
slot_t *slot_take(uint32_t timeout_ms);
/** Frees it; nobody hears of it. */
void slot_release(slot_t *slot);
/** Tells what came of it and frees it. */
void slot_finish(slot_t *slot, uint32_t code);

uint32_t slot_number(const slot_t *slot);
slot_t *slot_at(uint32_t number);
/** The number and the generation, never negative. */
uint64_t slot_id(const slot_t *slot);
/** The id as the library gets it. */
void *slot_context(const slot_t *slot);
/** What is under way under that id, or null. */
slot_t *slot_find(uint64_t id);

/** Calls `use` with each that is under way; it may free them. */
void slots_each(void (*use)(slot_t *slot, void *arg), void *arg);

/** What was told; the slots are free from now on. */
nat64_results_t slots_take_results(void);

/** A copy of `data` as news, or null without memory. */
nat64_news_t *news_make(uint32_t kind, const void *data, size_t size);
void news_add(nat64_news_t *news);

#endif
