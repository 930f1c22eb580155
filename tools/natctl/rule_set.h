/* A set of MAP-T rules and the longest-prefix lookups of `mapt explain`. */
#ifndef TOOLS_NATCTL_RULE_SET_H
#define TOOLS_NATCTL_RULE_SET_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "config/document.h"
#include "reconcile/rule_book.h"
#include "records/reader.h"
#include "records/words.h"

class rule_set_t {
public:
    /** Takes the rules that remain after all commands of a batch file. Returns an error text, empty on success. */
    std::string read(const std::string &file);
    /** Takes the rules that natctl has installed. */
    void take(const rule_book_t &book);
    /** Takes the rules of a document. */
    void take(const document_t &document);

    /** The rules with the longest matching prefix. There may be several, which share an address and differ by PSID. */
    std::vector<const fwx_nat64_mapt_bmr_t *> find_v4(const uint8_t ipv4[4]) const;
    /** The rule with the longest matching prefix, or null. */
    const fwx_nat64_mapt_bmr_t *find_v6(const uint8_t ipv6[16]) const;
    const fwx_nat64_mapt_dmr_t *find_default(const uint8_t ipv6[16]) const;
    /** The default rule with the lowest identifier whose prefix can embed an IPv4 address, or null. */
    const fwx_nat64_mapt_dmr_t *first_default() const;

private:
    std::string take_line(const std::string &text);
    void apply(uint32_t op, const fwx_nat64_mapt_bmr_t &rule);
    void apply(uint32_t op, const fwx_nat64_mapt_dmr_t &rule);

    std::map<rule_name_t, fwx_nat64_mapt_bmr_t> basic_;
    std::map<uint32_t, fwx_nat64_mapt_dmr_t> defaults_; /* by identifier */
    line_words_t words_;
    record_reader_t reader_;
};

/** The length of a default rule's prefix in bits. */
inline uint8_t prefix_len_of(const fwx_nat64_mapt_dmr_t &rule) {
    return rule.opaque[16];
}

#endif
