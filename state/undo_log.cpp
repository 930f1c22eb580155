#include "state/undo_log.h"

#include <unistd.h>

#include "state/read_file.h"
#include "state/write_file.h"

std::string undo_log_t::keep(uint32_t version, const std::string &lines) {
    if (!directory_.empty()) return write_file(path_of(version), lines);
    in_memory_[version] = lines;
    return "";
}

std::string undo_log_t::read(uint32_t version, std::string &lines) const {
    if (directory_.empty()) {
        lines = in_memory_.at(version);
        return "";
    }
    std::string error;
    lines = read_file(path_of(version), error).value_or("");
    return error;
}

void undo_log_t::drop(uint32_t version) {
    in_memory_.erase(version);
    if (!directory_.empty()) unlink(path_of(version).c_str());
}
