#include "store.h"

#include "base64.h"
#include "jsontext.h"
#include "settings.h"

#include <chrono>
#include <iostream>

namespace
{

using nlohmann::json;

const char SCHEMA[] = R"(
CREATE TABLE IF NOT EXISTS exchanges (id INTEGER PRIMARY KEY, time_ms INTEGER, duration_ms REAL,
    client TEXT, method TEXT, target TEXT, path TEXT, kind TEXT, product TEXT, status INTEGER,
    request_bytes INTEGER, answer_bytes INTEGER, fault TEXT, request BLOB, answer BLOB,
    items BLOB);
CREATE TABLE IF NOT EXISTS devices (product BLOB PRIMARY KEY, version BLOB, last_contact_ms INTEGER,
    last_error BLOB, last_result BLOB, exchanges INTEGER);
CREATE TABLE IF NOT EXISTS cloudlog (id INTEGER PRIMARY KEY, exchange INTEGER, received_ms INTEGER,
    time BLOB, language BLOB, product BLOB, mode BLOB, function BLOB, arguments BLOB, error BLOB,
    detail BLOB, settings BLOB);
CREATE TABLE IF NOT EXISTS reports (id INTEGER PRIMARY KEY, exchange INTEGER, received_ms INTEGER,
    kind BLOB, product BLOB, version BLOB, result BLOB, text BLOB);
CREATE TABLE IF NOT EXISTS objects (bucket BLOB, key BLOB, content_type BLOB, etag BLOB, data BLOB,
    time_ms INTEGER, PRIMARY KEY (bucket, key));
)";

// Texts are stored as blobs: instr() and lower() on both sides of a search see the same bytes.
const char SELECT_EXCHANGES[] =
    "SELECT id, time_ms, duration_ms, client, method, target, path, kind, product, status,"
    " request_bytes, answer_bytes, fault FROM exchanges"
    " WHERE (?1 = 0 OR id < ?1) AND id > ?2 AND (?3 = x'' OR kind = ?3)"
    " AND (?4 = x'' OR product = ?4) AND (?5 = x'' OR path = ?5)"
    " AND (?6 = x'' OR instr(lower(CAST(path AS TEXT) || ' ' || CAST(kind AS TEXT) || ' ' ||"
    " CAST(product AS TEXT) || ' ' || CAST(fault AS TEXT) || ' ' || status),"
    " lower(CAST(?6 AS TEXT))) > 0)"
    " ORDER BY id DESC LIMIT ?7";

const char SELECT_LOG[] =
    "SELECT id, exchange, received_ms, time, language, product, mode, function, arguments, error,"
    " detail, settings FROM cloudlog"
    " WHERE (?1 = 0 OR id < ?1) AND id > ?2 AND (?3 = x'' OR product = ?3)"
    " AND (?4 = x'' OR instr(lower(CAST(time AS TEXT) || ' ' || CAST(product AS TEXT) || ' ' ||"
    " CAST(function AS TEXT) || ' ' || CAST(arguments AS TEXT) || ' ' || CAST(error AS TEXT) ||"
    " ' ' || CAST(detail AS TEXT)), lower(CAST(?4 AS TEXT))) > 0)"
    " ORDER BY id DESC LIMIT ?5";

json itemsToJson(const QueryItems &items)
{
    json array = json::array();
    for (const auto &[key, value] : items.all())
        array.push_back({key, value});
    return array;
}

json lines(Statement &statement, json (*row)(Statement &))
{
    json array = json::array();
    while (statement.step())
        array.push_back(row(statement));
    return array;
}

std::string databaseName(const std::string &directory)
{
    return directory.empty() ? ":memory:" : directory + "/cloudsim.sqlite";
}

} // namespace

struct Store::Statements {
    explicit Statements(Database &db)
        : insertExchange(db, "INSERT INTO exchanges VALUES (?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)"),
          finishExchange(db, "UPDATE exchanges SET duration_ms = ?, answer_bytes = ? WHERE id = ?"),
          touchDevice(
              db,
              "INSERT INTO devices VALUES (?1, ?2, ?3, x'', ?4, 1)"
              " ON CONFLICT (product) DO UPDATE SET"
              " version = CASE WHEN ?2 = x'' THEN version ELSE ?2 END, last_contact_ms = ?3,"
              " last_result = CASE WHEN ?4 = x'' THEN last_result ELSE ?4 END,"
              " exchanges = exchanges + 1"),
          setDeviceError(db, "UPDATE devices SET last_error = ? WHERE product = ?"),
          insertRecord(db, "INSERT INTO cloudlog VALUES (NULL,?,?,?,?,?,?,?,?,?,?,?)"),
          insertReport(db, "INSERT INTO reports VALUES (NULL,?,?,?,?,?,?,?)"),
          putObject(db, "INSERT OR REPLACE INTO objects VALUES (?,?,?,?,?,?)"),
          selectExchanges(db, SELECT_EXCHANGES), selectLog(db, SELECT_LOG)
    {
    }

    Statement insertExchange, finishExchange, touchDevice, setDeviceError, insertRecord,
        insertReport, putObject, selectExchanges, selectLog;
};

bool Store::Queue::isEmpty() const
{
    return exchanges.empty() && records.empty() && reports.empty() && finishes.empty();
}

Store::Store(const std::string &directory) : database(databaseName(directory))
{
    database.execute("PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL;");
    database.execute(SCHEMA);
    statements = std::make_unique<Statements>(database);
    Statement last(database, "SELECT ifnull(max(id), 0) FROM exchanges");
    last.step();
    lastId = static_cast<uint64_t>(last.integer(0));
    writer = std::thread([this] { runWriter(); });
}

Store::~Store()
{
    {
        std::lock_guard locker(queueMutex);
        ending = true;
    }
    queued.notify_one();
    writer.join();
}

uint64_t Store::newExchangeId()
{
    std::lock_guard locker(queueMutex);
    return ++lastId;
}

void Store::add(Exchange exchange, std::vector<LogRecord> records, std::vector<Report> reports)
{
    std::lock_guard locker(queueMutex);
    queue.exchanges.push_back(std::move(exchange));
    std::move(records.begin(), records.end(), std::back_inserter(queue.records));
    std::move(reports.begin(), reports.end(), std::back_inserter(queue.reports));
    queued.notify_one();
}

void Store::finish(uint64_t id, double durationMs, uint64_t answerBytes)
{
    std::lock_guard locker(queueMutex);
    queue.finishes.push_back({id, durationMs, answerBytes});
    queued.notify_one();
}

void Store::runWriter()
{
    std::unique_lock locker(queueMutex);
    while (true) {
        queued.wait(locker, [this] { return ending || !queue.isEmpty(); });
        if (queue.isEmpty())
            return;
        // Lets a batch gather: a transaction costs far more than a row.
        if (!ending)
            queued.wait_for(locker, std::chrono::milliseconds(20), [this] { return ending; });
        locker.unlock();
        {
            std::lock_guard databaseLocker(databaseMutex);
            writeQueued();
        }
        locker.lock();
    }
}

/// Expects databaseMutex to be held.
void Store::writeQueued()
{
    Queue batch;
    {
        std::lock_guard locker(queueMutex);
        std::swap(batch, queue);
    }
    if (batch.isEmpty())
        return;
    try {
        database.execute("BEGIN");
        for (const Exchange &exchange : batch.exchanges)
            write(exchange);
        for (const LogRecord &record : batch.records)
            write(record);
        for (const Report &report : batch.reports)
            write(report);
        for (const Finish &end : batch.finishes)
            statements->finishExchange.with(end.durationMs, end.answerBytes, end.id).run();
        database.execute("COMMIT");
    } catch (const std::runtime_error &error) {
        std::cerr << "korrin-cloudsim: exchanges are lost: " << error.what() << std::endl;
        sqlite3_exec(database.get(), "ROLLBACK", nullptr, nullptr, nullptr);
    }
}

void Store::write(const Exchange &exchange)
{
    statements->insertExchange
        .with(exchange.id, exchange.timeMs, exchange.durationMs, exchange.client, exchange.method,
              exchange.target, exchange.path, exchange.is, exchange.product, exchange.status,
              exchange.requestBytes, exchange.answerBytes, exchange.fault, exchange.request,
              exchange.answer, jsonText(itemsToJson(exchange.items)))
        .run();
    if (!exchange.product.empty()) {
        statements->touchDevice
            .with(exchange.product, exchange.version, exchange.timeMs, exchange.result)
            .run();
    }
}

void Store::write(const LogRecord &record)
{
    const auto value = [&](const char *key) { return record.items.value(key); };
    const std::string error = value("en");
    const std::string detail = value("ed");
    const std::string product = value("pn");
    statements->insertRecord
        .with(record.exchange, record.receivedMs, value("ldt"), value("lang"), product,
              value("mode"), value("fn"), value("fa"), error, detail,
              jsonText(settingsFromSummary(value("pr"))))
        .run();
    const std::string lastError = error == "0" ? std::string() : error + " " + detail;
    statements->setDeviceError.with(lastError, product).run();
}

void Store::write(const Report &report)
{
    statements->insertReport
        .with(report.exchange, report.receivedMs, report.kind, report.product, report.version,
              report.result, report.text)
        .run();
}

void Store::putObject(const StoredObject &object)
{
    std::lock_guard locker(databaseMutex);
    statements->putObject
        .with(object.bucket, object.key, object.contentType, object.etag, object.data,
              object.timeMs)
        .run();
}

json summaryOf(const Exchange &exchange)
{
    return {{"id", exchange.id},
            {"time", isoTime(exchange.timeMs)},
            {"duration_ms", exchange.durationMs < 0 ? json() : json(exchange.durationMs)},
            {"client", exchange.client},
            {"method", exchange.method},
            {"target", exchange.target},
            {"path", exchange.path},
            {"is", exchange.is},
            {"product", exchange.product},
            {"status", exchange.status},
            {"request_bytes", exchange.requestBytes},
            {"answer_bytes", exchange.answerBytes},
            {"fault", exchange.fault}};
}

namespace
{

json exchangeRow(Statement &row)
{
    Exchange exchange;
    exchange.id = static_cast<uint64_t>(row.integer(0));
    exchange.timeMs = row.integer(1);
    exchange.durationMs = row.real(2);
    exchange.client = row.bytes(3);
    exchange.method = row.bytes(4);
    exchange.target = row.bytes(5);
    exchange.path = row.bytes(6);
    exchange.is = row.bytes(7);
    exchange.product = row.bytes(8);
    exchange.status = static_cast<int>(row.integer(9));
    exchange.requestBytes = static_cast<uint64_t>(row.integer(10));
    exchange.answerBytes = static_cast<uint64_t>(row.integer(11));
    exchange.fault = row.bytes(12);
    return summaryOf(exchange);
}

json deviceRow(Statement &row)
{
    return {{"product", row.bytes(0)},
            {"version", row.bytes(1)},
            {"last_contact", isoTime(row.integer(2))},
            {"last_error", row.bytes(3)},
            {"last_result", row.bytes(4)},
            {"exchanges", row.integer(5)}};
}

json logRow(Statement &row)
{
    return {{"id", row.integer(0)},
            {"exchange", row.integer(1)},
            {"received", isoTime(row.integer(2))},
            {"time", row.bytes(3)},
            {"language", row.bytes(4)},
            {"product", row.bytes(5)},
            {"mode", row.bytes(6)},
            {"function", row.bytes(7)},
            {"arguments", row.bytes(8)},
            {"error", row.bytes(9)},
            {"detail", row.bytes(10)},
            {"settings", json::parse(row.bytes(11))}};
}

json reportRow(Statement &row)
{
    return {{"id", row.integer(0)},
            {"exchange", row.integer(1)},
            {"received", isoTime(row.integer(2))},
            {"kind", row.bytes(3)},
            {"product", row.bytes(4)},
            {"version", row.bytes(5)},
            {"result", row.bytes(6)},
            {"text", row.bytes(7)}};
}

json objectRow(Statement &row)
{
    return {{"bucket", row.bytes(0)},  {"key", row.bytes(1)},
            {"bytes", row.integer(2)}, {"content_type", row.bytes(3)},
            {"etag", row.bytes(4)},    {"time", isoTime(row.integer(5))}};
}

} // namespace

json Store::exchanges(const Filter &filter)
{
    std::lock_guard locker(databaseMutex);
    writeQueued();
    return lines(statements->selectExchanges.with(filter.before, filter.after, filter.is,
                                                  filter.product, filter.path, filter.text,
                                                  filter.limit),
                 exchangeRow);
}

std::optional<json> Store::exchange(uint64_t id)
{
    std::lock_guard locker(databaseMutex);
    writeQueued();
    Filter only;
    only.before = id + 1;
    only.after = id - 1;
    Statement &summary = statements->selectExchanges.with(
        only.before, only.after, only.is, only.product, only.path, only.text, uint64_t(1));
    if (id == 0 || !summary.step())
        return {};
    json result = exchangeRow(summary);
    Statement bytes(database, "SELECT request, answer, items FROM exchanges WHERE id = ?");
    bytes.with(id).step();
    const std::string request = bytes.bytes(0);
    const std::string answer = bytes.bytes(1);
    result["items"] = json::parse(bytes.bytes(2));
    result["request"] = toBase64(request);
    result["answer"] = toBase64(answer);
    result["request_truncated"] = request.size() < result["request_bytes"].get<uint64_t>();
    result["answer_truncated"] = answer.size() < result["answer_bytes"].get<uint64_t>();
    return result;
}

json Store::devices()
{
    std::lock_guard locker(databaseMutex);
    writeQueued();
    Statement select(database,
                     "SELECT product, version, last_contact_ms, last_error, last_result,"
                     " exchanges FROM devices ORDER BY last_contact_ms DESC, product");
    return lines(select, deviceRow);
}

json Store::cloudLog(const Filter &filter)
{
    std::lock_guard locker(databaseMutex);
    writeQueued();
    return lines(statements->selectLog.with(filter.before, filter.after, filter.product,
                                            filter.text, filter.limit),
                 logRow);
}

json Store::reports()
{
    std::lock_guard locker(databaseMutex);
    writeQueued();
    Statement select(database,
                     "SELECT id, exchange, received_ms, kind, product, version, result,"
                     " text FROM reports ORDER BY id DESC LIMIT 1000");
    return lines(select, reportRow);
}

json Store::objects()
{
    std::lock_guard locker(databaseMutex);
    Statement select(database,
                     "SELECT bucket, key, length(data), content_type, etag, time_ms"
                     " FROM objects ORDER BY time_ms DESC, bucket, key");
    return lines(select, objectRow);
}

std::optional<StoredObject> Store::object(const std::string &bucket, const std::string &key)
{
    std::lock_guard locker(databaseMutex);
    Statement select(database,
                     "SELECT content_type, etag, data, time_ms FROM objects"
                     " WHERE bucket = ? AND key = ?");
    if (!select.with(bucket, key).step())
        return {};
    return StoredObject{bucket,           key, select.bytes(0), select.bytes(1), select.bytes(2),
                        select.integer(3)};
}

json Store::counts()
{
    std::lock_guard locker(databaseMutex);
    writeQueued();
    Statement select(database,
                     "SELECT (SELECT count(*) FROM exchanges),"
                     " (SELECT count(*) FROM cloudlog), (SELECT count(*) FROM objects),"
                     " (SELECT count(*) FROM devices)");
    select.step();
    return {{"exchanges", select.integer(0)},
            {"cloud_log", select.integer(1)},
            {"objects", select.integer(2)},
            {"devices", select.integer(3)}};
}

void Store::clear()
{
    std::lock_guard locker(databaseMutex);
    writeQueued();
    database.execute("DELETE FROM exchanges; DELETE FROM cloudlog; DELETE FROM reports;"
                     "DELETE FROM devices;");
}
