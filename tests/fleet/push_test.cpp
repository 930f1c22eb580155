/* Pushing documents into a store, reading them, rollbacks, the lock and the garbage collection. */
#include <set>
#include <tuple>

#include "fleet/base64.h"
#include "fleet/document_store.h"
#include "fleet/pusher.h"
#include "tests/fleet/scripted_server.h"
#include "tests/nat64d/documents.h"

namespace {

class push_test : public real_etcd_test {
protected:
    push_result_t push(const std::string &text, std::optional<stage_t> stage = {}) {
        return run(pusher_.push({text, 1, std::move(stage), "a file"}));
    }
    manifest_t manifest() {
        const auto read = run(read_manifest(etcd_, keys_));
        EXPECT_TRUE(read.value.manifest) << read.error.text;
        return read.value.manifest.value_or(manifest_t{});
    }
    /** The text of a document in the store, or the error. */
    std::string text_of_document(const fleet_document_t &document) {
        const auto read = run(read_document(etcd_, keys_, document));
        return read.error ? read.error.text : read.value;
    }
    /** The keys with a prefix. */
    std::set<std::string> names(const std::string &prefix) {
        std::set<std::string> names;
        const auto list = run(etcd_.list(prefix, false));
        for (const etcd_entry_t &entry : list.value.entries) {
            names.insert(entry.key.substr(prefix.size()));
        }
        return names;
    }
    void remove(const std::string &key) { run(etcd_.txn(deletion(key))); }
    /** The document in force for all, as "VERSION NOTE: TEXT". */
    std::string in_force() {
        const manifest_t found = manifest();
        EXPECT_FALSE(found.stage);
        return std::to_string(found.document.version) + ' ' + found.document.note + ": " +
               text_of_document(found.document);
    }

    fleet_keys_t keys_{"p"};
    pusher_t pusher_{loop_, etcd_, "ann@ops1"};
};

TEST_F(push_test, a_pushed_document_is_complete_and_an_equal_one_is_not_pushed_again) {
    EXPECT_FALSE(run(read_manifest(etcd_, keys_)).value.manifest);
    const std::string text = document_text(8000, 1) + "pool add --id " + std::string(3 * most_chunk_bytes, '1') + '\n';
    const push_result_t first = push(text);
    ASSERT_TRUE(first.is_changed) << first.error.text << first.refused;
    EXPECT_EQ(first.uncollected, "");
    const fleet_document_t document = manifest().document;
    EXPECT_EQ(document.pushed_by, "ann@ops1");
    EXPECT_EQ(document.hash, sha256(text));
    EXPECT_EQ(in_force(), "1 a file: " + text);
    EXPECT_EQ(first.chunks_put, document.chunks.size() - 1) << "two of the long line are equal";
    EXPECT_EQ(first.bytes_put, text.size() - most_chunk_bytes);
    EXPECT_EQ(names(keys_.history()), std::set<std::string>{"0000000001"});
    const push_result_t second = push(text);
    EXPECT_FALSE(second.is_changed);
    EXPECT_EQ(second.manifest.document.version, 1U);
    EXPECT_EQ(second.chunks_put, 0U);
    EXPECT_EQ(names(keys_.lock()).size(), 0U) << "the lock is free again";

    size_t asked = 0;
    const auto known = [&](const chunk_t &chunk) {
        ++asked;
        const bool is_first = chunk.hash == document.chunks[0].hash;
        return std::optional<std::string>(is_first ? text.substr(0, chunk.bytes) : "something else");
    };
    remove(keys_.chunk(document.chunks[0].hash));
    EXPECT_EQ(run(read_document(etcd_, keys_, document, known)).value, text) << "what is at hand is not fetched";
    EXPECT_EQ(asked, document.chunks.size());
}

TEST_F(push_test, one_pushes_at_a_time) {
    pusher_t other(loop_, etcd_, "bob@ops2");
    EXPECT_FALSE(run(pusher_.lock().take("ann@ops1")));
    const push_result_t refused = run(other.push({"pool\n", 1, {}, ""}));
    EXPECT_FALSE(refused.is_changed);
    EXPECT_EQ(refused.refused.rfind("ann@ops1 (process " + std::to_string(getpid()) + ") since 20", 0), 0U)
        << refused.refused;
    EXPECT_FALSE(run(pusher_.lock().release()));
    EXPECT_TRUE(run(other.push({"pool\n", 1, {}, ""})).is_changed);

    /* Several pushers at once: each push is either carried out as a whole or refused. */
    std::vector<std::unique_ptr<pusher_t>> pushers;
    std::vector<nat64::task<push_result_t>> pushes;
    for (int i = 0; i < 8; ++i) {
        pushers.push_back(std::make_unique<pusher_t>(loop_, etcd_, "many"));
        pushes.push_back(pushers.back()->push({"pool " + std::to_string(i) + '\n', 1, {}, std::to_string(i)}));
        pushes.back().start();
    }
    size_t done = 0;
    for (auto &each : pushes) {
        ASSERT_TRUE(ends(each));
        const push_result_t result = each.get();
        EXPECT_EQ(result.error.text, "");
        EXPECT_NE(result.is_changed, !result.refused.empty());
        done += result.is_changed ? 1 : 0;
    }
    EXPECT_GE(done, 1U);
    const std::string last = manifest().document.note;
    EXPECT_EQ(in_force(), std::to_string(1 + done) + ' ' + last + ": pool " + last + '\n');
}

TEST_F(etcd_test, a_lock_whose_taking_fails_or_has_no_answer_is_not_held_and_its_holder_is_looked_for) {
    const std::string lease = ok(R"({"ID":"7"})");
    const std::string done = ok(R"({"succeeded":true})");
    const json_t theirs = {{"holder", "bob@ops2"}, {"process", 7}, {"since", "noon"}};
    const json_t entry = {{"key", to_base64("p/lock")}, {"value", to_base64(theirs.dump())}};
    const json_t range = {{"kvs", json_t::array({entry})}};
    const std::tuple<std::vector<scripted_server_t::answers_t>, kind_t, std::string> cases[] = {
        {{{lease, ""}, {""}, {ok(range.dump()), done}}, kind_t::none, "bob@ops2 (process 7) since noon"},
        {{{lease, ""}, {""}, {ok("{}"), done}}, kind_t::no_answer, "somebody else"},
        {{{failure(400, 3, "no lease"), done, done, done}}, kind_t::other, ""}};
    for (const auto &[connections, kind, holder] : cases) {
        scripted_store_t store(loop_, connections);
        fleet_lock_t lock(loop_, store.etcd, fleet_keys_t("p"));
        const etcd_error_t error = run(lock.take("ann@ops1"));
        EXPECT_EQ(error.kind, kind) << error.text;
        EXPECT_EQ(lock.holder(), holder);
        EXPECT_FALSE(lock.is_held());
    }
}

TEST_F(push_test, the_lock_lives_as_long_as_its_pusher) {
    const auto pauses = [&] { return fwx_host_loop_next_timeout_ms(loop_) == int64_t{keep_lease_ms}; };
    ASSERT_FALSE(run(pusher_.lock().take("ann@ops1")));
    EXPECT_EQ(metric("etcd_debugging_lease_renewed_total"), "0");
    fwx_host_clock_turn(keep_lease_ms);
    EXPECT_TRUE(turn_until(pauses));
    EXPECT_EQ(metric("etcd_debugging_lease_renewed_total"), "1");
    process_.end(SIGKILL);
    fwx_host_clock_turn(keep_lease_ms);
    EXPECT_TRUE(turn_until(pauses)) << "the store may come back";
    ASSERT_TRUE(process_.start()) << process_.log();
    ASSERT_TRUE(eventually([&] { return !run(etcd_.get("p/a")).error; }));
    fwx_host_clock_turn(keep_lease_ms);
    EXPECT_TRUE(turn_until([&] { return metric("etcd_debugging_lease_renewed_total") == "1"; }));
    fwx_host_clock_run();
    ASSERT_FALSE(run(pusher_.lock().release()));
    EXPECT_EQ(fwx_host_loop_next_timeout_ms(loop_), -1) << "nobody keeps it any more";
}

TEST_F(push_test, chunks_of_a_pusher_that_dies_before_its_manifest_are_collected_by_the_next_one) {
    ASSERT_TRUE(push(document_text(100, 1)).is_changed);
    const std::set<std::string> before = names(keys_.chunks());
    {
        pusher_t dying(loop_, etcd_, "bob@ops2");
        ASSERT_FALSE(run(dying.lock().take("bob@ops2")));
        push_result_t result;
        ASSERT_FALSE(run(dying.put_chunks(document_text(300, 2), result)));
        EXPECT_GT(result.chunks_put, 0U);
    }
    EXPECT_GT(names(keys_.chunks()).size(), before.size());
    EXPECT_EQ(manifest().document.version, 1U);
    EXPECT_NE(push(document_text(100, 3)).refused.find("bob@ops2"), std::string::npos);
    remove(keys_.lock()); /* as when its lease ends */
    const push_result_t next = push(document_text(100, 1));
    EXPECT_FALSE(next.is_changed);
    EXPECT_GT(next.collected, 0U);
    EXPECT_EQ(names(keys_.chunks()), before);
}

TEST_F(push_test, a_pusher_that_has_lost_the_lock_changes_nothing) {
    ASSERT_TRUE(push("pool 1\n").is_changed);
    pusher_t late(loop_, etcd_, "bob@ops2");
    ASSERT_FALSE(run(late.lock().take("bob@ops2")));
    push_result_t result;
    ASSERT_FALSE(run(late.put_chunks("pool late\n", result)));
    const auto read = run(read_manifest(etcd_, keys_));
    remove(keys_.lock());
    ASSERT_TRUE(push("pool 2\n").is_changed);
    ASSERT_FALSE(run(pusher_.lock().take("ann@ops1")));
    run(etcd_.txn(put(keys_.chunk("unnamed"), "rubbish")));
    const std::set<std::string> chunks = names(keys_.chunks());
    for (const etcd_error_t &error : {run(late.put_chunks("pool later\n", result)),
                                      run(late.publish(read.value, 3, result)), run(late.collect(result))}) {
        EXPECT_EQ(error.text, "the lock was lost during the push: its lease has ended");
    }
    EXPECT_FALSE(result.is_changed);
    EXPECT_EQ(names(keys_.chunks()), chunks);
    EXPECT_EQ(manifest().document.version, 2U);
}

TEST_F(push_test, collection_leaves_the_chunks_of_the_last_ten_versions) {
    for (uint32_t i = 1; i <= 13; ++i) {
        ASSERT_TRUE(push(document_text(200, i)).is_changed);
    }
    std::set<std::string> named;
    for (uint64_t version = 1; version <= 13; ++version) {
        const auto read = run(read_version(etcd_, keys_, version));
        ASSERT_EQ(read.value.has_value(), version > 3) << version << read.error.text;
        if (!read.value) continue;
        EXPECT_EQ(text_of_document(read.value->document), document_text(200, static_cast<uint32_t>(version)));
        for (const chunk_t &chunk : read.value->document.chunks) {
            named.insert(chunk.hash);
        }
    }
    EXPECT_EQ(names(keys_.chunks()), named);
    EXPECT_EQ(names(keys_.history()).size(), 10U);

    const push_result_t back = run(pusher_.roll_back(4));
    EXPECT_TRUE(back.is_changed) << back.error.text << back.refused;
    EXPECT_EQ(in_force(), "14 rollback to 4: " + document_text(200, 4));

    /* Nothing is deleted if an entry cannot be read, because it may name any chunk. */
    run(etcd_.txn(put(keys_.history(14), "{")));
    const std::set<std::string> chunks = names(keys_.chunks());
    const push_result_t next = push("pool\n");
    EXPECT_TRUE(next.is_changed);
    EXPECT_EQ(next.uncollected.rfind("p/history/0000000014: ", 0), 0U) << next.uncollected;
    EXPECT_EQ(names(keys_.chunks()).size(), chunks.size() + 1);
}

TEST_F(push_test, a_rollback_that_cannot_read_the_history_chooses_nothing) {
    ASSERT_TRUE(push("pool 1\n").is_changed);
    for (uint32_t percent = 1; percent < 9; ++percent) { /* versions to skip */
        ASSERT_TRUE(push("pool 2\n", stage_t{{}, percent}).is_changed);
    }
    ASSERT_TRUE(push("pool 2\n").is_changed);
    const auto count = [&] { return std::stoi(metric(key_reads)); };
    const int before = count();
    auto back = pusher_.roll_back({});
    back.start();
    ASSERT_TRUE(turn_until([&] { return count() >= before + 5; })) << "the lock, the manifest, the list, two versions";
    process_.end(SIGKILL);
    ASSERT_TRUE(ends(back));
    const push_result_t result = back.get();
    EXPECT_TRUE(result.error) << result.refused;
}

TEST_F(push_test, a_stage_leaves_the_document_of_the_other_gateways) {
    const stage_t to_two = {{"fra2", "fra1", "fra2"}, 0};
    ASSERT_TRUE(push("pool 1\n").is_changed);
    ASSERT_TRUE(push("pool 2\n", to_two).is_changed);
    EXPECT_FALSE(push("pool 2\n", stage_t{{"fra1", "fra2"}, 0}).is_changed);
    for (int i = 0; i < 12; ++i) { /* more than the history has */
        ASSERT_TRUE(push("pool 3\n", stage_t{{}, i % 2 == 0 ? 20U : 30U}).is_changed);
    }
    const manifest_t staged = manifest();
    EXPECT_EQ(staged.document.version, 14U);
    ASSERT_TRUE(staged.base);
    EXPECT_EQ(staged.base->version, 1U);
    EXPECT_EQ(text_of_document(*staged.base), "pool 1\n") << "no kept version names it";
    ASSERT_TRUE(push("pool 3\n").is_changed) << "the same document, but for all";
    EXPECT_EQ(in_force(), "15 a file: pool 3\n");
    EXPECT_EQ(names(keys_.chunks()).size(), 1U);
}

TEST_F(push_test, a_manifest_that_gateways_could_not_read_is_refused_before_chunks_are_put) {
    manifest_t large = {{1, sha256("all"), 0, 1, "ann@ops1", "t", std::string(most_note_bytes, 'n'), {}}, {}, {}};
    large.document.chunks.assign(14751, {sha256("one"), 1});
    large.document.bytes = large.document.chunks.size();
    const std::string text = write_manifest(large, manifest_place_t::current);
    ASSERT_LE(text.size(), most_manifest_bytes);
    ASSERT_GT(text.size() + 100, most_manifest_bytes);
    run(etcd_.txn(put(keys_.manifest(), text)));
    const push_request_t request = {"pool 2\n", 1, stage_t{{"fra1"}, 0}, ""};
    for (const push_result_t &result : {run(pusher_.check(request)), run(pusher_.push(request))}) {
        EXPECT_EQ(
            result.error.text,
            "the manifest (chunks: 14752, with those of the gateways outside of the stage): must be a JSON object "
            "of at most 1048576 bytes");
    }
    EXPECT_EQ(names(keys_.chunks()).size(), 0U);
}

TEST_F(push_test, nothing_is_written_when_the_version_would_be_greater_than_gateways_read) {
    ASSERT_TRUE(push("pool 1\n").is_changed);
    ASSERT_TRUE(push("pool 2\n").is_changed);
    run(etcd_.txn(put(keys_.history(most_version), "{}")));
    const std::set<std::string> before = names("p/");
    const push_request_t request = {"pool 3\n", 1, {}, ""};
    for (const push_result_t &result :
         {run(pusher_.check(request)), run(pusher_.push(request)), run(pusher_.roll_back({}))}) {
        EXPECT_EQ(result.error.text,
                  "p/history/9999999999: no version can follow this one; push to another prefix, or delete the key if "
                  "no push has made that version");
    }
    EXPECT_EQ(names("p/"), before);
}

TEST_F(push_test, damaged_data_in_the_store_is_reported_and_stays) {
    ASSERT_TRUE(push("pool 1\n").is_changed);
    const fleet_document_t document = manifest().document;
    const std::string key = keys_.chunk(document.chunks[0].hash);
    run(etcd_.txn(put(key, "pool 2\n")));
    EXPECT_EQ(text_of_document(document), key + ": does not match its name");
    remove(key);
    EXPECT_EQ(text_of_document(document), key + ": is not there");
    ASSERT_TRUE(push("pool 2\n").is_changed);
    const push_result_t back = run(pusher_.roll_back({}));
    EXPECT_EQ(back.error.text, key + ": is not there or damaged; a push of the document of version 1 puts it anew");
    run(etcd_.txn(put(keys_.manifest(), "{\"format\":2}")));
    const push_result_t newer = push("pool 3\n");
    EXPECT_EQ(newer.error.kind, kind_t::malformed);
    EXPECT_EQ(newer.error.text, "p/manifest: format: is 2, but the newest that this program knows is 1");
    EXPECT_EQ(names(keys_.lock()).size(), 0U) << "the lock is free all the same";
    EXPECT_EQ(names(keys_.chunks()).size(), 1U);
}

TEST_F(push_test, a_store_that_is_full_keeps_what_it_has) {
    etcd_process_t small({"--quota-backend-bytes", "400000"});
    ASSERT_TRUE(small.is_up()) << small.log();
    etcd_t etcd(loop_, store_at({small.place()}));
    pusher_t pusher(loop_, etcd, "ann@ops1");
    ASSERT_TRUE(run(pusher.push({"pool 1\n", 1, {}, ""})).is_changed);
    push_result_t result;
    ASSERT_TRUE(eventually([&] { /* etcd counts only data that it has written to disk */
                                 result = run(pusher.push({document_text(20000, 1), 1, {}, ""}));
                                 return static_cast<bool>(result.error);
    })) << result.refused;
    EXPECT_EQ(result.error.kind, kind_t::quota) << result.error.text;
    EXPECT_NE(result.error.text.find("database space exceeded"), std::string::npos) << result.error.text;
    EXPECT_FALSE(result.is_changed);
    const auto read = run(read_manifest(etcd, keys_));
    ASSERT_TRUE(read.value.manifest) << read.error.text;
    EXPECT_EQ(run(read_document(etcd, keys_, read.value.manifest->document)).value, "pool 1\n");
}

}  // namespace
