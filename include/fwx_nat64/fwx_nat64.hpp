/** @file
 * The NAT64 client library in C++20: a binding is an object, a command is an awaitable. Header only. It needs the C
 * headers, and a PAL that runs the platform's event loop.
 *
 * Conventions. Every command is a member function of fwx::nat64::client. It returns an awaitable, which sends the
 * command when it is awaited and gives its result:
 *
 *     fwx::nat64::result done = co_await client.pool_add(pool{.id = 1, .start = "192.0.2.1", .end = "192.0.2.254"});
 *
 * If a function follows the arguments, as in `client.pool_add(pool, [](const result &done) {...})`, the same member
 * sends at once and returns the result of the send. Unless that is an error, the function is called once with the
 * command's result. A record is copied. It may be a record of this interface or the C record of the command.
 *
 * Errors of a command: the codes of the C function that sends it, the server's codes, std::errc::timed_out after its
 * deadline, and client_errc. A client that is not bound refuses every command with FWX_NAT64_ERR_NOT_READY.
 *
 * Calling context: the thread that runs the event loop of the binding, also from inside coroutines and callbacks. Not
 * thread-safe. Destroying an awaitable, a coroutine that awaits, or the client is safe at any moment, also from inside
 * a callback. Coroutines are resumed, and callbacks called, from inside the loop, from expire(), or from the place
 * where the client is closed or destroyed.
 *
 * Exceptions: an exception of a PAL function that belongs to an awaited operation reaches the coroutine that awaits,
 * whether the function is called at once or from the loop. One case differs: if the `send` function of an awaited
 * configure() throws when it is called again after a wait for room, the coroutine gets client_errc::callback_threw and
 * the handler `failed` gets the exception. Exceptions of callbacks and handlers also reach `failed`, and so does the
 * error of a task that nobody awaited.
 *
 * Memory: the client allocates coroutine frames, lists and other data that waits to be read, and the table of
 * outstanding commands with its queues. The table grows when it is full and its slots are reused.
 *
 * Not supported: more than one client in a process (the second is refused with 17, File exists); calls of the C
 * functions fwx_nat64_bind and fwx_nat64_unbind beside a client; a throttle callback of the PAL, because the client
 * installs its own.
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

/** A binding to the server. The destructor unbinds: outstanding commands then end with FWX_NAT64_ERR_NOT_READY, but the
 * server may still carry them out. The library's table of MAP-T rules stays.
 *
 * A restarted server has no rules, and assigns new indices to the rules that it gets. The library's table keeps the
 * rules with their old indices, and answers an add of one of them with FWX_NAT64_ERR_EXISTS. So when the PAL knows that
 * the server has restarted, it calls rules_forget() and adds all rules again. */
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
    /** Entries that one query of pools or mappings asks for; a longer list takes several queries. */
    static constexpr uint32_t entries_a_query = 1000;

    /**
     * Binds. Blocks until the server has answered.
     * @param client_id four characters that identify the PAL to the server; a shorter text is padded with zeros, the
     *                  rest of a longer one is ignored.
     * @param ev_arg    the PAL's event argument (its loop); must outlive the client.
     * @param on        handlers of unsolicited messages and of changes of the channel.
     * @param platform  services of the platform beyond the C interface.
     * @param error     set to the error of the bind, or to no error. After an error the client is not bound.
     */
    client(std::string_view client_id, void *ev_arg, handlers on, const adapter &platform, std::error_code &error)
        : binding_(four(client_id).data(), ev_arg, std::move(on), platform, error) {}
    /** The same, but throws the error as std::system_error. */
    client(std::string_view client_id, void *ev_arg, handlers on = {}, const adapter &platform = {})
        : binding_(four(client_id).data(), ev_arg, std::move(on), platform, bind_error_) {
        if (bind_error_) throw std::system_error(bind_error_, "no binding");
    }

    /** True if the client is bound and has not been closed. */
    bool is_open() const noexcept { return binding_.is_bound(); }
    /** Unbinds now. Outstanding commands end as when the client is destroyed, and every later command is refused. */
    void close() { binding_.close(); }
    /** Empties the library's table of MAP-T rules, because a restarted server does not have them. Sends nothing. The
     * reply to an outstanding add does not install its rule. */
    static void rules_forget() noexcept { fwx_mapt_plu_cleanup(); }
    /** True if a channel to the server is open. If not, the next command opens one. */
    bool is_connected() const noexcept {
        const fwx_nat64_client_info_t *info = is_open() ? fwx_nat64_client_info_get() : nullptr;
        return info != nullptr && info->connected != 0;
    }
    /** Number of commands and queries that wait for an answer or for room. */
    size_t outstanding() const noexcept { return binding_.outstanding(); }
    /** Sets the time limit of commands and queries made from now on, unless `within` sets another one; nullopt: no
     * limit. For a list it limits the time between replies. 0 ends a command in the next turn of the loop. Throws
     * std::out_of_range for a time that is negative or longer than some 30,000 years. */
    void deadline_set(std::optional<std::chrono::milliseconds> timeout) {
        timeout_ms_ = timeout ? detail::deadline_of(*timeout) : 0;
    }
    /** Ends the commands whose deadline is at or before `now_ms`, in milliseconds of the adapter's clock. Only a PAL
     * whose adapter has no timers needs to call it. */
    void expire(uint64_t now_ms) { binding_.expire(now_ms); }
    /** The same for the current time. */
    void expire() { binding_.expire(binding_.now_ms()); }

    /** True if the channel is full: it has reported so, or it has refused a send. With adapter::is_throttled also if it
     * has filled up and the report has not come through the loop yet. When the channel accepts no more
     * (adapter::full_code), an awaited command waits for room, and a command with a callback is refused with
     * client_errc::no_room. */
    bool is_throttled() const noexcept { return binding_.is_throttled(); }
    /** Awaits room in the channel. Does not suspend if there is room. */
    auto writable() noexcept { return room_t(binding_); }
    /** The server's unsolicited messages from now on, as a stream of awaitables. */
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
    /** Removes the replication. */
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
    /* --- Interfaces, prefixes, mappings, pools and logging --- */

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
    /** Adds a range of addresses to a pool. */
    auto range_add(const fwx_nat64_pool_range_t &value, auto... on) {
        return configure(
            [record = value](void *pal_ctx) { return fwx_nat64_pool_range_set_a(FWX_NAT64_OP_ADD, &record, pal_ctx); },
            std::move(on)...);
    }
    /** Deletes a range of addresses from a pool. */
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

    /** Adds a basic mapping rule, at the server and in the library's table. The table installs the rule even if the
     * server refuses it. Send the next command for a rule after the reply to the one before. */
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

    /** Clears the sessions that match a filter. */
    auto session_clear(const fwx_nat64_session_filter_t &value, auto... on) {
        return configure([record = value](void *pal_ctx) { return fwx_nat64_session_clear_a(&record, pal_ctx); },
                         std::move(on)...);
    }
    /* --- Statistics. Without a function, a list query gives a `list` of all entries. With one function it is still
     * awaited: the function gets the entries of each reply as a std::span and may return false to stop. A second
     * function gets the result; then the query is sent at once, as a command with a callback is.
     *
     * This project's server answers at most FWX_NAT64_MODEL_LISTS_MAX (64) long lists and walks of a client at a time.
     * An awaited query beyond them waits until another list or walk of this client has ended. A query with a function
     * for the result is refused with FWX_NAT64_MODEL_ERR_TOO_MANY. --- */

    /** Number of items of each kind that the server holds. */
    auto stats_totals() { return record<fwx_nat64_stats_sys_entry_t>(0); }
    /** Counters of the server. This query and the next two need this project's server. */
    auto stats_counts() { return record<fwx_nat64_stats_counts_t>(FWX_NAT64_SEL_COUNTS); }
    /** The random id of this run of the server, by which a client detects a restart, and its configuration changes. */
    auto stats_boot() { return record<fwx_nat64_stats_boot_t>(FWX_NAT64_SEL_BOOT); }
    /** Number of items of each kind that the server holds, and of messages that it has refused for each reason. */
    auto stats_system() { return record<fwx_nat64_stats_system_t>(FWX_NAT64_SEL_SYSTEM); }
    /**
     * The whole configuration of the server. If it changes while it is read, the client reads it again, three times in
     * all. Errors: client_errc::changing after the third time; client_errc::unreadable if the server is not this
     * project's, or the adapter lacks `head` or `bytes_behind`.
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
    /** Statistics of all interfaces. */
    auto stats_interfaces(auto... on) {
        return entries<fwx_nat64_stats_intf_entry_t>(
            [](void *pal_ctx, uint64_t, uint64_t) { return fwx_nat64_stats_intf_query_a(pal_ctx); }, std::move(on)...);
    }
    /** Statistics of all pools. */
    auto stats_pools(auto... on) {
        return entries<fwx_nat64_stats_pool_entry_t>(
            [](void *pal_ctx, uint64_t cookie, uint64_t) {
                return fwx_nat64_stats_pool_all_query_a(0, reinterpret_cast<void *>(cookie), entries_a_query, 0,
                                                        pal_ctx);
            },
            std::move(on)...);
    }
    /** Statistics of all mappings. */
    auto stats_mappings(auto... on) {
        return entries<fwx_nat64_stats_mapping_entry_t>(
            [](void *pal_ctx, uint64_t cookie, uint64_t) {
                return fwx_nat64_stats_mapping_all_query_a(0, reinterpret_cast<void *>(cookie), entries_a_query, 0,
                                                           pal_ctx);
            },
            std::move(on)...);
    }
    /** All limits and their use. */
    auto stats_limits(auto... on) {
        return entries<fwx_nat64_stats_limit_entry_t>(
            [](void *pal_ctx, uint64_t, uint64_t) { return fwx_nat64_stats_limit_all_query_a(0, UINT32_MAX, pal_ctx); },
            std::move(on)...);
    }

    /**
     * Walks the sessions, in the short form that every server sends.
     * @param filter    selects the sessions; by default all of them.
     * @param page_size sessions per page.
     */
    auto sessions(const fwx_nat64_sess_walk_filter_t &filter = session_filter{}, uint32_t page_size = 100) {
        return walk<fwx_nat64_session_t>(filter, page_size, 0);
    }
    /** Walks the sessions with both sides of each translation, a form that only this project's server sends. With
     * another server the walk ends with an error or, if the adapter lacks `bytes_behind`, gives meaningless entries. */
    auto sessions_full(const fwx_nat64_sess_walk_filter_t &filter = session_filter{}, uint32_t page_size = 100) {
        return walk<fwx_nat64_session_full_t>(filter, page_size, FWX_NAT64_WALK_FULL);
    }

    /* --- Commands and queries without a member here. --- */

    /** A configuration command. `send` calls the C function that sends it, with the `pal_ctx` that it is given, and
     * returns that function's result. */
    template <class send_type>
    auto configure(send_type send) {
        return command<send_type>(binding_, std::move(send), timeout_ms_);
    }
    /** The same, sent at once; `on` gets its result. */
    template <class send_type, class on_type>
    result configure(send_type send, on_type on) {
        return detail::callback<result, on_type>::start(binding_, send, timeout_ms_, std::move(on));
    }
    /** The same for a command of a MAP-T rule. */
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
     * A list query, continued with the cookies of its replies until the list is complete. Sent at once.
     * @param ask     calls the C function that sends the query. It is given the `pal_ctx`, the cookie to continue with,
     *                and the number of entries received so far.
     * @param on_page gets each reply as a page; its list_step says whether the list goes on.
     * @param on_end  gets the result of the query, unless the result of the send is an error.
     * @param cookie  where the list begins; 0: at its first entry.
     * @return the result of the send.
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
    /** The callback for fwx_nat64_session_walk_a in an `ask` function of query(). */
    static constexpr fwx_nat64_sess_walk_fn_t walk_callback = detail::binding::walked;

private:
    std::error_code bind_error_; /* of the constructor that throws it */
    detail::binding binding_;
    uint64_t timeout_ms_ = 0;
};

}  // namespace fwx::nat64

#endif
