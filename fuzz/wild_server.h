/* A misbehaving server: the input chooses what it sends and answers. It makes its messages from the message
 * description, so that most of them get past the first checks, and then changes fields, lengths and types. */
#ifndef FUZZ_WILD_SERVER_H
#define FUZZ_WILD_SERVER_H

#include <utility>

#include "fwx_host/fwx_host.h"
#include "fwx_nat64/client.h"
#include "input.h"
#include "tests/support/framed.h"

template <typename value_t>
void put_if_it_fits(bytes_t &bytes, size_t offset, value_t value) {
    if (offset + sizeof(value) <= bytes.size()) put(bytes, offset, value);
}

/** Writes the field of that name, if the message has it. */
inline void put_field(bytes_t &bytes, const wire_message_t &message, const char *name, uint32_t value) {
    const wire_field_t *end = message.fields + message.field_count;
    const wire_field_t *found = std::find_if(
        message.fields, end, [name](const wire_field_t &field) { return std::strcmp(field.name, name) == 0; });
    if (found != end) put_if_it_fits(bytes, found->offset, value);
}

inline const std::vector<wire_message_t> &messages_to_client() {
    static const auto found = [] {
        auto messages = described_messages();
        const auto is_to_server = [](const auto &each) { return each.direction == wire_direction_t::to_server; };
        messages.erase(std::remove_if(messages.begin(), messages.end(), is_to_server), messages.end());
        return messages;
    }();
    return found;
}

/** The message with which a server replies to a command. */
inline const wire_message_t &reply_to(uint16_t msgno) {
    const bool is_query = msgno >= FWX_NAT64_MSG_STATS_SYS && msgno <= FWX_NAT64_MSG_SESSION_WALK;
    const uint16_t number = is_query || msgno == FWX_NAT64_MSG_MAPT_RULE ? msgno : uint16_t{FWX_NAT64_MSG_RESULT};
    return *std::find_if(messages_to_client().begin(), messages_to_client().end(), [number](const auto &message) {
        return message.msgno == number && message.form == wire_form_t::async;
    });
}

/** A reply to a command. It is correct except for what the input changes. `command` is the received message, as far as
 * it fits into a rule's message. */
inline bytes_t make_reply(const fwx_nat64_bmr_msg_t &command, input_t &input) {
    const wire_message_t &message = reply_to(command.hdr.type & FWX_NAT64_MSG_NUMBER_MASK);
    const uint32_t how = input.byte();
    const uint32_t entries = how % 4;
    bytes_t bytes = framed(message, entries);
    put_if_it_fits(bytes, offsetof(fwx_nat64_msg_hdr_t, clnt_ctx), command.hdr.clnt_ctx);
    put_if_it_fits(bytes, offsetof(fwx_nat64_msg_hdr_t, epoch), command.hdr.epoch);
    if (message.msgno == FWX_NAT64_MSG_MAPT_RULE) {
        put_if_it_fits(bytes, offsetof(fwx_nat64_mapt_reply_t, rule_id), command.rule_id);
        put_if_it_fits(bytes, offsetof(fwx_nat64_mapt_reply_t, rule_type), command.rule_type);
        put_if_it_fits(bytes, offsetof(fwx_nat64_mapt_reply_t, op), command.op);
        put_field(bytes, message, "cleanup", entries == 3 ? 1 : 0);
    }
    put_field(bytes, message, "more", (how >> 2) & 1);
    if ((how & 8) != 0) put_field(bytes, message, "result", input.byte());
    if ((how & 16) != 0) put_field(bytes, message, "value", input.byte()); /* a cookie, or where to continue */
    const uint32_t said = (how & 32) != 0 ? entries + 4 : entries;
    if (message.entry_count_offset != 0) put_if_it_fits(bytes, message.entry_count_offset, said);
    if ((how & 64) != 0) bytes.resize(bytes.size() * input.byte() / 255);
    return bytes;
}

constexpr size_t answer_bytes = sizeof(fwx_nat64_sync_reply_t);
constexpr uint8_t answer_filler = 0xab;

struct answer_t {
    size_t length = answer_bytes;
    uint32_t result = 0;
    bool is_foreign = false; /* does not begin with the question's first bytes */
    bool is_dropped = false; /* the server ends the channel instead */
    bool is_given = false;

    bool is_sound() const { return is_given && length >= answer_bytes && !is_foreign && !is_dropped; }
    void check(uint32_t code) const {
        if (is_sound()) FUZZ_CHECK(code == result);
        if (!is_given || is_dropped || length == 0) FUZZ_CHECK(code != 0);
    }
};

class wild_server_t {
public:
    wild_server_t(input_t &input, fwx_host_loop_t *loop) : input_(input) {
        FUZZ_CHECK(fwx_host_server_register(FWX_NAT64_CHANNEL_NAME, loop, &ops, this, &server_) == 0);
    }
    wild_server_t(const wild_server_t &) = delete;
    wild_server_t &operator=(const wild_server_t &) = delete;

    void end() { fwx_host_server_unregister(server_); }
    void pause(uint32_t paused) { fwx_host_server_pause(server_, paused); }
    void drop() {
        if (peer_ != nullptr) fwx_host_peer_drop(peer_);
        peer_ = nullptr;
    }

    /** Sends a reply, possibly a wrong one, to one of the latest commands. */
    void answer(uint32_t which, uint32_t copies) {
        if (!commands_.empty()) post(make_reply(latest(which), input_), copies);
    }
    /** Sends a message to the client. The input chooses its kind and changes its fields, length and type.
     * @return whether the caller should run the loop, so that the client receives it at once. */
    bool deliver() {
        const wire_message_t &message = messages_to_client()[input_.byte() % messages_to_client().size()];
        const uint32_t how = input_.byte();
        bytes_t bytes = framed(message, how >> 6);
        if ((how & 1) != 0) bytes[0] = static_cast<uint8_t>(input_.below(16));
        for (size_t i = 0; i < message.field_count && (how & 2) != 0; ++i) {
            bytes[message.fields[i].offset] = input_.byte();
        }
        if ((how & 4) != 0) bytes.resize(bytes.size() * input_.byte() / 255);
        if ((how & 8) != 0) bytes.resize(bytes.size() + size_t{32} * input_.byte()); /* may exceed the receive buffer */
        if (message.msgno != FWX_NAT64_MSG_UNSOL_SETUP) put_name(bytes);
        post(bytes, (how & 16) != 0 ? 2 : 1);
        return (how & 32) == 0;
    }

    bool answers_at_once = false; /* unless the input chooses no reply, another message first, or the channel's end */
    answer_t next_answer;         /* to a synchronous message; later ones are answered correctly */

private:
    static const fwx_host_server_ops_t ops;

    void received(const void *msg, size_t size) {
        fwx_nat64_bmr_msg_t command{};
        std::memcpy(&command, msg, std::min(size, sizeof(command)));
        commands_.push_back(command);
        const uint32_t what = answers_at_once ? input_.below(8) : 1;
        if (what == 2) return drop();
        if (what == 3) deliver();
        if (what != 1) answer(0, 1);
    }
    const fwx_nat64_bmr_msg_t &latest(uint32_t which) const {
        return commands_[commands_.size() - 1 - which % commands_.size()];
    }
    /** Writes the fields by which a reply names its command. */
    void put_name(bytes_t &bytes) {
        const uint32_t choice = input_.byte();
        const fwx_nat64_client_info_t *info = fwx_nat64_client_info_get();
        const uint32_t present = info != nullptr ? info->epoch : 0;
        const uint64_t ctx = commands_.empty() ? 0 : latest(choice / 16).hdr.clnt_ctx;
        const uint32_t epoch = commands_.empty() ? present : latest(choice / 16).hdr.epoch;
        const std::pair<uint64_t, uint32_t> names[] = {
            {0, present},       {ctx, ~epoch},     {ctx, present}, /* the context may belong to an earlier binding */
            {ctx + 8, present}, {choice, present}, {ctx, epoch},
        };
        const auto &[named_ctx, named_epoch] = names[std::min<size_t>(choice % 16, std::size(names) - 1)];
        put_if_it_fits(bytes, offsetof(fwx_nat64_msg_hdr_t, clnt_ctx), named_ctx);
        put_if_it_fits(bytes, offsetof(fwx_nat64_msg_hdr_t, epoch), named_epoch);
    }
    void post(const bytes_t &bytes, uint32_t copies) {
        for (; copies > 0 && peer_ != nullptr; --copies) {
            const uint32_t code = fwx_host_peer_send(peer_, bytes.data(), bytes.size());
            FUZZ_CHECK(code == 0 || code == FWX_HOST_ERR_CHANNEL_DOWN); /* the client may have closed it */
        }
    }
    size_t asked(fwx_host_peer_t *peer, const void *question, uint8_t *reply) {
        const answer_t answer = next_answer.is_given ? answer_t{} : next_answer;
        next_answer.is_given = true;
        std::memset(reply, answer_filler, answer.length);
        std::memcpy(reply, question, sizeof(uint32_t));
        if (answer.is_foreign) reply[0] ^= 1;
        std::memcpy(reply + offsetof(fwx_nat64_sync_reply_t, result), &answer.result, sizeof(answer.result));
        if (answer.is_dropped) fwx_host_peer_drop(peer);
        return answer.length;
    }

    input_t &input_;
    fwx_host_server_t *server_ = nullptr;
    fwx_host_peer_t *peer_ = nullptr;
    std::vector<fwx_nat64_bmr_msg_t> commands_; /* received messages, as far as they fit into a rule's message */
};

inline const fwx_host_server_ops_t wild_server_t::ops = {
    [](void *self, fwx_host_peer_t *peer) { static_cast<wild_server_t *>(self)->peer_ = peer; },
    [](void *self, fwx_host_peer_t *peer) {
        if (static_cast<wild_server_t *>(self)->peer_ == peer) static_cast<wild_server_t *>(self)->peer_ = nullptr;
    },
    [](void *self, fwx_host_peer_t *, const void *msg, size_t size) {
        static_cast<wild_server_t *>(self)->received(msg, size);
    },
    [](void *self, fwx_host_peer_t *peer, const void *msg, size_t, void *reply, size_t) {
        return static_cast<wild_server_t *>(self)->asked(peer, msg, static_cast<uint8_t *>(reply));
    },
};

#endif
