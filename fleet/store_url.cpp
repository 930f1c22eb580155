/* Parses the address of a store and checks the options that go with it. Errors name the option. */
#include "fleet/store_url.h"

#include <algorithm>
#include <utility>

#include "records/value.h"
#include "state/read_file.h"

namespace {

constexpr std::string_view scheme = "etcd://";
constexpr size_t most_prefix_bytes = 200;
constexpr size_t most_host_bytes = 253;
constexpr std::string_view letters_and_digits = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";

bool is_made_of(std::string_view text, std::string_view others) {
    return std::all_of(text.begin(), text.end(), [&](char c) {
        return letters_and_digits.find(c) != std::string_view::npos || others.find(c) != std::string_view::npos;
    });
}

/** Returns what is wrong. */
std::string read_endpoint(std::string_view text, const std::string &protocol, store_t &store) {
    std::string_view host;
    uint16_t port = 0;
    const bool is_good = parse_host_port(text, host, port) && port != 0 && host.size() <= most_host_bytes &&
                         (text.front() == '[' || is_made_of(host, ".-_"));
    if (!is_good) {
        return '"' + std::string(text) + "\": must be HOST:PORT, with a name, an IPv4 address or [an IPv6 address]";
    }
    store.endpoints.push_back(protocol + std::string(text));
    return "";
}

bool is_prefix(std::string_view text) {
    for (size_t begin = 0; begin <= text.size();) {
        const std::string_view word = text.substr(begin, text.find('/', begin) - begin);
        if (word.empty() || !is_made_of(word, "._-")) return false;
        begin += word.size() + 1;
    }
    return text.size() <= most_prefix_bytes;
}

/** Returns what is wrong. */
std::string read_url(std::string_view url, const std::string &protocol, store_t &store) {
    if (!is_store_url(url)) return "must begin with " + std::string(scheme);
    url.remove_prefix(scheme.size());
    const size_t slash = std::min(url.find('/'), url.size());
    std::string_view endpoints = url.substr(0, slash);
    for (bool has_more = true; has_more;) {
        const size_t comma = std::min(endpoints.find(','), endpoints.size());
        std::string error = read_endpoint(endpoints.substr(0, comma), protocol, store);
        if (!error.empty()) return error;
        has_more = comma != endpoints.size();
        endpoints.remove_prefix(std::min(comma + 1, endpoints.size()));
    }
    const std::string_view prefix = url.substr(std::min(slash + 1, url.size()));
    store.prefix = prefix.substr(0, prefix.size() - (prefix.ends_with('/') ? 1 : 0));
    if (is_prefix(store.prefix)) return "";
    return "must end with /PREFIX: words of letters, digits, '.', '_' and '-' with slashes between, " +
           std::to_string(most_prefix_bytes) + " bytes at most";
}

/** Returns what is wrong. */
std::string check_files(const store_options_t &options) {
    struct file_t {
        const char *option;
        const std::string *name;
    };
    for (const file_t &file :
         {file_t{"--ca", &options.ca}, file_t{"--cert", &options.cert}, file_t{"--key", &options.key}}) {
        if (file.name->empty()) continue;
        std::string error;
        if (!read_file(*file.name, error, most_certificate_bytes)) return std::string(file.option) + ": " + error;
    }
    const bool has_more_than_ca = !options.cert.empty() || !options.key.empty();
    if (has_more_than_ca && options.ca.empty()) return "--cert and --key: need --ca";
    if (options.cert.empty() != options.key.empty()) return "--cert and --key: one needs the other";
    if (options.user.empty() != options.password_file.empty()) return "--user and --password-file: one needs the other";
    if (!options.user.empty() && options.ca.empty() && !options.sends_plaintext) {
        return "--user: the password would go to the store in plain text; use --ca for TLS, or --insecure-plaintext";
    }
    return "";
}

}  // namespace

bool is_store_url(std::string_view text) {
    return text.starts_with(scheme);
}

std::string read_store(const store_options_t &options, store_t &store) {
    store = {};
    std::string error = read_url(options.url, options.ca.empty() ? "http://" : "https://", store);
    if (!error.empty()) return options.url + ": " + error;
    error = check_files(options);
    if (!error.empty()) return error;
    store.tls = {options.ca, options.cert, options.key};
    store.user = options.user;
    store.password_file = options.password_file;
    return read_password(store);
}

std::string read_password(store_t &store) {
    if (store.password_file.empty()) return "";
    std::string error;
    std::optional<std::string> password = read_file(store.password_file, error, most_password_bytes);
    if (!password) return "--password-file: " + error;
    if (password->ends_with('\n')) password->pop_back();
    if (password->empty()) return "--password-file: " + store.password_file + ": is empty";
    store.password = *std::move(password);
    return "";
}

std::vector<std::string> store_warnings(const store_options_t &options) {
    std::vector<std::string> warnings;
    for (const auto &[option, file] :
         {std::pair("--password-file", &options.password_file), std::pair("--key", &options.key)}) {
        if (file->empty() || !is_open_to_others(*file)) continue;
        warnings.push_back(std::string(option) + ": " + *file + ": other users have access to it; chmod 600 " + *file);
    }
    return warnings;
}
