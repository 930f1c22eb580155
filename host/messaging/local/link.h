/* The link to a server in this process. */
#ifndef HOST_MESSAGING_LOCAL_LINK_H
#define HOST_MESSAGING_LOCAL_LINK_H

#include <memory>

#include "host/messaging/channel.h"
#include "host/messaging/link.h"

/** Connects a channel to the server that is registered under `name`; null when there is none. */
std::unique_ptr<link_t> local_link_open(const char *name, channel_t &channel);

#endif
