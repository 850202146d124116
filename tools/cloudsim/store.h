#pragma once

#include "database.h"
#include "exchange.h"

#include <condition_variable>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <thread>
#include <vector>

/// What a reader of exchanges or log records asks for.
struct Filter {
    uint64_t limit = 100;
    uint64_t before = 0; ///< only ids below it; 0: all
    uint64_t after = 0;  ///< only ids above it
    std::string text;    ///< found without case
    std::string is;
    std::string product;
    std::string path;
};

/// Keeps everything that was exchanged, in SQLite. Safe to use from any thread.
///
/// What an exchange brings is queued and written by a thread of its own, many in one transaction;
/// readers see all that was queued before they asked.
class Store
{
public:
    /// @param directory  empty: in memory only. @throw std::runtime_error
    explicit Store(const std::string &directory);
    /// Writes what is still queued.
    ~Store();
    Store(const Store &) = delete;
    Store &operator=(const Store &) = delete;

    uint64_t newExchangeId();
    /// An exchange whose answer is known, with what it brought.
    void add(Exchange exchange, std::vector<LogRecord> records, std::vector<Report> reports);
    /// The same exchange has ended.
    void finish(uint64_t id, double durationMs, uint64_t answerBytes);
    void putObject(const StoredObject &object);

    nlohmann::json exchanges(const Filter &filter);
    std::optional<nlohmann::json> exchange(uint64_t id);
    nlohmann::json devices();
    nlohmann::json cloudLog(const Filter &filter);
    nlohmann::json reports();
    nlohmann::json objects();
    std::optional<StoredObject> object(const std::string &bucket, const std::string &key);
    nlohmann::json counts();
    /// Forgets exchanges, log, reports and devices.
    void clear();

private:
    struct Finish {
        uint64_t id;
        double durationMs;
        uint64_t answerBytes;
    };
    struct Queue {
        std::vector<Exchange> exchanges;
        std::vector<LogRecord> records;
        std::vector<Report> reports;
        std::vector<Finish> finishes;
        bool isEmpty() const;
    };
    struct Statements;

    void writeQueued();
    void write(const Exchange &exchange);
    void write(const LogRecord &record);
    void write(const Report &report);
    void runWriter();

    std::mutex databaseMutex; ///< taken before queueMutex
    Database database;
    std::unique_ptr<Statements> statements;

    std::mutex queueMutex;
    std::condition_variable queued;
    Queue queue;
    bool ending = false;
    uint64_t lastId = 0;

    std::thread writer;
};

/// The list form of an exchange.
nlohmann::json summaryOf(const Exchange &exchange);
