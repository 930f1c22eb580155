/* Reads the words of a line, or the members of an object, into a record. They come by the million: nothing is allocated
 * for a good one. */
#ifndef RECORDS_READER_H
#define RECORDS_READER_H

#include <string>
#include <string_view>
#include <vector>

#include "records/family.h"

/** What is wrong with a command. */
struct record_error_t {
    std::string field; /* its option, or its name where members are read; empty when it is none's */
    std::string text;  /* begins with it */
};

/** `"id": 1`, the value as an option has it. */
struct record_member_t {
    std::string_view name;
    std::string_view value;
};

class record_reader_t {
public:
    enum class result_t : uint8_t {
        record,  /* family, verb and record hold the command */
        refused, /* it is wrong, and `errors` says how */
        other,   /* it belongs to no family, or asks for help, or needs a grammar of options that end */
    };

    /** @param other_verb a verb of every family that a grammar knows, or empty; what it views must live as long. */
    explicit record_reader_t(std::string_view other_verb = {}) : other_verb_(other_verb) {}

    /** Reads `pool add --id 1 ...`: options in any order, their values behind them or after `=`. */
    result_t read(const std::vector<std::string_view> &words);
    /** Reads the fields of a command by their names; its result is never `other`. */
    result_t read(const record_family_t &family, const record_verb_t &verb,
                  const std::vector<record_member_t> &members);

    const record_family_t &family() const { return *family_; }
    const record_verb_t &verb() const { return *verb_; }
    const record_buffer_t &record() const { return record_; }
    /** All that is wrong with the fields, and the first thing that is wrong with anything else. */
    const std::vector<record_error_t> &errors() const { return errors_; }
    const std::string &error() const { return errors_.front().text; }
    /** `pool add`, as far as it was recognised. */
    std::string command() const { return record_command_text(*family_, verb_); }

private:
    struct given_t {
        std::string_view value;
        size_t times = 0;
    };

    result_t read_words(const std::vector<std::string_view> &words, size_t next);
    result_t read_fields();
    void read_field(size_t index);
    void start(const record_family_t *family, const record_verb_t *verb, bool by_name);
    result_t refuse(std::string error);
    void note(const record_field_t &field, std::string error);
    bool is_noted(const record_field_t &field) const;
    std::string_view label(const record_field_t &field) const { return is_by_name_ ? field.name : field.option; }
    size_t find_field(std::string_view word) const;
    std::string verbs_text() const;
    std::string misplaced_text() const;

    std::string_view other_verb_;
    const record_family_t *family_ = nullptr;
    const record_verb_t *verb_ = nullptr;
    record_buffer_t record_{};
    given_t given_[record_max_fields];        /* by field */
    const std::string_view *extra_ = nullptr; /* the first word that has no place */
    bool is_by_name_ = false;
    std::vector<record_error_t> errors_;
};

#endif
