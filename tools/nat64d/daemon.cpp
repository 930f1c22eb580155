/*
 * Implements daemon.h. Everything runs on one loop. Long work, such as reading a large document, runs in the
 * background, so that the web pages, the heartbeat and the watchdog continue meanwhile.
 */
#include "tools/nat64d/daemon.h"

#include <algorithm>
#include <csignal>
#include <utility>

#include "config/load.h"
#include "fleet/fleet_keys.h"
#include "fwx_nat64/client.h"
#include "net/json.h"
#include "reconcile/background.h"
#include "state/directory.h"
#include "state/read_file.h"
#include "tools/diagnostic.h"
#include "tools/nat64d/log.h"
#include "tools/nat64d/metrics.h"
#include "tools/nat64d/service_manager.h"

namespace {

constexpr uint64_t sync_timeout_ms = 1000; /* for so long may a stopped server block the loop */
constexpr uint64_t watchdog_ms = 5000;
constexpr size_t most_problems = 20; /* of one document in the log */

/** The first errors of a document and their number; empty: there is none. */
std::string errors_text(const problems_t &problems) {
    constexpr size_t most_named = 3;
    const auto count = static_cast<size_t>(
        std::count_if(problems.begin(), problems.end(), [](const problem_t &problem) { return problem.is_error(); }));
    std::string text = count > 1 ? std::to_string(count) + " errors: " : "";
    size_t named = 0;
    for (const problem_t &problem : problems) {
        if (!problem.is_error()) continue;
        if (named == most_named) return text + "; and " + std::to_string(count - named) + " more";
        text += (named++ == 0 ? "" : "; ") + problem.text();
    }
    return text;
}

/** Logs a diagnostic of the library that depends on the debug level. The unconditional ones are not logged, because a
 * server that is away causes one a second. */
void debug_written(void *, fwx_host_debug_channel_t channel, uint32_t level, const char *text) {
    if (channel != FWX_HOST_DEBUG_LEVEL) return;
    log_event(level == 1 ? log_level_t::error : log_level_t::info, "library", {{"text", diagnostic_line(text)}});
}

}  // namespace

daemon_t::daemon_t(const daemon_options_t &options)
    : options_(options),
      supervisor_(loop_, options.server, options.state.empty() ? state_directory_of(options.server) : options.state,
                  [this] { changed(); }),
      control_(loop_, [this](const std::string &word, control_t::reply_fn_t reply) { asked(word, std::move(reply)); }),
      web_(
          loop_, [this] { make_metrics(); }, [this] { return health(); }) {
    fwx_host_sync_timeout_set_ms(sync_timeout_ms);
    fwx_host_debug_sink_set(debug_written, nullptr);
    fwx_host_debug_level_set(FWX_NAT64_DEBUG_MODULE, options.debug_level);
}

daemon_t::~daemon_t() {
    fwx_host_loop_unwatch(loop_, signals_.fd());
    fwx_host_debug_sink_set(nullptr, nullptr);
}

std::string daemon_t::open() {
    const auto take = [](void *self) { static_cast<daemon_t *>(self)->take_signals(); };
    if (fwx_host_loop_watch(loop_, signals_.fd(), take, this) != 0) return "no descriptors left";
    std::string error = control_.listen(options_.server);
    if (error.empty()) error = supervisor_.open();
    if (error.empty() && !options_.listen.empty()) error = web_.listen(options_.listen);
    if (!error.empty()) return error;
    if (web_.port() != 0) log_event(log_level_t::info, "listening", {{"port", std::to_string(web_.port())}});
    error = open_source();
    if (!error.empty()) return error;
    supervisor_.start();
    keep_watchdog(this);
    return "";
}

/** Runs on the loop, so the watchdog is kept up as long as the loop turns, however long the supervisor's work takes. */
void daemon_t::keep_watchdog(void *self) {
    tell_service_manager("WATCHDOG=1");
    fwx_host_timer_add(static_cast<daemon_t *>(self)->loop_, watchdog_ms, keep_watchdog, self);
}

void daemon_t::run() {
    while (!is_ending_) {
        fwx_host_loop_run_once(loop_, -1);
    }
    tell_service_manager("STOPPING=1");
    log_event(log_level_t::info, "end");
}

void daemon_t::take_signals() {
    for (int number = signals_.take(); number != 0; number = signals_.take()) {
        is_ending_ = is_ending_ || number != SIGHUP;
        if (number == SIGHUP) load();
    }
}

std::string daemon_t::open_source() {
    return options_.config.empty() ? open_store() : open_file();
}

/** An error in the first document ends the daemon, unless a document is in force from before. */
std::string daemon_t::open_file() {
    watch_.emplace(loop_, options_.config, [this] { load(); });
    if (!watch_->is_watching()) log_event(log_level_t::warning, "unwatched", {{"file", options_.config}});
    load();
    while (!load_->done()) {
        fwx_host_loop_run_once(loop_, -1);
    }
    return supervisor_.has_document() ? "" : supervisor_.status().refused_reason;
}

/** Does not wait for the document; the follower offers it when it arrives. */
std::string daemon_t::open_store() {
    store_t store;
    std::string error = read_store(options_.store, store);
    if (!error.empty()) return error;
    for (const std::string &warning : store_warnings(options_.store)) {
        log_event(log_level_t::warning, "options", {{"text", warning}});
    }
    if (!is_gateway_name(options_.gateway)) {
        return "--gateway \"" + options_.gateway + "\": must be 1 to 64 letters, digits, '.', '_' and '-'";
    }
    store_.emplace(loop_, std::move(store), options_.gateway, supervisor_.directory(), supervisor_.status(),
                   store_follower_t::handlers_t{
                       [this](const std::string &text, std::string name) { return take(text, std::move(name)); },
                       [this](const std::string &name, const std::string &reason) { supervisor_.refuse(name, reason); },
                       [this] { loaded(); }});
    store_->start();
    return "";
}

/** Reads the document again. */
void daemon_t::load() {
    if (store_) return store_->reload();
    load_.emplace(load_file());
    load_->start();
}

nat64::task<> daemon_t::load_file() {
    std::string reason;
    const std::optional<std::string> text = read_file(options_.config, reason);
    if (text) reason = (co_await take(*text, options_.config)).reason;
    if (!reason.empty()) supervisor_.refuse("", reason);
    loaded();
}

void daemon_t::loaded() {
    for (const auto &done : std::exchange(waiting_for_load_, {})) {
        done();
    }
}

/** Offers the document of a text to the supervisor if it has no error. */
nat64::task<taken_t> daemon_t::take(const std::string &text, std::string name) {
    problems_t problems;
    /* In the background, because 200,000 items take longer than a scrape should wait. */
    offer_t offer = co_await in_background(loop_, [&] {
        document_t document = load_document(text, problems);
        const bool is_good = !has_error(problems);
        return is_good ? make_offer(std::move(document)) : offer_t{};
    });
    taken_t taken;
    taken.reason = errors_text(problems);
    for (size_t i = 0; i < std::min(problems.size(), most_problems); ++i) {
        log_event(problems[i].is_error() ? log_level_t::error : log_level_t::warning, "problem",
                  {{"file", name}, {"text", problems[i].text()}});
    }
    if (problems.size() > most_problems) {
        log_event(log_level_t::warning, "problems_left_out",
                  {{"file", name}, {"problems", std::to_string(problems.size() - most_problems)}});
    }
    if (!taken.reason.empty()) co_return taken;
    taken.hash = offer.hash;
    supervisor_.offer(std::move(offer));
    co_return taken;
}

void daemon_t::asked(const std::string &word, control_t::reply_fn_t reply) {
    if (word == "status") return reply(status_text());
    const bool is_known = word == "replay" || word == "reload";
    if (!is_known) return reply(R"({"error":"unknown request: must be status, replay or reload"})");
    log_event(log_level_t::info, "asked", {{"for", word}});
    auto answer = [this, reply = std::move(reply)] {
        supervisor_.when_looked([this, reply] { reply(status_text()); });
    };
    if (word == "replay") supervisor_.replay();
    if (word != "reload") return answer();
    waiting_for_load_.push_back(std::move(answer));
    load();
}

std::string daemon_t::status_text() const {
    return status_json(supervisor_.status(), store_status());
}

void daemon_t::changed() {
    const daemon_status_t &status = supervisor_.status();
    if (store_) store_->changed();
    std::string text = "STATUS=" + (status.is_in_step ? "in step with document " + status.document : status.reason);
    if (!status.refused_reason.empty()) text += "; refused: " + status.refused_reason;
    text = clean_line(text); /* a line feed would begin another assignment */
    if (text == last_status_) return;
    tell_service_manager((last_status_.empty() ? "READY=1\n" : "") + text);
    last_status_ = text;
}

/** Healthy even if the store is away, because the gateway still holds its document. */
web_t::page_t daemon_t::health() const {
    const daemon_status_t &status = supervisor_.status();
    const std::optional<store_status_t> store = store_status();
    const bool is_unconfirmed = store && !store->is_up;
    std::string text = status.is_in_step ? "in step" : status.reason;
    if (is_unconfirmed) text += "; the store does not confirm the document: " + store->reason;
    const unsigned code = status.is_in_step ? MHD_HTTP_OK : MHD_HTTP_SERVICE_UNAVAILABLE;
    return {code, clean_line(text) + '\n'};
}

void daemon_t::make_metrics() {
    if (supervisor_.client() == nullptr || !supervisor_.status().is_server_up) return finish_metrics({});
    scrape_.emplace(scrape_server());
    scrape_->start();
}

nat64::task<> daemon_t::scrape_server() {
    const scrape_t got = co_await scrape(*supervisor_.client(), options_.series);
    finish_metrics(got);
}

void daemon_t::finish_metrics(const scrape_t &server) {
    const nat64::client *client = supervisor_.client();
    web_.metrics_made(
        metrics_text({supervisor_.status(), store_status(), supervisor_.commands(),
                      client != nullptr && client->is_throttled(), supervisor_.rules().installed(), server}));
}
