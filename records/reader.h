/*
 * Parses one configuration command into a record: the words of a line, or the members of a JSON object. The families'
 * table is the grammar. Batches have millions of commands, so parsing a correct one allocates nothing.
 */
#ifndef RECORDS_READER_H
#define RECORDS_READER_H

#include <string>
#include <string_view>
#include <vector>

#include "records/family.h"

/** An error in a command. */
struct record_error_t {
    std::string field; /* option or, for members, name of the field; empty if the error concerns no field */
    std::string text;  /* begins with `field` */
};

/** A member of a JSON object, such as `"id": 1`, with the value as an option takes it. */
struct record_member_t {
    std::string_view name;
    std::string_view value;
};

class record_reader_t {
public:
    enum class result_t : uint8_t {
        record,  /* family, verb and record hold the command */
        refused, /* the command has errors, see `errors` */
        other,   /* not a command of a family, or it has --help or `--`, which only natctl's own parser understands */
    };

    /** @param other_verb a verb that the caller adds to every family, or empty. The viewed text must outlive the
     * reader. */
    explicit record_reader_t(std::string_view other_verb = {}) : other_verb_(other_verb) {}

    /** Parses `pool add --id 1 ...`. Options come in any order, as `--id 1` or `--id=1`. */
    result_t read(const std::vector<std::string_view> &words);
    /** Parses the fields of a command by their names in JSON. The result is never `other`. */
    result_t read(const record_family_t &family, const record_verb_t &verb,
                  const std::vector<record_member_t> &members);

    const record_family_t &family() const { return *family_; }
    const record_verb_t &verb() const { return *verb_; }
    const record_buffer_t &record() const { return record_; }
    /** The errors of all fields, and the first error that concerns no field. */
    const std::vector<record_error_t> &errors() const { return errors_; }
    const std::string &error() const { return errors_.front().text; }
    /** The words of the command that were recognised, such as `pool add`. */
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
    const std::string_view *extra_ = nullptr; /* the first unexpected word */
    bool is_by_name_ = false;
    std::vector<record_error_t> errors_;
};

#endif
