/*
 * The configuration commands that Python sends as bytes: a table that maps the word of each command family to the size
 * of its record and to the library's setter. Python finds a family by nat64_family when it is imported, and puts its
 * number into the header of each command.
 */
#include <string.h>

#include "engine.h"

/* The words are those of the table in records/, from which the Python methods are generated. */
#define FAMILIES(X)                                                                        \
    X(timeout, fwx_nat64_timeout_t, fwx_nat64_timeout_set_a(op, record, ctx))              \
    X(limit, fwx_nat64_limit_t, fwx_nat64_limit_set_a(op, record, ctx))                    \
    X(service, fwx_nat64_service_t, fwx_nat64_service_set_a(op, record, ctx))              \
    X(adj, fwx_nat64_adj_t, fwx_nat64_adj_set_a(op, record, ctx))                          \
    X(replication, fwx_nat64_replication_t, replication_set(op, record, ctx))              \
    X(settings, fwx_nat64_global_settings_t, fwx_nat64_global_settings_set_a(record, ctx)) \
    X(interface, fwx_nat64_intf_info_t, fwx_nat64_interface_set_a(record, ctx))            \
    X(nvi, nvi_t, fwx_nat64_nvi_interface_enable_a(record->ifh, ctx))                      \
    X(prefix, fwx_nat64_prefix_t, prefix_set(op, record, ctx))                             \
    X(smapping, fwx_nat64_smapping_t, fwx_nat64_smapping_set_a(op, record, ctx))           \
    X(dmapping, fwx_nat64_dmapping_t, fwx_nat64_dmapping_set_a(op, record, ctx))           \
    X(pool, fwx_nat64_pool_t, fwx_nat64_pool_set_a(op, record, ctx))                       \
    X(range, fwx_nat64_pool_range_t, fwx_nat64_pool_range_set_a(op, record, ctx))          \
    X(logging, fwx_nat64_logging_t, fwx_nat64_logging_set_a(op, record, ctx))              \
    X(mapt_bmr, fwx_nat64_mapt_bmr_t, fwx_nat64_mapt_bmr_set_a(op, record, ctx))           \
    X(mapt_dmr, fwx_nat64_mapt_dmr_t, fwx_nat64_mapt_dmr_set_a(op, record, ctx))           \
    X(session, fwx_nat64_session_filter_t, fwx_nat64_session_clear_a(record, ctx))         \
    X(ipalias, ipalias_t, fwx_nat64_ipalias_upload_a(ctx))

typedef struct {
    uint32_t ifh;
} nvi_t;
typedef struct {
    uint32_t unused;
} ipalias_t;

static uint32_t replication_set(uint32_t op, const fwx_nat64_replication_t *record, void *ctx) {
    fwx_nat64_replication_t replication = *record;
    replication.set = op != FWX_NAT64_OP_DEL;
    return fwx_nat64_replication_set_a(op, &replication, ctx);
}
static uint32_t prefix_set(uint32_t op, const fwx_nat64_prefix_t *record, void *ctx) {
    if (op == FWX_NAT64_OP_ADD) return fwx_nat64_glb_prefix_add_a(record, ctx);
    if (op == FWX_NAT64_OP_MOD) return fwx_nat64_glb_prefix_mod_a(record, ctx);
    return fwx_nat64_glb_prefix_del_a(record, ctx);
}

#define SETTER(word, record_t, call)                                         \
    static uint32_t send_##word(uint32_t op, const void *bytes, void *ctx) { \
        const record_t *record = bytes;                                      \
        (void)op, (void)record;                                              \
        return call;                                                         \
    }
FAMILIES(SETTER)

#define ROW(word, record_t, call) {#word, sizeof(record_t), send_##word},
static const struct {
    const char *word;
    size_t size;
    uint32_t (*send)(uint32_t op, const void *record, void *ctx);
} families[] = {FAMILIES(ROW)};

enum { family_count = sizeof families / sizeof families[0], longest_record = 104 };
_Static_assert(sizeof(fwx_nat64_session_filter_t) == longest_record, "there is room for every record");

int32_t nat64_family(const char *word, size_t record_size) {
    for (int32_t i = 0; i < family_count; ++i) {
        if (strcmp(word, families[i].word) == 0) return families[i].size == record_size ? i : -1;
    }
    return -1;
}

size_t nat64_command_size(const char *commands, size_t size) {
    uint16_t family = 0;
    if (size < NAT64_COMMAND_HEADER) return 0;
    memcpy(&family, commands, sizeof family);
    const size_t whole = family < family_count ? NAT64_COMMAND_HEADER + families[family].size : 0;
    return whole <= size ? whole : 0;
}

uint32_t nat64_command_send(const char *command, size_t size, void *pal_ctx) {
    uint16_t words[2];
    if (size == 0 || nat64_command_size(command, size) != size) return FWX_NAT64_ERR_INVALID;
    memcpy(words, command, sizeof words);
    uint64_t record[longest_record / sizeof(uint64_t)]; /* an aligned copy, because `command` may have any address */
    memcpy(record, command + NAT64_COMMAND_HEADER, size - NAT64_COMMAND_HEADER);
    return families[words[0]].send(words[1], record, pal_ctx);
}
