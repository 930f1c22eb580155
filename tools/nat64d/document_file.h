/* Watches the file of the document. */
#ifndef TOOLS_NAT64D_DOCUMENT_FILE_H
#define TOOLS_NAT64D_DOCUMENT_FILE_H

#include <functional>
#include <string>

#include "net/descriptor.h"

/**
 * Calls `on_change` when a file of that name was closed after a write, appeared or disappeared. It watches the folder,
 * because editors replace files. It follows symbolic links once, at the start, and watches the target's folder too.
 */
class file_watch_t {
public:
    file_watch_t(fwx_host_loop_t *loop, const std::string &path, std::function<void()> on_change);

    /** False if changes will not be noticed. */
    bool is_watching() const { return is_watching_; }

private:
    void take_events();

    std::function<void()> on_change_;
    watched_descriptor_t inotify_;
    std::string names_[2]; /* of the file as given, and of the target of links */
    bool is_watching_ = false;
};

#endif
