#include "state/write_file.h"

#include <cerrno>

std::string write_file(const std::string &path, const std::string &text, files_t &files) {
    return write_file(path, content_fn_t([&text](const auto &write) { write(text); }), files);
}

std::string write_file(const std::string &path, const content_fn_t &content, files_t &files) {
    constexpr size_t block_bytes = size_t{64} << 10;
    const std::string name = path + ".new";
    /* Left by a killed process. Creating the file anew opens neither a link nor a FIFO. */
    if (files.remove(name) != 0 && errno != ENOENT) return file_error(name);
    const int fd = files.create(name, 0600);
    if (fd < 0) return file_error(name);
    std::string error;
    std::string block;
    uint64_t written = 0;
    const auto write_now = [&](std::string_view bytes) {
        if (error.empty() && !files.write_all(fd, bytes, written)) error = file_error(name);
        written += bytes.size();
    };
    content([&](std::string_view part) {
        const bool is_large = part.size() >= block_bytes;
        if (!is_large) block.append(part);
        if (is_large || block.size() >= block_bytes) {
            write_now(block);
            block.clear();
        }
        if (is_large) write_now(part);
    });
    write_now(block);
    const bool is_renamed = error.empty() && files.sync(fd) == 0 && files.rename(name, path) == 0;
    const bool is_durable = is_renamed && files.sync_directory_of(path) == 0;
    if (error.empty() && !is_durable) error = file_error(is_renamed ? path : name);
    files.close(fd);
    if (!is_renamed) files.remove(name);
    return error;
}

std::string link_file(const std::string &from, const std::string &path, files_t &files) {
    const std::string name = path + ".new";
    if (files.remove(name) != 0 && errno != ENOENT) return file_error(name);
    const bool is_renamed = files.link(from, name) == 0 && files.rename(name, path) == 0;
    const bool is_durable = is_renamed && files.sync_directory_of(path) == 0;
    std::string error = is_durable ? "" : file_error(is_renamed ? path : name);
    files.remove(name); /* rename leaves it if PATH was a name of FROM already */
    return error;
}

std::string remove_file(const std::string &path, files_t &files) {
    const bool is_removed = files.remove(path) == 0;
    if (!is_removed && errno == ENOENT) return "";
    return is_removed && files.sync_directory_of(path) == 0 ? "" : file_error(path);
}
