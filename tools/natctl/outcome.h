/* What came of a command. */
#ifndef TOOLS_NATCTL_OUTCOME_H
#define TOOLS_NATCTL_OUTCOME_H

#include <cstdint>
#include <memory>
#include <string>

#include "net/json.h"

/** The values are natctl's exit statuses. */
enum class status_t : uint8_t { ok = 0, refused = 1, usage = 2, no_answer = 3, no_server = 4, locked = 5 };

/** Name of a status as it stands in JSON. */
const char *status_name(status_t status);

struct outcome_t {
    std::string command; /* empty when none was recognised */
    uint32_t line = 0;   /* of a batch, from 1; 0 outside one */
    status_t status = status_t::ok;
    uint32_t code = 0;     /* of the library or the server; 0 of an error that is natctl's own */
    std::string error;     /* why it failed, without the command */
    std::string note;      /* what a user should know of a success */
    bool is_cut = false;   /* the list was longer than the user wanted it */
    uint64_t cookie = 0;   /* where a list that was cut goes on, if that is known */
    std::string text;      /* the answer where it is shown as a text; empty: as `data` says */
    bool is_brief = false; /* as text, the addresses of its sessions and little more */
    bool differs = false;  /* a difference was asked for, and there is one: as exit status 1 */
    bool changes = false;  /* what the server holds: to be kept before anybody is told */
    json_t data;           /* null, an object, or an array of rows with the same keys */
    json_t messages;       /* null, or what a dry run would have sent: an empty array for nothing */

    std::shared_ptr<void> until_told; /* lives as long: what keeps an interrupt from ending the program */
};

/** Has a command that asks no server fail. */
void refuse(outcome_t &outcome, status_t status, uint32_t code, std::string error);

/** Has a command fail that changed the configuration, and whose change is not kept; all others stay as they are. */
void refuse_unkept(outcome_t &outcome, const std::string &error);

/** `1 item`, `2 items`. */
std::string count_text(uint64_t count, const char *noun);

/** `line 7: timeout set`, as far as known. */
std::string outcome_label(const outcome_t &outcome);

#endif
