/*
 * Texts of result codes: the client library's, this platform's, errno values, and codes that programs add. The texts of
 * added codes take precedence.
 */
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <vector>

#include "fwx_host/errors.h"
#include "fwx_nat64/result.h"
#include "host/runtime/memory.h"
#include "platform/runtime.h"

namespace {

struct text_t {
    uint32_t code;
    const char *text;
};

constexpr uint32_t largest_errno = 133;

constexpr text_t own_texts[] = {
    {0, "success"},
/* the client library */
#define CODE_AND_TEXT(code, text) {code, text},
    FWX_NAT64_RESULTS(CODE_AND_TEXT)
#undef CODE_AND_TEXT
    /* this platform */
    {FWX_HOST_ERR_NO_SERVER, "no server of that channel name"},
    {FWX_HOST_ERR_BAD_CHANNEL, "no such channel"},
    {FWX_HOST_ERR_CHANNEL_DOWN, "channel is down"},
    {FWX_HOST_ERR_NO_ANSWER, "no answer from the server"},
    {FWX_HOST_ERR_CLOSED, "channel closed before the server took the message"},
    {FWX_HOST_ERR_FULL, "channel is full"},
    {FWX_HOST_ERR_TOO_LONG, "message too long"},
    {FWX_HOST_ERR_BAD_BUFFER, "not a transmit buffer of the caller"},
    {FWX_HOST_ERR_NAME_TAKEN, "channel name already served"},
    {FWX_HOST_ERR_NOT_LISTED, "element not on the list"},
    {FWX_HOST_ERR_LISTED, "element already on a list"},
    {FWX_HOST_ERR_NO_KEY, "no such key"},
    {FWX_HOST_ERR_KEY_TAKEN, "key already present"},
    {FWX_HOST_ERR_BAD_ARG, "invalid argument"},
    {FWX_HOST_ERR_NO_CLIENT, "no such classifier client"},
    {FWX_HOST_ERR_FAULT, "armed fault"},
    {FWX_HOST_ERR_FOREIGN, "server or socket directory is not this user's alone"},
    {FWX_HOST_ERR_BAD_ANSWER, "answer does not belong to the question"},
    {FWX_HOST_ERR_VERSION, "server and client are of versions whose channels differ"},
    {FWX_HOST_ERR_BUSY, "server has as many clients as it takes"},
    {FWX_HOST_ERR_FORKED, "belongs to the process that this one was forked from"},
};

/* Texts that programs added. Few, and searched only when an error is shown. */
std::vector<text_t> &added_texts = *new std::vector<text_t>;

template <typename texts_t>
auto *find(texts_t &texts, uint32_t code) {
    const auto has_code = [code](const text_t &text) { return text.code == code; };
    const auto found = std::find_if(std::begin(texts), std::end(texts), has_code);
    return found == std::end(texts) ? nullptr : &*found;
}

/** The text of an unknown code. Valid until the eighth call after this one. */
const char *unknown_text(uint32_t code) {
    constexpr size_t slots = 8;
    static char ring[slots][32];
    static size_t turn;
    char *text = ring[turn++ % slots];
    snprintf(text, sizeof(ring[0]), "unknown error 0x%08x", code);
    return text;
}

}  // namespace

extern "C" {

const char *xerr_strerror(uint32_t code) {
    if (const text_t *added = find(added_texts, code)) return added->text;
    if (const text_t *own = find(own_texts, code)) return own->text;
    const char *description = code <= largest_errno ? strerrordesc_np(static_cast<int>(code)) : nullptr;
    return description != nullptr ? description : unknown_text(code);
}

void fwx_host_error_text_add(uint32_t code, const char *text) {
    if (text == nullptr) return;
    if (text_t *added = find(added_texts, code)) {
        added->text = text;
    } else {
        host_guarded(host_errno_nomem, [&] { added_texts.push_back({code, text}); });
    }
}

}  // extern "C"
