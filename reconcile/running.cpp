#include "reconcile/running.h"

#include <algorithm>
#include <ctime>

#include "config/notation.h"
#include "state/directory.h"
#include "state/user.h"

namespace {

constexpr const char *format = "nat64 running configuration 1";
constexpr char mark = running_t::mark;
constexpr size_t least_settle = 1U << 16;

std::string one_line(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
    return text;
}

std::string version_mark_of(const char *word, const version_t &version) {
    return mark + std::string(word) + " " + std::to_string(version.number) + " " + std::to_string(version.time) + " " +
           std::to_string(version.commands) + " " + version.who + " " + version.what;
}

/** A plan's commands as lines, each with a line feed. */
std::string lines_of(const plan_t &plan) {
    std::string lines;
    for (size_t i = 0; i < plan.size(); ++i) {
        const plan_command_t command = plan.command(i);
        append_command_line(lines, *command.family, command.op, command.record.bytes);
        lines += '\n';
    }
    return lines;
}

/** Commands that add an item of a document. */
template <typename use_t>
void for_each_command_of(const config_item_t &item, use_t use) {
    const bool has_record = item.is_in_doubt || has_own_value(item);
    if (has_record) use(command_line(*item.family, FWX_NAT64_OP_ADD, item.record));
    if (!item.is_nvi) return;
    use(command_line(*nvi_family_of(*item.family), FWX_NAT64_OP_ADD, nvi_record_of(item).bytes));
}

void write_doubts(const document_t &document, const journal_t::write_fn_t &write) {
    for (size_t i = 0; i < document.size(); ++i) {
        const config_item_t item = document.item(i);
        if (!item.is_in_doubt) continue;
        for_each_command_of(item, [&](const std::string &line) { write(mark + ("doubt " + line)); });
    }
}

}  // namespace

running_t::running_t(std::string directory, std::string program)
    : directory_(std::move(directory)), lock_(directory_ + "/journal", std::move(program)), undo_log_(directory_) {}

/* --- Opening --- */

std::unique_ptr<journal_t> running_t::make_journal() {
    return std::make_unique<journal_t>(
        directory_ + "/journal", std::vector<std::string>{format},
        [this](const journal_t::write_fn_t &write) { write_snapshot(write); }, [this] { return snapshot_lines(); });
}

journal_t::read_fn_t running_t::reader() {
    return [this](std::string_view line) { return read_line(line); };
}

std::string running_t::open(std::chrono::milliseconds patience) {
    if (directory_.empty()) return "";
    std::string error = make_state_directory(directory_ + "/versions");
    if (error.empty()) error = take_lock(patience);
    if (!error.empty()) return error;
    journal_ = make_journal();
    error = journal_->open(reader());
    /* Nothing is sent to a server that could not be kept. */
    if (error.empty()) error = journal_->error();
    if (!error.empty()) {
        journal_.reset();
        lock_.release();
        return error;
    }
    notes_ = journal_->notes();
    return end_interrupted();
}

std::string running_t::take_lock(std::chrono::milliseconds patience) {
    const auto may_end_soon = [](const std::string &who) { return who.empty() || who.rfind("natctl ", 0) == 0; };
    std::string error = lock_.take(patience, may_end_soon);
    if (!lock_.is_taken()) return error;
    return directory_ + ": " + lock_.holder() + " has the running configuration";
}

std::string running_t::look() {
    if (directory_.empty()) return "";
    std::string error = make_journal()->look(reader());
    return error.empty() ? end_interrupted() : error;
}

/* --- Writing --- */

void running_t::append(const std::string &line) {
    if (journal_) journal_->append(line);
}

void running_t::write_snapshot(const journal_t::write_fn_t &write) {
    document_.settle();
    const bool has_base = has_begun_;
    const document_t &base = has_base ? base_ : document_;
    for (const version_t &version : versions_) {
        write(version_mark_of("version", version));
    }
    for (size_t i = 0; i < base.size(); ++i) {
        if (!base.item(i).is_in_doubt) for_each_command_of(base.item(i), write);
    }
    write_doubts(base, write);
    if (has_base) write_change(write);
    write(mark + ("boot " + std::to_string(boot_id_)) + " " + std::to_string(changes_));
    if (unconfirmed_.number == 0) return;
    write(mark + ("unconfirmed " + std::to_string(unconfirmed_.number)) + " " + std::to_string(unconfirmed_.until));
}

/** The change under way, as far as it has come. */
void running_t::write_change(const journal_t::write_fn_t &write) {
    version_t change = change_;
    const std::string lines = lines_of(plan_t(base_, document_));
    const auto count = static_cast<size_t>(std::count(lines.begin(), lines.end(), '\n'));
    change.commands -= std::min(change.commands, count); /* reading counts these */
    write(version_mark_of("change", change));
    for_each_line(lines, write);
    write_doubts(document_, write);
    for_each_line(planned_lines_, [&](std::string_view line) {
        const bool is_open = is_undoing_ || planned_.count(std::hash<std::string_view>()(line)) != 0;
        if (is_open) write(mark + std::string("plan ").append(line));
    });
    for (size_t i = 0; plan_ != nullptr && i < plan_->size(); ++i) {
        const plan_command_t command = plan_->command(i);
        const std::string line = command_line(*command.family, command.op, command.record.bytes);
        if (is_undoing_ || done_.count(std::hash<std::string>()(line)) == 0) write(mark + ("plan " + line));
    }
    if (is_undoing_) write(mark + std::string("undo"));
}

/** But for those that are always few. */
uint64_t running_t::snapshot_lines() {
    document_.settle();
    if (!has_begun_) return document_.size();
    const size_t planned = plan_ == nullptr ? 0 : plan_->size() - std::min(plan_->size(), done_.size());
    return base_.size() + plan_t(base_, document_).size() + planned;
}

const document_t &running_t::document() {
    document_.settle();
    return document_;
}

size_t running_t::doubtful() {
    size_t count = 0;
    for (size_t i = 0; i < document().size(); ++i) {
        count += document_.item(i).is_in_doubt ? 1 : 0;
    }
    return count;
}

step_t running_t::compare(const fwx_nat64_stats_boot_t &server) const {
    if (server.boot_id == 0) return step_t::unknown;
    /* Of an unknown server the first ones to be told, all that it was told. */
    const bool is_other = boot_id_ == 0 ? server.changes != changes_ && changes_ != 0 : server.boot_id != boot_id_;
    if (is_other) return step_t::restarted;
    return server.changes == changes_ ? step_t::in_step : step_t::changed;
}

void running_t::in_step_with(const fwx_nat64_stats_boot_t &server) {
    boot_id_ = server.boot_id;
    changes_ = server.changes;
    append(mark + ("boot " + std::to_string(boot_id_)) + " " + std::to_string(changes_));
}

void running_t::take_restart(bool holds_nothing) {
    document_.settle();
    const document_t before = document_;
    if (holds_nothing) document_ = {};
    for (size_t i = 0; i < before.size(); ++i) {
        const config_item_t item = before.item(i);
        const bool is_gone = holds_nothing && item.family->is_counted();
        if (!is_gone) document_.doubt(*item.family, item.record);
    }
    document_.settle();
}

void running_t::restarted(bool holds_nothing) {
    take_restart(holds_nothing);
    append(mark + std::string(holds_nothing ? "restarted nothing" : "restarted doubt"));
}

void running_t::begin(const std::string &what) {
    document_.settle();
    settle_at_ = 2 * document_.size() + least_settle;
    base_ = document_;
    has_begun_ = true;
    const uint32_t last = versions_.empty() ? 0 : versions_.back().number;
    change_ = {last + 1, std::time(nullptr), 0, user_name(), one_line(what)};
    append(version_mark_of("change", change_));
}

std::string running_t::enter_plan(const plan_t &plan) {
    if (!journal_) return "";
    plan_ = &plan;
    done_.clear();
    done_.reserve(plan.size());
    for (size_t i = 0; i < plan.size(); ++i) {
        const plan_command_t command = plan.command(i);
        append(mark + ("plan " + command_line(*command.family, command.op, command.record.bytes)));
    }
    return commit();
}

void running_t::undo_begins() {
    is_undoing_ = true;
    change_.what += " (refused)";
    append(mark + std::string("undo"));
}

void running_t::carried_out(const record_family_t &family, uint32_t op, const void *record) {
    document_.carry_out(family, op, record);
    ++change_.commands;
    ++changes_;
    if (journal_) {
        const std::string line = command_line(family, op, record);
        append(line);
        if (plan_ != nullptr) done_.insert(std::hash<std::string>()(line));
    }
    if (document_.size() < settle_at_) return;
    document_.settle();
    settle_at_ = 2 * document_.size() + least_settle;
}

void running_t::doubt(const record_family_t &family, uint32_t op, const void *record) {
    document_.doubt(family, record);
    append(mark + ("doubt " + command_line(family, op, record)));
}

std::string running_t::commit() {
    return journal_ ? journal_->commit() : "";
}

std::string running_t::end() {
    if (!has_begun_) return commit();
    document_.settle();
    const std::string lines = lines_of(plan_t(document_, base_));
    const bool is_version = change_.commands != 0 || !lines.empty();
    std::string error = is_version ? undo_log_.keep(change_.number, lines) : "";
    has_begun_ = is_undoing_ = false;
    plan_ = nullptr;
    done_.clear();
    append(mark + std::string("end"));
    base_ = {};
    if (is_version) {
        versions_.push_back(change_);
        append(version_mark_of("version", change_));
        while (versions_.size() > kept_versions) {
            undo_log_.drop(versions_.front().number);
            versions_.erase(versions_.begin());
        }
    }
    const std::string not_kept = commit();
    return error.empty() ? not_kept : error;
}

void running_t::set_unconfirmed(const unconfirmed_t &unconfirmed) {
    unconfirmed_ = unconfirmed;
    append(mark + ("unconfirmed " + std::to_string(unconfirmed.number)) + " " + std::to_string(unconfirmed.until));
}

/* --- Versions --- */

std::string running_t::older(uint32_t number, document_t &out) {
    const uint32_t last = versions_.empty() ? 0 : versions_.back().number;
    const uint32_t oldest = versions_.empty() ? 0 : versions_.front().number - 1;
    if (number < oldest || number > last) {
        return "version " + std::to_string(number) + ": must be " + std::to_string(oldest) + " to " +
               std::to_string(last);
    }
    out = document();
    for (size_t i = versions_.size(); i-- != 0 && versions_[i].number > number;) {
        std::string lines;
        std::string error = undo_log_.read(versions_[i].number, lines);
        for_each_line(lines, [&](std::string_view line) {
            if (error.empty()) error = read_command(line);
            if (error.empty()) out.carry_out(reader_.family(), reader_.verb().op, reader_.record().bytes);
        });
        if (!error.empty()) return error;
        out.settle();
    }
    return "";
}
