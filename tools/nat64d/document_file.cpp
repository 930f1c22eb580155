#include "tools/nat64d/document_file.h"

#include <sys/inotify.h>

#include <filesystem>

namespace {

std::filesystem::path folder_of(const std::filesystem::path &file) {
    return file.has_parent_path() ? file.parent_path() : ".";
}

}  // namespace

file_watch_t::file_watch_t(fwx_host_loop_t *loop, const std::string &path, std::function<void()> on_change)
    : on_change_(std::move(on_change)),
      inotify_(loop, inotify_init1(IN_CLOEXEC | IN_NONBLOCK), [this] { take_events(); }) {
    std::error_code failed;
    const std::filesystem::path real = std::filesystem::canonical(path, failed);
    const std::filesystem::path files[] = {path, failed ? std::filesystem::path(path) : real};
    constexpr uint32_t what = IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE;
    is_watching_ = inotify_.is_watched();
    for (size_t i = 0; i < 2; ++i) {
        names_[i] = files[i].filename();
        is_watching_ = is_watching_ && inotify_add_watch(inotify_.fd(), folder_of(files[i]).c_str(), what) >= 0;
    }
}

void file_watch_t::take_events() {
    alignas(inotify_event) char room[4096];
    bool is_ours = false;
    ssize_t size = 0;
    while ((size = read(inotify_.fd(), room, sizeof room)) > 0) {
        for (const char *at = room; at < room + size;) {
            const auto *event = reinterpret_cast<const inotify_event *>(at);
            at += sizeof(inotify_event) + event->len;
            const std::string_view name = event->len == 0 ? "" : event->name;
            is_ours = is_ours || (event->mask & IN_Q_OVERFLOW) != 0 || name == names_[0] || name == names_[1];
        }
    }
    if (is_ours) on_change_();
}
