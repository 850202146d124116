#ifndef KORRIN_TESTS_SCRIPTEDSERVER_H
#define KORRIN_TESTS_SCRIPTEDSERVER_H

#include "httpmessage.h"
#include "rawsocket.h"

#include <atomic>
#include <condition_variable>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <thread>

namespace korrintest
{

/// One accepted connection, as a handler sees it; used on the connection's own thread.
class Connection
{
public:
    Connection(int descriptor, int connectionIndex);

    bool send(const QByteArray &bytes) { return socket.send(bytes); }

    /// Sends @p pieceSize bytes at a time with @p gapMs milliseconds between the pieces.
    bool sendInPieces(const QByteArray &bytes, int pieceSize, int gapMs);

    QByteArray readSome();

    /// Blocks until the peer closes or the server is stopped.
    void stall();
    /// As stall(), at most @p timeoutMs; false when the peer is still there.
    bool waitForPeerClose(int timeoutMs);

    void close() { socket.close(); }
    void reset() { socket.reset(); }
    void shutDown() { socket.shutDown(); }

    /// The head and, if @p readBody, the body of the next request; false when the peer has closed.
    bool readRequest(HttpRequest *request, bool readBody);

    int descriptor() const { return socket.descriptor(); }

    const int index;        ///< 0, 1, 2 … in the order of acceptance
    bool keepAlive = false; ///< set by a handler to wait for another request after it returns
    std::atomic<bool> hasEnded{false}; ///< its thread needs it no more

private:
    bool readUntil(const QByteArray &end, QByteArray *bytes);
    bool readBytes(qint64 count, QByteArray *bytes);
    bool readChunks(QByteArray *body);

    RawSocket socket;
    QByteArray pending; ///< read, but not yet part of a request
};

/// An HTTP server on a free port of 127.0.0.1 whose handler writes raw bytes.
///
/// Ready when constructed. It has threads of its own and no event loop, so it works while the
/// test's thread is blocked in a call. After the handler returns, the connection is closed unless
/// keepAlive is set.
class ScriptedServer
{
public:
    using Handler = std::function<void(Connection &, const HttpRequest &)>;
    using RawHandler = std::function<void(Connection &)>;

    /// The default handler answers 200 with an "is" that echoes the request's. Port 0: a free one.
    explicit ScriptedServer(Handler handler = Handler(), quint16 port = 0);
    ~ScriptedServer();
    ScriptedServer(const ScriptedServer &) = delete;
    ScriptedServer &operator=(const ScriptedServer &) = delete;

    quint16 port() const { return listenPort; }
    QByteArray url(const QByteArray &path = "/") const;

    void setHandler(Handler handler);
    /// Called on acceptance instead, before anything is read.
    void setRawHandler(RawHandler handler);
    /// With false the handler is called after the head, and reads the body itself.
    void setReadsBody(bool readsBody);
    /// Size of the kernel's receive buffer of connections accepted from now on.
    void setReceiveBufferBytes(int bytes);

    QList<HttpRequest> requests() const;
    int requestCount() const { return static_cast<int>(requests().size()); }
    int connectionCount() const;
    bool waitForRequests(int count, int timeoutMs = 10000);
    void clear();

    /// Refuses connections from now on and ends those that are open.
    void stop();
    /// Listens again, on the same port.
    void restart();

private:
    struct Worker {
        std::shared_ptr<Connection> connection;
        std::thread thread;
    };

    void start(quint16 port);
    void acceptConnections();
    void releaseEndedWorkers();
    void serve(const std::shared_ptr<Connection> &connection);
    void record(const HttpRequest &request);

    mutable std::mutex mutex; ///< guards all that follows but the thread and its socket
    std::condition_variable arrived;
    Handler handle;
    RawHandler rawHandle;
    bool readBody = true;
    int receiveBufferBytes = 0;
    int connections = 0;
    QList<HttpRequest> received;
    std::list<Worker> workers;

    int listener = -1;
    quint16 listenPort = 0;
    std::thread acceptor;
};

/// The "is" item of a request's query or form data.
QByteArray requestedIs(const HttpRequest &request);

} // namespace korrintest

#endif
