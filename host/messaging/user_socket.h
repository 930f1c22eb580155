/*
 * The sockets through which processes of one user find one another: those of servers, and those of other services
 * beside them.
 *
 * They are in a directory that is its user's alone: FWX_HOST_DIR, or fwx_host in XDG_RUNTIME_DIR, or else
 * /tmp/fwx_host-UID. The directory is checked each time, and so is the user of the process at the other end. Nothing
 * here blocks. Codes are FWX_HOST_ERR_* or errno values.
 */
#ifndef HOST_MESSAGING_USER_SOCKET_H
#define HOST_MESSAGING_USER_SOCKET_H

#include <sys/socket.h>
#include <sys/types.h>

#include <cstdint>
#include <string>

#include "host/loop/descriptor.h"

/** The values are socket types. Names of servers begin with no dot, those of services with one. */
enum class user_socket_t : int { SERVER = SOCK_SEQPACKET, SERVICE = SOCK_STREAM };

/** Where a process listens. */
struct user_entrance_t {
    descriptor_t socket;
    std::string path;
    dev_t device = 0; /* of the file at `path`, and its number on it, to know it from another's */
    ino_t file = 0;
};

/** Listens under a name. A socket that a dead process left behind is replaced. FWX_HOST_ERR_NAME_TAKEN,
 * FWX_HOST_ERR_FOREIGN, FWX_HOST_ERR_BAD_ARG for a name that cannot be a file's. Throws std::bad_alloc. */
uint32_t user_socket_listen(user_socket_t kind, const char *name, user_entrance_t *entrance);
/** Removes the entrance's file, if it still is the entrance's, and closes its socket. */
void user_socket_unlisten(user_entrance_t &entrance);
/** Calls `fn` with each server name that has a socket, whether a process listens there or not. */
void user_socket_names(void (*fn)(void *arg, const char *name), void *arg);
/** The next client; one of another user is turned away. 0, EAGAIN when no client waits, or an errno value. */
uint32_t user_socket_accept(const descriptor_t &listener, descriptor_t *client);
/** FWX_HOST_ERR_NO_SERVER, FWX_HOST_ERR_FOREIGN, FWX_HOST_ERR_BAD_ARG, FWX_HOST_ERR_BUSY when its queue is full. */
uint32_t user_socket_connect(user_socket_t kind, const char *name, descriptor_t *socket);

/** Closes the socket of a peer, which may hold descriptors that the peer has sent. Does not block. */
void user_socket_close(descriptor_t socket);

#endif
