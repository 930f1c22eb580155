/* Entries of the server are stored commands, so most are converted by the families' payload table. Rules have their
 * own. */
#include "reconcile/server_document.h"

#include <cstring>

#include "reconcile/background.h"
#include "records/families.h"

namespace nat64 = fwx::nat64;

namespace {

/** Copies the bytes into a payload. False if their number is not its size. */
template <typename payload_t>
bool take(std::span<const uint8_t> bytes, payload_t &payload) {
    if (bytes.size() != sizeof payload) return false;
    std::memcpy(&payload, bytes.data(), sizeof payload);
    return true;
}

class reader_t {
public:
    explicit reader_t(server_document_t &into) : into_(into) {}

    bool read(const nat64::running_item &item) {
        if (item.number == FWX_NAT64_MSG_CONFIG) return read_kept(item.op_code, item.payload);
        if (item.number != FWX_NAT64_MSG_MAPT_RULE) return false;
        return item.op_code == FWX_NAT64_MAPT_RULE_BMR ? read_basic_rule(item.payload)
                                                       : read_default_rule(item.payload);
    }

private:
    bool read_kept(uint32_t op_code, std::span<const uint8_t> payload) {
        const auto [family, row] = record_kept_as(op_code, payload.data(), payload.size());
        if (row == nullptr) return false;
        record_buffer_t record{};
        record_init(*family, record);
        row->to_record(payload.data(), record.bytes);
        add(*family, record.bytes);
        if (family->kind == family_kind_t::interface) read_nvi(payload);
        return true;
    }
    /** The entry of an interface has a flag if it is also a virtual interface. */
    void read_nvi(std::span<const uint8_t> bytes) {
        fwx_nat64_intf_payload_t payload;
        if (take(bytes, payload) && payload.nvi != 0) add(record_family_of(family_kind_t::nvi), &payload.ifh);
    }
    bool read_basic_rule(std::span<const uint8_t> bytes) {
        fwx_nat64_config_bmr_t payload;
        fwx_nat64_bmr_msg_t command{};
        if (!take(bytes, payload)) return false;
        std::memcpy(&command.rule_type, payload.request, sizeof payload.request);
        const fwx_nat64_mapt_bmr_t rule = rule_of(command);
        const bool has_prefixes = rule.v4_prefix_len <= FWX_NAT64_MAPT_V4_PREFIX_LEN_MAX &&
                                  rule.v6_prefix_len <= FWX_NAT64_MAPT_V6_PREFIX_LEN_MAX;
        if (!has_prefixes) return false;
        into_.rules.push_back({rule, payload.index});
        add(record_family_of(family_kind_t::basic_rule), &rule);
        return true;
    }
    bool read_default_rule(std::span<const uint8_t> bytes) {
        fwx_nat64_dmr_msg_t command{};
        constexpr size_t at = offsetof(fwx_nat64_dmr_msg_t, rule_type);
        if (bytes.size() != FWX_NAT64_DMR_MSG_SIZE - at) return false;
        std::memcpy(&command.rule_type, bytes.data(), bytes.size());
        add(record_family_of(family_kind_t::default_rule), &command.dmr);
        return true;
    }
    void add(const record_family_t &family, const void *record) {
        into_.document.carry_out(family, FWX_NAT64_OP_ADD, record);
    }

    server_document_t &into_;
};

}  // namespace

server_document_t server_document_of(const nat64::running_configuration &configuration) {
    server_document_t made;
    made.error = configuration.error;
    made.boot_id = configuration.boot_id;
    made.changes = configuration.changes;
    if (made.error) return made;
    reader_t reader(made);
    configuration.for_each([&](const nat64::running_item &item) {
        if (!reader.read(item)) made.error = nat64::client_errc::unreadable;
    });
    made.document.settle();
    return made;
}

nat64::task<server_document_t> read_server(fwx_host_loop_t *loop, nat64::client &client) {
    const nat64::running_configuration configuration = co_await client.configuration();
    co_return co_await in_background(loop, [&configuration] { return server_document_of(configuration); });
}
