/*
 * A JSON value type, which keeps the large header of the parser out of other files. An object keeps its members in the
 * order in which they were added.
 *
 * Values can be written as initializer lists: {{"id", 7}, {"names", json_t::array()}} is an object, because each
 * element is a pair that begins with a text. Any other list in braces is an array.
 *
 * Input from outside is checked: a text with more than 16 levels of nesting or an object of more than 256 members is
 * not accepted as JSON, and json_members_t checks the type and range of each member.
 */
#ifndef NET_JSON_H
#define NET_JSON_H

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

class json_t {
public:
    enum class kind_t : uint8_t { null, boolean, integer, number, real, text, array, object };

    json_t() = default;
    json_t(std::nullptr_t) {}
    template <typename number_t, std::enable_if_t<std::is_arithmetic_v<number_t>, int> = 0>
    json_t(number_t value) {
        if constexpr (std::is_same_v<number_t, bool>) {
            set(kind_t::boolean, value ? 1 : 0);
        } else if constexpr (std::is_floating_point_v<number_t>) {
            set_real(value);
        } else {
            const bool is_negative = std::is_signed_v<number_t> && value < number_t{};
            set(is_negative ? kind_t::integer : kind_t::number, static_cast<uint64_t>(value));
        }
    }
    json_t(std::string text);
    json_t(std::string_view text) : json_t(std::string(text)) {}
    json_t(const char *text) : json_t(std::string(text)) {}
    json_t(std::initializer_list<json_t> elements);
    template <typename value_t>
    json_t(const std::vector<value_t> &values) : json_t(array()) {
        for (const value_t &value : values) {
            push_back(value);
        }
    }
    json_t(const json_t &other);
    json_t(json_t &&other) noexcept = default;
    json_t &operator=(const json_t &other);
    json_t &operator=(json_t &&other) noexcept = default;
    ~json_t() = default;

    static json_t array(std::initializer_list<json_t> elements = {});
    static json_t object();

    bool is_null() const { return kind_ == kind_t::null; }
    bool is_boolean() const { return kind_ == kind_t::boolean; }
    bool is_integer() const { return kind_ == kind_t::integer; } /* a negative integer */
    bool is_number() const { return kind_ == kind_t::number; }   /* an integer from 0 */
    bool is_string() const { return kind_ == kind_t::text; }
    bool is_array() const { return kind_ == kind_t::array; }
    bool is_object() const { return kind_ == kind_t::object; }

    /** Number of elements or members of an array or object; 0 for null, 1 for any other value. */
    size_t size() const;
    bool empty() const { return size() == 0; }

    /** The member of that name. A missing member is added as null. A value that is no object becomes one. */
    json_t &operator[](std::string_view name);
    /** The member of that name, or null if it is missing. */
    const json_t &operator[](std::string_view name) const;
    const json_t &operator[](size_t index) const { return values()[index]; }
    json_t &operator[](size_t index) { return elements()[index]; }
    /** As [] of a constant object; `at(index)` throws std::out_of_range. */
    const json_t &at(std::string_view name) const { return (*this)[name]; }
    const json_t &at(size_t index) const { return values().at(index); }
    /** The member, or a null pointer. */
    const json_t *find(std::string_view name) const;
    bool contains(std::string_view name) const { return find(name) != nullptr; }
    const json_t &front() const { return values().front(); }
    json_t &front() { return elements().front(); }
    const json_t &back() const { return values().back(); }
    /** Appends an element. A value that is no array becomes an empty array first. */
    void push_back(json_t value);
    /** Removes a member from an object, if it exists. */
    void erase(std::string_view name);
    /** Sets each member of `object` in this object. */
    void update(const json_t &object);

    /** The value as that type; 0 or an empty text if it has another kind. An integer is truncated to a smaller type. */
    template <typename value_t>
    value_t get() const {
        if constexpr (std::is_same_v<value_t, std::string>) {
            return text();
        } else if constexpr (std::is_floating_point_v<value_t>) {
            return static_cast<value_t>(real());
        } else {
            return static_cast<value_t>(bits_);
        }
    }
    /** The value of a member, or `otherwise` if it is missing. */
    template <typename value_t>
    value_t value(std::string_view name, value_t otherwise) const {
        const json_t *member = find(name);
        return member == nullptr ? otherwise : member->get<value_t>();
    }
    std::string value(std::string_view name, const char *otherwise) const {
        return value(name, std::string(otherwise));
    }

    /** Iterates over the elements of an array, or the values of an object's members. */
    std::vector<json_t>::const_iterator begin() const { return values().begin(); }
    std::vector<json_t>::const_iterator end() const { return values().end(); }
    std::vector<json_t>::iterator begin() { return elements().begin(); }
    std::vector<json_t>::iterator end() { return elements().end(); }

    /** Iterates over the members of an object, as pairs of name and value. */
    class members_t {
    public:
        class iterator {
        public:
            iterator(const json_t &of, size_t index) : of_(of), index_(index) {}
            std::pair<const std::string &, const json_t &> operator*() const {
                return {of_.names()[index_], of_.values()[index_]};
            }
            iterator &operator++() {
                ++index_;
                return *this;
            }
            bool operator!=(const iterator &other) const { return index_ != other.index_; }

        private:
            const json_t &of_;
            size_t index_;
        };
        explicit members_t(const json_t &of) : of_(of) {}
        iterator begin() const { return {of_, 0}; }
        iterator end() const { return {of_, of_.is_object() ? of_.size() : 0}; }

    private:
        const json_t &of_;
    };
    members_t items() const { return members_t(*this); }

    bool operator==(const json_t &other) const;
    bool operator!=(const json_t &other) const { return !(*this == other); }

    /** The JSON text on one line. Bytes that are not UTF-8 are replaced, because errors can quote any user input. */
    std::string dump() const;
    /** Parses a text. Null if it is not JSON, nests too deep or has too large an object. */
    static json_t parse(std::string_view text);

private:
    struct branches_t; /* the content of texts, arrays and objects */

    void set(kind_t kind, uint64_t bits) {
        kind_ = kind;
        bits_ = bits;
    }
    void set_real(double value);
    double real() const;
    const std::string &text() const;
    const std::vector<std::string> &names() const;
    const std::vector<json_t> &values() const;
    std::vector<json_t> &elements();
    const branches_t &read_branches() const;
    branches_t &branches();
    void write(std::string &out) const;

    kind_t kind_ = kind_t::null;
    uint64_t bits_ = 0; /* of a boolean, an integer, or a double */
    std::unique_ptr<branches_t> branches_;
};

struct json_t::branches_t {
    std::string text;
    std::vector<std::string> names; /* of an object's members */
    std::vector<json_t> values;     /* of an object's members, or an array's elements */
};

/**
 * Makes a text from outside safe for a terminal. It is cut to `most_bytes`, at the end of a character. Each character
 * that could control a terminal becomes a blank: control characters (C0 and C1), marks of the text direction, and line
 * separators. Each byte that is not UTF-8 becomes a question mark, because some terminals treat it as a control
 * character.
 */
std::string clean_line(std::string_view text, size_t most_bytes = SIZE_MAX);
/** Likewise without a limit, but line feeds and tabs are kept. */
std::string clean_text(std::string_view text);

/** Reads and checks the members of an object. The first error is the fault; the values after an error mean nothing. */
class json_members_t {
public:
    /** `object` must outlive this object. */
    explicit json_members_t(const json_t &object);

    /** An integer from `least` to `most`. If it is missing or another value, sets the fault and returns 0. */
    uint64_t number(const char *name, uint64_t least, uint64_t most);
    /** A text of `least_bytes` to `most_bytes`. If it is missing or another value, sets the fault and returns "". */
    std::string text(const char *name, size_t most_bytes, size_t least_bytes = 0);
    /** A text of at most `most_bytes` that `clean_line` does not change; otherwise sets the fault. */
    std::string line(const char *name, size_t most_bytes);
    /** A boolean. If it is missing or another value, sets the fault and returns false. */
    bool flag(const char *name);
    /** An integer as etcd writes it: as a text, and left out if it is 0. Returns 0 if it is missing. */
    int64_t int64(const char *name);
    /** The member, or null if it is missing. */
    const json_t *find(const char *name) const { return object_.find(name); }

    /** Sets the fault, unless there is one already. */
    void fail(const std::string &reason);
    bool is_good() const { return fault_.empty(); }
    /** The first error, such as `version: must be 1 to 9999999999`; empty: none. */
    const std::string &fault() const { return fault_; }

private:
    const json_t &object_;
    std::string fault_;
};

#endif
