#include "net/log_writer.h"

#include "fwx_host/debug.h"
#include "fwx_host/loop.h"

namespace {

constexpr uint64_t second_ms = 1000;

bool put(std::string line) {
    if (line.size() >= log_writer_t::longest_line) line.resize(log_writer_t::longest_line - 1);
    line += '\n';
    return fwx_host_stderr_write(line.data(), line.size()) != 0;
}

}  // namespace

void log_writer_t::write(const void *source, std::string line) {
    if (!is_within_second(source)) {
        ++left_out_;
        return;
    }
    finish();
    if (!put(std::move(line))) ++left_out_;
}

void log_writer_t::finish() {
    if (left_out_ != 0 && put(left_out_text_(left_out_))) left_out_ = 0;
}

bool log_writer_t::is_within_second(const void *source) {
    const uint64_t now = fwx_host_clock_ms();
    if (now - since_ms_ >= second_ms) {
        since_ms_ = now;
        of_all_ = 0;
        lines_.clear();
    }
    if (of_all_ >= lines_of_all || lines_[source] >= lines_of_source) return false;
    ++of_all_;
    ++lines_[source];
    return true;
}
