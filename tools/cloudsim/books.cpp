#include "books.h"

#include <cstdio>

namespace
{

/// "2026-01-31T12:00:00.000Z 127.0.0.1:40000 GET /su/search chkud KX-100 200 310 1.3ms delay"
std::string logLine(const Exchange &exchange)
{
    const auto orDash = [](const std::string &text) { return text.empty() ? "-" : text; };
    char duration[32];
    std::snprintf(duration, sizeof duration, "%.1fms", exchange.durationMs);
    std::string line = isoTime(exchange.timeMs) + " " + exchange.client + " "
        + orDash(exchange.method) + " " + orDash(exchange.path) + " " + orDash(exchange.is) + " "
        + orDash(exchange.product) + " " + std::to_string(exchange.status) + " "
        + std::to_string(exchange.answerBytes) + " " + duration + " " + orDash(exchange.fault);
    // Devices choose these texts: no byte of theirs may end the line or steer a terminal.
    for (char &c : line) {
        if (static_cast<unsigned char>(c) < ' ' || c == '\x7f')
            c = '?';
    }
    return line + "\n";
}

} // namespace

uint64_t Books::begun(Exchange exchange, const Subject &subject)
{
    exchange.id = store.newExchangeId();
    std::vector<LogRecord> records = subject.records;
    for (LogRecord &record : records) {
        record.exchange = exchange.id;
        record.receivedMs = exchange.timeMs;
    }
    std::vector<Report> reports = subject.reports;
    for (Report &report : reports) {
        report.exchange = exchange.id;
        report.receivedMs = exchange.timeMs;
    }
    const uint64_t id = exchange.id;
    const nlohmann::json summary = subject.fault.isSlow() ? summaryOf(exchange) : nlohmann::json();
    store.add(std::move(exchange), std::move(records), std::move(reports));
    if (!summary.is_null())
        events.publish("exchange", summary);
    if (!subject.records.empty())
        events.publish("cloudlog", nlohmann::json::object());
    return id;
}

void Books::ended(Exchange exchange)
{
    store.finish(exchange.id, exchange.durationMs, exchange.answerBytes);
    events.publish("exchange", summaryOf(exchange));
    if (logs) {
        const std::string line = logLine(exchange);
        std::lock_guard locker(logMutex);
        std::fwrite(line.data(), 1, line.size(), stdout);
        std::fflush(stdout);
    }
}
