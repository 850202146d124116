#pragma once

#include "queryitems.h"

#include <cstdint>
#include <string>

/// One request and its answer, as they were on the wire.
struct Exchange {
    uint64_t id = 0;
    int64_t timeMs = 0;     ///< since 1970, UTC
    double durationMs = -1; ///< negative while it is under way
    std::string client;     ///< "address:port"
    std::string method;
    std::string target; ///< as in the request line
    std::string path;   ///< without the query, decoded
    std::string is;
    std::string product;
    std::string version; ///< of the device's software, where the request tells
    std::string result;  ///< of an update, where the request tells
    QueryItems items;
    int status = 0; ///< 0: no answer was sent
    std::string fault;
    uint64_t requestBytes = 0;
    uint64_t answerBytes = 0;
    std::string request; ///< the first KEPT_BYTES of it
    std::string answer;

    static constexpr size_t KEPT_BYTES = 1024 * 1024;
};

/// A record of a device's cloud log, or the report of an update (its result or its log).
struct LogRecord {
    uint64_t exchange = 0;
    int64_t receivedMs = 0;
    QueryItems items;
};

struct Report {
    uint64_t exchange = 0;
    int64_t receivedMs = 0;
    std::string kind; ///< "result" or "update_log"
    std::string product;
    std::string version;
    std::string result;
    std::string text;
};

/// An uploaded object.
struct StoredObject {
    std::string bucket;
    std::string key;
    std::string contentType;
    std::string etag;
    std::string data;
    int64_t timeMs = 0;
};

int64_t nowMs();
/// "2026-01-31T12:00:00.000Z"
std::string isoTime(int64_t timeMs);
