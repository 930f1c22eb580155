/* What the classifier commands left behind. */
#ifndef MODEL_CLASSIFIER_H
#define MODEL_CLASSIFIER_H

#include <algorithm>
#include <iterator>

#include "model/command.h"

struct classifier_t {
    fwx_nat64_model_classifier_t latest{};

    uint32_t end_batch(const uint32_t &batch_id) {
        latest.batch_id = batch_id;
        ++latest.batches;
        return 0;
    }
    uint32_t update(const fwx_nat64_classifier_update_t &record) {
        std::copy(std::begin(record.data), std::end(record.data), latest.data);
        latest.batch_id = record.batch_id;
        ++latest.updates;
        return 0;
    }
};

constexpr config_command_t classifier_commands[] = {
    not_kept<&classifier_t::end_batch>(FWX_NAT64_CFG_END_BATCH),
    not_kept<&classifier_t::update>(FWX_NAT64_CFG_CLASSIFIER_UPDATE),
};

#endif
