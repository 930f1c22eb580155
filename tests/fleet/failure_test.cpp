/* Texts of a store's errors as they are shown to a user. */
#include <gtest/gtest.h>

#include "fleet/etcd_json.h"

namespace {

TEST(store_failure, neither_a_secret_of_the_request_nor_anything_that_steers_a_terminal_is_shown) {
    const secrets_t secrets = {"pass\"word", "", "token"};
    const auto shown = [&](const std::string &said) {
        http_reply_t reply;
        reply.status = 400;
        reply.body = json_t({{"code", 3}, {"message", said}}).dump();
        return read_answer("http://a:1", reply, secrets).error.text;
    };
    const std::string mirrored = json_t({{"name", "ann"}, {"password", "pass\"word"}}).dump();
    EXPECT_EQ(shown("you said " + mirrored), R"(http://a:1: you said {"name":"ann","password":"***"})");
    EXPECT_EQ(shown("pass\"wordpass\"word, Authorization: token"), "http://a:1: ******, Authorization: ***");
    const std::string at_the_cut = shown(std::string(496, 'x') + "pass\"word");
    EXPECT_EQ(at_the_cut, "http://a:1: " + std::string(496, 'x') + "***");
    EXPECT_EQ(shown("\x1b[31mred\r\n\xc2\x9b"
                    "0m"),
              "http://a:1:  [31mred   0m");
}

}  // namespace
