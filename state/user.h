/* Who works here, for logs. */
#ifndef STATE_USER_H
#define STATE_USER_H

#include <string>

/** Name of the user, behind sudo of who called it: one word. */
std::string user_name();
/** `user@host`. */
std::string user_and_host();

#endif
