/* MAP-T rules that addresses are explained by. */
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
    /** Takes the rules that are left behind all commands of a batch file. Returns what is wrong, or an empty text. */
    std::string read(const std::string &file);
    /** Takes what natctl has installed: no others are known. */
    void take(const rule_book_t &book);
    /** Takes the rules of a document. */
    void take(const document_t &document);

    /** The rules whose prefix is the longest that the address begins with: several share an address by their PSIDs. */
    std::vector<const fwx_nat64_mapt_bmr_t *> find_v4(const uint8_t ipv4[4]) const;
    /* The rule whose prefix is the longest that the address begins with, or null. */
    const fwx_nat64_mapt_bmr_t *find_v6(const uint8_t ipv6[16]) const;
    const fwx_nat64_mapt_dmr_t *find_default(const uint8_t ipv6[16]) const;
    /** The default rule of the lowest identifier that has a place for an IPv4 address, or null. */
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

/** Bits of a default rule's prefix. */
inline uint8_t prefix_len_of(const fwx_nat64_mapt_dmr_t &rule) {
    return rule.opaque[16];
}

#endif
