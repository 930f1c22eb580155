/* Reads the words of a line into a record. Lines come by the million: nothing is allocated for a good one. */
#ifndef RECORDS_READER_H
#define RECORDS_READER_H

#include <string>
#include <string_view>
#include <vector>

#include "records/family.h"

class record_reader_t {
public:
    enum class result_t : uint8_t {
        record,  /* family, verb and record hold the command */
        refused, /* it is wrong, and `error` says how */
        other,   /* it belongs to no family, or asks for help, or needs a grammar of options that end */
    };

    /** Reads `pool add --id 1 ...`: options in any order, their values behind them or after `=`. */
    result_t read(const std::vector<std::string_view> &words);

    const record_family_t &family() const { return *family_; }
    const record_verb_t &verb() const { return *verb_; }
    const record_buffer_t &record() const { return record_; }
    const std::string &error() const { return error_; }
    /** `pool add`, as far as it was recognised. */
    std::string command() const { return record_command_text(*family_, verb_); }

private:
    struct given_t {
        std::string_view value;
        size_t times = 0;
    };

    result_t read_words(const std::vector<std::string_view> &words, size_t next);
    result_t read_fields();
    result_t refuse(std::string error);
    size_t find_field(std::string_view option) const;
    std::string verbs_text() const;
    std::string misplaced_text() const;

    const record_family_t *family_ = nullptr;
    const record_verb_t *verb_ = nullptr;
    record_buffer_t record_{};
    given_t given_[record_max_fields];        /* by field */
    const std::string_view *extra_ = nullptr; /* the first word that has no place */
    std::string error_;
};

#endif
