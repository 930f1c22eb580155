#include "tools/natctl/state_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <vector>

#include "fwx_host/errors.h"
#include "records/value.h"
#include "tools/natctl/outcome.h"

namespace {

constexpr int version = 1;

std::string restore(const json_t &parts, fwx_nat64_model_t *model) {
    size_t index = 0;
    for (const json_t &part : parts) {
        const std::string digits = part.at("payload").get<std::string>();
        std::vector<uint8_t> payload(digits.size() / 2);
        if (!parse_hex(digits, payload.data(), payload.size())) payload.clear(); /* is no part of any kind */
        const uint32_t rc = model->restore(part.at("op_code").get<uint32_t>(), payload.data(), payload.size());
        if (rc != 0) return "part " + std::to_string(index) + ": " + xerr_strerror(rc);
        ++index;
    }
    return "";
}

std::string write_all(int fd, const std::string &text) {
    size_t written = 0;
    while (written < text.size()) {
        const ssize_t now = write(fd, text.data() + written, text.size() - written);
        if (now < 0) return std::strerror(errno);
        written += static_cast<size_t>(now);
    }
    return fsync(fd) == 0 ? "" : std::strerror(errno);
}

}  // namespace

std::string state_file_read(const std::string &path, fwx_nat64_model_t *model) {
    if (access(path.c_str(), F_OK) != 0) return "";
    std::ifstream file(path);
    if (!file) return path + ": " + std::strerror(errno);
    try {
        const json_t state = json_t::parse(file);
        if (state.at("version").get<int>() != version) return path + ": not a state file of version 1";
        const std::string error = restore(state.at("parts"), model);
        return error.empty() ? "" : path + ": " + error;
    } catch (const nlohmann::json::exception &error) {
        return path + ": " + error.what();
    }
}

std::string state_file_write(const std::string &path, const fwx_nat64_model_t *model) {
    json_t parts = json_t::array();
    model->save(
        [](void *arg, uint32_t op_code, const void *payload, size_t size) {
            static_cast<json_t *>(arg)->push_back({{"op_code", op_code}, {"payload", hex_digits(payload, size)}});
        },
        &parts);
    const json_t state = {{"version", version}, {"parts", std::move(parts)}};

    const std::string fresh = path + ".new";
    const int fd = open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (fd < 0) return fresh + ": " + std::strerror(errno);
    std::string error = write_all(fd, state.dump(1) + "\n");
    close(fd);
    if (error.empty() && rename(fresh.c_str(), path.c_str()) != 0) error = std::strerror(errno);
    if (error.empty()) return "";
    unlink(fresh.c_str());
    return fresh + ": " + error;
}
