/* Implements state_lines.h. A command line is written only if reading it gives back the same payload; otherwise the
 * payload is written as digits, so no byte is lost. */
#include "tools/state_lines.h"

#include <algorithm>
#include <cstring>

#include "config/notation.h"
#include "records/families.h"
#include "records/value.h"

namespace {

constexpr std::string_view index_mark = "@index ";

std::string digits_line(uint32_t op_code, const uint8_t *payload, size_t size) {
    return std::to_string(op_code) + " " + hex_digits(payload, size);
}

bool is_rule(uint32_t op_code) {
    return op_code == record_kept_basic_rule || op_code == record_kept_basic_rule_del;
}

}  // namespace

void state_lines_t::write(uint32_t op_code, const void *payload, size_t size, const write_fn_t &write) {
    const auto *bytes = static_cast<const uint8_t *>(payload);
    const bool is_interface = op_code == FWX_NAT64_CFG_INTF_SET && size == sizeof(fwx_nat64_intf_payload_t);
    fwx_nat64_intf_payload_t interface {};
    if (is_interface) std::memcpy(&interface, bytes, sizeof interface);
    if (interface.nvi != 1 || interface.enable != 1) return write(line_of(op_code, bytes, size));
    interface.nvi = 0; /* two commands make a virtual interface */
    write(line_of(op_code, reinterpret_cast<const uint8_t *>(&interface), size));
    const record_family_t &family = record_family_of(family_kind_t::nvi);
    write(command_line(family, FWX_NAT64_OP_ADD, &interface.ifh));
}

/** A line from which the whole payload can be read back. */
std::string state_lines_t::line_of(uint32_t op_code, const uint8_t *payload, size_t size) {
    const auto [family, row] = record_kept_as(op_code, payload, size);
    if (row == nullptr) return digits_line(op_code, payload, size);
    record_buffer_t record{};
    record_init(*family, record);
    row->to_record(payload, record.bytes);
    std::string line = command_line(*family, row->op, record.bytes);
    if (is_rule(op_code)) {
        uint32_t index = 0;
        std::memcpy(&index, payload, sizeof index);
        line.insert(0, std::string(index_mark) + std::to_string(index) + " ");
    }
    const bool says_all = read(line).empty() && op_code_ == op_code && payload_.size() == size &&
                          std::memcmp(payload_.data(), payload, size) == 0;
    return says_all ? line : digits_line(op_code, payload, size);
}

std::string state_lines_t::read(std::string_view line) {
    const bool is_digits = !line.empty() && line.front() >= '0' && line.front() <= '9';
    return is_digits ? read_digits(line) : read_command(line);
}

std::string state_lines_t::read_digits(std::string_view line) {
    const size_t blank = std::min(line.find(' '), line.size());
    const std::string_view digits = line.substr(std::min(blank + 1, line.size()));
    uint64_t op_code = 0;
    payload_.assign(digits.size() / 2, 0);
    const bool is_read = parse_number(line.substr(0, blank), op_code) && op_code <= UINT32_MAX &&
                         parse_hex(digits, payload_.data(), payload_.size());
    if (!is_read) return "must be a command, or an op code and its payload";
    op_code_ = static_cast<uint32_t>(op_code);
    /* Older states hold only a rule's index and identifiers. */
    constexpr size_t without_prefixes = 3 * sizeof(uint32_t);
    if (is_rule(op_code_) && payload_.size() == without_prefixes) payload_.resize(sizeof(kept_rule_t));
    return "";
}

std::string state_lines_t::read_command(std::string_view line) {
    uint64_t index = 0;
    const bool has_index = line.substr(0, index_mark.size()) == index_mark;
    if (has_index) {
        line.remove_prefix(index_mark.size());
        const size_t length = std::min(line.find(' '), line.size());
        if (!parse_number(line.substr(0, length), index) || index > UINT32_MAX)
            return "must have an index behind @index";
        line.remove_prefix(length);
    }
    const bool is_split = words_.split(line) == 0;
    const auto result = is_split ? reader_.read(words_.words()) : record_reader_t::result_t::other;
    if (result == record_reader_t::result_t::refused) return reader_.error();
    const uint8_t *record = reader_.record().bytes;
    const record_payload_t *row = result == record_reader_t::result_t::record
                                      ? record_payload_of(reader_.family(), reader_.verb().op, record)
                                      : nullptr;
    if (row == nullptr || has_index != is_rule(row->op_code)) return "must be a command, or an op code and its payload";
    op_code_ = row->op_code;
    payload_.assign(row->size, 0);
    if (has_index) std::memcpy(payload_.data(), &index, sizeof(uint32_t));
    row->to_payload(record, payload_.data());
    row->word.put(payload_.data());
    return "";
}
