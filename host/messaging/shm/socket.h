/*
 * The sockets through which clients find servers of other processes, and which tell each of two processes when the
 * other is gone.
 *
 * They are in a directory that is its user's alone: FWX_HOST_DIR, or fwx_host in XDG_RUNTIME_DIR, or else
 * /tmp/fwx_host-UID. Nothing here blocks. Codes are FWX_HOST_ERR_* or errno values.
 */
#ifndef HOST_MESSAGING_SHM_SOCKET_H
#define HOST_MESSAGING_SHM_SOCKET_H

#include <sys/types.h>

#include <array>
#include <cstdint>
#include <string>

#include "host/loop/descriptor.h"

/** Where a server listens. */
struct shm_entrance_t {
    descriptor_t socket;
    std::string path;
    dev_t device = 0; /* of the file at `path`, and its number on it, to know it from another's */
    ino_t file = 0;
};

/** Listens under a server name. A socket that a dead server left behind is replaced. FWX_HOST_ERR_NAME_TAKEN,
 * FWX_HOST_ERR_FOREIGN, FWX_HOST_ERR_BAD_ARG for a name that cannot be a file's. Throws std::bad_alloc. */
uint32_t shm_listen(const char *name, shm_entrance_t *entrance);
/** Removes the entrance's file, if it still is the entrance's, and closes its socket. */
void shm_unlisten(shm_entrance_t &entrance);
/** Calls `fn` with each name that has a socket, whoever listens there or not. */
void shm_names(void (*fn)(void *arg, const char *name), void *arg);
/** The next client; one of another user is turned away. 0, EAGAIN when nobody waits, or an errno value. */
uint32_t shm_accept(const descriptor_t &listener, descriptor_t *client);
/** Connects to a server. FWX_HOST_ERR_NO_SERVER, FWX_HOST_ERR_FOREIGN, FWX_HOST_ERR_BAD_ARG, FWX_HOST_ERR_BUSY. */
uint32_t shm_connect(const char *name, descriptor_t *socket);
/** Whether the other process of a socket was this process's user when it connected or listened. */
bool shm_is_own_users(const descriptor_t &socket);

/** What a client hands to its server: the segment, the client's bell and the server's. */
using shm_handles_t = std::array<descriptor_t, 3>;
bool shm_handles_send(const descriptor_t &socket, const shm_handles_t &handles);
/** 0, EAGAIN while the client has sent nothing, FWX_HOST_ERR_VERSION for the offer of another version, or
 * FWX_HOST_ERR_BAD_ARG: it sent anything else, or is gone. What it sent beside the handles is closed. */
uint32_t shm_handles_receive(const descriptor_t &socket, shm_handles_t *handles);

/** Closes the socket of a client or a server, which may hold what that has sent beside. Does not block. */
void shm_close(descriptor_t socket);
/** As shm_close, and the client hears why: FWX_HOST_ERR_VERSION or FWX_HOST_ERR_BUSY. */
void shm_turn_away(descriptor_t socket, uint32_t code);
/** Why a server has closed the socket: one of these two codes, or FWX_HOST_ERR_CHANNEL_DOWN if it has not told. */
uint32_t shm_why_closed(const descriptor_t &socket);

#endif
