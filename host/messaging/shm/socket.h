/*
 * What passes through the socket between a client and a server: what a client hands over when it comes, and why it is
 * turned away. Nothing here blocks. Codes are FWX_HOST_ERR_* or errno values.
 */
#ifndef HOST_MESSAGING_SHM_SOCKET_H
#define HOST_MESSAGING_SHM_SOCKET_H

#include <array>
#include <cstdint>

#include "host/messaging/user_socket.h"

/** A server's socket, as user_socket_listen and user_socket_connect have it. */
inline uint32_t shm_listen(const char *name, user_entrance_t *entrance) {
    return user_socket_listen(user_socket_t::SERVER, name, entrance);
}
inline uint32_t shm_connect(const char *name, descriptor_t *socket) {
    return user_socket_connect(user_socket_t::SERVER, name, socket);
}

/** What a client hands to its server: the segment, the client's bell and the server's. */
using shm_handles_t = std::array<descriptor_t, 3>;
bool shm_handles_send(const descriptor_t &socket, const shm_handles_t &handles);
/** 0, EAGAIN while the client has sent nothing, FWX_HOST_ERR_VERSION for the offer of another version, or
 * FWX_HOST_ERR_BAD_ARG: it sent anything else, or is gone. What it sent beside the handles is closed. */
uint32_t shm_handles_receive(const descriptor_t &socket, shm_handles_t *handles);

/** As user_socket_close, and the client hears why: FWX_HOST_ERR_VERSION or FWX_HOST_ERR_BUSY. */
void shm_turn_away(descriptor_t socket, uint32_t code);
/** Why a server has closed the socket: one of these two codes, or FWX_HOST_ERR_CHANNEL_DOWN if it has not told. */
uint32_t shm_why_closed(const descriptor_t &socket);

#endif
