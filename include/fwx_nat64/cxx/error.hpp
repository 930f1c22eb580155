/** @file
 * What came of a command: errors as std::error_code, and the results that commands and queries give.
 *
 * Codes of the library, the platform and the server are of one category, as in C; a deadline that has passed is
 * std::errc::timed_out; what only this interface can find is a client_errc.
 */
#ifndef FWX_NAT64_CXX_ERROR_HPP
#define FWX_NAT64_CXX_ERROR_HPP

#include <cstdint>
#include <string>
#include <system_error>
#include <vector>

#include "fwx_nat64/result.h"

namespace fwx::nat64 {

/** What goes wrong between the C interface and this one. */
enum class client_errc {
    connection_lost =
        1,             /**< the channel ended behind a command that the server had got; it may have been carried out */
    list_short,        /**< a reply claims more entries than it has; the list is not whole */
    list_empty,        /**< a reply says that more follows, and has no entries; the list is not whole */
    list_stalled,      /**< the cookies of a list do not advance; the list is not whole */
    unexpected_answer, /**< a query was answered with something that is no answer to it */
    unreadable,        /**< the server does not tell its configuration */
    changing,          /**< the server was changed each time that its configuration was read */
    no_room,           /**< not sent, because the channel is full: send again behind client::writable */
    callback_threw,    /**< a function of the PAL threw; the handler `failed` has what */
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

/* At namespace scope, so that looking at a code asks for no guard. */
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
/** A code as the C functions give it; 0 is no error. */
inline std::error_code nat64_error(uint32_t code) noexcept {
    return {static_cast<int>(code), nat64_category()};
}

/** The result of a command. */
struct result {
    std::error_code error = nat64_error(0); /**< none: the server has done it */
    bool was_sent = true; /**< false: it was refused on this side, or there was no channel; the server knows nothing */

    explicit operator bool() const noexcept { return !error; }
    std::error_code first_error() const noexcept { return error; }
    /** The code as the C interface gives it; 0 as well for an error of another category. */
    uint32_t code() const noexcept {
        return error.category() == nat64_category() ? static_cast<uint32_t>(error.value()) : 0;
    }
};

/** The result of a command of a MAP-T rule. It is true if the server has done it and the library's rule table agrees:
 * a rule that was in the table already keeps its old leaves and index, whatever the server says. */
struct rule_result : result {
    explicit operator bool() const noexcept { return !error && !table; }
    /** Of the server's error, else of the rule table's. */
    std::error_code first_error() const noexcept { return error ? error : table; }

    std::error_code table = nat64_error(0); /**< what the library's rule table made of the reply */
    uint32_t bmr_index = 0;                 /**< the server's index of the rule; with an adapter, and no error */
    bool has_verdict = false;               /**< `error` is the server's own verdict; else it is the rule table's */
    bool orders_cleanup = false;            /**< the library has emptied its rule table, as the server told it to */
};

/** The result of a query that is handed over as a whole. */
template <class entry_type>
struct list : result {
    std::vector<entry_type> entries; /**< also of a list that ended with an error: those that had come */

    auto begin() const { return entries.begin(); }
    auto end() const { return entries.end(); }
    size_t size() const { return entries.size(); }
};

}  // namespace fwx::nat64

template <>
struct std::is_error_code_enum<fwx::nat64::client_errc> : std::true_type {};

#endif
