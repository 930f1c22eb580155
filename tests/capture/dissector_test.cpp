/* The Wireshark dissector, run by tshark on captures: of natctl running an example, and of one message of each kind.
 * Each byte must belong to a named field, and malformed messages must be marked. */
#include <filesystem>

#include "host/messaging/capture.h"
#include "tests/support/eventually.h"
#include "tests/support/framed.h"
#include "tests/tools/natctl_fixture.h"

namespace {

using messages_t = std::vector<std::pair<wire_direction_t, bytes_t>>;

struct packet_t {
    std::vector<std::string> values; /* `fwx_nat64.timeout_set.value=300` */
    std::vector<bool> shown;         /* for each byte of the packet, whether a named field covers it */

    bool has(const std::string &value) const { return std::find(values.begin(), values.end(), value) != values.end(); }
    bool has_field(const std::string &name) const {
        return std::any_of(values.begin(), values.end(),
                           [&name](const std::string &value) { return value.rfind(name + "=", 0) == 0; });
    }
    bool is_all_shown() const { return std::find(shown.begin(), shown.end(), false) == shown.end(); }
};

std::string attribute(const std::string &line, const std::string &name) {
    const size_t start = line.find(" " + name + "=\"");
    if (start == std::string::npos) return {};
    const size_t value = start + name.size() + 3;
    return line.substr(value, line.find('"', value) - value);
}

void read_line(const std::string &line, std::vector<packet_t> &packets) {
    const std::string name = attribute(line, "name");
    const std::string value = attribute(line, "show");
    if (line.find("<packet>") != std::string::npos) packets.emplace_back();
    if (name == "frame.len") packets.back().shown.resize(std::stoul(value));
    if (line.find("<field ") == std::string::npos || name.rfind("fwx_nat64.", 0) != 0) return;
    packet_t &packet = packets.back();
    packet.values.push_back(name + "=" + value);
    const bool has_items_of_its_own = line.find("/>") == std::string::npos;
    if (has_items_of_its_own || name == "fwx_nat64.undissected") return;
    const size_t at = std::stoul(attribute(line, "pos"));
    for (size_t i = at; i < at + std::stoul(attribute(line, "size")); ++i) {
        packet.shown.at(i) = true;
    }
}

class dissector_test : public natctl_test {
protected:
    void SetUp() override {
        if (std::system("tshark --version >/dev/null 2>&1") != 0) GTEST_SKIP() << "tshark is not installed";
    }
    void TearDown() override {
        std::filesystem::remove(path_);
        natctl_test::TearDown();
    }

    std::string output_of(const std::string &options) const {
        const std::string command = "tshark -2 -X lua_script:" DISSECTOR " -r " + path_ + " " + options;
        const ran_t ran = run_command("(" + command + " 2>/dev/null)");
        EXPECT_EQ(ran.status, 0);
        return ran.output;
    }
    std::vector<packet_t> dissected() const {
        std::vector<packet_t> packets;
        std::istringstream lines(output_of("-T pdml"));
        for (std::string line; std::getline(lines, line);) {
            read_line(line, packets);
        }
        return packets;
    }
    std::vector<packet_t> dissected(const messages_t &messages) const {
        EXPECT_EQ(fwx_host_capture_open(path_.c_str()), 0U);
        for (const auto &[direction, bytes] : messages) {
            const bool is_sync = (bytes[1] & 0xf0) == 0x80;
            capture_write(direction == wire_direction_t::to_server ? FWX_HOST_SENT : FWX_HOST_RECEIVED,
                          is_sync ? exchange_t::sync : exchange_t::async, bytes.data(), bytes.size());
        }
        EXPECT_EQ(fwx_host_capture_close(), 0U);
        return dissected();
    }

    std::string path_ = testing::TempDir() + "dissector_test." + std::to_string(getpid());
};

TEST_F(natctl_test, ends_with_status_2_and_names_the_file_that_cannot_be_captured_to) {
    const run_t refused = run("--json --capture /no/such/folder/file dev ipalias upload");
    EXPECT_EQ(refused.status, 2);
    EXPECT_EQ(refused.notes, "natctl: --capture /no/such/folder/file: No such file or directory\n");
    EXPECT_EQ(json_t::parse(refused.answers).at("status"), "usage");
    EXPECT_EQ(run("--capture '' dev ipalias upload").status, 2);
}

TEST_F(dissector_test, links_a_reply_and_its_command_by_context_and_epoch) {
    messages_t messages;
    const struct {
        wire_direction_t direction;
        uint8_t number, context, epoch;
    } exchanged[] = {
        {wire_direction_t::to_server, 5, 1, 1}, {wire_direction_t::to_server, 5, 2, 1},
        {wire_direction_t::to_server, 5, 1, 2}, {wire_direction_t::to_client, 5, 2, 1},
        {wire_direction_t::to_client, 5, 1, 1}, {wire_direction_t::to_client, 5, 2, 1},
        {wire_direction_t::to_client, 5, 3, 1},
    };
    for (const auto &each : exchanged) {
        bytes_t bytes(each.direction == wire_direction_t::to_server ? 32 : 48);
        bytes[0] = each.number, bytes[1] = 0xc0, bytes[2] = 96, bytes[23] = each.context, bytes[24] = each.epoch;
        messages.emplace_back(each.direction, bytes);
    }
    const std::vector<packet_t> packets = dissected(messages);
    ASSERT_EQ(packets.size(), 7U);
    EXPECT_TRUE(packets[0].has("fwx_nat64.response_in=5"));
    EXPECT_TRUE(packets[1].has("fwx_nat64.response_in=4") && packets[1].has("fwx_nat64.response_in=6"));
    EXPECT_TRUE(packets[0].has_field("fwx_nat64.response_time") && !packets[0].has_field("fwx_nat64.unanswered"));
    EXPECT_TRUE(packets[2].has_field("fwx_nat64.unanswered") && !packets[2].has_field("fwx_nat64.response_in"));
    EXPECT_TRUE(packets[3].has("fwx_nat64.request_in=2") && packets[3].has_field("fwx_nat64.response_time"));
    EXPECT_TRUE(packets[4].has("fwx_nat64.request_in=1"));
    EXPECT_TRUE(packets[5].has("fwx_nat64.request_in=2"));
    EXPECT_FALSE(packets[6].has_field("fwx_nat64.request_in"));
}

TEST_F(dissector_test, accepts_a_refusal_that_ends_after_its_result_as_complete) {
    bytes_t bytes(36);
    bytes[0] = 5, bytes[1] = 0xc0, bytes[2] = 96, bytes[32] = 7;
    const std::vector<packet_t> packets = dissected({{wire_direction_t::to_client, bytes}});
    ASSERT_EQ(packets.size(), 1U);
    EXPECT_TRUE(packets[0].has("fwx_nat64.message=stats_intf_reply") && packets[0].is_all_shown());
    EXPECT_FALSE(packets[0].has_field("fwx_nat64.malformed"));
    EXPECT_TRUE(packets[0].has_field("fwx_nat64.refused"));
}

TEST_F(dissector_test, finds_values_in_any_message_and_shows_them_in_the_information_column) {
    EXPECT_EQ(run("--capture " + path_ + " batch " SOURCE_DIR "/examples/nat64.natctl").status, 0);
    const std::pair<const char *, const char *> found[] = {
        {"ipv4 == 203.0.113.127", "pool_range_add id=2 start_addr=203.0.113.0 end_addr=203.0.113.127\n"},
        {"ipv6 == 2001:db8:1c0:2:21:: && fwx_nat64.direction == 0",
         "smapping_add id=123 addr1=2001:db8:1c0:2:21:: addr2=198.51.100.2\n"},
        {"prefix == \"2001:db8:100::/40\"", "glb_prefix prefix=2001:db8:100::/40 prefix_kind=stateless-v6v4\n"},
        {"id == 15 && fwx_nat64.direction == 0", "dmapping_add id=15 type=address-dependent\n"},
        {"ifh == 3 && fwx_nat64.direction == 0", "nvi_interface_enable ifh=3\n"},
    };
    EXPECT_EQ(output_of("-Y 'fwx_nat64.malformed || fwx_nat64.undissected'"), "");
    for (const auto &[filter, information] : found) {
        EXPECT_EQ(output_of(std::string("-T fields -e _ws.col.Info -Y 'fwx_nat64.") + filter + "'"), information);
    }
    EXPECT_NE(output_of("-q -X lua_script1:statistics").find("\npool_add                          2          2 "),
              std::string::npos);
}

TEST_F(dissector_test, knows_every_message_and_marks_those_that_are_too_short) {
    const std::vector<wire_message_t> described = described_messages();
    messages_t messages;
    for (const wire_message_t &message : described) {
        messages.emplace_back(message.direction, framed(message, message.entry_count_offset != 0 ? 2 : 1));
    }
    const std::vector<packet_t> whole = dissected(messages);
    for (auto &[direction, bytes] : messages) {
        bytes.pop_back();
    }
    const std::vector<packet_t> cut = dissected(messages);
    ASSERT_EQ(whole.size(), described.size());
    ASSERT_EQ(cut.size(), described.size());
    for (size_t i = 0; i < described.size(); ++i) {
        SCOPED_TRACE(described[i].name);
        EXPECT_TRUE(whole[i].has(std::string("fwx_nat64.message=") + described[i].name));
        EXPECT_TRUE(whole[i].is_all_shown());
        EXPECT_FALSE(whole[i].has_field("fwx_nat64.malformed"));
        EXPECT_TRUE(cut[i].has_field("fwx_nat64.malformed"));
    }
}

}  // namespace
