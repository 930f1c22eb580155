/*
 * The sockets through which clients find servers of other processes, and which tell each of two processes when the
 * other is gone.
 *
 * They are in a directory that is its user's alone: fwx_host in XDG_RUNTIME_DIR, or /tmp/fwx_host-UID without that.
 * Nothing here blocks. Codes are FWX_HOST_ERR_* or errno values.
 */
#ifndef HOST_MESSAGING_SHM_SOCKET_H
#define HOST_MESSAGING_SHM_SOCKET_H

#include <array>
#include <cstdint>

#include "host/loop/descriptor.h"

/** Listens under a server name. A socket that a dead server left behind is replaced. FWX_HOST_ERR_NAME_TAKEN,
 * FWX_HOST_ERR_FOREIGN, FWX_HOST_ERR_BAD_ARG for a name that cannot be a file's. */
uint32_t shm_listen(const char *name, descriptor_t *listener);
/** Removes the socket of a name that this process listens under. */
void shm_unlisten(const char *name);
/** Calls `fn` with each name that has a socket, whoever listens there or not. */
void shm_names(void (*fn)(void *arg, const char *name), void *arg);
/** The next client, or none; one of another user is turned away. */
descriptor_t shm_accept(const descriptor_t &listener);
/** Connects to a server. FWX_HOST_ERR_NO_SERVER, FWX_HOST_ERR_FOREIGN, FWX_HOST_ERR_BAD_ARG. */
uint32_t shm_connect(const char *name, descriptor_t *socket);
/** Whether the other process of a socket was this process's user when it connected or listened. */
bool shm_is_own_users(const descriptor_t &socket);

/** What a client hands to its server: the segment, the client's bell and the server's. */
using shm_handles_t = std::array<descriptor_t, 3>;
bool shm_handles_send(const descriptor_t &socket, const shm_handles_t &handles);
/** False when the client sent anything else, or is gone. */
bool shm_handles_receive(const descriptor_t &socket, shm_handles_t *handles);

#endif
