#include "books.h"

#include "printable.h"

#include <algorithm>
#include <cstdio>

namespace
{

/// Devices choose these texts: none may end the line, make two columns of one or steer a terminal.
std::string column(const std::string &text)
{
    std::string result = printable(text);
    std::replace(result.begin(), result.end(), ' ', '?');
    return result.empty() ? "-" : result;
}

/// "2026-01-31T12:00:00.000Z 127.0.0.1:40000 GET /su/search chkud KX-100 200 310 1.3ms delay"
std::string logLine(const Exchange &exchange)
{
    char duration[32];
    std::snprintf(duration, sizeof duration, "%.1fms", exchange.durationMs);
    return isoTime(exchange.timeMs) + " " + exchange.client + " " + column(exchange.method) + " "
        + column(exchange.path) + " " + column(exchange.is) + " " + column(exchange.product) + " "
        + std::to_string(exchange.status) + " " + std::to_string(exchange.answerBytes) + " "
        + duration + " " + column(exchange.fault) + "\n";
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
