#include "tools/pal/ways_back.h"

#include <unistd.h>

#include "tools/pal/read_file.h"
#include "tools/pal/write_file.h"

std::string ways_back_t::keep(uint32_t version, const std::string &lines) {
    if (!directory_.empty()) return write_file(path_of(version), lines);
    in_memory_[version] = lines;
    return "";
}

std::string ways_back_t::read(uint32_t version, std::string &lines) const {
    if (directory_.empty()) {
        lines = in_memory_.at(version);
        return "";
    }
    std::string error;
    lines = read_file(path_of(version), error).value_or("");
    return error;
}

void ways_back_t::drop(uint32_t version) {
    in_memory_.erase(version);
    if (!directory_.empty()) unlink(path_of(version).c_str());
}
