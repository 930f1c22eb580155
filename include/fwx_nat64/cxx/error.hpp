/** @file
 * Errors as std::error_code, and the results of commands and queries.
 *
 * The codes of the library, the platform and the server share one category, nat64_category(), as they share one number
 * space in C. A deadline that has passed is std::errc::timed_out. An error that only this interface detects is a
 * client_errc.
 */
#ifndef FWX_NAT64_CXX_ERROR_HPP
#define FWX_NAT64_CXX_ERROR_HPP

#include <cstdint>
#include <string>
#include <system_error>
#include <vector>

#include "fwx_nat64/result.h"

namespace fwx::nat64 {

/** Errors that this interface detects itself. After a list_ error the list is incomplete. */
enum class client_errc {
    connection_lost = 1, /**< the channel ended before the answer; the server may have carried the command out */
    list_short,          /**< a reply claims more entries than it has */
    list_empty,          /**< a reply without entries says that more follow */
    list_stalled,        /**< the cookies of a list do not advance */
    unexpected_answer,   /**< the reply does not belong to the query */
    unreadable,          /**< the server does not report its configuration, or the adapter cannot read it */
    changing,            /**< the configuration changed during each attempt to read it */
    no_room,             /**< not sent because the channel is full; await client::writable, then send again */
    callback_threw,      /**< a function of the PAL threw; the handler `failed` gets the exception */
};

namespace detail {

class nat64_category_impl final : public std::error_category {
public:
    const char *name() const noexcept override { return "nat64"; }
    std::string message(int code) const override { return xerr_strerror(static_cast<uint32_t>(code)); }
};

class client_category_impl final : public std::error_category {
public:
    const char *name() const noexcept override { return "nat64 client"; }
    std::string message(int code) const override {
        switch (static_cast<client_errc>(code)) {
            case client_errc::connection_lost:
                return "the server went away before it answered";
            case client_errc::list_short:
                return "the server claims more entries than it sent; the list is not whole";
            case client_errc::list_empty:
                return "the server says that more follows, and sends nothing; the list is not whole";
            case client_errc::list_stalled:
                return "the server's list does not advance; the list is not whole";
            case client_errc::unexpected_answer:
                return "the server answered the query with something else";
            case client_errc::unreadable:
                return "the server does not tell its configuration";
            case client_errc::changing:
                return "the server was changed again and again while its configuration was read";
            case client_errc::no_room:
                return "the channel is full; send again when it has room";
            case client_errc::callback_threw:
                return "a callback threw an exception";
        }
        return "unknown";
    }
};

/* At namespace scope, because a static in a function costs a guard check on each access. */
inline const nat64_category_impl nat64_category_object;
inline const client_category_impl client_category_object;

}  // namespace detail

/** The category of the library's, the platform's and the server's codes. */
inline const std::error_category &nat64_category() noexcept {
    return detail::nat64_category_object;
}
/** The category of client_errc. */
inline const std::error_category &client_category() noexcept {
    return detail::client_category_object;
}
inline std::error_code make_error_code(client_errc code) noexcept {
    return {static_cast<int>(code), client_category()};
}
/** The error of a code of the C functions; 0: no error. */
inline std::error_code nat64_error(uint32_t code) noexcept {
    return {static_cast<int>(code), nat64_category()};
}

/** The result of a command. */
struct result {
    std::error_code error = nat64_error(0); /**< no error: the server has carried the command out */
    bool was_sent = true; /**< false: refused on this side, or there was no channel; the server did not get it */

    explicit operator bool() const noexcept { return !error; }
    std::error_code first_error() const noexcept { return error; }
    /** The code of the C interface; 0 if there is no error or the error has another category. */
    uint32_t code() const noexcept {
        return error.category() == nat64_category() ? static_cast<uint32_t>(error.value()) : 0;
    }
};

/** The result of a command for a MAP-T rule. It is true if the server has carried the command out and the library's
 * rule table has no error. The two can differ: a rule that was in the table already keeps its old leaves and index,
 * whatever the server answers. */
struct rule_result : result {
    explicit operator bool() const noexcept { return !error && !table; }
    /** The server's error, else the rule table's. */
    std::error_code first_error() const noexcept { return error ? error : table; }

    std::error_code table = nat64_error(0); /**< result of the library's rule table for the reply */
    uint32_t bmr_index = 0;                 /**< the server's index of the rule; needs adapter::head and no error */
    bool has_verdict = false;               /**< true: `error` is the server's own verdict; false: the rule table's */
    bool orders_cleanup = false;            /**< the library has emptied its rule table because the server ordered it */
};

/** The result of a query that gives a whole list. */
template <class entry_type>
struct list : result {
    std::vector<entry_type> entries; /**< after an error, the entries that arrived before it */

    auto begin() const { return entries.begin(); }
    auto end() const { return entries.end(); }
    size_t size() const { return entries.size(); }
};

}  // namespace fwx::nat64

template <>
struct std::is_error_code_enum<fwx::nat64::client_errc> : std::true_type {};

#endif
