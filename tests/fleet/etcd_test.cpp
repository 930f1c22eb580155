/* The client of etcd, with a real etcd and with scripted servers that answer wrongly or not at all. */
#include <tuple>

#include "fleet/base64.h"
#include "tests/fleet/scripted_server.h"
#include "tests/support/descriptor_limit.h"
#include "tests/support/runtime_directory.h"

namespace {

using compare_t = etcd_txn_t::compare_t;

/* The answer to a watch, with one event, which may be followed by others. */
const std::string watch_opened = "{\"result\":{\"created\":true}}\n";
std::string event_of(const std::string &key) {
    return R"({"result":{"events":[{"kv":{"key":")" + key + R"(","mod_revision":"7"}})";
}

TEST_F(real_etcd_test, transactions_put_and_delete_bytes_when_their_comparisons_hold) {
    const std::string bytes("\0\xff\n\"", 4);
    etcd_txn_t first = put("p/a", bytes);
    first.compares = {{compare_t::what_t::create_revision, "p/a", "", 0}};
    const auto made = run(etcd_.txn(first));
    ASSERT_TRUE(made.value.is_done) << made.error.text;
    EXPECT_FALSE(run(etcd_.txn(first)).value.is_done) << "it is there now";
    const auto read = run(etcd_.get("p/a"));
    ASSERT_EQ(read.value.entries.size(), 1U) << read.error.text;
    const etcd_entry_t &entry = read.value.entries[0];
    EXPECT_EQ(entry.value, bytes);
    EXPECT_EQ(entry.create_revision, made.value.revision);
    EXPECT_EQ(read.value.revision, made.value.revision);
    EXPECT_TRUE(run(etcd_.get("p")).value.entries.empty());

    etcd_txn_t second = put("p/b", "2");
    second.compares = {{compare_t::what_t::value, "p/a", bytes}, {compare_t::what_t::mod_revision, "p/a", "", 7777}};
    EXPECT_FALSE(run(etcd_.txn(second)).value.is_done);
    second.compares[1].revision = entry.mod_revision;
    second.deletes = {"p/a", "p/none"};
    EXPECT_TRUE(run(etcd_.txn(second)).value.is_done);
    EXPECT_EQ(text_of(run(etcd_.list("p/", true))), "p/b=2 ");
    const auto all = run(etcd_.get_all({"p/b", "p/a", "p/b"}));
    EXPECT_EQ(text_of(all), "p/b=2 p/b=2 ");
    EXPECT_EQ(all.value.revision, run(etcd_.get("p/b")).value.revision);
    EXPECT_EQ(text_of(run(etcd_.get("p/a", made.value.revision))), "p/a=" + bytes + ' ') << "as it was";
}

TEST_F(real_etcd_test, a_list_is_whole_however_many_pages_it_takes) {
    etcd_txn_t txn;
    for (int i = 100; i < 127; ++i) {
        txn.puts.push_back({"p/" + std::to_string(i), "v", 0});
    }
    txn.puts.push_back({"q", "another prefix", 0});
    ASSERT_TRUE(run(etcd_.txn(txn)).value.is_done);
    for (const uint32_t page : {1U, 9U, 27U, 28U}) {
        etcd_t etcd(loop_, etcd_.store(), {.page = page});
        const auto list = run(etcd.list("p/", false));
        ASSERT_EQ(list.value.entries.size(), 27U) << page << list.error.text;
        EXPECT_EQ(list.value.entries[26].key, "p/126");
        EXPECT_EQ(list.value.entries[26].value, "");
    }
}

TEST_F(etcd_test, a_list_without_end_is_given_up_and_its_bound_named) {
    scripted_server_t::answers_t pages;
    for (int i = 10; i < 20; ++i) {
        pages.push_back(ok(R"({"header":{"revision":"2"},"more":true,"kvs":[{"key":")" +
                           to_base64("p/" + std::to_string(i)) + R"(","value":"eA=="}]})"));
    }
    const std::pair<etcd_options_t, std::string> cases[] = {
        {{.most_entries = 3}, "more than 3 keys begin with p/"},
        {{.most_list_bytes = 300}, "the keys that begin with p/ take more than 300 bytes"}};
    for (const auto &[options, error] : cases) {
        scripted_store_t store(loop_, {pages}, options);
        EXPECT_EQ(run(store.etcd.list("p/", true)).error.text, store.error(error));
    }
}

TEST_F(etcd_test, keys_that_were_not_asked_for_are_refused) {
    const std::string wrong = "not an answer of etcd: ";
    const std::string of_key = "kvs: must have no key but p/a";
    const std::string of_order = "kvs: keys must be in ascending order";
    const std::string of_prefix = "kvs: each key must begin with p/a";
    /* The keys in the answer to a request for `p/a`, or for the keys that begin with it. */
    const std::tuple<std::vector<std::string>, std::string, std::string> cases[] = {
        {{"p/a"}, "", ""}, /* correct for both */
        {{"p/a", "p/ab"}, of_key, ""},
        {{"p/b"}, of_key, of_prefix},
        {{"p"}, of_key, of_prefix},
        {{"p/ab", "p/a"}, of_key, of_order},
        {{"p/a", "p/a"}, of_key, of_order},
    };
    for (const auto &[keys, of_get, of_list] : cases) {
        json_t entries = json_t::array();
        for (const std::string &key : keys) {
            entries.push_back({{"key", to_base64(key)}});
        }
        const json_t range = {{"kvs", entries}};
        const json_t ranges = {{"responses", json_t::array({{{"response_range", range}}})}};
        const std::string one = ok(range.dump());
        scripted_store_t store(loop_, {{one, one, ok(ranges.dump()), one}});
        const auto text = [&](const std::string &fault) { return fault.empty() ? "" : store.error(wrong + fault); };
        EXPECT_EQ(run(store.etcd.get("p/a")).error.text, text(of_get));
        EXPECT_EQ(run(store.etcd.mod_revision_of("p/a")).error.text, text(of_get));
        EXPECT_EQ(run(store.etcd.get_all({"p/a"})).error.text, text(of_get));
        const auto list = run(store.etcd.list("p/a", true));
        EXPECT_EQ(list.error.text, text(of_list));
        EXPECT_EQ(list.value.entries.empty(), !of_list.empty());
    }
    scripted_store_t store(loop_, {{ok(R"({"responses":[]})"), ok(watch_opened + event_of("YQ==") + "]}}\n")}});
    EXPECT_EQ(run(store.etcd.get_all({"p/a"})).error.text,
              store.error(wrong + "responses: must be as many as there are requests"));
    etcd_watch_t watch(store.etcd, "p/a", 1);
    EXPECT_EQ(run(watch.next()).error.text, store.error(wrong + "events: must be of no key but p/a"));
}

TEST_F(real_etcd_test, a_lease_that_has_ended_is_gone_without_an_error_but_no_key_can_have_it) {
    const auto lease = run(etcd_.grant_lease(60));
    EXPECT_EQ(run(etcd_.keep_lease(lease.value)).value, 60U) << lease.error.text;
    EXPECT_TRUE(run(etcd_.revoke_lease(lease.value)).value);
    EXPECT_TRUE(run(etcd_.revoke_lease(lease.value)).value) << "it is gone, as it should be";
    const auto gone = run(etcd_.keep_lease(lease.value));
    EXPECT_FALSE(gone.error) << gone.error.text;
    EXPECT_EQ(gone.value, 0U);
    const etcd_error_t late = run(etcd_.txn(put("p/a", "1", lease.value))).error;
    EXPECT_EQ(late.kind, kind_t::other);
    EXPECT_NE(late.text.find(process_.place() + ": etcdserver: requested lease not found"), std::string::npos);
}

TEST_F(real_etcd_test, a_watch_gives_each_event_once_and_ends_when_its_revision_has_been_compacted) {
    const auto first = run(etcd_.txn(put("p/a", "1")));
    run(etcd_.txn(put("p/b", "of another key")));
    etcd_watch_t watch(etcd_, "p/a", first.value.revision);
    auto events = run(watch.next());
    ASSERT_EQ(events.value.size(), 1U) << events.error.text;
    EXPECT_EQ(events.value[0].entry.value, "1");
    EXPECT_TRUE(watch.is_open());
    auto later = watch.next();
    later.start();
    const auto stay_silent = [&](uint64_t minutes) {
        fwx_host_clock_turn(minutes * 60000);
        fwx_host_loop_run_until_idle(loop_);
        fwx_host_clock_run();
    };
    stay_silent(11);
    EXPECT_FALSE(later.done()) << "a store tells of its progress every 10 minutes";
    run(etcd_.txn(put("p/a", "2")));
    ASSERT_TRUE(ends(later));
    EXPECT_EQ(later.get().value[0].entry.value, "2");
    const auto deleted = run(etcd_.txn(deletion("p/a")));
    events = run(watch.next());
    ASSERT_EQ(events.value.size(), 1U) << events.error.text;
    EXPECT_TRUE(events.value[0].is_delete);
    EXPECT_EQ(events.value[0].entry.mod_revision, deleted.value.revision);

    ASSERT_TRUE(process_.control("compact " + std::to_string(deleted.value.revision)));
    run(etcd_.txn(put("p/a", "3")));
    EXPECT_EQ(run(watch.next()).value.size(), 1U) << "one that is open goes on";
    etcd_watch_t late(etcd_, "p/a", first.value.revision);
    EXPECT_EQ(run(late.next()).error.kind, kind_t::compacted);
    EXPECT_EQ(run(late.next()).error.kind, kind_t::compacted) << "it stays at its end";
    EXPECT_EQ(run(etcd_.get("p/a", first.value.revision)).error.kind, kind_t::compacted);
    auto never = watch.next();
    never.start();
    stay_silent(12);
    ASSERT_TRUE(never.done());
    EXPECT_EQ(never.get().error.kind, kind_t::no_answer);
}

TEST_F(etcd_test, a_watch_tells_of_progress_and_ends_at_a_member_that_has_lost_the_others) {
    etcd_cluster_t cluster(std::vector<etcd_cluster_t::place_t>(2),
                           {"--experimental-watch-progress-notify-interval", "100ms"});
    etcd_t etcd(loop_, store_at({cluster[0].place(), nowhere()}), {.watch_silence_ms = 60000});
    ASSERT_TRUE(turn_until([&] { return !run(etcd.get("p/a")).error; })) << cluster[0].log();
    etcd_watch_t watch(etcd, "p/a", 1);
    auto end = watch.next();
    end.start();
    ASSERT_TRUE(turn_until([&] { return watch.is_open(); }));
    for (int i = 0; i < 3; ++i) {
        fwx_host_clock_turn(50000);
        EXPECT_TRUE(turn_until([&] { return fwx_host_loop_next_timeout_ms(loop_) > 50000; })) << "no progress was told";
    }
    fwx_host_clock_run();
    cluster[1].end(SIGKILL);
    ASSERT_TRUE(ends(end));
    EXPECT_EQ(end.get().error.kind, kind_t::no_answer);
    EXPECT_FALSE(watch.is_open());
    EXPECT_EQ(etcd.endpoint(), etcd.store().endpoints[1]) << "the next request goes elsewhere";
}

TEST_F(real_etcd_test, a_user_signs_in_and_again_when_the_token_is_not_known_any_more) {
    for (const char *words :
         {"user add root:r", "user grant-role root root", "role add p", "role grant-permission p readwrite p/a",
          "user add ann:secret", "user grant-role ann p", "auth enable"}) {
        ASSERT_TRUE(process_.control(words)) << process_.log();
    }
    EXPECT_EQ(run(etcd_.get("p/a")).error.kind, kind_t::rights);
    store_t store = etcd_.store();
    store.user = "ann";
    store.password = "wrong";
    etcd_t wrong(loop_, store);
    EXPECT_NE(run(wrong.get("p/a")).error.text.find("authentication failed"), std::string::npos);
    store.password = "secret";
    etcd_t etcd(loop_, store);
    ASSERT_TRUE(run(etcd.txn(put("p/a", "1"))).value.is_done);
    EXPECT_EQ(run(etcd.txn(put("p/b", "1"))).error.kind, kind_t::rights);
    for (const bool by_watch : {false, true}) {
        process_.end(SIGKILL); /* etcd then forgets the tokens, because they are only in memory */
        ASSERT_TRUE(process_.start()) << process_.log();
        etcd_error_t error;
        ASSERT_TRUE(eventually([&] { /* etcd may not be ready at once */
                                     etcd_watch_t watch(etcd, "p/a", 1);
                                     error = by_watch ? run(watch.next()).error : run(etcd.get("p/a")).error;
                                     return error.kind != kind_t::unreachable && error.kind != kind_t::no_answer;
        }));
        EXPECT_EQ(error.text, "");
    }
    etcd_watch_t other(etcd, "p/b", 1);
    EXPECT_EQ(run(other.next()).error.kind, kind_t::rights);

    /* The administrator changes the password in etcd, which ends the token, and then in the file. */
    const runtime_directory_t directory;
    store.password_file = directory.file("password", "secret");
    etcd_t rotated(loop_, store);
    ASSERT_EQ(run(rotated.get("p/a")).error.text, "");
    ASSERT_TRUE(process_.control("--user root:r user delete ann"));
    ASSERT_TRUE(process_.control("--user root:r user add ann:other"));
    ASSERT_TRUE(process_.control("--user root:r user grant-role ann p"));
    EXPECT_EQ(run(rotated.get("p/a")).error.kind, kind_t::rights);
    std::ofstream(store.password_file) << "other\n";
    auto first = rotated.get("p/a");
    auto second = rotated.get("p/a");
    first.start();
    second.start();
    ASSERT_TRUE(ends(first) && ends(second));
    EXPECT_EQ(first.get().error.text, "");
    EXPECT_EQ(second.get().error.text, "") << "the other has read the new password meanwhile";
    EXPECT_FALSE(rotated.renew_password()) << "it is the same";
}

TEST_F(real_etcd_test, an_endpoint_that_is_not_there_or_stands_still_leaves_its_turn_to_the_next) {
    ASSERT_TRUE(run(etcd_.txn(put("p/a", "1"))).value.is_done);
    etcd_t second(loop_, store_at({nowhere(), process_.place()}));
    EXPECT_TRUE(run(second.txn(put("p/b", "1"))).value.is_done) << "it was sent to nobody before";
    etcd_watch_t watch(second, "p/a", 1);
    EXPECT_EQ(run(watch.next()).value.size(), 1U);
    const std::vector<std::string> places = {nowhere(), nowhere()};
    etcd_t gone(loop_, store_at(places));
    etcd_watch_t of_none(gone, "p/a", 1);
    const std::string reasons = run(of_none.next()).error.text;
    for (const std::string &place : places) {
        EXPECT_NE(reasons.find(place), std::string::npos) << reasons;
    }

    const scripted_server_t silent[] = {scripted_server_t({{""}}), scripted_server_t({{""}})};
    const etcd_options_t options = {.timeout_ms = 200};
    etcd_t slow(loop_, store_at({silent[0].place(), process_.place()}), options);
    EXPECT_EQ(text_of(run(slow.get("p/a"))), "p/a=1 ");
    etcd_t watching(loop_, store_at({silent[1].place(), process_.place()}), options);
    etcd_watch_t late(watching, "p/a", 1);
    EXPECT_EQ(run(late.next()).value.size(), 1U);
}

TEST_F(etcd_test, a_request_that_may_be_repeated_waits_shortly_in_a_first_round) {
    const auto expect_waits = [&](const auto &error_of, const std::vector<int> &waits_ms) {
        const scripted_server_t silent[] = {scripted_server_t({{""}, {""}}, true),
                                            scripted_server_t({{""}, {""}}, true)};
        etcd_t etcd(loop_, store_at({silent[0].place(), silent[1].place()}), {.timeout_ms = 200});
        std::string error;
        for (size_t i = 0; i < waits_ms.size(); ++i) {
            error += (i == 0 ? "http://" : "; http://") + silent[i % 2].place() + ": no progress within " +
                     std::to_string(waits_ms[i]) + " ms";
        }
        EXPECT_EQ(error_of(etcd), error);
    };
    expect_waits([&](etcd_t &etcd) { return run(etcd.get("p/a")).error.text; }, {80, 80, 200, 200});
    expect_waits([&](etcd_t &etcd) { return run(etcd.txn(put("p/a", "1"))).error.text; }, {200});
    const auto watched = [&](etcd_t &etcd) {
        etcd_watch_t watch(etcd, "p/a", 1);
        return run(watch.next()).error.text;
    };
    expect_waits(watched, {80, 200});

    /* While the leader is elected, the first one is silent. */
    const scripted_server_t electing({{""}, {ok("{}")}}, true);
    etcd_t etcd(loop_, store_at({electing.place(), nowhere()}), {.timeout_ms = 200});
    EXPECT_EQ(run(etcd.get("p/a")).error.text, "");
}

TEST_F(real_etcd_test, a_transaction_without_an_answer_is_repeated_only_if_that_does_no_harm) {
    etcd_txn_t txn = put("p/a", "1");
    /* The first endpoint takes it and gives no answer. */
    const auto error_with = [&](const std::string &next) {
        const scripted_server_t deaf({{""}, {}});
        etcd_t etcd(loop_, store_at({deaf.place(), next}));
        return run(etcd.txn(txn)).error.kind;
    };
    EXPECT_EQ(error_with(process_.place()), kind_t::no_answer);
    EXPECT_EQ(text_of(run(etcd_.get("p/a"))), "") << "the other endpoint has not got it";
    txn.is_repeatable = true;
    EXPECT_EQ(error_with(nowhere()), kind_t::no_answer) << "one of the two has got it";
    EXPECT_EQ(error_with(process_.place()), kind_t::none);
    EXPECT_EQ(text_of(run(etcd_.get("p/a"))), "p/a=1 ");
}

TEST_F(etcd_test, a_kept_connection_that_ends_under_a_transaction_does_not_have_it_sent_again) {
    const std::string done = ok(R"({"succeeded":true})");
    for (const bool is_repeatable : {false, true}) {
        scripted_store_t store(loop_, {{done, ""}, {done}});
        etcd_txn_t txn = put("p/a", "1");
        txn.is_repeatable = is_repeatable;
        ASSERT_TRUE(run(store.etcd.txn(txn)).value.is_done);
        const auto second = run(store.etcd.txn(txn));
        EXPECT_EQ(second.error.kind, is_repeatable ? kind_t::none : kind_t::no_answer) << second.error.text;
    }
}

TEST_F(real_etcd_test, waiting_coroutines_may_be_destroyed_and_so_may_the_client) {
    const size_t before = open_descriptors();
    auto client = std::make_unique<etcd_t>(loop_, store_at({process_.place()}));
    auto watch = std::make_unique<etcd_watch_t>(*client, "p/a", 1);
    std::vector<nat64::task<etcd_result_t<etcd_range_t>>> reads;
    for (int i = 0; i < 4; ++i) {
        reads.push_back(client->get("p/a"));
        reads.back().start();
    }
    reads.erase(reads.begin(), reads.begin() + 2);
    {
        auto waits = watch->next();
        waits.start();
        ASSERT_TRUE(turn_until([&] { return reads.back().done(); }));
    }
    auto late = std::make_unique<etcd_watch_t>(*client, "p/none", 1);
    auto waits = late->next();
    waits.start();
    ASSERT_TRUE(turn_until([&] { return late->is_open(); }));
    reads.push_back(client->get("p/a"));
    reads.back().start();
    late.reset();
    watch.reset();
    client.reset();
    fwx_host_loop_run_once(loop_, 0);
    EXPECT_FALSE(waits.done() || reads.back().done());
    reads.clear();
    EXPECT_EQ(fwx_host_loop_next_timeout_ms(loop_), -1) << "nothing is left on the loop";
    EXPECT_EQ(open_descriptors(), before);
}

#ifndef ADDRESS_SANITIZER
TEST_F(etcd_test, without_descriptors_a_request_fails_and_the_next_one_does_not) {
    scripted_store_t store(loop_, {{ok("{}")}});
    {
        const descriptor_limit_t limit(0);
        etcd_t etcd(loop_, store.etcd.store());
        EXPECT_NE(run(etcd.get("p/a")).error.text.find("no memory or descriptors left"), std::string::npos);
        etcd_watch_t watch(etcd, "p/a", 1);
        EXPECT_EQ(run(watch.next()).error.kind, kind_t::unreachable);
    }
    EXPECT_EQ(run(store.etcd.get("p/a")).error.text, "");
}
#endif

TEST_F(etcd_test, errors_show_neither_the_password_nor_the_token_nor_anything_that_steers_a_terminal) {
    const std::string quoted = json_t({{"name", "ann"}, {"password", "pass\"word"}}).dump();
    const std::string long_one(496, 'x');
    const std::tuple<bool, std::string, std::string> cases[] = {
        {false, "no: pass\"word and token", "no: *** and token"}, /* the user could not sign in */
        {true, quoted, R"({"name":"ann","password":"***"})"},
        {true, "pass\"wordpass\"word, Authorization: token", "******, Authorization: ***"},
        {true, long_one + "pass\"word", long_one + "***"}, /* where it would be cut off */
        {true,
         "\x1b[31mred\r\n\xc2\x9b"
         "0m",
         " [31mred   0m"},
    };
    store_t ann;
    ann.user = "ann";
    ann.password = "pass\"word";
    for (const auto &[signs_in, said, shown] : cases) {
        const std::string repeated = failure(400, 3, said);
        scripted_store_t store(loop_, {{signs_in ? ok(R"({"token":"token"})") : repeated, repeated}}, {}, ann);
        EXPECT_EQ(run(store.etcd.get("p/a")).error.text, store.error(shown));
    }
}

TEST_F(etcd_test, a_token_that_the_store_refuses_is_replaced_once) {
    const std::string signed_in = ok(R"({"token":"token"})");
    const std::string good = ok("{}");
    store_t ann;
    ann.user = "ann";
    for (const char *said : {"invalid auth token", "revision of auth store is old"}) {
        const std::string refusal = failure(400, 3, said);
        scripted_store_t store(loop_, {{signed_in, good, refusal, signed_in, good, refusal, signed_in, refusal}}, {},
                               ann);
        EXPECT_EQ(run(store.etcd.get("p/a")).error.text, "");
        EXPECT_EQ(run(store.etcd.get("p/a")).error.text, "");
        etcd_watch_t watch(store.etcd, "p/a", 1);
        EXPECT_EQ(run(watch.next()).error.kind, kind_t::rights);
    }
}

TEST_F(etcd_test, a_lease_that_the_store_says_nothing_of_has_not_ended) {
    scripted_store_t store(loop_, {scripted_server_t::answers_t(4, failure(400, 3, "what?"))});
    EXPECT_EQ(run(store.etcd.grant_lease(60)).error.kind, kind_t::other);
    EXPECT_EQ(run(store.etcd.keep_lease(7)).error.kind, kind_t::other);
    EXPECT_EQ(run(store.etcd.lease_left(7)).error.kind, kind_t::other);
    EXPECT_EQ(run(store.etcd.revoke_lease(7)).error.kind, kind_t::other);
}

TEST_F(etcd_test, an_event_behind_a_flood_of_lines_without_events_is_given_and_none_beside_one_that_cannot_be_read) {
    std::string flood = watch_opened;
    for (int i = 0; i < 50000; ++i) {
        flood += "{\"result\":{\"header\":{\"revision\":\"5\"}}}\n";
    }
    const std::pair<std::string, kind_t> cases[] = {{flood + event_of("YQ==") + "]}}\n", kind_t::none},
                                                    {watch_opened + event_of("YQ==") + ",7]}}\n", kind_t::malformed}};
    for (const auto &[lines, kind] : cases) {
        scripted_store_t store(loop_, {{ok(lines)}});
        etcd_watch_t watch(store.etcd, "a", 1);
        const auto got = run(watch.next());
        EXPECT_EQ(got.error.kind, kind) << got.error.text;
        ASSERT_EQ(got.value.size(), kind == kind_t::none ? 1U : 0U);
        EXPECT_TRUE(got.value.empty() || got.value.front().entry.mod_revision == 7);
    }
}

TEST_F(etcd_test, malformed_answers_are_refused) {
    const std::string deep = std::string(100000, '[') + std::string(100000, ']');
    const std::tuple<std::string, kind_t, std::string> cases[] = {
        {ok("{}"), kind_t::none, ""},
        {ok("no JSON"), kind_t::malformed, "status 200 without a JSON object"},
        {ok("{\"kvs\":" + deep + "}"), kind_t::malformed, "status 200 without a JSON object"},
        {ok("[]"), kind_t::malformed, "status 200"},
        {ok(R"({"kvs":{}})"), kind_t::malformed, "kvs: must be an array"},
        {ok(R"({"kvs":[7]})"), kind_t::malformed, "must be an object"},
        {ok(R"({"kvs":[{"key":"====","value":""}]})"), kind_t::malformed, "must be base64"},
        {ok(R"({"kvs":[{"key":"YQ==","value":"Y Q="}]})"), kind_t::malformed, "must be base64"},
        {ok(R"({"kvs":[{"key":"YQ==","value":"YQ=B"}]})"), kind_t::malformed, "must be base64"},
        {ok(R"({"kvs":[{"key":"YQ==","mod_revision":"99999999999999999999"}]})"), kind_t::malformed, "mod_revision"},
        {ok("{\"kvs\":\"" + std::string(2000, 'x') + "\"}"), kind_t::malformed, "longer than 1000 bytes"},
        {failure(400, 3, "what?"), kind_t::other, ": what?"},
        {failure(499, 1, "why?"), kind_t::no_answer, ": why?"},
        {failure(504, 4, "when?"), kind_t::no_answer, ": when?"},
        {failure(503, 14, "where?"), kind_t::no_answer, ": where?"},
        {failure(401, 16, "who?"), kind_t::rights, ": who?"},
        {answer(502, "<html>"), kind_t::no_answer, "status 502"},
        {answer(302, ""), kind_t::malformed, "status 302"},
        {"HTTP/1.1 200 x\r\nContent-Length: 100\r\n\r\n{", kind_t::no_answer, ""},
        {"SSH-2.0-x\r\n", kind_t::no_answer, ""},
    };
    for (const auto &[said, kind, text] : cases) {
        scripted_store_t store(loop_, {{said}, {}},
                               {.timeout_ms = 60000, .most_bytes = said.size() > 10000 ? 1U << 20 : 1000});
        const etcd_error_t error = run(store.etcd.get("p/a")).error;
        EXPECT_EQ(error.kind, kind) << said.substr(0, 200) << error.text;
        EXPECT_NE(error.text.find(text), std::string::npos) << error.text;
    }
}

}  // namespace
