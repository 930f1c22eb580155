/*
 * The process that rewrites packet headers: tayga, behind a TUN device, with one prefix and nothing else. It outlives
 * the gateway, which finds it again by its device, and by a file with its process id whose process is checked.
 *
 * Another translator takes its place by another implementation of this class: it must serve `translator_device`, and
 * map addresses behind `translator_prefix` to IPv4 and back.
 */
#ifndef GATEWAY_TRANSLATOR_H
#define GATEWAY_TRANSLATOR_H

#include <sys/types.h>

#include <string>

class routes_t;

struct translator_options_t {
    std::string gateway;
    std::string directory;         /* for the translator's files */
    std::string program = "tayga"; /* looked for in PATH, /usr/sbin and /sbin unless it is a path */
    bool is_external = false;      /* another service starts it */
};

class translator_t {
public:
    explicit translator_t(translator_options_t options) : options_(std::move(options)) {}

    /** Returns what is missing: the program, the TUN driver. */
    std::string check() const;
    /** Starts the translator unless it runs, waits up to `patience_ms` until it serves the device, and sets the device
     * up. `is_new` says whether the device has lost its routes. Returns what went wrong. */
    std::string ensure(routes_t &routes, int patience_ms, bool &is_new);
    /** Makes the device and becomes the translator; returns why that failed. */
    std::string become() const;
    /** Ends the translator, if it runs. */
    void end() const;

private:
    std::string file(const char *name) const { return options_.directory + "/" + name; }
    std::string program_path() const;
    std::string start() const;
    pid_t process() const;

    const translator_options_t options_;
};

#endif
