/* Batches: the order of commands, failures, input errors, and answers that are late or never come. */
#include <cerrno>

#include "fwx_nat64/debug.h"
#include "natctl_fixture.h"

namespace {

class batch_test : public natctl_test {};

constexpr char seven[] =
    "# first\ntimeout set --type 1 --value 300\n\nlimit add --type 1 --value 9\n"
    "timeout set --type 2 --value 240\nadj set --type 1 --address ::1\n"
    "timeout set --type 9 --value 1\ndev ipalias upload\nlimit del --type 1\n";

TEST_F(batch_test, a_batch_stops_at_its_first_failure_and_says_how_far_it_came) {
    const run_t expected = {
        2, "line 2: timeout set: ok\nline 4: limit add: ok\nline 5: timeout set: ok\nline 6: adj set: ok\n",
        "natctl: line 7: timeout set: --type 9: must be 1 to 7, or udp, tcp-trans, tcp-est, tcp-in-syn, fragment-min, "
        "icmp, udp-min\nnatctl: 4 commands done, 1 failed, 2 not run\n"};
    EXPECT_EQ(run("batch -", seven), expected);
}

TEST_F(batch_test, json_lines_are_one_object_each_with_its_line_and_its_command) {
    const std::string sessions = "dev server sessions generate 3\nsessions walk\nsessions walk\n";
    std::string numbers;
    for (const std::string &line :
         lines_of(run("--jsonl batch -", seven).answers + run("--jsonl batch -", sessions).answers)) {
        const json_t object = json_t::parse(line);
        numbers += object.at("line").dump();
        EXPECT_NE(object.at("command"), "") << line;
    }
    EXPECT_EQ(numbers, "24567122223333");
    EXPECT_EQ(run("--json batch -").answers, "[]\n") << "a document has none of them, and is one all the same";
}

TEST_F(batch_test, a_command_that_nobody_answers_any_more_ends_with_its_channel) {
    const run_t result = run("--pipeline 4 --keep-going batch -",
                             "dev server silent on\ndev cgm end-batch --batch 1 --async\ndev server drop\n");
    EXPECT_EQ(result.answers, "line 1: dev server silent: ok\nline 3: dev server drop: ok\n");
    EXPECT_TRUE(ends(result, 3, "natctl: line 2: dev cgm end-batch: the server went away before it answered\n"));
}

TEST_F(batch_test, a_batch_gives_one_table_of_comma_separated_values_and_refuses_a_second) {
    const std::string pools =
        "dev server sessions generate 2\npool add --id 1 --param 1 --start 192.0.2.1 --end 192.0.2.2\n"
        "sessions walk --limit 1\nsessions walk\n";
    for (const std::string other : {"stats pools\n", "stats system\n", "status\n"}) {
        const run_t result = run("--csv batch -", pools + other);
        EXPECT_EQ(std::count(result.answers.begin(), result.answers.end(), '\n'), 1 + 1 + 2) << result.answers;
        EXPECT_TRUE(ends(result, 2, ": --csv gives one table, and that is one of sessions walk\n")) << other;
    }
    EXPECT_EQ(run("--csv batch -", "status\n" + pools).status, 2);
    const run_t wider = run("--csv batch -",
                            "pool add --id 1 --param 1 --start 192.0.2.1 --end 192.0.2.2\npool show\n"
                            "pool add --id 2 --param 1 --start 192.0.3.1 --end 192.0.3.2 --hsl 4\npool show\n");
    EXPECT_EQ(wider.answers, "id,param,start,end\n1,1,192.0.2.1,192.0.2.2\n");
    EXPECT_TRUE(ends(wider, 2,
                     "natctl: line 4: pool show: --csv gives one table, and that is one of pool show with other "
                     "columns\n"));
}

TEST_F(batch_test, a_line_may_go_on_and_a_file_begin_with_a_byte_order_mark) {
    const run_t result = run("batch -",
                             "\xef\xbb\xbftimeout set \\\r\n  --type 1 \\\n --value 3\n# no more \\\nlimit add --ty\\\n"
                             "pe 1 --value x\nstatus \\\n");
    EXPECT_EQ(result, (run_t{2, "line 1: timeout set: ok\n",
                             "natctl: line 5: limit add: --value x: must be 0 to 4294967295\n"
                             "natctl: 1 command done, 1 failed, 1 not run\n"}));
}

/** Input that delivers its text and then fails, as a disk or a network may. */
class failing_input_t : public std::stringbuf {
public:
    explicit failing_input_t(const std::string &text) : std::stringbuf(text, std::ios::in) {}

private:
    int_type underflow() override {
        const int_type next = std::stringbuf::underflow();
        if (next != traits_type::eof()) return next;
        errno = EIO;
        throw std::ios_base::failure("read");
    }
};

TEST_F(batch_test, nothing_is_sent_of_a_command_that_a_failure_cuts_off_or_that_is_longer_than_a_mebibyte) {
    constexpr size_t most = size_t{1} << 20;
    const std::string whole = "timeout set --type 1 --value 3\n";
    const std::string cut_off = whole + "timeout set --type 2 --value 1\\\n";
    const std::string half = "timeout " + std::string(most / 2, ' ');
    const std::string failed = "batch: standard input: Input/output error";
    const std::string too_long = "batch: standard input: a line is longer than 1048576 bytes";
    EXPECT_EQ(run("batch -", std::string(most, '#') + "\n" + whole).status, 0);
    const std::pair<std::string, std::string> inputs[] = {
        {whole + "timeout set --type 2", "line 2: " + failed},
        {cut_off + "20", "line 3: " + failed},
        {cut_off + std::string(most, '0') + "\ntimeout set --type 3 --value 1\n", "line 2: " + too_long},
        {whole + std::string(most + 1, '#') + "\n", "line 2: " + too_long},
        {whole + half + "\\\n" + half + "\n", "line 2: " + too_long},
        {whole + half + "\\\n" + half + "\\\n", "line 2: " + too_long},
    };
    for (const auto &[input, error] : inputs) {
        const std::string notes = "natctl: " + error + "\nnatctl: 1 command done, 1 failed, 0 not run\n";
        EXPECT_EQ(run("--keep-going batch -", failing_input_t(input)), (run_t{2, "line 1: timeout set: ok\n", notes}))
            << input.size() << " bytes";
    }
    EXPECT_EQ(run("batch /dev/zero").notes, "natctl: batch: /dev/zero: is a device, not a file or a pipe\n");
}

TEST_F(batch_test, each_way_to_fail_has_its_status) {
    constexpr struct {
        const char *lines;
        int status;
        const char *note;
    } failures[] = {
        {"dev server fail-next --code 0x6006\ndev ipalias upload\n", 1,
         "line 2: dev ipalias upload: refused by the server: "},
        {"dev server hold\ndev cgm end-batch --batch 1 --async\n", 3,
         "line 2: dev cgm end-batch: no answer within 20 ms\n"},
        {"dev mapt lookup 192.0.2.1\n", 1, "line 1: dev mapt lookup: refused by the library: "},
        {"dev server silent on\ndev ipalias upload\n", 3, "line 2: dev ipalias upload: no answer within 20 ms\n"},
        {"dev server hold\ndev ipalias upload\n", 3,
         "line 2: dev ipalias upload: still outstanding when the binding ended\n"},
        {"timeout set 'x\n", 2, "line 1: ': quote without its end\n"},
        {"batch -\n", 2, "line 1: batch: must be status, "},
    };
    for (const auto &[lines, status, note] : failures) {
        EXPECT_TRUE(ends(run("--timeout 20 batch -", lines), status, note)) << lines;
    }
}

TEST_F(batch_test, an_answer_after_its_time_is_noted_and_changes_no_verdict) {
    const run_t result =
        run("--timeout 20 --keep-going batch -", "dev server hold\ndev ipalias upload\ndev server release\n");
    EXPECT_TRUE(ends(result, 3, "line 2: dev ipalias upload: answered too late\n"));
    EXPECT_EQ(result.notes.find("outstanding"), std::string::npos) << result.notes;
}

TEST_F(batch_test, a_pipeline_reports_in_order_whatever_the_order_of_the_answers) {
    run_t result = run("--pipeline 9 batch -",
                       "dev server hold\ntimeout set --type 1 --value 3\nlimit add --type 1 --value 1\nstatus\n"
                       "dev server release --order reverse\n");
    EXPECT_EQ(result.status, 0) << result.notes;
    EXPECT_EQ(result.answers.find("line 1: dev server hold: ok\nline 2: timeout set: ok\nline 3: limit add: ok\n"), 0U)
        << result.answers;
    EXPECT_NE(result.answers.find("outstanding       2\n"), std::string::npos) << result.answers;
}

TEST_F(batch_test, notifications_are_noted_with_their_values) {
    run_t result = run("batch -",
                       "dev server notify record --op del --word1 1 --word2 2 --word3 3\ndev server notify event\n"
                       "dev server notify mapping --id 5 --active 0 --value 8\ndev server wakeup\n");
    EXPECT_EQ(result.status, 0) << result.notes;
    EXPECT_EQ(result.notes,
              "notification: record del word1=1 word2=2 word3=3\nnotification: event\n"
              "notification: mapping id=5 active=0 sessions=8\n");
}

TEST_F(batch_test, the_library_is_silent_without_a_debug_level_also_where_its_flags_are_on) {
    fwx_nat64_dbg_trace_set(1);
    const std::string refused =
        "dev server fail-next --code 0x6006\nmapt bmr add --rule 1 --domain 1 --v6 2001:db8::/40 "
        "--v4 192.0.2.0/24\n";
    const run_t silent = run("batch -", refused);
    const run_t told = run("--debug-level 1 batch -", refused);
    fwx_nat64_dbg_trace_set(0);
    EXPECT_EQ(silent.notes.find("natctl: line 2: "), 0U) << silent.notes;
    EXPECT_EQ(std::count(silent.notes.begin(), silent.notes.end(), '\n'), 2) << silent.notes;
    EXPECT_GT(std::count(told.notes.begin(), told.notes.end(), '\n'), 2) << told.notes;
}

TEST_F(batch_test, a_shell_goes_on_after_a_failure_until_exit) {
    const run_t result = run("shell", "limit frob\nhelp adj\ndev ipalias upload\nexit\nstatus\n");
    EXPECT_EQ(result.answers, "dev ipalias upload: ok\n");
    EXPECT_TRUE(ends(result, 2, "natctl: limit: frob: must be add, mod, del, show\n"));
    EXPECT_TRUE(ends(result, 2, "Adjacencies"));
}

}  // namespace
