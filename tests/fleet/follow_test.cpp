/*
 * A gateway that follows the store: it must not fetch anything twice, must notice a dead or hanging member, and must
 * back off when the store fails or is slow. A scripted clock replaces waiting.
 */
#include <algorithm>
#include <set>
#include <tuple>

#include "fleet/base64.h"
#include "fleet/document_store.h"
#include "fleet/manifest_watch.h"
#include "net/jitter.h"
#include "tests/fleet/scripted_server.h"
#include "tests/nat64d/documents.h"
#include "tests/support/runtime_directory.h"
#include "tools/nat64d/gateway_heartbeat.h"
#include "tools/nat64d/store_follower.h"

namespace {

class follow_test : public real_etcd_test {
protected:
    void publish(const std::string &text, uint64_t version) {
        ASSERT_FALSE(run(etcd_.txn(put(keys_.manifest(), manifest_text(text, version)))).error);
    }
    void put_chunks(const std::vector<std::string_view> &pieces) {
        for (const std::string_view piece : pieces) {
            ASSERT_FALSE(run(etcd_.txn(put(keys_.chunk(name_chunk(piece).hash), std::string(piece)))).error);
        }
    }

    const runtime_directory_t directory_;
    fleet_keys_t keys_{"p"};
};

/** The part of a gateway that talks to the store: its follower and its heartbeat. */
struct listener_t {
    listener_t(fwx_host_loop_t *loop, const std::vector<std::string> &places, const std::string &folder,
               const etcd_options_t &options = {.timeout_ms = 1000})
        : etcd(loop, store_at(places), options),
          follower(loop, etcd, "g1", folder,
                   {[this](const std::string &text, const std::string &) -> nat64::task<taken_t> {
                        taken = text;
                        was_up = follower.status().is_up;
                        co_return taken_t{"its hash", ""};
                    },
                    [this](const std::string &, const std::string &reason) { refused = reason; },
                    [this] { has_settled = true; }}),
          heartbeat(
              loop, etcd, "g1", [this] { return state; },
              [this](const etcd_error_t &error) {
                  asked = error.kind;
                  follower.asked(error);
              }) {
        state.gateway = "g1";
    }

    std::string taken; /* the last document */
    std::string refused;
    bool was_up = false; /* status of the store when the document was taken */
    bool has_settled = false;
    gateway_state_t state;
    std::optional<kind_t> asked; /* by the heartbeat, with this result */
    etcd_t etcd;
    store_follower_t follower;
    gateway_heartbeat_t heartbeat;
};

TEST_F(follow_test, a_manifest_from_the_watch_is_not_read_again) {
    manifest_watch_t watch(etcd_, keys_);
    EXPECT_FALSE(run(watch.next()).value.manifest) << "there is none yet";
    run(etcd_.txn(put(keys_.manifest(), "no manifest")));
    manifest_watch_t late(etcd_, keys_);
    EXPECT_EQ(run(late.next()).error.kind, kind_t::malformed);
    const std::tuple<std::string, uint64_t, kind_t> cases[] = {
        {manifest_text("pool\n", 1), 1, kind_t::none},
        {manifest_text("pool\n", 2), 2, kind_t::none},
        {"not JSON", 0, kind_t::malformed},
        {"", 0, kind_t::none}, /* the key is deleted */
        {manifest_text("pool\n", 3), 3, kind_t::none},
    };
    for (const auto &[text, version, kind] : cases) {
        SCOPED_TRACE(text);
        run(etcd_.txn(text.empty() ? deletion(keys_.manifest()) : put(keys_.manifest(), text)));
        for (const auto &next : {run(watch.next()), run(late.next())}) { /* the first had two changes to take at once */
            EXPECT_EQ(next.error.kind, kind) << next.error.text;
            EXPECT_EQ(next.value.manifest ? next.value.manifest->document.version : 0, version);
            EXPECT_EQ(next.value.text, text);
            EXPECT_EQ(next.value.mod_revision != 0, !text.empty());
        }
    }
    EXPECT_EQ(metric(key_reads), "2") << "once for each watch";
}

TEST_F(follow_test, chunks_that_came_before_a_failure_are_not_fetched_again) {
    const std::string text = document_text(5000, 1);
    const std::vector<std::string_view> pieces = cut_chunks(text);
    ASSERT_GT(pieces.size(), 20U) << "more than are fetched at once";
    put_chunks({pieces.begin(), pieces.end() - 1});
    publish(text, 1);

    listener_t listener(loop_, {process_.place()}, directory_.path());
    EXPECT_FALSE(listener.follower.status().is_up) << "nothing has been asked so far";
    listener.follower.start("");
    ASSERT_TRUE(turn_until([&] { return !listener.refused.empty(); }));
    EXPECT_EQ(listener.refused, keys_.chunk(name_chunk(pieces.back()).hash) + ": is not there");
    EXPECT_EQ(listener.taken, "");
    run(etcd_.txn(deletion(keys_.chunk(name_chunk(pieces.front()).hash))));
    put_chunks({pieces.back()});
    EXPECT_TRUE(turn_until([&] { return !listener.taken.empty(); })) << listener.follower.status().refused_reason;
    EXPECT_EQ(listener.taken, text);
    EXPECT_TRUE(listener.was_up);
}

/** An answer of the store to a read of one key. */
std::string range_answer(const std::string &key, const std::string &value, int revision) {
    const std::string number = std::to_string(revision);
    return R"({"header":{"revision":")" + number + R"("},"kvs":[{"key":")" + to_base64(key) + R"(","value":")" +
           to_base64(value) + R"(","create_revision":"2","mod_revision":")" + number + R"("}]})";
}

TEST_F(etcd_test, only_a_read_that_equals_the_last_event_of_the_watch_confirms_it) {
    const fleet_keys_t keys("p");
    const std::string text = "pool add --id 1\n";
    const auto manifest = [&](uint64_t version, int revision) {
        return ok(range_answer(keys.manifest(), manifest_text(text, version), revision));
    };
    const std::string chunk = ok(R"({"succeeded":true,"responses":[{"response_range":)" +
                                 range_answer(keys.chunk(sha256(text)), text, 2) + "}]}");
    const std::string watching = "HTTP/1.1 200 x\r\nContent-Length: 1000000\r\n\r\n{\"result\":{\"created\":true}}\n";
    const auto put_at = [&](int revision) { return ok(range_answer(keys.manifest(), "", revision)); };
    const scripted_server_t server({{manifest(1, 5), chunk, watching},
                                    {put_at(5), put_at(7), manifest(2, 7), watching},
                                    {put_at(7), failure(400, 7, "permission denied"), put_at(7)}},
                                   true);
    const runtime_directory_t directory;
    listener_t listener(loop_, {server.place()}, directory.path());
    store_follower_t &follower = listener.follower;
    follower.start("");
    const auto is_watched = [&] {
        return turn_until([&] { /* nothing else is on the loop then, once curl's timers are over */
                                fwx_host_clock_turn(10);
                                return fwx_host_loop_next_timeout_ms(loop_) > 60000;
        });
    };
    ASSERT_TRUE(is_watched()) << follower.status().reason;
    EXPECT_EQ(listener.taken, text);
    follower.in_force("its hash");
    EXPECT_EQ(follower.status().version, 1U);
    ASSERT_TRUE(turn_until([&] { return std::filesystem::exists(directory.path() + "/store_document"); }));
    const double read_s = follower.status().confirmed_s;
    EXPECT_GT(read_s, 0);
    const auto ask = [&](uint64_t later_ms) {
        fwx_host_clock_turn(later_ms);
        follower.asked({});
    };
    ask(0);
    EXPECT_EQ(follower.status().confirmed_s, read_s) << "that somebody else was answered says nothing";
    ask(20000);
    ASSERT_TRUE(turn_until([&] { return follower.status().confirmed_s > read_s; })) << "it is the one that was told of";

    ask(20000); /* the watch has missed the next manifest */
    ASSERT_TRUE(turn_until([&] {
        follower.in_force("its hash");
        return follower.status().version == 2;
    }));
    ASSERT_TRUE(is_watched()) << "again";
    ask(20000);
    ASSERT_TRUE(is_watched()) << "and stays so";
    EXPECT_TRUE(follower.status().is_up);
    ask(20000);
    EXPECT_TRUE(turn_until([&] { return !follower.status().is_up; }));
    EXPECT_NE(follower.status().reason.find("permission denied"), std::string::npos) << follower.status().reason;
    ask(0); /* an unconfirmed document is checked at once */
    EXPECT_TRUE(turn_until([&] { return follower.status().is_up; }));
}

TEST_F(follow_test, a_start_without_the_store_hands_over_the_stored_document_unless_a_later_one_is_in_force) {
    const std::string text = "pool add --id 1\n";
    put_chunks({text});
    publish(text, 1);
    {
        listener_t listener(loop_, {process_.place()}, directory_.path());
        const auto keeps = [&](int version) {
            return turn_until([&] {
                listener.follower.in_force("its hash");
                const std::string said = "\"version\":" + std::to_string(version);
                return ::text_of(directory_.path() + "/store_document").find(said) != std::string::npos;
            });
        };
        listener.follower.start("");
        ASSERT_TRUE(turn_until([&] { return !listener.taken.empty(); }));
        ASSERT_TRUE(keeps(1));
        publish(text, 2); /* the text of an earlier version, as a rollback puts it */
        ASSERT_TRUE(keeps(2));
        EXPECT_EQ(listener.follower.status().version, 2U);
    }
    process_.end(SIGKILL);
    using case_t = std::tuple<std::string, std::string, uint64_t>;
    for (const auto &[in_force, handed_over, version] :
         {case_t("", text, 0), case_t("its hash", text, 2), case_t("a later hash", "", 0)}) {
        listener_t listener(loop_, {process_.place()}, directory_.path());
        listener.follower.start(in_force);
        ASSERT_TRUE(turn_until([&] { return listener.has_settled; }));
        EXPECT_EQ(listener.taken, handed_over) << in_force;
        EXPECT_EQ(listener.follower.status().version, version) << in_force;
    }
}

TEST_F(etcd_test, a_heartbeat_that_is_refused_keeps_its_pauses_however_often_the_state_is_looked_at) {
    scripted_server_t::answers_t answers(6, failure(400, 7, "no permission"));
    answers.front() = ok(R"({"ID":"7","TTL":"10"})");
    scripted_store_t store(loop_, {answers});
    gateway_state_t state;
    size_t asked = 0;
    gateway_heartbeat_t heartbeat(
        loop_, store.etcd, "g1", [&] { return state; },
        [&](const etcd_error_t &) {
            if (++asked != 3) return;
            state.version = 3;
            heartbeat.changed();
        });
    fwx_host_clock_turn(0);
    heartbeat.start();
    ASSERT_TRUE(turn_until([&] { return asked == 1; }));
    for (int i = 0; i < 10; ++i) {
        heartbeat.changed();
        fwx_host_loop_run_once(loop_, 5);
    }
    EXPECT_EQ(asked, 1U);
    fwx_host_clock_turn(1250);
    EXPECT_TRUE(turn_until([&] { return asked == 2; })) << "the pause is over, and the lease is not due";
    state.version = 2;
    heartbeat.changed();
    EXPECT_TRUE(turn_until([&] { return asked == 4; })) << "a new state is worth another attempt, also one after it";
    heartbeat.report_now();
    EXPECT_TRUE(turn_until([&] { return asked == 5; }));
}

TEST_F(follow_test, a_store_that_has_not_answered_for_10_s_does_not_confirm_the_document) {
    listener_t listener(loop_, {process_.place()}, directory_.path());
    const auto is_up = [&] { return listener.follower.status().is_up; };
    listener.follower.start("");
    fwx_host_clock_turn(0);
    ASSERT_TRUE(turn_until(is_up));
    fwx_host_clock_turn(9999);
    EXPECT_TRUE(is_up());
    fwx_host_clock_turn(1);
    EXPECT_FALSE(is_up());
    EXPECT_EQ(listener.follower.status().reason, "no member of the store has answered for 10 s");
    listener.follower.asked({});
    EXPECT_TRUE(is_up());
}

/* All gateways start with the same member, so its faults affect all of them. */
TEST_F(follow_test, members_of_a_store_that_hang_die_or_are_alone_make_no_gateway_deaf) {
    const etcd_cluster_t cluster(std::vector<etcd_cluster_t::place_t>(3));
    etcd_t writer(loop_, store_at(cluster.places()), {.timeout_ms = 1000});
    std::string text;
    const auto publish_next = [&](int version) {
        text = "pool add --id " + std::to_string(version) + '\n';
        etcd_txn_t txn = put(keys_.manifest(), manifest_text(text, static_cast<uint64_t>(version)));
        txn.puts.push_back({keys_.chunk(sha256(text)), text, 0});
        txn.is_repeatable = true;
        return turn_until([&] { return !run(writer.txn(txn)).error; });
    };
    ASSERT_TRUE(publish_next(1)) << cluster[0].log();
    const runtime_directory_t directories[3];
    std::vector<std::unique_ptr<listener_t>> listeners;
    for (const runtime_directory_t &directory : directories) {
        listeners.push_back(std::make_unique<listener_t>(loop_, cluster.places(), directory.path()));
        listeners.back()->follower.start("");
        listeners.back()->heartbeat.start();
    }
    const auto all = [&](auto condition) {
        return turn_until([&] { return std::all_of(listeners.begin(), listeners.end(), condition); });
    };
    const auto hear_it = [&] { return all([&](const auto &each) { return each->taken == text; }); };
    const auto say_up = [&](bool is_up) {
        return all([&](const auto &each) { return each->follower.status().is_up == is_up; });
    };
    ASSERT_TRUE(hear_it());
    cluster[0].signal(SIGSTOP);
    ASSERT_TRUE(publish_next(2));
    EXPECT_TRUE(hear_it()) << "a member hangs";
    cluster[0].signal(SIGCONT);
    cluster[1].end(SIGKILL);
    ASSERT_TRUE(publish_next(3));
    EXPECT_TRUE(hear_it()) << "a member is gone";
    EXPECT_TRUE(say_up(true));
    cluster[2].signal(SIGSTOP);
    EXPECT_TRUE(say_up(false)) << "no majority is there";
    cluster[2].signal(SIGCONT);
    ASSERT_TRUE(publish_next(4));
    EXPECT_TRUE(hear_it()) << "a majority is there again";
    EXPECT_TRUE(say_up(true));
}

TEST_F(etcd_test, chunks_that_do_not_come_are_asked_for_again_before_it_is_given_up) {
    const fleet_keys_t keys("p");
    const std::string pieces[] = {std::string(50000, '1'), std::string(50000, '2')}; /* too long for one request */
    const std::string lost = failure(503, 14, "timed out");
    for (const size_t first_lost : {2U, 3U}) {
        scripted_server_t::answers_t answers;
        std::vector<chunk_t> chunks;
        size_t count = first_lost;
        for (const std::string &piece : pieces) {
            answers.insert(answers.end(), std::exchange(count, 2), lost);
            chunks.push_back(name_chunk(piece));
            answers.push_back(
                ok(R"({"responses":[{"response_range":)" + range_answer(keys.chunk(sha256(piece)), piece, 2) + "}]}"));
        }
        scripted_store_t store(loop_, {answers});
        std::string taken;
        const etcd_error_t error = run(fetch_chunks(
            store.etcd, keys, chunks, [&taken](const chunk_t &, const std::string &fetched) { taken += fetched; }));
        EXPECT_EQ(error.kind, first_lost == 2 ? kind_t::none : kind_t::no_answer) << error.text;
        EXPECT_EQ(taken, first_lost == 2 ? pieces[0] + pieces[1] : "");
    }
}

/* The test advances the clock between each request and its answer. */
TEST_F(follow_test, a_store_with_a_long_round_trip_gets_larger_requests) {
    const std::string text = document_text(10000, 1);
    const std::vector<std::string_view> pieces = cut_chunks(text);
    put_chunks(pieces);
    size_t taken = 0;
    size_t seen = 0;
    size_t requests = 1;
    auto fetch = fetch_chunks(etcd_, keys_, document_of(text, 1).chunks,
                              [&taken](const chunk_t &, const std::string &) { ++taken; });
    fetch.start();
    constexpr uint64_t delay_ms = 2000;
    fwx_host_clock_turn(delay_ms);
    ASSERT_TRUE(turn_until([&] {
        if (!fetch.done() && taken != seen) {
            ++requests;
            seen = taken;
            fwx_host_clock_turn(delay_ms);
        }
        return fetch.done();
    }));
    fwx_host_clock_run();
    EXPECT_EQ(fetch.get().text, "");
    EXPECT_EQ(taken, pieces.size());
    EXPECT_LE(requests, 6U) << pieces.size() << " chunks";
}

/* The test waits until the loop has the timer of a pause, and then advances the clock to end it. */
TEST_F(etcd_test, a_store_that_fails_each_time_is_asked_with_growing_pauses) {
    const std::string nothing = ok(R"({"header":{"revision":"2"}})");
    const std::string compacted = ok("{\"result\":{\"canceled\":true,\"compact_revision\":\"7\"}}\n");
    const std::string refused = failure(400, 7, "permission denied");
    const std::tuple<scripted_server_t::answers_t, bool, uint64_t> cases[] = {{{nothing, compacted}, true, 5000},
                                                                              {{refused}, false, 60000}};
    for (const auto &[answers, is_up, last_ms] : cases) {
        const scripted_server_t server(std::vector<scripted_server_t::answers_t>(100, answers));
        const runtime_directory_t directory;
        /* The timeout is such that the timer of a request cannot be mistaken for a pause. */
        listener_t listener(loop_, {server.place()}, directory.path(), {.timeout_ms = 3600000});
        fwx_host_clock_turn(0);
        listener.follower.start("");
        uint64_t middle_ms = 500;
        for (int pauses = 0; pauses < 9; ++pauses) {
            const auto sleeps = [&] {
                const auto left_ms = static_cast<uint64_t>(fwx_host_loop_next_timeout_ms(loop_));
                return left_ms >= middle_ms / 4 * 3 && left_ms <= middle_ms / 4 * 5;
            };
            ASSERT_TRUE(turn_until(sleeps)) << middle_ms;
            EXPECT_EQ(listener.follower.status().is_up, is_up);
            fwx_host_clock_turn(middle_ms / 4 * 5);
            middle_ms = std::min(2 * middle_ms, last_ms);
        }
        fwx_host_clock_run();
    }
}

TEST_F(follow_test, a_store_that_is_slow_makes_no_second_lease) {
    listener_t listener(loop_, {process_.place()}, directory_.path(), {.timeout_ms = 300});
    const auto says = [&](uint64_t version) {
        const std::string said = "\"version\":" + std::to_string(version);
        return turn_until(
            [&] { return text_of(run(etcd_.get(keys_.gateway_state("g1")))).find(said) != std::string::npos; });
    };
    listener.heartbeat.start();
    ASSERT_TRUE(says(0));
    const std::string granted = metric("etcd_debugging_lease_granted_total");
    process_.signal(SIGSTOP);
    listener.state.version = 1;
    listener.heartbeat.changed();
    EXPECT_TRUE(turn_until([&] { return listener.asked == kind_t::no_answer; }));
    process_.signal(SIGCONT);
    EXPECT_TRUE(says(1));
    EXPECT_EQ(metric("etcd_debugging_lease_granted_total"), granted);
}

TEST_F(follow_test, a_lease_that_is_due_is_kept_once_and_replaced_with_its_state_when_it_has_ended) {
    listener_t listener(loop_, {process_.place()}, directory_.path());
    const auto entries_of = [&](const std::string &key) { return run(etcd_.get(key)).value.entries; };
    const auto lease_of_state = [&] {
        const std::vector<etcd_entry_t> entries = entries_of(keys_.gateway_state("g1"));
        return entries.empty() ? 0 : entries.front().lease;
    };
    const auto kept = [&] {
        return metric(R"(grpc_server_handled_total{grpc_code="OK",grpc_method="LeaseKeepAlive",)"
                      R"(grpc_service="etcdserverpb.Lease",grpc_type="bidi_stream"})");
    };
    listener.heartbeat.start();
    ASSERT_TRUE(turn_until([&] { return listener.asked == kind_t::none; }));
    const int64_t first = lease_of_state();
    fwx_host_clock_turn(2 * keep_lease_ms);
    EXPECT_TRUE(turn_until([&] { return kept() == "1"; })) << kept();
    for (int turn = 0; turn < 100; ++turn) {
        fwx_host_loop_run_once(loop_, 1);
    }
    EXPECT_EQ(kept(), "1");
    ASSERT_TRUE(run(etcd_.revoke_lease(first)).value);
    EXPECT_EQ(lease_of_state(), 0) << "the state ends with its lease";
    EXPECT_EQ(entries_of(keys_.gateway_seen("g1")).size(), 1U) << "and is remembered as the last one seen";
    fwx_host_clock_turn(2 * keep_lease_ms);
    EXPECT_TRUE(turn_until([&] { return lease_of_state() != 0; }));
    EXPECT_NE(lease_of_state(), first);
}

TEST(jitter_test, a_delay_varies_by_up_to_a_quarter_in_both_directions) {
    std::set<uint64_t> times_ms;
    for (int i = 0; i < 1000; ++i) {
        times_ms.insert(jitter(3000));
    }
    EXPECT_GE(*times_ms.begin(), 2250U);
    EXPECT_LE(*times_ms.rbegin(), 3750U);
    EXPECT_GT(*times_ms.rbegin() - *times_ms.begin(), 1000U);
    EXPECT_EQ(jitter(0), 0U);
    backoff_t backoff(1000);
    for (const uint64_t middle_ms : {1000U, 2000U, 3000U, 3000U}) {
        const uint64_t delay_ms = backoff.next(3000);
        EXPECT_TRUE(delay_ms >= middle_ms / 4 * 3 && delay_ms <= middle_ms / 4 * 5) << delay_ms;
    }
    backoff.reset();
    EXPECT_LE(backoff.next(3000), 1250U);
}

}  // namespace
