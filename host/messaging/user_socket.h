/*
 * The sockets through which processes of one user find one another: those of servers, and those of other services.
 *
 * They are in a directory that only the user can access: FWX_HOST_DIR, else fwx_host in XDG_RUNTIME_DIR, else
 * /tmp/fwx_host-UID. Each use checks the directory, and the user of the process at the other end. Nothing here blocks,
 * except that listening may wait 100 ms for a lock. Codes are FWX_HOST_ERR_* or errno values.
 */
#ifndef HOST_MESSAGING_USER_SOCKET_H
#define HOST_MESSAGING_USER_SOCKET_H

#include <sys/socket.h>
#include <sys/types.h>

#include <cstdint>
#include <string>

#include "host/loop/descriptor.h"

/** The values are socket types. Names of services begin with a dot, names of servers do not. */
enum class user_socket_t : int { SERVER = SOCK_SEQPACKET, SERVICE = SOCK_STREAM };

/** A listening socket and its file. */
struct user_entrance_t {
    descriptor_t socket;
    std::string path;
    dev_t device = 0; /* device and inode of the file at `path`, to recognise it if another process replaced it */
    ino_t file = 0;
};

/** Listens under a name. The socket of a dead process is replaced. Returns 0, FWX_HOST_ERR_NAME_TAKEN,
 * FWX_HOST_ERR_FOREIGN, FWX_HOST_ERR_BAD_ARG for an invalid name, or an errno value. Throws std::bad_alloc. */
uint32_t user_socket_listen(user_socket_t kind, const char *name, user_entrance_t *entrance);
/** Removes the socket's file, unless another process has replaced it, and closes the socket. */
void user_socket_unlisten(user_entrance_t &entrance);
/** Calls `fn` with each server name that has a socket, whether a process listens there or not. */
void user_socket_names(void (*fn)(void *arg, const char *name), void *arg);
/** Accepts the next client of this user and turns away clients of other users. Returns 0, EAGAIN when no client waits,
 * or another errno value. */
uint32_t user_socket_accept(const descriptor_t &listener, descriptor_t *client);
/** Connects to the process that listens under a name. Returns 0, FWX_HOST_ERR_NO_SERVER, FWX_HOST_ERR_FOREIGN,
 * FWX_HOST_ERR_BAD_ARG, FWX_HOST_ERR_BUSY when its queue is full, or an errno value. */
uint32_t user_socket_connect(user_socket_t kind, const char *name, descriptor_t *socket);

/** Closes a connected socket, which may hold descriptors that the other process has sent. Does not block. */
void user_socket_close(descriptor_t socket);

#endif
