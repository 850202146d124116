#pragma once

#include "connection.h"
#include "exchange.h"
#include "faultbook.h"

#include <chrono>
#include <httplib.h>
#include <vector>

/// What the handler of a request found out about it, for the books.
struct Subject {
    std::string path;
    std::string is;
    std::string product;
    std::string version;
    std::string result;
    QueryItems items;
    std::vector<LogRecord> records;
    std::vector<Report> reports;
    Fault fault;
    uint64_t answerBodyBytes = 0;
};

/// Where exchanges are noted.
class Journal
{
public:
    virtual ~Journal() = default;
    /// The answer is known and about to be sent. @return the exchange's id
    virtual uint64_t begun(Exchange exchange, const Subject &subject) = 0;
    /// It was sent, as far as its fault lets it.
    virtual void ended(Exchange exchange) = 0;
};

/// One exchange on a connection as httplib sees it: keeps the bytes of both directions, notes the
/// exchange before its answer is sent, and sends the answer as its fault wants it.
class ExchangeStream : public httplib::Stream
{
public:
    ExchangeStream(Connection &connection, Journal &journal);

    /// The stream of the exchange that this thread handles.
    static ExchangeStream &current();

    /// The handler's findings; must come before the answer.
    void setSubject(Subject found);
    /// The exchange is no business of the device's: it is neither kept nor faulty.
    void setPassThrough();

    /// Sends what is left. False when the connection must be closed.
    bool finish();

    bool is_readable() const override { return true; }
    bool is_writable() const override { return !broken; }
    ssize_t read(char *out, size_t size) override;
    ssize_t write(const char *data, size_t size) override;
    void get_remote_ip_and_port(std::string &ip, int &port) const override;
    void get_local_ip_and_port(std::string &ip, int &port) const override;
    socket_t socket() const override { return connection.socket(); }

private:
    void begin();
    void send(const char *data, size_t size);
    bool sendPaced(const char *data, size_t size);
    void reachLimit();
    uint64_t limitFor(uint64_t headBytes) const;
    void readRequestLine();

    Connection &connection;
    Journal &journal;
    Subject subject;
    Exchange exchange;
    std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
    bool handled = false; ///< by one of our handlers
    bool passesThrough = false;
    bool begunSending = false;
    bool broken = false;
    std::string pending; ///< the answer so far, until it is sent
    uint64_t limit = 0;  ///< so many bytes of the answer may go out
    uint64_t sentBytes = 0;
};
