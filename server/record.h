/* Reads records from payloads, which may be unaligned. */
#ifndef SERVER_RECORD_H
#define SERVER_RECORD_H

#include <cstring>

template <typename record_t>
record_t read_record(const void *payload) {
    record_t record;
    std::memcpy(&record, payload, sizeof record);
    return record;
}

#endif
