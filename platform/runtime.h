/*
 * Platform runtime: memory, lists, hash tables, pools, event contexts, debug output and error texts. A platform
 * implements these functions; the library calls them.
 *
 * Conventions: results are 0 for success and a code of the platform otherwise; functions that return a pointer return
 * null when they fail. Nothing here may be called from two threads at the same time.
 */
#ifndef FWX_PLATFORM_RUNTIME_H
#define FWX_PLATFORM_RUNTIME_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Allocates a zeroed heap block of `count * size` bytes, accounted under `tag`; null when memory is out. Free it with
 * fwx_free_named. */
void *fwx_calloc_named(uint32_t tag, size_t count, size_t size);
/** Frees a block of fwx_calloc_named; null is ignored. */
void fwx_free_named(void *ptr);
/** Copies `size` bytes between areas that do not overlap; returns `dst`. */
void *fwx_memcpy(void *dst, const void *src, size_t size);
/** Fills `size` bytes with the low byte of `value`; returns `dst`. */
void *fwx_memset(void *dst, int value, size_t size);
/** Returns the value of an environment variable, null when it is not set. The environment owns the text. */
char *fwx_getenv(const char *name);
/** Prints to the platform's console; returns the number of characters, negative on failure. */
int fwx_printf(const char *format, ...) __attribute__((format(printf, 1, 2)));

/* --- Intrusive lists: every element begins with its link. --- */

typedef struct fwx_list fwx_list_t;
/** First member of every element; `next` is null at the tail. */
typedef struct fwx_list_link {
    struct fwx_list_link *next, *prev;
} fwx_list_link_t;

/** Creates an empty list. `kind` 1: the caller owns the elements; `kind` 0: the list owns and finally frees them. */
uint32_t fwx_list_init(fwx_list_t **list, uint32_t kind);
/** Writes the first element to `*head`, null when the list is empty. */
uint32_t fwx_list_head(fwx_list_t *list, void **head);
/** Appends an element that is on no list. */
uint32_t fwx_list_insert_tail(fwx_list_t *list, void *element);
/** Takes an element off the list; non-zero when it is not on this list. */
uint32_t fwx_list_remove_element(fwx_list_t *list, void *element);
/** Destroys the list, with its elements if it owns them. */
uint32_t fwx_list_destroy(fwx_list_t *list);

/* --- Hash tables that map a 64-bit key to an element, which the caller owns. --- */

typedef struct fwx_cl_hash fwx_cl_hash_t;
typedef struct fwx_cl_hash_entry fwx_cl_hash_entry_t;

/** Creates an empty table of initially 2^`size_log2` buckets. With null functions the facility's own hashing and
 * comparison are used. */
uint32_t fwx_cl_hash_create(const char *name, uint32_t size_log2, uint32_t mode, void *hash_fn, void *compare_fn,
                            fwx_cl_hash_t **table);
/** Enters `element` under `key`. Requires: the key is not in the table. */
uint32_t fwx_cl_hash_add(fwx_cl_hash_t *table, uint64_t key, void *element);
/** Returns the element under `key`, or null. */
void *fwx_cl_hash_find(fwx_cl_hash_t *table, uint64_t key);
/** Removes the entry of `key`, but never the element; non-zero when there is none. */
uint32_t fwx_cl_hash_delete(fwx_cl_hash_t *table, uint64_t key);
/** Destroys the table and its entries, not the elements. `mode` is 1. */
uint32_t fwx_cl_hash_destroy(fwx_cl_hash_t *table, uint32_t mode);
/** Returns the number of buckets, which is constant while nothing is added. */
uint32_t fwx_cl_hash_bucket_count(fwx_cl_hash_t *table);
/** Returns the first entry of a bucket, or null. */
fwx_cl_hash_entry_t *fwx_cl_hash_bucket_first(fwx_cl_hash_t *table, uint32_t bucket);
/** Returns the next entry of the same bucket, or null; get it before deleting the current entry. */
fwx_cl_hash_entry_t *fwx_cl_hash_entry_next(fwx_cl_hash_entry_t *entry);
/** Returns the element of an entry. */
void *fwx_cl_hash_entry_element(fwx_cl_hash_entry_t *entry);

/* --- Pools of fixed-size records. --- */

typedef struct fwx_chunk fwx_chunk_t;

/** Creates a pool that grows by `count` elements of `element_size` bytes at a time; null when memory is out. */
fwx_chunk_t *chunk_create(const char *name, size_t element_size, uint32_t count, uint32_t arg4, uint32_t arg5,
                          uint32_t arg6);
/** As chunk_create, for pools that are destroyed with fwx_chunk_destroy. */
fwx_chunk_t *fwx_chunk_create(const char *name, size_t element_size, uint32_t count, uint32_t arg4, uint32_t arg5,
                              uint32_t arg6);
/** Takes an element with undefined content from the pool; null when none is available. */
void *chunk_malloc(fwx_chunk_t *pool);
/** Returns an element to the pool it came from. Its bytes stay readable and unchanged until it is taken again. */
void chunk_free(fwx_chunk_t *pool, void *element);
/** Returns 1 if `element` was taken from this pool and not returned since, else 0. It accepts any address, and reads
 * nothing there. A platform may lack this function; its address is then null. */
uint32_t fwx_chunk_owns(fwx_chunk_t *pool, const void *element) __attribute__((weak));
/** Destroys a pool of chunk_create. */
void chunk_destroy(fwx_chunk_t *pool);
/** Destroys a pool of fwx_chunk_create. */
void fwx_chunk_destroy(fwx_chunk_t *pool);

/* --- Event contexts. --- */

/** Converts a program's event argument to a messaging handle (smc_event_t), written to the 8-byte cell `smc_ev`. */
uint32_t fwx_event_context_to_smc(void *ev_arg, void *smc_ev);
/** Creates an event context from the cell. Free it with fwx_free_named. */
uint32_t fwx_event_context_create(void *smc_ev, void **ev_ctx);
/** Makes `ev_ctx` the current event context of the OS layer. */
void fwx_oslib_set_event_context(void *ev_ctx);

/* --- Debug output and error texts. --- */

/** Returns the debug level of a module: 0 silent, 1 error, 2 warning, 3 info, 4 trace. */
uint32_t fwx_get_debug_level(uint32_t module);
void fwx_buginf_error(const char *format, ...) __attribute__((format(printf, 1, 2)));
void fwx_buginf_warn(const char *format, ...) __attribute__((format(printf, 1, 2)));
void fwx_buginf_info(const char *format, ...) __attribute__((format(printf, 1, 2)));
void fwx_buginf_trace(const char *format, ...) __attribute__((format(printf, 1, 2)));
/* Gated by a set of flags: `flags` is a record of six pointers: none, error, info, trace, warning, none. */
void fwx_buginf_flags_internal_error(const void *flags, const char *format, ...) __attribute__((format(printf, 2, 3)));
void fwx_buginf_flags_internal_warn(const void *flags, const char *format, ...) __attribute__((format(printf, 2, 3)));
void fwx_buginf_flags_internal_info(const void *flags, const char *format, ...) __attribute__((format(printf, 2, 3)));
void fwx_buginf_flags_internal_trace(const void *flags, const char *format, ...) __attribute__((format(printf, 2, 3)));
/** Returns the text of any result code; never null. */
const char *xerr_strerror(uint32_t code);

#ifdef __cplusplus
}
#endif

#endif
