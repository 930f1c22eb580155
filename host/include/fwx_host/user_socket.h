/*
 * Stream sockets between processes of one user. They are in the same directory as the servers' sockets (fwx_host/smc.h
 * names it) and are checked in the same way: only the user can access the directory, which is not a symbolic link, and
 * the process at the other end belongs to the user.
 *
 * A socket's name is its file name and begins with a dot, which no server's name does.
 */
#ifndef FWX_HOST_USER_SOCKET_H
#define FWX_HOST_USER_SOCKET_H

#include <stdint.h>

#include "fwx_host/loop.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct fwx_host_user_listener fwx_host_user_listener_t;

/** Takes a client's socket, which the callee owns and closes. It is non-blocking and close-on-exec. Called from the
 * loop; must not end the listener. */
typedef void (*fwx_host_user_client_fn_t)(void *arg, int fd);

/**
 * Listens under a name; `loop` must outlive the listener. The socket of a dead process is replaced. When the process
 * has no descriptors left, the listener turns clients away.
 * @return 0, FWX_HOST_ERR_NAME_TAKEN when another process listens at the name or the file is not a socket,
 * FWX_HOST_ERR_FOREIGN when other users can access the directory or it is a symbolic link, FWX_HOST_ERR_BAD_ARG for an
 * invalid name or a null argument, FWX_HOST_ERR_FORKED, ENOMEM (12), or another errno value.
 */
uint32_t fwx_host_user_listen(const char *name, fwx_host_loop_t *loop, fwx_host_user_client_fn_t fn, void *arg,
                              fwx_host_user_listener_t **listener);
/** Ends a listener and removes its socket file, unless another process has replaced the file. Null is ignored. */
void fwx_host_user_unlisten(fwx_host_user_listener_t *listener);
/**
 * Connects to the process that listens under a name. Blocks, for at most `timeout_ms`, while that process's queue of
 * clients is full. The caller owns `*fd`, which is non-blocking.
 * @return 0, FWX_HOST_ERR_NO_SERVER, FWX_HOST_ERR_FOREIGN when other users can access the directory or the process is
 * another user's, FWX_HOST_ERR_BUSY when the queue stayed full, FWX_HOST_ERR_BAD_ARG, or an errno value.
 */
uint32_t fwx_host_user_connect(const char *name, uint64_t timeout_ms, int *fd);

#ifdef __cplusplus
}
#endif

#endif
