#include "state/read_file.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

std::optional<std::string> read_file(const std::string &path, std::string &error) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    if (file.is_open()) text << file.rdbuf();
    std::error_code ignored;
    const bool is_folder = std::filesystem::is_directory(path, ignored);
    if (file.is_open() && !file.bad() && !is_folder) return text.str();
    error = path + ": " + std::strerror(is_folder ? EISDIR : errno);
    return std::nullopt;
}
