/* The measured exchange, common to all variants: a client keeps commands outstanding, and a server answers each. */
#ifndef BENCH_CHANNEL_BENCH_H
#define BENCH_CHANNEL_BENCH_H

#include <sched.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>

constexpr uint32_t command_bytes = 48;

struct setting_t {
    int client_cpu;
    int server_cpu;
    uint32_t spin_us; /* time that either side busy-polls before it sleeps */
    uint32_t outstanding;
    uint32_t count;
};

inline void pin(int cpu) {
    cpu_set_t cpus;
    CPU_ZERO(&cpus);
    CPU_SET(cpu, &cpus);
    sched_setaffinity(0, sizeof(cpus), &cpus);
}

/** A process that runs `serve`, pinned to a processor, until it is killed. */
class server_process_t {
public:
    template <typename serve_t>
    server_process_t(int cpu, serve_t serve) {
        child_ = fork();
        if (child_ != 0) return;
        pin(cpu);
        serve();
        _exit(1);
    }
    ~server_process_t() {
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
    }
    server_process_t(const server_process_t &) = delete;
    server_process_t &operator=(const server_process_t &) = delete;

private:
    pid_t child_;
};

/** `client.send()` sends a command. `client.receive()` waits for answers and returns their number. */
template <typename client_t>
void exchange(client_t &client, uint32_t outstanding, uint32_t count) {
    uint32_t sent = 0;
    for (; sent < outstanding; ++sent) {
        client.send();
    }
    for (uint32_t received = 0; received < count;) {
        const uint32_t more = client.receive();
        received += more;
        for (uint32_t i = 0; i < more && sent < count; ++i, ++sent) {
            client.send();
        }
    }
}

/** Seconds per command, measured after a warm-up of a tenth of the commands. */
template <typename client_t>
double measure(client_t &client, const setting_t &setting) {
    exchange(client, setting.outstanding, setting.count / 10);
    const auto start = std::chrono::steady_clock::now();
    exchange(client, setting.outstanding, setting.count);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() / setting.count;
}

double run_in_process(const setting_t &setting);
double run_between_processes(const setting_t &setting);
double run_bare_ring(const setting_t &setting);

#endif
