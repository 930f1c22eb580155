/* The file that the document stands in, watched. */
#ifndef TOOLS_NAT64D_DOCUMENT_FILE_H
#define TOOLS_NAT64D_DOCUMENT_FILE_H

#include <functional>
#include <string>

#include "net/descriptor.h"

/**
 * Calls `on_change` when a file of that name has been written and closed, has come or gone: its folder is watched,
 * since editors replace files. Symbolic links are followed once, at the start, and their folder is watched too.
 */
class file_watch_t {
public:
    file_watch_t(fwx_host_loop_t *loop, const std::string &path, std::function<void()> on_change);

    /** Whether changes will be noticed. */
    bool is_watching() const { return is_watching_; }

private:
    void take_events();

    std::function<void()> on_change_;
    watched_descriptor_t inotify_;
    std::string names_[2]; /* of the file as it was given, and as links lead to it */
    bool is_watching_ = false;
};

#endif
