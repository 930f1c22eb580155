/* The page of `natctl top` and its JSON, made from a look without a server. */
#include <gtest/gtest.h>

#include "tools/natctl/top.h"

namespace {

top_look_t full_look() {
    top_look_t look;
    look.source = "server alpha";
    look.time = "2026-01-31T23:59:59.123Z";
    look.totals = {{"sessions", 129030}, {"pools", 4}, {"rules", 2}};
    look.limits = {{"sessions", 200000, 129030}};
    look.pools = {{1, 254, 5}, {2, 1, 129024}, {3, 0, 0}, {4, 2, 1}};
    look.mappings = {{7, "static", 1}, {8, "dynamic", 3}};
    look.commands = {{"pool_add", "ok", 4}, {"all", "refused_no_entry", 12}};
    sort_by_use(look);
    return look;
}

constexpr const char *full_page =
    "server alpha  2026-01-31T23:59:59.123Z\n"
    "sessions 129030  pools 4  rules 2\n"
    "\n"
    "LIMIT        IN USE   ALLOWED       USE\n"
    "sessions     129030    200000     64.5%\n"
    "\n"
    "POOL       ADDRESSES  SESSIONS       USE\n"
    "2                  1    129024    200.0%\n"
    "4                  2         1      0.0%\n"
    "1                254         5      0.0%\n"
    "3                  0         0      0.0%\n"
    "\n"
    "MAPPING    KIND      SESSIONS\n"
    "8          dynamic          3\n"
    "7          static           1\n"
    "\n"
    "COMMANDS   RESULT               COUNT\n"
    "all        refused_no_entry        12\n"
    "pool_add   ok                       4\n";

TEST(top_page_test, all_is_shown_where_there_is_room_with_what_is_used_most_first) {
    EXPECT_EQ(top_page(full_look(), 80, 19), full_page);
    EXPECT_EQ(top_page(full_look(), SIZE_MAX, top_any_height), full_page);
    EXPECT_EQ(top_page({}, 80, 24), "\n");
}

TEST(top_page_test, a_small_window_cuts_long_tables_first_and_wide_lines) {
    EXPECT_EQ(top_page(full_look(), 26, 18),
              "server alpha  2026-01-31T2\n"
              "sessions 129030  pools 4\n"
              "rules 2\n"
              "\n"
              "LIMIT        IN USE   ALLO\n"
              "sessions     129030    200\n"
              "\n"
              "POOL       ADDRESSES  SESS\n"
              "2                  1    12\n"
              "... 3 more\n"
              "\n"
              "MAPPING    KIND      SESSI\n"
              "8          dynamic        \n"
              "7          static         \n"
              "\n"
              "COMMANDS   RESULT         \n"
              "all        refused_no_entr\n"
              "pool_add   ok             \n");
    for (size_t height = 0; height < 19; ++height) {
        const std::string page = top_page(full_look(), 80, height);
        EXPECT_EQ(static_cast<size_t>(std::count(page.begin(), page.end(), '\n')), height);
    }
}

TEST(top_page_test, what_is_not_known_is_said_and_no_text_reaches_the_terminal_as_more) {
    top_look_t look;
    look.source = "server \x1b[2Jx";
    look.problem = "trying again: no server";
    look.pools = {{9, 1, 0}};
    look.has_more_pools = true;
    EXPECT_EQ(top_page(look, 80, 24),
              "server ?[2Jx\n"
              "trying again: no server\n"
              "\n"
              "POOL       ADDRESSES  SESSIONS       USE\n"
              "9                  1         0      0.0%\n"
              "... more, not all of which are listed\n");
    EXPECT_EQ(top_json(look).dump(),
              R"({"source":"server \u001b[2Jx","time":null,"problem":"trying again: no server","in_step":null,)"
              R"("totals":{},"limits":[],"pools":[{"id":9,"addresses":1,"sessions":0,"use":0.0}],"mappings":[],)"
              R"("has_more":{"pools":true,"mappings":false},"commands":[],"command_times":null})");
}

}  // namespace
