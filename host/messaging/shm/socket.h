/*
 * The two messages on the socket between a client and a server: the descriptors that a client offers when it connects,
 * and the code with which a server turns it away. Nothing here blocks. Codes are FWX_HOST_ERR_* or errno values.
 */
#ifndef HOST_MESSAGING_SHM_SOCKET_H
#define HOST_MESSAGING_SHM_SOCKET_H

#include <array>
#include <cstdint>

#include "host/messaging/user_socket.h"

/** user_socket_listen and user_socket_connect for servers. */
inline uint32_t shm_listen(const char *name, user_entrance_t *entrance) {
    return user_socket_listen(user_socket_t::SERVER, name, entrance);
}
inline uint32_t shm_connect(const char *name, descriptor_t *socket) {
    return user_socket_connect(user_socket_t::SERVER, name, socket);
}

/** The descriptors that a client offers to a server: the segment, the client's bell and the server's bell. */
using shm_handles_t = std::array<descriptor_t, 3>;
bool shm_handles_send(const descriptor_t &socket, const shm_handles_t &handles);
/** Receives an offer. Returns 0, EAGAIN while the client has sent nothing, FWX_HOST_ERR_VERSION for an offer of another
 * version, or FWX_HOST_ERR_BAD_ARG when the client sent anything else or is gone. Closes other descriptors that it
 * sent.
 */
uint32_t shm_handles_receive(const descriptor_t &socket, shm_handles_t *handles);

/** Sends the client a code and closes the socket like user_socket_close. The client understands FWX_HOST_ERR_VERSION
 * and FWX_HOST_ERR_BUSY. */
void shm_turn_away(descriptor_t socket, uint32_t code);
/** The code that a server sent before it closed the socket: FWX_HOST_ERR_VERSION or FWX_HOST_ERR_BUSY. If it sent none,
 * FWX_HOST_ERR_CHANNEL_DOWN. */
uint32_t shm_why_closed(const descriptor_t &socket);

#endif
