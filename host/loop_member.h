/* What a loop dispatches without a descriptor: channels and servers, which become ready by what others do to them. */
#ifndef HOST_LOOP_MEMBER_H
#define HOST_LOOP_MEMBER_H

#include <cstdint>
#include <list>

#include "fwx_host/loop.h"

class loop_member_t {
public:
    explicit loop_member_t(fwx_host_loop_t &loop);
    loop_member_t(const loop_member_t &) = delete;
    loop_member_t &operator=(const loop_member_t &) = delete;
    virtual ~loop_member_t();

    /** Has the loop call run() once, soon. */
    void make_ready();

    /** Does a bounded amount of work and returns how many callbacks it called; may delete the member. */
    virtual uint32_t run() = 0;
    /** The loop is being destroyed; no callback may be called. May delete this member, but no other. */
    virtual void loop_gone() {}

protected:
    bool has_loop() const { return loop_ != nullptr; }

private:
    friend struct fwx_host_loop;

    fwx_host_loop_t *loop_; /* null once the loop is gone */
    bool is_ready_ = false;
    std::list<loop_member_t *>::iterator position_; /* in the loop's list of ready or of idle members */
};

/** What can get work through shared memory, without the loop's help. Makes its member ready when it finds some. */
class loop_sleeper_t {
public:
    loop_sleeper_t() = default;
    loop_sleeper_t(const loop_sleeper_t &) = delete;
    loop_sleeper_t &operator=(const loop_sleeper_t &) = delete;
    virtual ~loop_sleeper_t() = default;

    /** The loop polls. */
    virtual void look() = 0;
    /** The loop is about to wait: from now on it must be woken through a descriptor. */
    virtual void fall_asleep() = 0;
};

void loop_sleeper_add(fwx_host_loop_t &loop, loop_sleeper_t &sleeper);
void loop_sleeper_remove(fwx_host_loop_t &loop, loop_sleeper_t &sleeper);
/** Watches an event descriptor that nobody reads: `fn` is called once for every few writes to it. Returns 0 or an errno
 * value. */
uint32_t loop_watch_rings(fwx_host_loop_t &loop, int fd, fwx_host_fn_t fn, void *arg);

#endif
