/* The same exchange over a pair of nng sockets. */
#include <nng/nng.h>
#include <nng/protocol/pair0/pair.h>

#include <string>

#include "channel_bench.h"

namespace {

class nng_end_t {
public:
    nng_end_t(const std::string &address, bool is_server) {
        nng_pair0_open(&socket_);
        nng_socket_set_int(socket_, NNG_OPT_SENDBUF, 128);
        nng_socket_set_int(socket_, NNG_OPT_RECVBUF, 128);
        const int rc = is_server ? nng_listen(socket_, address.c_str(), nullptr, 0)
                                 : nng_dial(socket_, address.c_str(), nullptr, NNG_FLAG_NONBLOCK);
        if (rc != 0) _exit(1);
    }
    ~nng_end_t() { nng_close(socket_); }
    nng_end_t(const nng_end_t &) = delete;
    nng_end_t &operator=(const nng_end_t &) = delete;

    void send() {
        uint8_t message[command_bytes] = {};
        nng_send(socket_, message, sizeof(message), 0);
    }
    uint32_t receive() {
        uint8_t message[command_bytes];
        size_t size = sizeof(message);
        return nng_recv(socket_, message, &size, 0) == 0 ? 1 : 0;
    }

private:
    nng_socket socket_{};
};

}  // namespace

double run_nng(const setting_t &setting) {
    const std::string path = "/tmp/channel_bench_nng." + std::to_string(getpid());
    const std::string address = "ipc://" + path;
    double seconds = 0;
    {
        const server_process_t server(setting.server_cpu, [&] {
            nng_end_t end(address, true);
            for (;;) {
                if (end.receive() != 0) end.send();
            }
        });
        seconds = seconds_of_client(setting, [&] {
            nng_end_t client(address, false);
            return measure(client, setting);
        });
    }
    unlink(path.c_str());
    return seconds;
}
