/* The table of outstanding commands (slots), their results, and the queue of messages for Python. */
#ifndef FWX_NAT64_PYTHON_SLOTS_H
#define FWX_NAT64_PYTHON_SLOTS_H

#include "engine.h"

#define SLOT_NO_DEADLINE UINT64_MAX

typedef struct {
    uint64_t deadline;   /* ms of the platform's clock, or SLOT_NO_DEADLINE */
    uint64_t wire_ctx;   /* context in the message of a query or a rule command; 0: another command */
    nat64_load_t *load;  /* null: not of a load */
    uint32_t index;      /* in the load */
    uint32_t generation; /* changes whenever the command ends */
    uint32_t next_free;
    uint32_t timeout_ms;
    uint32_t is_outstanding;
    uint32_t is_query;
    uint32_t rule_op; /* operation of `rule`; 0 unless it is a command for a basic mapping rule */
    fwx_nat64_mapt_bmr_t rule;
} slot_t;

extern uint32_t slots_outstanding;
extern uint64_t slots_next_deadline; /* no slot has an earlier one */

/** Takes a slot for a new command; null if memory is out. The call may move all slots, so pointers to them become
 * invalid. */
slot_t *slot_take(uint32_t timeout_ms);
/** Frees a slot without a result. */
void slot_release(slot_t *slot);
/** Reports the result of a command and frees its slot. */
void slot_finish(slot_t *slot, uint32_t code);

uint32_t slot_number(const slot_t *slot);
slot_t *slot_at(uint32_t number);
/** The generation (high 32 bits) and the number (low 32 bits); positive as an int64_t. */
uint64_t slot_id(const slot_t *slot);
/** The id, as the context that the library gets. */
void *slot_context(const slot_t *slot);
/** The slot of the outstanding command with that id, or null. */
slot_t *slot_find(uint64_t id);

/** Calls `use` for the slot of each outstanding command; `use` may free it. */
void slots_each(void (*use)(slot_t *slot, void *arg), void *arg);

/** Returns the results so far and makes their slots available for new commands. */
nat64_results_t slots_take_results(void);

/** Makes a message with a copy of `data`; null if memory is out. */
nat64_message_t *message_make(uint32_t kind, const void *data, size_t size);
/** Appends a message to the queue, which owns it until nat64_message_take. */
void message_add(nat64_message_t *message);

#endif
