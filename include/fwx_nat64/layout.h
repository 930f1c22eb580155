/** @file
 * Holds records and messages to their layout, where they are declared: both sides of the wire, and the programs on
 * either side of the library's interface, must agree on every size and offset.
 */
#ifndef FWX_NAT64_LAYOUT_H
#define FWX_NAT64_LAYOUT_H

#include <assert.h>
#include <stddef.h>

/** Holds a struct to its size on the wire. */
#define FWX_NAT64_WIRE_SIZE(type, size) \
    static_assert(sizeof(type) == (size), #type " must be " #size " bytes on the wire")
/** Holds a field to its offset on the wire. */
#define FWX_NAT64_WIRE_AT(type, field, offset) \
    static_assert(offsetof(type, field) == (offset), #type "." #field " must be at offset " #offset " on the wire")

#endif
