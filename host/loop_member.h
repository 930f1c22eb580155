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

#endif
