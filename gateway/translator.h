/*
 * The process that rewrites packet headers: tayga, behind a TUN device, configured with one prefix only. It outlives
 * the gateway. A restarted gateway finds it by its device and by a file with its process id, after checking the
 * process.
 *
 * To use another translator, implement this class for it. It must serve `translator_device` and map addresses in
 * `translator_prefix` to IPv4 and back.
 */
#ifndef GATEWAY_TRANSLATOR_H
#define GATEWAY_TRANSLATOR_H

#include <sys/types.h>

#include <string>

class routes_t;

struct translator_options_t {
    std::string gateway;
    std::string directory;         /* directory of the translator's files */
    std::string program = "tayga"; /* a path, or a name to look for in PATH, /usr/sbin and /sbin */
    bool is_external = false;      /* another service starts the translator */
};

class translator_t {
public:
    explicit translator_t(translator_options_t options) : options_(std::move(options)) {}

    /** Returns what is missing (the program or the TUN driver), or an empty text. */
    std::string check() const;
    /** Starts the translator unless it runs, waits up to `patience_ms` until it serves the device, and sets the device
     * up. Returns what went wrong, or an empty text. */
    std::string ensure(routes_t &routes, int patience_ms);
    /** Creates the device and replaces this process by the translator. Returns only if that failed, with the reason. */
    std::string become() const;
    /** Ends the translator, if it runs. Returns what went wrong, or an empty text. */
    std::string end() const;

private:
    std::string file(const char *name) const { return options_.directory + "/" + name; }
    std::string program_path() const;
    std::string start() const;
    pid_t process() const;

    const translator_options_t options_;
};

#endif
