/* The outcome of a command: status, error, and data. */
#ifndef TOOLS_NATCTL_OUTCOME_H
#define TOOLS_NATCTL_OUTCOME_H

#include <cstdint>
#include <memory>
#include <string>

#include "net/json.h"

/** The values are natctl's exit statuses. */
enum class status_t : uint8_t { ok = 0, refused = 1, usage = 2, no_answer = 3, no_server = 4, locked = 5 };

/** The name of a status in JSON. */
const char *status_name(status_t status);

struct outcome_t {
    std::string command; /* empty when none was recognised */
    uint32_t line = 0;   /* of a batch, from 1; 0 outside one */
    status_t status = status_t::ok;
    uint32_t code = 0;     /* of the library or the server; 0 for an error of natctl's own */
    std::string error;     /* the reason of a failure, without the command */
    std::string note;      /* additional information about a success */
    bool is_cut = false;   /* --limit cut the list */
    uint64_t cookie = 0;   /* where a cut list continues; 0: not known */
    std::string text;      /* the answer in text format; empty: made from `data` */
    bool is_brief = false; /* the text format shows only the main columns of sessions */
    bool differs = false;  /* of a comparison: there is a difference, so the exit status is 1 */
    bool changes = false;  /* the command changed the server; the version must be saved before the answer is shown */
    json_t data;           /* null, an object, or an array of rows with the same keys */
    json_t messages;       /* null, or the messages that a dry run would have sent; empty: none */

    std::shared_ptr<void> until_told; /* keeps an interrupt from ending the program until the outcome is shown */
};

/** Makes a command fail, for a reason that no server's answer gave. */
void refuse(outcome_t &outcome, status_t status, uint32_t code, std::string error);

/** Makes a successful command that changed the server fail, because its version could not be saved. Other outcomes stay
 * as they are. */
void refuse_unkept(outcome_t &outcome, const std::string &error);

/** `1 item`, `2 items`. */
std::string count_text(uint64_t count, const char *noun);

/** `line 7: timeout set`, without the parts that are not known. */
std::string outcome_label(const outcome_t &outcome);

#endif
