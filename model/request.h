/* A command on its way to its reply. */
#ifndef MODEL_REQUEST_H
#define MODEL_REQUEST_H

#include <cstring>
#include <vector>

#include "fwx_nat64/wire.h"

struct request_t {
    uint64_t client;
    fwx_nat64_msg_hdr_t hdr;
    const uint8_t *msg; /* the whole message, valid while it is handled; null unless it is well formed */

    uint32_t number() const { return hdr.type & FWX_NAT64_MSG_NUMBER_MASK; }

    /** The bytes at an offset of a well-formed message that holds them. */
    template <typename record_t>
    record_t read(size_t offset = 0) const {
        record_t record;
        std::memcpy(&record, msg + offset, sizeof(record));
        return record;
    }

    /** The beginning of a reply: context and epoch echoed, everything behind the result 0. */
    fwx_nat64_reply_t reply(uint32_t msgno, uint32_t result) const {
        fwx_nat64_reply_t reply{};
        reply.hdr.type = static_cast<uint16_t>(FWX_NAT64_MSG_ASYNC | msgno);
        reply.hdr.domain = FWX_NAT64_MSG_DOMAIN;
        reply.hdr.clnt_ctx = hdr.clnt_ctx;
        reply.hdr.epoch = hdr.epoch;
        reply.result = result;
        return reply;
    }

    /** A whole reply of the command's own number: `head`, its beginning filled in, and the entries behind it. */
    template <typename head_t, typename entry_t>
    std::vector<uint8_t> listing(uint32_t result, head_t head, const entry_t *entries, size_t count) const {
        head.reply = reply(number(), result);
        std::vector<uint8_t> bytes(sizeof(head) + count * sizeof(entry_t));
        std::memcpy(bytes.data(), &head, sizeof(head));
        if (count != 0) std::memcpy(bytes.data() + sizeof(head), entries, count * sizeof(entry_t));
        return bytes;
    }
};

#endif
