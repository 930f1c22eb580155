/* A temporary directory for nat64d, with a document. */
#ifndef TESTS_NAT64D_DAEMON_FIXTURE_H
#define TESTS_NAT64D_DAEMON_FIXTURE_H

#include "tests/nat64d/documents.h"
#include "tests/nat64d/process.h"
#include "tests/support/runtime_directory.h"
#include "tests/tools/natctl_fixture.h"

class daemon_fixture_t : public natctl_test {
protected:
    /** The document has `count` items of each kind (document_text). */
    explicit daemon_fixture_t(uint32_t count = 1) {
        setenv("XDG_STATE_HOME", folder().c_str(), 1);
        write(document_text(count, 100));
    }

    const std::string &folder() const { return directory_.path(); }
    std::string sockets() const { return directory_.sockets(); }
    void write(const std::string &text) const { replace_file(folder() + "/document", text); }

private:
    const runtime_directory_t directory_;
};

#endif
