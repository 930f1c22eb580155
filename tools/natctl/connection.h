/* Chooses the server that natctl's binding talks to, and makes the embedded one. */
#ifndef TOOLS_NATCTL_CONNECTION_H
#define TOOLS_NATCTL_CONNECTION_H

#include <memory>
#include <string>

#include "fwx_host/fwx_host.h"
#include "model/model.h"

enum class server_kind_t : uint8_t {
    model,  /* the embedded server model */
    remote, /* a server in another process */
    sink,   /* accepts every message and answers synchronous ones with 0, for dry runs */
};

class connection_t {
public:
    /** `loop` must outlive the connection. A remote server listens under `remote_name`. */
    connection_t(fwx_host_loop_t *loop, server_kind_t kind, const std::string &remote_name = {});
    ~connection_t();
    connection_t(const connection_t &) = delete;
    connection_t &operator=(const connection_t &) = delete;

    /** 0 if the server is available, otherwise an error code. */
    uint32_t result() const { return result_; }
    /** The embedded model, or null. */
    fwx_nat64_model_t *model() const { return model_.get(); }

private:
    std::unique_ptr<fwx_nat64_model_t> model_;
    fwx_host_server_t *sink_ = nullptr;
    uint32_t result_ = 0;
};

#endif
