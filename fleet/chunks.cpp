/* Cuts a text line by line, and hashes chunks with OpenSSL. */
#include "fleet/chunks.h"

#include <openssl/evp.h>

#include <algorithm>
#include <set>

namespace {

constexpr size_t hash_digits = 64;
constexpr size_t least_chunk_bytes = 8U << 10;
constexpr size_t mean_bytes = 24U << 10; /* beyond least_chunk_bytes */

/** A hash that is the same on every machine and in every version, because it determines where texts are cut. */
uint64_t hash_of(std::string_view line) {
    uint64_t hash = 0xcbf29ce484222325;
    for (const char c : line) {
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
    }
    hash = (hash ^ hash >> 33) * 0xff51afd7ed558ccd; /* mixes all bits: many lines differ only in their last digit */
    return hash ^ hash >> 33;
}

/** True if a line ends a chunk that has the least size. On average that is one line in mean_bytes. */
bool ends_chunk(std::string_view line) {
    return hash_of(line) < UINT64_MAX / mean_bytes * std::min(line.size(), mean_bytes);
}

/** The command of a line, such as `pool add`; empty for a comment. */
std::string_view command_of(std::string_view line) {
    return line.starts_with('#') ? "" : line.substr(0, line.find(" --"));
}

class cutter_t {
public:
    explicit cutter_t(std::string_view text) : text_(text) {}

    std::vector<std::string_view> run() {
        while (at_ < text_.size()) {
            const std::string_view line =
                text_.substr(at_, std::min(text_.find('\n', at_), text_.size() - 1) + 1 - at_);
            take(line);
        }
        cut();
        return std::move(chunks_);
    }

private:
    void take(std::string_view line) {
        const std::string_view command = command_of(line);
        const bool is_new_kind = !command.empty() && seen_.insert(command).second && seen_.size() > 1;
        const bool is_full = at_ - begin_ + line.size() > most_chunk_bytes;
        if (is_new_kind || is_full) cut();
        at_ += line.size();
        while (at_ - begin_ > most_chunk_bytes) {
            chunks_.push_back(text_.substr(begin_, most_chunk_bytes));
            begin_ += most_chunk_bytes;
        }
        if (at_ - begin_ >= least_chunk_bytes && ends_chunk(line)) cut();
    }
    void cut() {
        if (at_ != begin_) chunks_.push_back(text_.substr(begin_, at_ - begin_));
        begin_ = at_;
    }

    std::string_view text_;
    size_t begin_ = 0; /* start of the current chunk */
    size_t at_ = 0;    /* its end so far */
    std::set<std::string_view> seen_;
    std::vector<std::string_view> chunks_;
};

}  // namespace

std::string sha256(std::string_view text) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned size = 0;
    if (EVP_Digest(text.data(), text.size(), digest, &size, EVP_sha256(), nullptr) != 1) return "";
    constexpr const char *digits = "0123456789abcdef";
    std::string hash;
    for (unsigned i = 0; i < size; ++i) {
        hash += digits[digest[i] >> 4];
        hash += digits[digest[i] & 0xf];
    }
    return hash;
}

bool is_sha256(std::string_view text) {
    return text.size() == hash_digits && text.find_first_not_of("0123456789abcdef") == std::string_view::npos;
}

std::vector<std::string_view> cut_chunks(std::string_view text) {
    return cutter_t(text).run();
}

chunk_t name_chunk(std::string_view piece) {
    return {sha256(piece), static_cast<uint32_t>(piece.size())};
}

bool is_chunk(const chunk_t &chunk, std::string_view piece) {
    return piece.size() == chunk.bytes && !chunk.hash.empty() && sha256(piece) == chunk.hash;
}
