/* A client of the gateway that gives commands as lines, as many at once as a test wants, and counts their answers. */
#ifndef TESTS_GATEWAY_COMMANDER_H
#define TESTS_GATEWAY_COMMANDER_H

#include <gtest/gtest.h>

#include "fwx_host/fwx_host.h"
#include "fwx_nat64/fwx_nat64.h"
#include "records/reader.h"
#include "records/words.h"

/** There is one at a time. Its answers must come in the order of the commands. */
class commander_t {
public:
    commander_t() {
        fwx_host_connect_set(FWX_NAT64_CHANNEL_NAME, "edge");
        fwx_host_debug_sink_set([](void *, fwx_host_debug_channel_t, uint32_t, const char *) {}, nullptr);
        fwx_nat64_reply_cbs_t callbacks{};
        callbacks.cfg_reply_cb = [](fwx_nat64_cmd_result_t *result) { present->hear(*result); };
        present = this;
        EXPECT_EQ(fwx_nat64_bind("dril", loop_, nullptr, &callbacks), 0U);
    }
    ~commander_t() {
        fwx_nat64_unbind();
        fwx_mapt_plu_cleanup();
        fwx_host_loop_run_until_idle(loop_);
        fwx_host_loop_destroy(loop_);
        fwx_host_connect_set(FWX_NAT64_CHANNEL_NAME, nullptr);
    }
    commander_t(const commander_t &) = delete;
    commander_t &operator=(const commander_t &) = delete;

    /** False when there is no server. */
    bool send(const std::string &line) {
        words_.split(line);
        const bool is_read = reader_.read(words_.words()) == record_reader_t::result_t::record;
        EXPECT_TRUE(is_read) << line;
        if (!is_read) return false;
        void *number = reinterpret_cast<void *>(uintptr_t{sent_} + 1);
        if (reader_.family().send(reader_.verb().op, reader_.record().bytes, number) != 0) return false;
        ++sent_;
        return true;
    }
    void turn(int wait_ms) { fwx_host_loop_run_once(loop_, wait_ms); }
    void carry_out(const std::string &line) {
        ASSERT_TRUE(send(line)) << line;
        settle();
        ASSERT_EQ(answered(), sent_) << line;
        EXPECT_EQ(results_.back(), 0U) << line;
    }
    /** Waits until all is answered, or the server is gone. */
    void settle() {
        while (is_connected() && answered() < sent_) {
            turn(-1);
        }
    }
    /** Begins to count anew, with no server or another one. */
    void forget() {
        sent_ = 0;
        results_.clear();
    }

    static bool is_connected() { return fwx_nat64_client_info_get()->connected != 0; }
    size_t sent() const { return sent_; }
    size_t answered() const { return results_.size(); }
    size_t outstanding() const { return sent_ - answered(); }
    const std::vector<uint32_t> &results() const { return results_; }

private:
    void hear(const fwx_nat64_cmd_result_t &result) {
        const size_t number = reinterpret_cast<uintptr_t>(result.pal_ctx);
        const bool has_died = result.result == FWX_NAT64_ERR_AGAIN;
        if (has_died) return;
        results_.push_back(result.result);
        EXPECT_EQ(number, answered()) << "in their order";
    }

    static inline commander_t *present = nullptr;
    fwx_host_loop_t *loop_ = fwx_host_loop_create();
    line_words_t words_;
    record_reader_t reader_;
    size_t sent_ = 0;
    std::vector<uint32_t> results_;
};

#endif
