/*
 * Slots are elements of one array, which grows by doubling. A free slot is in a list by number. A command that ends
 * goes to the lists of results, which have room for every slot, so reporting a result cannot fail. Its slot becomes
 * free only when Python has fetched the result, because Python knows a command by the number of its slot.
 */
#include "slots.h"

#include <stdlib.h>
#include <string.h>

uint32_t slots_outstanding;
uint64_t slots_next_deadline = SLOT_NO_DEADLINE;

static slot_t *slots;
static uint32_t count, first_free; /* numbers begin at 1, so that a context is never null */
static nat64_results_t results;
static nat64_message_t *oldest_message, *latest_message;

uint32_t slot_number(const slot_t *slot) {
    return (uint32_t)(slot - slots);
}

slot_t *slot_at(uint32_t number) {
    return slots + number;
}

uint64_t slot_id(const slot_t *slot) {
    return (uint64_t)slot->generation << 32 | slot_number(slot);
}

void *slot_context(const slot_t *slot) {
    return (void *)(uintptr_t)slot_id(slot);
}

slot_t *slot_find(uint64_t id) {
    const uint32_t number = (uint32_t)id;
    if (number == 0 || number >= count) return NULL;
    slot_t *slot = slots + number;
    return slot->is_outstanding && slot_id(slot) == id ? slot : NULL;
}

void slots_each(void (*use)(slot_t *slot, void *arg), void *arg) {
    for (uint32_t i = 1; i < count; ++i) {
        if (slots[i].is_outstanding) use(slots + i, arg);
    }
}

static void give_back(slot_t *slot) {
    slot->next_free = first_free;
    first_free = slot_number(slot);
}

/* Grows the array of slots and the lists of results. Returns 0 if memory is out. */
static int grow(void) {
    const uint32_t wanted = count == 0 ? 256 : 2 * count;
    slot_t *more = realloc(slots, wanted * sizeof *slots);
    if (more != NULL) slots = more;
    uint32_t **lists[] = {&results.done, &results.failed, &results.codes};
    int has_all = more != NULL;
    for (size_t i = 0; i < sizeof lists / sizeof *lists; ++i) {
        uint32_t *list = realloc(*lists[i], wanted * sizeof *list);
        if (list != NULL) *lists[i] = list;
        has_all = has_all && list != NULL;
    }
    if (!has_all) return 0;
    memset(slots + count, 0, (wanted - count) * sizeof *slots);
    for (uint32_t i = wanted - 1; i >= count && i != 0; --i) {
        give_back(slots + i);
    }
    count = wanted;
    return 1;
}

slot_t *slot_take(uint32_t timeout_ms) {
    if (first_free == 0 && !grow()) return NULL;
    slot_t *slot = slots + first_free;
    first_free = slot->next_free;
    slot->is_outstanding = 1;
    slot->wire_ctx = 0;
    slot->load = NULL;
    slot->is_query = slot->rule_op = 0;
    slot->timeout_ms = timeout_ms;
    slot->deadline = timeout_ms == 0 ? SLOT_NO_DEADLINE : fwx_host_clock_ms() + timeout_ms;
    if (slot->deadline < slots_next_deadline) slots_next_deadline = slot->deadline;
    ++slots_outstanding;
    return slot;
}

/* Ends the command of a slot without freeing the slot. */
static void retire(slot_t *slot) {
    slot->is_outstanding = 0;
    slot->generation = (slot->generation + 1) & INT32_MAX;
    --slots_outstanding;
}

void slot_release(slot_t *slot) {
    retire(slot);
    give_back(slot);
}

static void finish_query(slot_t *slot, uint32_t code) {
    nat64_message_t *page = message_make(NAT64_PAGE, NULL, 0);
    if (page == NULL) { /* memory is out: it counts as late from now on, so the next turn tries again */
        slot->deadline = slots_next_deadline = 0;
        return;
    }
    page->id = slot_id(slot);
    page->code = code;
    message_add(page);
    slot_release(slot);
}

static void finish_loaded(slot_t *slot, uint32_t code) {
    slot->load->codes[slot->index] = code;
    --slot->load->outstanding;
    --slot->load->left;
    slot_release(slot);
}

/* Puts the command into the results. slots_take_results frees the slot. */
static void finish_command(slot_t *slot, uint32_t code) {
    if (code == 0) {
        results.done[results.done_count++] = slot_number(slot);
    } else {
        results.failed[results.failed_count] = slot_number(slot);
        results.codes[results.failed_count++] = code;
    }
    retire(slot);
}

void slot_finish(slot_t *slot, uint32_t code) {
    if (slot->is_query) {
        finish_query(slot, code);
    } else if (slot->load != NULL) {
        finish_loaded(slot, code);
    } else {
        finish_command(slot, code);
    }
}

nat64_results_t slots_take_results(void) {
    const nat64_results_t taken = results;
    for (uint32_t i = 0; i < taken.done_count; ++i) {
        give_back(slots + taken.done[i]);
    }
    for (uint32_t i = 0; i < taken.failed_count; ++i) {
        give_back(slots + taken.failed[i]);
    }
    results.done_count = results.failed_count = 0;
    return taken;
}

nat64_message_t *message_make(uint32_t kind, const void *data, size_t size) {
    nat64_message_t *message = calloc(1, sizeof *message + size);
    if (message == NULL) return NULL;
    message->kind = kind;
    message->size = size;
    if (size != 0) memcpy(message->data, data, size);
    return message;
}

void message_add(nat64_message_t *message) {
    if (oldest_message == NULL) oldest_message = message;
    if (latest_message != NULL) latest_message->next = message;
    latest_message = message;
}

nat64_message_t *nat64_message_take(void) {
    nat64_message_t *message = oldest_message;
    if (message != NULL) oldest_message = message->next;
    if (oldest_message == NULL) latest_message = NULL;
    return message;
}

void nat64_message_free(nat64_message_t *message) {
    free(message);
}
