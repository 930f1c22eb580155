/* The same exchange over a pair of ZeroMQ sockets. */
#include <zmq.h>

#include <string>

#include "channel_bench.h"

namespace {

class zmq_end_t {
public:
    zmq_end_t(const std::string &address, bool is_server) {
        const int rc = is_server ? zmq_bind(socket_, address.c_str()) : zmq_connect(socket_, address.c_str());
        if (rc != 0) _exit(1);
    }
    ~zmq_end_t() {
        const int linger_ms = 0;
        zmq_setsockopt(socket_, ZMQ_LINGER, &linger_ms, sizeof(linger_ms));
        zmq_close(socket_);
        zmq_ctx_term(context_);
    }
    zmq_end_t(const zmq_end_t &) = delete;
    zmq_end_t &operator=(const zmq_end_t &) = delete;

    void send() {
        const uint8_t message[command_bytes] = {};
        zmq_send(socket_, message, sizeof(message), 0);
    }
    uint32_t receive() {
        uint8_t message[command_bytes];
        return zmq_recv(socket_, message, sizeof(message), 0) == command_bytes ? 1 : 0;
    }

private:
    void *context_ = zmq_ctx_new();
    void *socket_ = zmq_socket(context_, ZMQ_PAIR);
};

}  // namespace

double run_zmq(const setting_t &setting) {
    pin(setting.client_cpu);
    const std::string path = "/tmp/channel_bench_zmq." + std::to_string(getpid());
    double seconds = 0;
    {
        const server_process_t process(setting.server_cpu, [&] {
            zmq_end_t end("ipc://" + path, true);
            for (;;) {
                if (end.receive() != 0) end.send();
            }
        });
        zmq_end_t end("ipc://" + path, false);
        seconds = measure(end, setting);
    }
    unlink(path.c_str());
    return seconds;
}
