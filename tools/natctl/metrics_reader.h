/* Metrics as Prometheus has them in text, version 0.0.4. */
#ifndef TOOLS_NATCTL_METRICS_READER_H
#define TOOLS_NATCTL_METRICS_READER_H

#include <map>
#include <string>
#include <string_view>
#include <vector>

struct metric_t {
    std::string name;
    std::map<std::string, std::string> labels;
    double value;

    /** A label's value; empty: it has none. */
    std::string label(const std::string &label_name) const;
};

/** Reads all metrics. Returns what is wrong, with the line, or an empty text. */
std::string read_metrics(std::string_view text, std::vector<metric_t> &metrics);

#endif
