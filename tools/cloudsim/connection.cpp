#include "connection.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <openssl/err.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/time.h>

namespace
{

using std::chrono::milliseconds;

const size_t BUFFER_BYTES = 64 * 1024;
const milliseconds IDLE_TIMEOUT(15000);
const milliseconds IO_TIMEOUT(60000);
const milliseconds CLOSE_TIMEOUT(500);

/// True when one of @p events came; false on a time-out.
bool pollFor(int fd, short events, milliseconds timeout)
{
    pollfd watched = {fd, events, 0};
    int result;
    do
        result = poll(&watched, 1, static_cast<int>(timeout.count()));
    while (result < 0 && errno == EINTR);
    return result > 0;
}

void setTimeout(int fd, int option, milliseconds timeout)
{
    timeval value = {};
    value.tv_sec = timeout.count() / 1000;
    setsockopt(fd, SOL_SOCKET, option, &value, sizeof value);
}

std::string opensslError()
{
    char text[256];
    ERR_error_string_n(ERR_get_error(), text, sizeof text);
    ERR_clear_error();
    return text;
}

} // namespace

TlsContext::TlsContext(const std::string &certificateFile, const std::string &keyFile)
    : context(SSL_CTX_new(TLS_server_method()), SSL_CTX_free)
{
    if (!context)
        throw std::runtime_error("TLS: " + opensslError());
    if (SSL_CTX_use_certificate_chain_file(context.get(), certificateFile.c_str()) != 1)
        throw std::runtime_error("TLS certificate " + certificateFile + ": " + opensslError());
    if (SSL_CTX_use_PrivateKey_file(context.get(), keyFile.c_str(), SSL_FILETYPE_PEM) != 1)
        throw std::runtime_error("TLS key " + keyFile + ": " + opensslError());
}

Connection::Connection(int fd, const TlsContext *tls) : fd(fd), ssl(nullptr, SSL_free)
{
    setTimeout(fd, SO_RCVTIMEO, IO_TIMEOUT);
    setTimeout(fd, SO_SNDTIMEO, IO_TIMEOUT);
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    if (tls) {
        ssl.reset(SSL_new(tls->get()));
        SSL_set_fd(ssl.get(), fd);
    }
}

bool Connection::open()
{
    const bool done = !ssl || SSL_accept(ssl.get()) == 1;
    ERR_clear_error();
    return done;
}

bool Connection::fill()
{
    buffer.resize(BUFFER_BYTES);
    position = 0;
    ssize_t got;
    if (ssl) {
        got = SSL_read(ssl.get(), buffer.data(), static_cast<int>(buffer.size()));
        ERR_clear_error();
    } else {
        do
            got = recv(fd, buffer.data(), buffer.size(), 0);
        while (got < 0 && errno == EINTR);
    }
    buffer.resize(got > 0 ? static_cast<size_t>(got) : 0);
    return got > 0;
}

bool Connection::waitForRequest()
{
    if (position < buffer.size() || (ssl && SSL_pending(ssl.get()) > 0))
        return true;
    return pollFor(fd, POLLIN, IDLE_TIMEOUT) && fill();
}

ssize_t Connection::read(char *out, size_t size)
{
    if (position == buffer.size() && !fill())
        return 0;
    const size_t take = std::min(size, buffer.size() - position);
    std::memcpy(out, buffer.data() + position, take);
    position += take;
    return static_cast<ssize_t>(take);
}

bool Connection::write(const char *data, size_t size)
{
    while (size > 0) {
        ssize_t sent;
        if (ssl) {
            sent = SSL_write(ssl.get(), data, static_cast<int>(std::min<size_t>(size, INT32_MAX)));
            ERR_clear_error();
        } else {
            sent = send(fd, data, size, MSG_NOSIGNAL);
            if (sent < 0 && errno == EINTR)
                continue;
        }
        if (sent <= 0)
            return false;
        data += sent;
        size -= static_cast<size_t>(sent);
    }
    return true;
}

bool Connection::wait(std::chrono::microseconds time)
{
    // No events are asked for: only an error or a shut-down socket ends the wait early.
    return !pollFor(fd, 0, std::chrono::ceil<milliseconds>(time));
}

void Connection::waitForPeer()
{
    pollFor(fd, POLLRDHUP, milliseconds(-1));
}

void Connection::close()
{
    if (resets)
        return;
    if (ssl) {
        SSL_shutdown(ssl.get());
        ERR_clear_error();
    }
    // Closing a socket with unread data would reset the connection, and the peer could lose what it
    // has not read yet (RFC 9112, section 9.6).
    shutdown(fd, SHUT_WR);
    char unread[4096];
    while (pollFor(fd, POLLIN, CLOSE_TIMEOUT)
           && recv(fd, unread, sizeof unread, MSG_DONTWAIT) > 0) { }
}

void Connection::reset()
{
    const linger none = {1, 0};
    setsockopt(fd, SOL_SOCKET, SO_LINGER, &none, sizeof none);
    resets = true;
}

std::string Connection::peer() const
{
    std::string address;
    int port = 0;
    addressOf(fd, true, address, port);
    const bool isIpv6 = address.find(':') != std::string::npos;
    return (isIpv6 ? "[" + address + "]" : address) + ":" + std::to_string(port);
}

void addressOf(int fd, bool peer, std::string &address, int &port)
{
    sockaddr_storage storage = {};
    socklen_t size = sizeof storage;
    auto *generic = reinterpret_cast<sockaddr *>(&storage);
    char host[NI_MAXHOST] = "";
    char service[NI_MAXSERV] = "0";
    if ((peer ? getpeername(fd, generic, &size) : getsockname(fd, generic, &size)) == 0)
        getnameinfo(generic, size, host, sizeof host, service, sizeof service,
                    NI_NUMERICHOST | NI_NUMERICSERV);
    address = host;
    port = std::atoi(service);
}
