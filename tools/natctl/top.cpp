/* Implements top.h: lays the tables out so that the page fits the window, and formats the same look as JSON. */
#include "tools/natctl/top.h"

#include <algorithm>
#include <cstdio>

namespace {

constexpr double ports_an_address = 65536 - 1024;

using row_t = std::vector<std::string>;

/** A table of the page. Its last line counts the rows that do not fit. */
struct table_t {
    row_t heading;
    size_t names; /* number of leading columns that are words; the others are numbers */
    std::vector<row_t> rows;
    bool has_more = false; /* the server has more than `rows` */
    size_t room = 0;       /* number of lines below the heading */

    size_t lines() const { return rows.size() + (has_more ? 1 : 0); }
};

std::string percent_text(double share) {
    char text[32];
    std::snprintf(text, sizeof text, "%.1f%%", 100 * share);
    return text;
}

double use_of(const top_limit_t &limit) {
    return limit.value == 0 ? 0 : static_cast<double>(limit.in_use) / static_cast<double>(limit.value);
}

std::vector<table_t> tables_of(const top_look_t &look) {
    table_t limits = {{"LIMIT", "IN USE", "ALLOWED", "USE"}, 1, {}};
    for (const top_limit_t &limit : look.limits) {
        limits.rows.push_back(
            {limit.type, std::to_string(limit.in_use), std::to_string(limit.value), percent_text(use_of(limit))});
    }
    table_t pools = {{"POOL", "ADDRESSES", "SESSIONS", "USE"}, 1, {}, look.has_more_pools};
    for (const top_pool_t &pool : look.pools) {
        pools.rows.push_back({std::to_string(pool.id), std::to_string(pool.addresses), std::to_string(pool.sessions),
                              percent_text(use_of(pool))});
    }
    table_t mappings = {{"MAPPING", "KIND", "SESSIONS"}, 2, {}, look.has_more_mappings};
    for (const top_mapping_t &mapping : look.mappings) {
        mappings.rows.push_back({std::to_string(mapping.id), mapping.kind, std::to_string(mapping.sessions)});
    }
    table_t commands = {{"COMMANDS", "RESULT", "COUNT"}, 2, {}};
    for (const top_command_t &command : look.commands) {
        commands.rows.push_back({command.kind, command.result, std::to_string(command.count)});
    }
    std::vector<table_t> tables;
    for (table_t *table : {&limits, &pools, &mappings, &commands}) {
        if (table->lines() != 0) tables.push_back(std::move(*table));
    }
    return tables;
}

/** Divides the lines of the window: short tables get all they need, the others equal shares of the rest. */
void share_room(std::vector<table_t> &tables, size_t lines) {
    std::vector<table_t *> by_need;
    by_need.reserve(tables.size());
    for (table_t &table : tables) {
        by_need.push_back(&table);
    }
    std::stable_sort(by_need.begin(), by_need.end(),
                     [](const table_t *a, const table_t *b) { return a->lines() < b->lines(); });
    for (size_t i = 0; i < by_need.size(); ++i) {
        by_need[i]->room = std::min(by_need[i]->lines(), lines / (by_need.size() - i));
        lines -= by_need[i]->room;
    }
}

std::string line_of(const table_t &table, const row_t &row, const std::vector<size_t> &widths) {
    std::string line;
    for (size_t i = 0; i < row.size(); ++i) {
        const std::string pad(widths[i] - row[i].size(), ' ');
        line += (i == 0 ? "" : "  ") + (i < table.names ? row[i] + pad : pad + row[i]);
    }
    return line;
}

void add_table(std::vector<std::string> &lines, const table_t &table) {
    std::vector<size_t> widths;
    for (size_t i = 0; i < table.heading.size(); ++i) {
        size_t width = std::max<size_t>(table.heading[i].size(), i == 0 ? 9 : 8);
        for (const row_t &row : table.rows) {
            width = std::max(width, row[i].size());
        }
        widths.push_back(width);
    }
    lines.emplace_back();
    lines.push_back(line_of(table, table.heading, widths));
    const bool is_cut = table.room < table.lines() || table.has_more;
    const size_t shown = is_cut ? std::max<size_t>(table.room, 1) - 1 : table.rows.size();
    for (size_t i = 0; i < shown; ++i) {
        lines.push_back(line_of(table, table.rows[i], widths));
    }
    const size_t left = table.rows.size() - shown;
    const std::string count = left == 0 ? "" : std::to_string(left) + " ";
    if (is_cut) lines.push_back("... " + count + "more" + (table.has_more ? ", not all of which are listed" : ""));
}

/** Appends words, wrapped to lines of at most `width`. */
void add_wrapped(std::vector<std::string> &lines, const std::vector<std::string> &words, size_t width) {
    std::string line;
    for (const std::string &word : words) {
        const bool fits = line.empty() || line.size() + 2 + word.size() <= width;
        if (!fits) lines.push_back(std::exchange(line, ""));
        line += (line.empty() ? "" : "  ") + word;
    }
    if (!line.empty()) lines.push_back(line);
}

/** The lines above the tables. */
std::vector<std::string> head_of(const top_look_t &look, size_t width) {
    std::vector<std::string> lines = {look.source + (look.time.empty() ? "" : "  " + look.time)};
    if (!look.problem.empty()) lines.push_back(look.problem);
    std::vector<std::string> totals;
    for (const auto &[name, value] : look.totals) {
        totals.push_back(name + " " + std::to_string(value));
    }
    add_wrapped(lines, totals, width);
    return lines;
}

/** Replaces characters that a terminal might interpret by question marks. */
std::string plain(std::string line) {
    std::replace_if(
        line.begin(), line.end(), [](char c) { return c < ' ' || c > '~'; }, '?');
    return line;
}

}  // namespace

double use_of(const top_pool_t &pool) {
    if (pool.addresses == 0) return 0;
    return static_cast<double>(pool.sessions) / (static_cast<double>(pool.addresses) * ports_an_address);
}

void sort_by_use(top_look_t &look) {
    std::stable_sort(look.limits.begin(), look.limits.end(),
                     [](const top_limit_t &a, const top_limit_t &b) { return use_of(a) > use_of(b); });
    std::stable_sort(look.pools.begin(), look.pools.end(), [](const top_pool_t &a, const top_pool_t &b) {
        return std::pair(use_of(a), a.sessions) > std::pair(use_of(b), b.sessions);
    });
    std::stable_sort(look.mappings.begin(), look.mappings.end(),
                     [](const top_mapping_t &a, const top_mapping_t &b) { return a.sessions > b.sessions; });
    std::stable_sort(look.commands.begin(), look.commands.end(),
                     [](const top_command_t &a, const top_command_t &b) { return a.count > b.count; });
}

std::string top_page(const top_look_t &look, size_t width, size_t height) {
    std::vector<std::string> lines = head_of(look, width);
    std::vector<table_t> tables = tables_of(look);
    const size_t fixed = lines.size() + 2 * tables.size();
    share_room(tables, height > fixed ? height - fixed : 0);
    for (const table_t &table : tables) {
        add_table(lines, table);
    }
    std::string page;
    for (size_t i = 0; i < std::min(lines.size(), height); ++i) {
        page += plain(lines[i].substr(0, width)) + '\n';
    }
    return page;
}

json_t top_json(const top_look_t &look) {
    json_t json = {{"source", look.source},
                   {"time", look.time.empty() ? json_t() : json_t(look.time)},
                   {"problem", look.problem.empty() ? json_t() : json_t(look.problem)},
                   {"in_step", nullptr},
                   {"totals", json_t::object()}};
    for (const auto &[name, value] : look.totals) {
        json["totals"][name] = value;
    }
    json["limits"] = json_t::array();
    for (const top_limit_t &limit : look.limits) {
        json["limits"].push_back(
            {{"type", limit.type}, {"value", limit.value}, {"in_use", limit.in_use}, {"use", use_of(limit)}});
    }
    json["pools"] = json_t::array();
    for (const top_pool_t &pool : look.pools) {
        json["pools"].push_back(
            {{"id", pool.id}, {"addresses", pool.addresses}, {"sessions", pool.sessions}, {"use", use_of(pool)}});
    }
    json["mappings"] = json_t::array();
    for (const top_mapping_t &mapping : look.mappings) {
        json["mappings"].push_back({{"id", mapping.id}, {"kind", mapping.kind}, {"sessions", mapping.sessions}});
    }
    json["has_more"] = {{"pools", look.has_more_pools}, {"mappings", look.has_more_mappings}};
    json["commands"] = json_t::array();
    for (const top_command_t &command : look.commands) {
        json["commands"].push_back({{"kind", command.kind}, {"result", command.result}, {"count", command.count}});
    }
    json["command_times"] = nullptr;
    return json;
}
