"""Describes the C part of the module to cffi. setup.py builds it against the installed headers."""

import cffi

ffibuilder = cffi.FFI()

_CONSTANTS = """
    FWX_NAT64_OP_ADD FWX_NAT64_OP_DEL FWX_NAT64_WALK_FULL
    FWX_NAT64_SEL_COUNTS FWX_NAT64_SEL_BOOT FWX_NAT64_SEL_SYSTEM FWX_NAT64_SEL_CONFIG FWX_NAT64_CONFIG_MAGIC
    FWX_NAT64_MSG_STATS_SYS FWX_NAT64_MSG_STATS_INTF FWX_NAT64_MSG_STATS_POOL_ALL
    FWX_NAT64_MSG_STATS_MAPPING_ALL FWX_NAT64_MSG_STATS_LIMIT_ALL
    FWX_NAT64_ERR_AGAIN FWX_NAT64_ERR_NOT_READY
    FWX_HOST_ERR_NO_SERVER FWX_HOST_ERR_CHANNEL_DOWN FWX_HOST_ERR_NO_ANSWER FWX_HOST_ERR_BAD_ANSWER
    FWX_NAT64_MODEL_IN_ORDER FWX_NAT64_MODEL_REVERSE FWX_NAT64_MODEL_SHUFFLED
""".split()

ffibuilder.cdef(
    "".join(f"#define {constant} ...\n" for constant in _CONSTANTS)
    + """
    enum { NAT64_PAGE, NAT64_RECORD, NAT64_EVENT, NAT64_MAPPING, NAT64_THROTTLE, ... };
    static char *const FWX_NAT64_CHANNEL_NAME;

    typedef struct { uint32_t *done, *failed, *codes; uint32_t done_count, failed_count; ...; } nat64_results_t;
    typedef struct {
        uint32_t kind, code, more, value2, count;
        uint64_t id, cookie;
        size_t size;
        char data[];
        ...;
    } nat64_message_t;
    typedef struct {
        const char *commands;
        size_t size;
        uint32_t *codes;
        uint32_t left, window, timeout_ms;
        ...;
    } nat64_load_t;

    typedef ... fwx_host_loop_t;
    typedef ... fwx_host_server_t;
    typedef ... fwx_nat64_model_t;
    typedef struct { uint32_t connected; ...; } fwx_nat64_client_info_t;
    typedef struct { ...; } fwx_nat64_addr_t;
    typedef struct { uint32_t bmr_index, rule_id, domain_id, prefix_len; ...; } fwx_nat64_model_match_t;

    typedef struct {
        uint64_t memory_blocks, lists, hash_tables, pools, pool_elements, tx_buffers, channels;
        ...;
    } fwx_host_live_t;

    int32_t nat64_family(const char *word, size_t record_size);
    uint32_t nat64_open(const char *server, const char client_id[4], fwx_host_loop_t *loop, uint32_t timeout_ms);
    void nat64_close(void);
    int64_t nat64_send(const char *command, size_t size, uint32_t timeout_ms);
    int64_t nat64_query(uint32_t msgno, uint32_t sel, uint64_t cookie, uint32_t count, uint32_t arg,
                        uint32_t timeout_ms);
    int64_t nat64_walk(const char *filter, uint64_t cookie, uint32_t count, uint32_t walk_arg, uint32_t timeout_ms);
    void nat64_forget(uint64_t id);
    void nat64_load_start(nat64_load_t *load);
    void nat64_load_stop(nat64_load_t *load);
    int nat64_turn(fwx_host_loop_t *loop, nat64_results_t *results);
    nat64_message_t *nat64_message_take(void);
    void nat64_message_free(nat64_message_t *message);

    const char *xerr_strerror(uint32_t code);
    fwx_nat64_client_info_t *fwx_nat64_client_info_get(void);
    fwx_host_loop_t *fwx_host_loop_create(void);
    int fwx_host_loop_fd(fwx_host_loop_t *loop);
    void fwx_host_live_get(fwx_host_live_t *live);
    void fwx_host_clock_turn(uint64_t ms);
    void fwx_host_clock_run(void);
    fwx_host_server_t *fwx_host_server_find(const char *name);
    uint32_t fwx_host_server_listen(fwx_host_server_t *server, const char *server_name);

    uint32_t fwx_nat64_model_create(fwx_host_loop_t *loop, const char *name, fwx_nat64_model_t **model);
    void fwx_nat64_model_destroy(fwx_nat64_model_t *model);
    void fwx_nat64_model_fail_next(fwx_nat64_model_t *model, uint32_t code, uint32_t count);
    void fwx_nat64_model_delay_set(fwx_nat64_model_t *model, uint64_t delay_ms);
    void fwx_nat64_model_hold(fwx_nat64_model_t *model);
    uint32_t fwx_nat64_model_release(fwx_nat64_model_t *model, uint32_t order);
    void fwx_nat64_model_duplicate_set(fwx_nat64_model_t *model, uint32_t copies);
    void fwx_nat64_model_silent_set(fwx_nat64_model_t *model, uint32_t silent);
    void fwx_nat64_model_pause_set(fwx_nat64_model_t *model, uint32_t paused);
    uint32_t fwx_nat64_model_drop_clients(fwx_nat64_model_t *model);
    void fwx_nat64_model_reply_limit_set(fwx_nat64_model_t *model, uint32_t bytes);
    void fwx_nat64_model_order_cleanup(fwx_nat64_model_t *model, uint32_t on);
    uint32_t fwx_nat64_model_notify_record(fwx_nat64_model_t *model, uint32_t add, uint32_t word1, uint32_t word2,
                                           uint32_t word3);
    uint32_t fwx_nat64_model_notify_event(fwx_nat64_model_t *model);
    uint32_t fwx_nat64_model_notify_mapping(fwx_nat64_model_t *model, uint32_t id, uint32_t active, uint32_t value);
    uint32_t fwx_nat64_model_save(const fwx_nat64_model_t *model,
                                  void (*part)(void *arg, uint32_t op_code, const void *payload, size_t size),
                                  void *arg);
    uint32_t fwx_nat64_model_restore(fwx_nat64_model_t *model, uint32_t op_code, const void *payload, size_t size);
    void fwx_nat64_model_counts(const fwx_nat64_model_t *model, void *counts);
    void fwx_nat64_model_boot(const fwx_nat64_model_t *model, void *boot);
    void fwx_nat64_model_totals(const fwx_nat64_model_t *model, void *totals);
    uint32_t fwx_nat64_model_sessions_generate(fwx_nat64_model_t *model, uint64_t count);
    uint32_t fwx_nat64_model_lookup(const fwx_nat64_model_t *model, const fwx_nat64_addr_t *address,
                                    fwx_nat64_model_match_t *match);
    uint32_t fwx_nat64_model_lookups(const fwx_nat64_model_t *model, uint32_t bmr_index, uint64_t *count);
    extern "Python" void nat64_saved_part(void *parts, uint32_t op_code, const void *payload, size_t size);
"""
)
ffibuilder.set_source(
    "fwx_nat64._native",
    '#include "engine.h"',
    sources=["src/callbacks.c", "src/commands.c", "src/engine.c", "src/slots.c"],
    depends=["src/callbacks.h", "src/engine.h", "src/slots.h"],
    include_dirs=["src"],
    libraries=["fwx_nat64", "fwx_nat64_model", "fwx_host"],
)
