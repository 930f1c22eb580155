/** @file
 * Compile-time checks of record and message layouts. They stand where a struct is declared, because both sides of the
 * wire, and the programs on both sides of the library's interface, must agree on every size and offset.
 */
#ifndef FWX_NAT64_LAYOUT_H
#define FWX_NAT64_LAYOUT_H

#include <assert.h>
#include <stddef.h>

/** Asserts the size of a struct on the wire. */
#define FWX_NAT64_WIRE_SIZE(type, size) \
    static_assert(sizeof(type) == (size), #type " must be " #size " bytes on the wire")
/** Asserts the offset of a field on the wire. */
#define FWX_NAT64_WIRE_AT(type, field, offset) \
    static_assert(offsetof(type, field) == (offset), #type "." #field " must be at offset " #offset " on the wire")

#endif
