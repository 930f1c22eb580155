/*
 * JSON as values of our own, so that the parser's large header is compiled once. A value is null, true or false, a
 * number, a text, an array, or an object that keeps its members in the order in which they were entered.
 *
 * Values are made as they are written: {{"id", 7}, {"names", json_t::array()}} is an object, since each element is a
 * pair that begins with a text; every other list in braces is an array.
 *
 * What comes from outside is bounded: a text that nests deeper than anything here does is no JSON, and json_members_t
 * takes no member that is not what it must be.
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
    bool is_integer() const { return kind_ == kind_t::integer; } /* a negative one */
    bool is_number() const { return kind_ == kind_t::number; }   /* a whole one, not negative */
    bool is_string() const { return kind_ == kind_t::text; }
    bool is_array() const { return kind_ == kind_t::array; }
    bool is_object() const { return kind_ == kind_t::object; }

    /** Of an array or object; of all others 0 for null and 1. */
    size_t size() const;
    bool empty() const { return size() == 0; }

    /** The member of that name, which is added with null if it is missing; null becomes an object. */
    json_t &operator[](std::string_view name);
    /** The member of that name, or null if it is missing. */
    const json_t &operator[](std::string_view name) const;
    const json_t &operator[](size_t index) const { return values()[index]; }
    json_t &operator[](size_t index) { return elements()[index]; }
    /** As [] of a constant value. */
    const json_t &at(std::string_view name) const { return (*this)[name]; }
    const json_t &at(size_t index) const { return values().at(index); }
    /** The member, or a null pointer. */
    const json_t *find(std::string_view name) const;
    bool contains(std::string_view name) const { return find(name) != nullptr; }
    const json_t &front() const { return values().front(); }
    json_t &front() { return elements().front(); }
    const json_t &back() const { return values().back(); }
    /** Adds an element; null becomes an array. */
    void push_back(json_t value);
    /** Takes a member out of an object, if it is there. */
    void erase(std::string_view name);
    /** Sets each member of an object. */
    void update(const json_t &object);

    /** What the value is, 0 or an empty text where it is something else; a whole number of any other type is cut. */
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
    /** The member's value, or another one if it is missing. */
    template <typename value_t>
    value_t value(std::string_view name, value_t otherwise) const {
        const json_t *member = find(name);
        return member == nullptr ? otherwise : member->get<value_t>();
    }
    std::string value(std::string_view name, const char *otherwise) const {
        return value(name, std::string(otherwise));
    }

    /** The elements of an array, the members' values of an object. */
    std::vector<json_t>::const_iterator begin() const { return values().begin(); }
    std::vector<json_t>::const_iterator end() const { return values().end(); }
    std::vector<json_t>::iterator begin() { return elements().begin(); }
    std::vector<json_t>::iterator end() { return elements().end(); }

    /** The members of an object as pairs of name and value, to iterate over. */
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

    /** As a text on one line; what is not UTF-8 is replaced, since users' words are quoted in errors. */
    std::string dump() const;
    /** The value of a text; null if it is no JSON or nests too deep. */
    static json_t parse(std::string_view text);

private:
    struct branches_t; /* what a value has that is no number */

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
    uint64_t bits_ = 0; /* of a boolean, a number, or a real number */
    std::unique_ptr<branches_t> branches_;
};

struct json_t::branches_t {
    std::string text;
    std::vector<std::string> names; /* of an object's members */
    std::vector<json_t> values;     /* of an object's members, or an array's elements */
};

/**
 * A text from outside as it may be shown to a user, and as `json_members_t::line` takes it: cut, with blanks for what
 * could steer a terminal. That is control characters, C1 too, and those that turn the direction or end a line; a byte
 * that is not of UTF-8 becomes a question mark, as some terminals take it for a control character.
 */
std::string clean_line(std::string_view text, size_t most_bytes = SIZE_MAX);
/** Likewise, with line feeds and tabs as they are. */
std::string clean_text(std::string_view text);

/** Takes members of an object, and remembers the first thing that is wrong with them. */
class json_members_t {
public:
    /** `object` must outlive it. */
    explicit json_members_t(const json_t &object);

    /** 0, with a fault, unless it is there and within. */
    uint64_t number(const char *name, uint64_t least, uint64_t most);
    /** Empty, with a fault, unless it is there, and no longer; `least` bytes at least. */
    std::string text(const char *name, size_t most_bytes, size_t least_bytes = 0);
    /** Likewise, and without control characters. */
    std::string line(const char *name, size_t most_bytes);
    bool flag(const char *name);
    /** Of etcd's, which writes numbers as texts and leaves zeros out: 0 when it is not there. */
    int64_t int64(const char *name);
    /** Null when it is not there. */
    const json_t *find(const char *name) const { return object_.find(name); }

    void fail(const std::string &reason);
    bool is_good() const { return fault_.empty(); }
    /** `version: must be 1 to 9999999999`; empty: nothing is wrong. */
    const std::string &fault() const { return fault_; }

private:
    const json_t &object_;
    std::string fault_;
};

#endif
