/* The name of the user who runs the program, for logs and versions. */
#ifndef STATE_USER_H
#define STATE_USER_H

#include <string>

/** The name of the user; under sudo, of the user who called sudo. Contains no blanks. */
std::string user_name();
/** `user@host`. */
std::string user_and_host();

#endif
