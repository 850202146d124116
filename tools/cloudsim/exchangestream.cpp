#include "exchangestream.h"

#include <algorithm>
#include <cstdlib>

namespace
{

const uint64_t NO_LIMIT = UINT64_MAX;
const int SLICES_PER_SECOND = 20;

thread_local ExchangeStream *currentStream = nullptr;

/// RFC 9110, section 15.2.1: not the answer yet, but the client's body waits for it.
bool isContinue(const char *data, size_t size)
{
    const std::string head = "HTTP/1.1 100 ";
    return size >= head.size() && head.compare(0, head.size(), data, head.size()) == 0;
}

/// "HTTP/1.1 200 OK": 200
int statusOf(const std::string &answer)
{
    const size_t blank = answer.find(' ');
    return blank == std::string::npos ? 0 : std::atoi(answer.c_str() + blank + 1);
}

} // namespace

ExchangeStream::ExchangeStream(Connection &connection, Journal &journal)
    : connection(connection), journal(journal)
{
    exchange.timeMs = nowMs();
    currentStream = this;
}

ExchangeStream &ExchangeStream::current()
{
    return *currentStream;
}

void ExchangeStream::setSubject(Subject found)
{
    subject = std::move(found);
    handled = true;
}

void ExchangeStream::setPassThrough()
{
    passesThrough = true;
    handled = true;
}

ssize_t ExchangeStream::read(char *out, size_t size)
{
    const ssize_t got = connection.read(out, size);
    if (got > 0) {
        const size_t count = static_cast<size_t>(got);
        const size_t room = Exchange::KEPT_BYTES - exchange.request.size();
        exchange.request.append(out, std::min(count, room));
        exchange.requestBytes += count;
    }
    return got;
}

ssize_t ExchangeStream::write(const char *data, size_t size)
{
    if (passesThrough || (pending.empty() && isContinue(data, size))) {
        broken = broken || !connection.write(data, size);
    } else if (begunSending) {
        send(data, size);
    } else {
        pending.append(data, size);
        if (pending.size() > Exchange::KEPT_BYTES)
            begin();
    }
    return broken ? -1 : static_cast<ssize_t>(size);
}

bool ExchangeStream::finish()
{
    if (passesThrough || exchange.requestBytes == 0)
        return !broken;
    if (!begunSending)
        begin();
    const std::chrono::duration<double, std::milli> duration =
        std::chrono::steady_clock::now() - start;
    exchange.durationMs = duration.count();
    exchange.answerBytes = sentBytes;
    journal.ended(exchange);
    // What httplib refused by itself was no HTTP: where the next request begins is not known.
    return !broken && handled;
}

/// Notes the exchange, then lets the answer go, so that whoever has the answer finds it noted.
void ExchangeStream::begin()
{
    begunSending = true;
    const size_t headEnd = pending.find("\r\n\r\n");
    limit = limitFor(headEnd == std::string::npos ? pending.size() : headEnd + 4);

    readRequestLine();
    exchange.client = connection.peer();
    exchange.path = subject.path;
    exchange.is = subject.is;
    exchange.product = subject.product;
    exchange.version = subject.version;
    exchange.result = subject.result;
    exchange.items = subject.items;
    exchange.fault = subject.fault.kinds;
    exchange.status = limit == 0 ? 0 : statusOf(pending);
    const uint64_t kept = std::min<uint64_t>(limit, Exchange::KEPT_BYTES);
    exchange.answer = pending.substr(0, static_cast<size_t>(kept));
    exchange.answerBytes = std::min<uint64_t>(limit, pending.size());
    exchange.id = journal.begun(exchange, subject);

    if (subject.fault.delayMs > 0
        && !connection.wait(std::chrono::milliseconds(subject.fault.delayMs)))
        broken = true;
    const std::string answer = std::move(pending);
    send(answer.data(), answer.size());
}

/// How much of the answer the fault lets through.
uint64_t ExchangeStream::limitFor(uint64_t headBytes) const
{
    const Fault &fault = subject.fault;
    uint64_t result = NO_LIMIT;
    if (fault.cuts)
        result = headBytes + fault.cutAfterBytes.value_or(subject.answerBodyBytes / 2);
    if (fault.stalls && fault.stallsInBody)
        result = std::min(result, headBytes + subject.answerBodyBytes / 2);
    if (fault.closes || fault.resets || (fault.stalls && !fault.stallsInBody))
        result = 0;
    return result;
}

void ExchangeStream::send(const char *data, size_t size)
{
    if (broken)
        return;
    const size_t allowed = static_cast<size_t>(std::min<uint64_t>(size, limit - sentBytes));
    if (!sendPaced(data, allowed))
        broken = true;
    else if (allowed < size)
        reachLimit();
}

bool ExchangeStream::sendPaced(const char *data, size_t size)
{
    const uint64_t speed = subject.fault.bytesPerSecond;
    const size_t slice =
        speed == 0 ? size : static_cast<size_t>(std::max<uint64_t>(1, speed / SLICES_PER_SECOND));
    while (size > 0) {
        const size_t count = std::min(slice, size);
        if (!connection.write(data, count))
            return false;
        sentBytes += count;
        data += count;
        size -= count;
        if (speed > 0 && !connection.wait(std::chrono::microseconds(1000000 * count / speed)))
            return false;
    }
    return true;
}

void ExchangeStream::reachLimit()
{
    broken = true;
    if (subject.fault.stalls)
        connection.waitForPeer();
    if (subject.fault.resets)
        connection.reset();
}

/// From the bytes themselves: httplib refuses some requests before any handler sees them.
void ExchangeStream::readRequestLine()
{
    const std::string line = exchange.request.substr(0, exchange.request.find_first_of("\r\n"));
    const size_t first = std::min(line.find(' '), line.size());
    const size_t last = std::min(line.rfind(' '), line.size());
    exchange.method = line.substr(0, first);
    if (last > first)
        exchange.target = line.substr(first + 1, last - first - 1);
    if (subject.path.empty())
        subject.path = exchange.target.substr(0, exchange.target.find('?'));
}

void ExchangeStream::get_remote_ip_and_port(std::string &ip, int &port) const
{
    addressOf(connection.socket(), true, ip, port);
}

void ExchangeStream::get_local_ip_and_port(std::string &ip, int &port) const
{
    addressOf(connection.socket(), false, ip, port);
}
