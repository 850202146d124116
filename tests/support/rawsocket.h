#ifndef KORRIN_TESTS_RAWSOCKET_H
#define KORRIN_TESTS_RAWSOCKET_H

#include <QByteArray>

#include <atomic>

namespace korrintest
{

/// One connected TCP socket, owned; bytes in and out. shutDown() may come from another thread.
class RawSocket
{
public:
    explicit RawSocket(int descriptor);
    ~RawSocket();
    RawSocket(const RawSocket &) = delete;
    RawSocket &operator=(const RawSocket &) = delete;

    /// Sends all of it; false when the peer is gone.
    bool send(const QByteArray &bytes);

    /// Blocks until something arrives; empty when the peer has closed.
    QByteArray readSome();

    /// Sends what is left, then an orderly end; waits for the peer's.
    void close();

    /// Ends the connection with a reset.
    void reset();

    /// Wakes whoever blocks on the socket.
    void shutDown();

    int descriptor() const { return fd; }

private:
    std::atomic<int> fd;
};

/// A listening socket on 127.0.0.1; @p port 0 takes a free one.
int listenOn(quint16 port);
quint16 portOf(int descriptor);

/// Connects to 127.0.0.1; -1 when refused.
int connectTo(quint16 port);

/// A port of 127.0.0.1 that refuses connections and that nobody else can take meanwhile.
class RefusingPort
{
public:
    RefusingPort();
    ~RefusingPort();
    Q_DISABLE_COPY(RefusingPort)

    quint16 number() const { return portOf(fd); }
    /// "127.0.0.1:port"
    QByteArray authority() const { return "127.0.0.1:" + QByteArray::number(number()); }

private:
    const int fd;
};

} // namespace korrintest

#endif
