/* The record of an outstanding session walk, and the calls of its callback, which may end the walk. */
#ifndef TRANSPORT_WALK_H
#define TRANSPORT_WALK_H

#include "fwx_nat64/query.h"

/** A block with the client core's memory tag; the context of the command owns it once the command is sent. */
typedef struct {
    uint32_t done; /* 1 once the callback has asked to stop */
    uint32_t walk_arg;
    fwx_nat64_sess_walk_fn_t walk_cb;
} fwx_nat64_sess_walk_cb_t;

/** Tells whether the record of a walk was freed while this object existed. It lives on the stack around calls that may
 * free the record. */
class walk_watch_t {
public:
    explicit walk_watch_t(const fwx_nat64_sess_walk_cb_t *walk);
    ~walk_watch_t();
    walk_watch_t(const walk_watch_t &) = delete;
    walk_watch_t &operator=(const walk_watch_t &) = delete;
    bool is_gone() const { return walk_ == nullptr; }

private:
    friend void walk_free(fwx_nat64_sess_walk_cb_t *walk);

    walk_watch_t *const outer_;
    const fwx_nat64_sess_walk_cb_t *walk_; /* null once freed */
};

/** Arguments of a walk's callback, except for the PAL's context. */
typedef struct {
    uint32_t count;
    void *data;
    uint64_t value;
    uint32_t value2;
    uint32_t status; /* FWX_NAT64_WALK_* */
} walk_report_t;

/**
 * Calls a walk's callback, unless it has asked to stop before, and records whether it asks now. The callback may end
 * the walk (by a flush, a further reply or the end of the binding); the record is then freed.
 */
void walk_report(fwx_nat64_sess_walk_cb_t *walk, void *pal_ctx, const walk_report_t &report);

/** Frees the record of a walk; every walk_watch_t of it then reports it as gone. */
void walk_free(fwx_nat64_sess_walk_cb_t *walk);

#endif
