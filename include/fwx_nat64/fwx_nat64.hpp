/** @file
 * The NAT64 client library in C++20: a binding as an object, a command as something to await. Header only; it needs the
 * C headers, and what drives the platform's event context.
 *
 * Every command is a member function of fwx::nat64::client, which gives an awaitable:
 *
 *     fwx::nat64::result done = co_await client.pool_add(pool{.id = 1, .start = "192.0.2.1", .end = "192.0.2.254"});
 *
 * With a function behind its arguments the same member sends at once, gives the result of the sending, and calls the
 * function with that of the command, if the former is no error: `client.pool_add(pool, [](const result &done) {...})`.
 * Records of this interface and those of C are taken alike.
 *
 * Calling context: the thread that runs the event loop of the binding; everything may be done from inside coroutines
 * and callbacks. Not thread-safe. Destroying an awaitable, a coroutine that awaits, or the client is safe at any
 * moment, also from inside a callback. Coroutines are resumed, and callbacks called, from inside the loop or from where
 * the client is destroyed.
 *
 * Exceptions: what a function of the PAL throws inside something that is awaited, at once or from the loop, reaches the
 * coroutine that awaits. What a callback or a handler throws reaches the handler `failed`, and so does the error of a
 * task that nobody awaited.
 *
 * Memory: beside the coroutines' frames, lists and the table of what is outstanding, which grows as it must and is
 * used again, nothing is allocated.
 *
 * Not supported: more than one client in a process (the second is refused with 17, File exists), beside the C
 * functions fwx_nat64_bind and fwx_nat64_unbind; a callback for throttling of one's own.
 */
#ifndef FWX_NAT64_FWX_NAT64_HPP
#define FWX_NAT64_FWX_NAT64_HPP

#include "fwx_nat64/cxx/binding.hpp"
#include "fwx_nat64/cxx/command.hpp"
#include "fwx_nat64/cxx/error.hpp"
#include "fwx_nat64/cxx/query.hpp"
#include "fwx_nat64/cxx/record.hpp"
#include "fwx_nat64/cxx/task.hpp"
#include "fwx_nat64/cxx/value.hpp"

namespace fwx::nat64 {

/** A binding to the server. It unbinds when it ends: what is outstanding then ends with FWX_NAT64_ERR_NOT_READY, and
 * the server may carry it out. The library's table of MAP-T rules stays.
 *
 * A server that has restarted has lost its rules, and gives other indices to those that it gets now. The library's
 * table keeps the rules and their old indices, and answers an add of one of them with FWX_NAT64_ERR_EXISTS:
 * rules_forget(), when the server is known to be another one, and then adding all rules again makes both agree. */
class client {
private:
    class room_t : detail::room_waiter {
    public:
        explicit room_t(detail::binding &of) noexcept : of_(&of) {}
        room_t(const room_t &) = delete;
        ~room_t() {
            if (handle) of_->forget_room(*this);
        }
        bool await_ready() const noexcept { return !of_->is_bound() || !of_->is_throttled(); }
        void await_suspend(std::coroutine_handle<> waiting) noexcept {
            handle = waiting;
            of_->wait_for_room(*this);
        }
        void await_resume() noexcept { handle = nullptr; }

    private:
        detail::binding *of_;
    };

    static std::array<char, 4> four(std::string_view client_id) noexcept {
        std::array<char, 4> made{};
        std::copy_n(client_id.begin(), std::min(client_id.size(), made.size()), made.begin());
        return made;
    }

    template <class value_type, class ask_type, class page_type>
    auto awaited(ask_type ask, page_type on_page) {
        return detail::awaited_list<value_type, ask_type, page_type>(binding_, std::move(ask), std::move(on_page),
                                                                     timeout_ms_);
    }
    template <class record_type>
    auto record(uint32_t selector) {
        auto ask = [selector](void *pal_ctx, uint64_t, uint64_t) {
            return fwx_nat64_stats_sys_query_a(selector, pal_ctx);
        };
        auto take = [selector](record_result<record_type> &into, const page &got) {
            const auto *record = detail::entries_of<record_type>(got);
            const bool is_other = got.bytes != SIZE_MAX && got.value2 != selector;
            if (is_other) into.error = client_errc::unexpected_answer;
            if (record == nullptr || is_other) return list_step::too_short;
            into.record = *record;
            return list_step::enough;
        };
        return awaited<record_result<record_type>>(ask, take);
    }
    template <class entry_type, class ask_type>
    auto entries(ask_type ask) {
        return awaited<list<entry_type>>(ask, [](list<entry_type> &into, const page &got) {
            auto keep = [&into](std::span<const entry_type> entries) {
                into.entries.insert(into.entries.end(), entries.begin(), entries.end());
            };
            return detail::hand_over<entry_type>(keep, got);
        });
    }
    template <class entry_type, class ask_type, class on_type>
    auto entries(ask_type ask, on_type on) {
        return awaited<result>(ask, [on = std::move(on)](result &, const page &got) mutable {
            return detail::hand_over<entry_type>(on, got);
        });
    }
    template <class entry_type, class ask_type, class on_type, class end_type>
    result entries(ask_type ask, on_type on, end_type on_end) {
        return query(
            ask, [on = std::move(on)](const page &got) mutable { return detail::hand_over<entry_type>(on, got); },
            std::move(on_end));
    }
    template <class entry_type>
    auto walk(const fwx_nat64_sess_walk_filter_t &filter, uint32_t page_size, uint32_t walk_arg) {
        auto ask = [filter, page_size, walk_arg](void *pal_ctx, uint64_t cookie, uint64_t) {
            return fwx_nat64_session_walk_a(page_size, &filter, cookie, 0, walk_arg, walk_callback, pal_ctx);
        };
        return page_walk<entry_type, decltype(ask)>(binding_, ask, timeout_ms_);
    }

public:
    /** Entries of a list that are asked for at a time. */
    static constexpr uint32_t entries_a_query = 1000;

    /**
     * Binds; waits for the server's answer.
     * @param client_id four characters that identify the PAL to the server; shorter ones are filled with zeros.
     * @param ev_arg    the PAL's event argument (its loop); must outlive the client.
     * @param on        hears of what comes unasked.
     * @param platform  what the platform can tell beyond the C interface.
     * @param error     why it is not bound; every command is refused then.
     */
    client(std::string_view client_id, void *ev_arg, handlers on, const adapter &platform, std::error_code &error)
        : binding_(four(client_id).data(), ev_arg, std::move(on), platform, error) {}
    /** The same; throws std::system_error. */
    client(std::string_view client_id, void *ev_arg, handlers on = {}, const adapter &platform = {})
        : binding_(four(client_id).data(), ev_arg, std::move(on), platform, bind_error_) {
        if (bind_error_) throw std::system_error(bind_error_, "no binding");
    }

    /** Whether it is open: bound, and not closed. */
    bool is_open() const noexcept { return binding_.is_bound(); }
    /** Unbinds now: what is outstanding ends as when the client is destroyed, and every command is refused from then
     * on. */
    void close() { binding_.close(); }
    /** Empties the library's table of MAP-T rules, which a server that has restarted knows nothing of. Nothing is sent;
     * of adds that are outstanding the rule is not installed. */
    static void rules_forget() noexcept { fwx_mapt_plu_cleanup(); }
    /** Whether a channel to the server is open; without one, the next command opens it. */
    bool is_connected() const noexcept {
        const fwx_nat64_client_info_t *info = is_open() ? fwx_nat64_client_info_get() : nullptr;
        return info != nullptr && info->connected != 0;
    }
    /** Commands and queries that wait for their answer. */
    size_t outstanding() const noexcept { return binding_.outstanding(); }
    /** How long commands and queries that are made from now on may take, unless `within` says it; none: any time. Of a
     * list it is the longest silence between replies. 0 is the next turn of the loop. Throws std::out_of_range for a
     * negative time. */
    void deadline_set(std::optional<std::chrono::milliseconds> timeout) {
        timeout_ms_ = timeout ? detail::deadline_of(*timeout) : 0;
    }
    /** Ends what has its deadline behind it. A platform with timers does it by itself. */
    void expire(uint64_t now_ms) { binding_.expire(now_ms); }
    /** The same, of this moment. */
    void expire() { binding_.expire(binding_.now_ms()); }

    /** Whether the channel has filled up, as of now with an adapter that tells it. What is awaited waits for room by
     * itself when the channel takes no more; what is sent with a callback is refused then, with client_errc::no_room.
     */
    bool is_throttled() const noexcept { return binding_.is_throttled(); }
    /** Awaits that the channel has room; at once if it has. */
    auto writable() noexcept { return room_t(binding_); }
    /** What the server tells unasked from now on, to be awaited. */
    notification_stream notifications() noexcept { return notification_stream(binding_.streams()); }

    /* --- Settings --- */

    /** Sets a timeout. */
    auto timeout_set(const fwx_nat64_timeout_t &value, auto... on) {
        return configure(
            [record = value](void *pal_ctx) { return fwx_nat64_timeout_set_a(FWX_NAT64_OP_ADD, &record, pal_ctx); },
            std::move(on)...);
    }
    /** Adds the limit. */
    auto limit_add(const fwx_nat64_limit_t &value, auto... on) {
        return configure(
            [record = value](void *pal_ctx) { return fwx_nat64_limit_set_a(FWX_NAT64_OP_ADD, &record, pal_ctx); },
            std::move(on)...);
    }
    /** Modifies the limit. */
    auto limit_mod(const fwx_nat64_limit_t &value, auto... on) {
        return configure(
            [record = value](void *pal_ctx) { return fwx_nat64_limit_set_a(FWX_NAT64_OP_MOD, &record, pal_ctx); },
            std::move(on)...);
    }
    /** Deletes the limit. */
    auto limit_del(const fwx_nat64_limit_t &value, auto... on) {
        return configure(
            [record = value](void *pal_ctx) { return fwx_nat64_limit_set_a(FWX_NAT64_OP_DEL, &record, pal_ctx); },
            std::move(on)...);
    }
    /** Adds a service. */
    auto service_add(const fwx_nat64_service_t &value, auto... on) {
        return configure(
            [record = value](void *pal_ctx) { return fwx_nat64_service_set_a(FWX_NAT64_OP_ADD, &record, pal_ctx); },
            std::move(on)...);
    }
    /** Deletes a service. */
    auto service_del(const fwx_nat64_service_t &value, auto... on) {
        return configure(
            [record = value](void *pal_ctx) { return fwx_nat64_service_set_a(FWX_NAT64_OP_DEL, &record, pal_ctx); },
            std::move(on)...);
    }
    /** Sets an adjacency. */
    auto adj_set(const fwx_nat64_adj_t &value, auto... on) {
        return configure(
            [record = value](void *pal_ctx) { return fwx_nat64_adj_set_a(FWX_NAT64_OP_ADD, &record, pal_ctx); },
            std::move(on)...);
    }
    /** Sets the replication. */
    auto replication_set(const replication &value, auto... on) {
        return configure([record = fwx_nat64_replication_t{value.value, 1, value.value2}](
                             void *pal_ctx) { return fwx_nat64_replication_set_a(FWX_NAT64_OP_ADD, &record, pal_ctx); },
                         std::move(on)...);
    }
    /** Takes the replication back. */
    auto replication_unset(const replication &value, auto... on) {
        return configure([record = fwx_nat64_replication_t{value.value, 0, value.value2}](
                             void *pal_ctx) { return fwx_nat64_replication_set_a(FWX_NAT64_OP_DEL, &record, pal_ctx); },
                         std::move(on)...);
    }

    /** Sets the global settings. */
    auto settings_set(const fwx_nat64_global_settings_t &value, auto... on) {
        return configure([record = value](void *pal_ctx) { return fwx_nat64_global_settings_set_a(&record, pal_ctx); },
                         std::move(on)...);
    }
    /* --- What is translated --- */

    /** Sets an interface's prefixes and MTU. */
    auto interface_set(const fwx_nat64_intf_info_t &value, auto... on) {
        return configure([record = value](void *pal_ctx) { return fwx_nat64_interface_set_a(&record, pal_ctx); },
                         std::move(on)...);
    }
    /** Enables an NVI interface. */
    auto nvi_enable(uint32_t ifh, auto... on) {
        return configure([ifh](void *pal_ctx) { return fwx_nat64_nvi_interface_enable_a(ifh, pal_ctx); },
                         std::move(on)...);
    }

    /** Adds a global prefix. */
    auto prefix_add(const fwx_nat64_prefix_t &value, auto... on) {
        return configure([record = value](void *pal_ctx) { return fwx_nat64_glb_prefix_add_a(&record, pal_ctx); },
                         std::move(on)...);
    }
    /** Modifies a global prefix. */
    auto prefix_mod(const fwx_nat64_prefix_t &value, auto... on) {
        return configure([record = value](void *pal_ctx) { return fwx_nat64_glb_prefix_mod_a(&record, pal_ctx); },
                         std::move(on)...);
    }
    /** Deletes a global prefix. */
    auto prefix_del(const fwx_nat64_prefix_t &value, auto... on) {
        return configure([record = value](void *pal_ctx) { return fwx_nat64_glb_prefix_del_a(&record, pal_ctx); },
                         std::move(on)...);
    }
    /** Adds a static mapping. */
    auto smapping_add(const fwx_nat64_smapping_t &value, auto... on) {
        return configure(
            [record = value](void *pal_ctx) { return fwx_nat64_smapping_set_a(FWX_NAT64_OP_ADD, &record, pal_ctx); },
            std::move(on)...);
    }
    /** Deletes a static mapping, by its id. */
    auto smapping_del(const fwx_nat64_smapping_t &value, auto... on) {
        return configure(
            [record = value](void *pal_ctx) { return fwx_nat64_smapping_set_a(FWX_NAT64_OP_DEL, &record, pal_ctx); },
            std::move(on)...);
    }
    /** Adds a dynamic mapping. */
    auto dmapping_add(const fwx_nat64_dmapping_t &value, auto... on) {
        return configure(
            [record = value](void *pal_ctx) { return fwx_nat64_dmapping_set_a(FWX_NAT64_OP_ADD, &record, pal_ctx); },
            std::move(on)...);
    }
    /** Modifies a dynamic mapping. */
    auto dmapping_mod(const fwx_nat64_dmapping_t &value, auto... on) {
        return configure(
            [record = value](void *pal_ctx) { return fwx_nat64_dmapping_set_a(FWX_NAT64_OP_MOD, &record, pal_ctx); },
            std::move(on)...);
    }
    /** Deletes a dynamic mapping. */
    auto dmapping_del(const fwx_nat64_dmapping_t &value, auto... on) {
        return configure(
            [record = value](void *pal_ctx) { return fwx_nat64_dmapping_set_a(FWX_NAT64_OP_DEL, &record, pal_ctx); },
            std::move(on)...);
    }
    /** Adds a pool. */
    auto pool_add(const fwx_nat64_pool_t &value, auto... on) {
        return configure(
            [record = value](void *pal_ctx) { return fwx_nat64_pool_set_a(FWX_NAT64_OP_ADD, &record, pal_ctx); },
            std::move(on)...);
    }
    /** Modifies a pool. */
    auto pool_mod(const fwx_nat64_pool_t &value, auto... on) {
        return configure(
            [record = value](void *pal_ctx) { return fwx_nat64_pool_set_a(FWX_NAT64_OP_MOD, &record, pal_ctx); },
            std::move(on)...);
    }
    /** Deletes a pool. */
    auto pool_del(const fwx_nat64_pool_t &value, auto... on) {
        return configure(
            [record = value](void *pal_ctx) { return fwx_nat64_pool_set_a(FWX_NAT64_OP_DEL, &record, pal_ctx); },
            std::move(on)...);
    }
    /** Adds a range of a pool. */
    auto range_add(const fwx_nat64_pool_range_t &value, auto... on) {
        return configure(
            [record = value](void *pal_ctx) { return fwx_nat64_pool_range_set_a(FWX_NAT64_OP_ADD, &record, pal_ctx); },
            std::move(on)...);
    }
    /** Deletes a range of a pool. */
    auto range_del(const fwx_nat64_pool_range_t &value, auto... on) {
        return configure(
            [record = value](void *pal_ctx) { return fwx_nat64_pool_range_set_a(FWX_NAT64_OP_DEL, &record, pal_ctx); },
            std::move(on)...);
    }
    /** Adds a destination of translation logs. */
    auto logging_add(const fwx_nat64_logging_t &value, auto... on) {
        return configure(
            [record = value](void *pal_ctx) { return fwx_nat64_logging_set_a(FWX_NAT64_OP_ADD, &record, pal_ctx); },
            std::move(on)...);
    }
    /** Modifies a destination of translation logs. */
    auto logging_mod(const fwx_nat64_logging_t &value, auto... on) {
        return configure(
            [record = value](void *pal_ctx) { return fwx_nat64_logging_set_a(FWX_NAT64_OP_MOD, &record, pal_ctx); },
            std::move(on)...);
    }
    /** Deletes a destination of translation logs. */
    auto logging_del(const fwx_nat64_logging_t &value, auto... on) {
        return configure(
            [record = value](void *pal_ctx) { return fwx_nat64_logging_set_a(FWX_NAT64_OP_DEL, &record, pal_ctx); },
            std::move(on)...);
    }
    /* --- MAP-T rules --- */

    /** Adds a basic mapping rule, at the server and in the table of the library, which installs it whatever the server
     * says of it. One command of a rule at a time. */
    auto mapt_bmr_add(const fwx_nat64_mapt_bmr_t &value, auto... on) {
        return configure_rule(
            [record = value](void *pal_ctx) { return fwx_nat64_mapt_bmr_set_a(FWX_NAT64_OP_ADD, &record, pal_ctx); },
            std::move(on)...);
    }
    /** Deletes a basic mapping rule. */
    auto mapt_bmr_del(const fwx_nat64_mapt_bmr_t &value, auto... on) {
        return configure_rule(
            [record = value](void *pal_ctx) { return fwx_nat64_mapt_bmr_set_a(FWX_NAT64_OP_DEL, &record, pal_ctx); },
            std::move(on)...);
    }
    /** Adds a default mapping rule. */
    auto mapt_dmr_add(const fwx_nat64_mapt_dmr_t &value, auto... on) {
        return configure_rule(
            [record = value](void *pal_ctx) { return fwx_nat64_mapt_dmr_set_a(FWX_NAT64_OP_ADD, &record, pal_ctx); },
            std::move(on)...);
    }
    /** Deletes a default mapping rule. */
    auto mapt_dmr_del(const fwx_nat64_mapt_dmr_t &value, auto... on) {
        return configure_rule(
            [record = value](void *pal_ctx) { return fwx_nat64_mapt_dmr_set_a(FWX_NAT64_OP_DEL, &record, pal_ctx); },
            std::move(on)...);
    }
    /* --- Sessions and aliases --- */

    /** Asks the server to upload its IP aliases. */
    auto ipalias_upload(auto... on) {
        return configure([](void *pal_ctx) { return fwx_nat64_ipalias_upload_a(pal_ctx); }, std::move(on)...);
    }

    /** Clears the sessions that a filter names. */
    auto session_clear(const fwx_nat64_session_filter_t &value, auto... on) {
        return configure([record = value](void *pal_ctx) { return fwx_nat64_session_clear_a(&record, pal_ctx); },
                         std::move(on)...);
    }
    /* --- Statistics. A function behind the arguments gets the entries as std::span, reply by reply, as long as it does
     * not return false; the query is awaited all the same. A second one gets the result, and nothing is awaited.
     *
     * This project's server answers FWX_NAT64_MODEL_LISTS_MAX (64) long lists and walks of a client at once. What is
     * awaited beyond them waits until another list or walk of this client has ended; with a function for the result it
     * is refused with FWX_NAT64_MODEL_ERR_TOO_MANY. --- */

    /** How many the server holds of each kind. */
    auto stats_totals() { return record<fwx_nat64_stats_sys_entry_t>(0); }
    /** What the server has counted. This and the next two are of this project's server. */
    auto stats_counts() { return record<fwx_nat64_stats_counts_t>(FWX_NAT64_SEL_COUNTS); }
    /** By which a restarted server is told. */
    auto stats_boot() { return record<fwx_nat64_stats_boot_t>(FWX_NAT64_SEL_BOOT); }
    /** What the server holds, and has refused. */
    auto stats_system() { return record<fwx_nat64_stats_system_t>(FWX_NAT64_SEL_SYSTEM); }
    /**
     * What the server holds: of this project's server, over an adapter; else the error is client_errc::unreadable. A
     * server that is changed meanwhile is read again, three times at most.
     */
    task<running_configuration> configuration() {
        running_configuration got;
        for (int reading = 0; reading < 3; ++reading) {
            auto ask = [](void *pal_ctx, uint64_t, uint64_t) {
                return fwx_nat64_stats_sys_query_a(FWX_NAT64_SEL_CONFIG, pal_ctx);
            };
            got = co_await awaited<running_configuration>(ask, detail::take_config_page);
            if (got.error != client_errc::changing) break;
        }
        co_return got;
    }
    /** All interfaces. */
    auto stats_interfaces(auto... on) {
        return entries<fwx_nat64_stats_intf_entry_t>(
            [](void *pal_ctx, uint64_t, uint64_t) { return fwx_nat64_stats_intf_query_a(pal_ctx); }, std::move(on)...);
    }
    /** All pools. */
    auto stats_pools(auto... on) {
        return entries<fwx_nat64_stats_pool_entry_t>(
            [](void *pal_ctx, uint64_t cookie, uint64_t) {
                return fwx_nat64_stats_pool_all_query_a(0, reinterpret_cast<void *>(cookie), entries_a_query, 0,
                                                        pal_ctx);
            },
            std::move(on)...);
    }
    /** All mappings. */
    auto stats_mappings(auto... on) {
        return entries<fwx_nat64_stats_mapping_entry_t>(
            [](void *pal_ctx, uint64_t cookie, uint64_t) {
                return fwx_nat64_stats_mapping_all_query_a(0, reinterpret_cast<void *>(cookie), entries_a_query, 0,
                                                           pal_ctx);
            },
            std::move(on)...);
    }
    /** All limits. */
    auto stats_limits(auto... on) {
        return entries<fwx_nat64_stats_limit_entry_t>(
            [](void *pal_ctx, uint64_t, uint64_t) { return fwx_nat64_stats_limit_all_query_a(0, UINT32_MAX, pal_ctx); },
            std::move(on)...);
    }

    /**
     * Walks the sessions, as any server tells them.
     * @param filter    which of them.
     * @param page_size sessions a page.
     */
    auto sessions(const fwx_nat64_sess_walk_filter_t &filter = session_filter{}, uint32_t page_size = 100) {
        return walk<fwx_nat64_session_t>(filter, page_size, 0);
    }
    /** Walks the sessions in full, as this project's server tells them; another server's walk ends with an error, or
     * with entries that mean nothing where the platform does not tell how long they are. */
    auto sessions_full(const fwx_nat64_sess_walk_filter_t &filter = session_filter{}, uint32_t page_size = 100) {
        return walk<fwx_nat64_session_full_t>(filter, page_size, FWX_NAT64_WALK_FULL);
    }

    /* --- For what has no member here. --- */

    /** A command of which `send`, given a `pal_ctx`, is the C function that sends it. */
    template <class send_type>
    auto configure(send_type send) {
        return command<send_type>(binding_, std::move(send), timeout_ms_);
    }
    /** The same, sent at once; `on` gets its result. */
    template <class send_type, class on_type>
    result configure(send_type send, on_type on) {
        return detail::callback<result, on_type>::start(binding_, send, timeout_ms_, std::move(on));
    }
    /** The same of a command of a MAP-T rule. */
    template <class send_type>
    auto configure_rule(send_type send) {
        return command<send_type, rule_result>(binding_, std::move(send), timeout_ms_);
    }
    /** The same, sent at once; `on` gets its result. */
    template <class send_type, class on_type>
    result configure_rule(send_type send, on_type on) {
        return detail::callback<rule_result, on_type>::start(binding_, send, timeout_ms_, std::move(on));
    }
    /**
     * A query and all that follow from its cookies.
     * @param ask     the C function that sends one, given `pal_ctx`, a cookie and how many entries there have been.
     * @param on_page gets each reply as a page and says what becomes of the list.
     * @param on_end  gets the result, if the one that is returned is no error.
     * @param cookie  where to begin.
     */
    template <class ask_type, class page_type, class end_type>
    result query(ask_type ask, page_type on_page, end_type on_end, uint64_t cookie = 0) {
        auto end = [on = std::move(on_end)](std::error_code error, const std::exception_ptr &thrown) mutable {
            if (thrown) detail::binding::threw(thrown);
            on(result{thrown ? client_errc::callback_threw : error});
        };
        return binding_.refused(detail::list_walk<ask_type, page_type, decltype(end)>::start_in_slot(
            binding_, std::move(ask), std::move(on_page), std::move(end), cookie, timeout_ms_));
    }
    /** What a session walk gives to the C function as its callback, with the `pal_ctx` of a query. */
    static constexpr fwx_nat64_sess_walk_fn_t walk_callback = detail::binding::walked;

private:
    std::error_code bind_error_; /* until it is thrown */
    detail::binding binding_;
    uint64_t timeout_ms_ = 0;
};

}  // namespace fwx::nat64

#endif
