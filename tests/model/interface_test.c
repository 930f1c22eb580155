/* The model's C interface, as the test of a PAL uses it: in plain C, in one process, with installed headers only. */
#include <fwx_host/fwx_host.h>
#include <fwx_nat64/fwx_nat64.h>
#include <fwx_nat64_model/model.h>
#include <stdio.h>
#include <string.h>

static int failures;
#define EXPECT_EQ(what, expected)                                                                   \
    do {                                                                                            \
        const unsigned long long is = (what), should = (expected);                                  \
        if (is != should) printf("line %d: %s is %#llx, not %#llx\n", __LINE__, #what, is, should); \
        failures += is != should;                                                                   \
    } while (0)

static uint32_t last_result;
static uint32_t noted[4]; /* operation and three words of the last record notification */

static void on_reply(fwx_nat64_cmd_result_t *result) {
    last_result = result->result;
}
static void on_record(uint32_t op, const void *record) {
    noted[0] = op;
    memcpy(noted + 1, record, 12);
}

int main(void) {
    fwx_nat64_model_t *model = NULL, *copy = NULL;
    const fwx_nat64_reply_cbs_t reply_cbs = {on_reply, NULL, NULL, NULL, NULL, NULL};
    const fwx_nat64_unsol_cbs_t unsol_cbs = {NULL, on_record, NULL};
    fwx_host_loop_t *loop = fwx_host_loop_create();
    EXPECT_EQ(fwx_nat64_model_create(loop, FWX_NAT64_CHANNEL_NAME, NULL), FWX_HOST_ERR_BAD_ARG);
    model = (fwx_nat64_model_t *)&failures; /* not a model; a failure must set it to null */
    EXPECT_EQ(fwx_nat64_model_create(NULL, FWX_NAT64_CHANNEL_NAME, &model), FWX_HOST_ERR_BAD_ARG);
    EXPECT_EQ(model == NULL, 1);
    EXPECT_EQ(fwx_nat64_model_create(loop, FWX_NAT64_CHANNEL_NAME, &model), 0);
    EXPECT_EQ(fwx_nat64_model_create(loop, FWX_NAT64_CHANNEL_NAME, &copy), FWX_HOST_ERR_NAME_TAKEN);
    EXPECT_EQ(copy == NULL, 1);
    EXPECT_EQ(fwx_nat64_bind("PALC", loop, &unsol_cbs, &reply_cbs), 0);
    fwx_host_loop_run_until_idle(loop);

    const fwx_nat64_timeout_t udp = {1, 300};
    fwx_nat64_model_fail_next(model, FWX_NAT64_MODEL_ERR_VALUE, 1);
    EXPECT_EQ(fwx_nat64_timeout_set_a(FWX_NAT64_OP_ADD, &udp, NULL), 0);
    fwx_host_loop_run_until_idle(loop);
    EXPECT_EQ(last_result, 0x6006);
    EXPECT_EQ(strcmp(xerr_strerror(0x6006), "the server does not take this value") == 0, 1);
    EXPECT_EQ(fwx_nat64_model_notify_record(model, 0, 7, 8, 9), 0);
    fwx_host_loop_run_until_idle(loop);
    const uint32_t deleted[] = {FWX_NAT64_OP_DEL, 7, 8, 9};
    EXPECT_EQ(memcmp(noted, deleted, sizeof deleted) == 0, 1);

    const fwx_nat64_mapt_bmr_t rule = {5, 6, {0x20, 1, 0xd, 0xb8}, 32, {192, 0, 2, 0}, 24, {8, 0, 0, 0}};
    const fwx_nat64_addr_t inside = {FWX_NAT64_FAMILY_IPV4, {192, 0, 2, 77}}, outside = {0, {192, 0, 3, 1}};
    fwx_nat64_model_match_t match = {0, 0, 0, 0};
    EXPECT_EQ(fwx_nat64_mapt_bmr_set_a(FWX_NAT64_OP_ADD, &rule, NULL), 0);
    fwx_host_loop_run_until_idle(loop);
    EXPECT_EQ(fwx_nat64_model_lookup(model, &outside, &match), FWX_NAT64_MODEL_ERR_NO_ENTRY);
    EXPECT_EQ(fwx_nat64_model_lookup(model, &inside, &match), 0);
    EXPECT_EQ(match.rule_id, 5);
    EXPECT_EQ(match.domain_id, 6);
    EXPECT_EQ(match.prefix_len, 24);
    uint64_t lookups = 0;
    EXPECT_EQ(fwx_nat64_model_lookups(model, match.bmr_index, &lookups), 0);
    EXPECT_EQ(lookups, 1);
    EXPECT_EQ(fwx_nat64_model_lookups(model, match.bmr_index + 1, &lookups), FWX_NAT64_MODEL_ERR_NO_ENTRY);

    fwx_nat64_stats_counts_t counts;
    fwx_nat64_model_counts(model, &counts);
    EXPECT_EQ(counts.clients, 1);
    EXPECT_EQ(counts.refused, 1);
    fwx_nat64_stats_boot_t boot;
    fwx_nat64_model_boot(model, &boot);
    EXPECT_EQ(boot.changes, 1); /* the rule */
    fwx_nat64_stats_sys_entry_t totals;
    fwx_nat64_model_totals(model, &totals);
    EXPECT_EQ(totals.rules, 1);

    fwx_nat64_unbind();
    fwx_mapt_plu_cleanup();
    fwx_nat64_model_destroy(model);
    EXPECT_EQ(fwx_host_server_find(FWX_NAT64_CHANNEL_NAME) == NULL, 1);
    fwx_host_loop_destroy(loop);
    return failures == 0 ? 0 : 1;
}
