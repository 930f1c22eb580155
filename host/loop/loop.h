/*
 * Tasks and bells, which a loop dispatches beside timers and watched descriptors.
 *
 * Code in this process makes a task ready when there is work for it. Another process, which works through shared
 * memory, cannot do that. For this case there are bells: objects that the loop polls while it spins, and arms before it
 * waits, so that the other process wakes it through a descriptor.
 */
#ifndef HOST_LOOP_LOOP_H
#define HOST_LOOP_LOOP_H

#include <cstdint>

#include "fwx_host/loop.h"

/** A node of a circular doubly linked list of tasks. The list's head is such a node too, without a task. */
class loop_place_t {
public:
    loop_place_t() = default;
    loop_place_t(const loop_place_t &) = delete;
    loop_place_t &operator=(const loop_place_t &) = delete;
    ~loop_place_t() { leave(); }

    bool is_alone() const { return next_ == this; }
    loop_place_t *next() { return next_; }
    /** Unlinks the node from its list and appends it to the list with head `ring`. */
    void move_to(loop_place_t &ring) {
        leave();
        previous_ = ring.previous_;
        next_ = &ring;
        previous_->next_ = ring.previous_ = this;
    }

private:
    void leave() {
        previous_->next_ = next_;
        next_->previous_ = previous_;
    }

    loop_place_t *previous_ = this;
    loop_place_t *next_ = this;
};

/** The list of a loop's ready tasks. */
struct loop_ready_t : loop_place_t {
    /** True while a program may sleep on the loop's descriptor, and for tasks whose loop is destroyed. One flag covers
     * both cases, so that the hot path makes one check. */
    bool must_wake = false;
    bool is_rung = false; /* wake_fd is readable */
    int wake_fd = -1;     /* the loop's eventfd; -1 if the loop is destroyed, or no program polls it */

    /** Makes the loop's descriptor readable. Returns false when the loop is destroyed. */
    bool wake();
};

class loop_task_t : private loop_place_t {
public:
    explicit loop_task_t(fwx_host_loop_t &loop);
    virtual ~loop_task_t() = default;

    bool is_ready() const { return is_ready_; }
    /** Makes the loop call run() once, in its next pass. */
    void make_ready() {
        if (!is_ready_) become_ready();
    }

    /** Does a bounded amount of work and returns how many callbacks it called; may delete the task. */
    virtual uint32_t run() = 0;
    /** The loop is being destroyed; no callback may be called. May delete this task, but no other. */
    virtual void loop_gone() {}

protected:
    bool has_loop() const { return ready_ != &no_loop; }

private:
    friend struct fwx_host_loop;

    [[gnu::noinline]] void become_ready();

    static loop_ready_t no_loop;

    loop_ready_t *ready_; /* the loop's; &no_loop once the loop is destroyed */
    bool is_ready_ = false;
};

class loop_bell_t {
public:
    loop_bell_t() = default;
    loop_bell_t(const loop_bell_t &) = delete;
    loop_bell_t &operator=(const loop_bell_t &) = delete;
    virtual ~loop_bell_t() = default;

    /** Called while the loop spins: makes a task ready if there is work for it. */
    virtual void look() = 0;
    /** Called before the loop waits: from now on new work must wake it through a descriptor. Work that is there already
     * makes a task ready instead. */
    virtual void arm() = 0;
};

/** Whether the loop belongs to the process that this one was forked from. */
bool loop_is_foreign(const fwx_host_loop_t &loop);
/** Throws std::bad_alloc. */
void loop_bell_add(fwx_host_loop_t &loop, loop_bell_t &bell);
void loop_bell_remove(fwx_host_loop_t &loop, loop_bell_t &bell);
/** Watches the edges of an eventfd that is never read: `fn` is called once for one or several writes to it. Returns 0
 * or an errno value. */
uint32_t loop_watch_bell(fwx_host_loop_t &loop, int fd, fwx_host_fn_t fn, void *arg);

#endif
