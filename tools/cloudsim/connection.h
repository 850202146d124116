#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <openssl/ssl.h>
#include <string>
#include <sys/types.h>

/// What a server needs to speak TLS.
class TlsContext
{
public:
    /// @throw std::runtime_error when the files (PEM) do not fit
    TlsContext(const std::string &certificateFile, const std::string &keyFile);

    SSL_CTX *get() const { return context.get(); }

private:
    std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context;
};

/// One accepted connection, plain or TLS; owns neither the socket nor the context. All waiting ends
/// when the socket is shut down from another thread.
class Connection
{
public:
    Connection(int fd, const TlsContext *tls);
    Connection(const Connection &) = delete;
    Connection &operator=(const Connection &) = delete;

    /// Answers the client's TLS handshake, if there is TLS.
    bool open();
    /// Waits for the first byte of a request. False when none came or the peer has gone.
    bool waitForRequest();
    /// @return the bytes read, 0 at the end of the stream, -1 on an error
    ssize_t read(char *out, size_t size);
    /// Writes all of it.
    bool write(const char *data, size_t size);
    /// Lets time pass. False when the connection broke meanwhile.
    bool wait(std::chrono::microseconds time);
    /// Waits for the peer to leave.
    void waitForPeer();
    /// Ends the connection so that the peer gets everything that was written.
    void close();
    /// Ends it with a TCP reset once the socket is closed; close() does nothing then.
    void reset();

    int socket() const { return fd; }
    /// "address:port" of the peer
    std::string peer() const;

private:
    bool fill();

    const int fd;
    std::unique_ptr<SSL, decltype(&SSL_free)> ssl;
    std::string buffer; ///< read from the socket, not yet taken
    size_t position = 0;
    bool resets = false;
};

/// The numeric address and the port of a socket's peer, or of itself.
void addressOf(int fd, bool peer, std::string &address, int &port);
