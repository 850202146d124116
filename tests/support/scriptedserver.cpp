#include "scriptedserver.h"

#include <chrono>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace korrintest
{

namespace
{

void echo(Connection &connection, const HttpRequest &request)
{
    connection.send(xmlAnswer(requestedIs(request)));
}

} // namespace

Connection::Connection(int descriptor, int connectionIndex)
    : index(connectionIndex), socket(descriptor)
{
}

bool Connection::sendInPieces(const QByteArray &bytes, int pieceSize, int gapMs)
{
    for (int i = 0; i < bytes.size(); i += pieceSize) {
        if (i > 0 && waitForPeerClose(gapMs))
            return false;
        if (!send(bytes.mid(i, pieceSize)))
            return false;
    }
    return true;
}

QByteArray Connection::readSome()
{
    if (pending.isEmpty())
        return socket.readSome();
    const QByteArray bytes = pending;
    pending.clear();
    return bytes;
}

void Connection::stall()
{
    while (!socket.readSome().isEmpty()) { }
}

bool Connection::waitForPeerClose(int timeoutMs)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            end - std::chrono::steady_clock::now());
        pollfd state = {socket.descriptor(), POLLIN, 0};
        if (left.count() <= 0 || poll(&state, 1, static_cast<int>(left.count())) == 0)
            return false;
        const QByteArray bytes = socket.readSome();
        if (bytes.isEmpty())
            return true;
        pending += bytes;
    }
}

bool Connection::readUntil(const QByteArray &end, QByteArray *bytes)
{
    while (!pending.contains(end)) {
        const QByteArray more = socket.readSome();
        if (more.isEmpty())
            return false;
        pending += more;
    }
    const int size = static_cast<int>(pending.indexOf(end) + end.size());
    *bytes = pending.left(size);
    pending.remove(0, size);
    return true;
}

bool Connection::readBytes(qint64 count, QByteArray *bytes)
{
    while (pending.size() < count) {
        const QByteArray more = socket.readSome();
        if (more.isEmpty())
            return false;
        pending += more;
    }
    *bytes = pending.left(static_cast<int>(count));
    pending.remove(0, static_cast<int>(count));
    return true;
}

bool Connection::readChunks(QByteArray *body)
{
    for (;;) {
        QByteArray line;
        QByteArray chunk;
        if (!readUntil("\r\n", &line))
            return false;
        const qint64 size = line.trimmed().toLongLong(nullptr, 16);
        if (!readBytes(size + 2, &chunk))
            return false;
        if (size == 0)
            return true;
        *body += chunk.left(static_cast<int>(size));
    }
}

bool Connection::readRequest(HttpRequest *request, bool readBody)
{
    QByteArray head;
    if (!readUntil("\r\n\r\n", &head))
        return false;
    *request = parseHead(head);
    request->connection = index;
    if (!readBody)
        return true;
    if (request->header("Transfer-Encoding").toLower() == "chunked")
        return readChunks(&request->body);
    return readBytes(request->header("Content-Length").toLongLong(), &request->body);
}

ScriptedServer::ScriptedServer(Handler handler, quint16 port)
    : handle(handler ? std::move(handler) : echo)
{
    start(port);
}

ScriptedServer::~ScriptedServer()
{
    stop();
}

QByteArray ScriptedServer::url(const QByteArray &path) const
{
    return "http://127.0.0.1:" + QByteArray::number(listenPort) + path;
}

void ScriptedServer::setHandler(Handler handler)
{
    const std::lock_guard<std::mutex> lock(mutex);
    handle = std::move(handler);
}

void ScriptedServer::setRawHandler(RawHandler handler)
{
    const std::lock_guard<std::mutex> lock(mutex);
    rawHandle = std::move(handler);
}

void ScriptedServer::setReadsBody(bool readsBody)
{
    const std::lock_guard<std::mutex> lock(mutex);
    readBody = readsBody;
}

void ScriptedServer::setReceiveBufferBytes(int bytes)
{
    const std::lock_guard<std::mutex> lock(mutex);
    receiveBufferBytes = bytes;
    // Accepted sockets inherit it; it must be set before the window is negotiated.
    setsockopt(listener, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
}

QList<HttpRequest> ScriptedServer::requests() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return received;
}

int ScriptedServer::connectionCount() const
{
    const std::lock_guard<std::mutex> lock(mutex);
    return connections;
}

bool ScriptedServer::waitForRequests(int count, int timeoutMs)
{
    std::unique_lock<std::mutex> lock(mutex);
    return arrived.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                            [this, count] { return received.size() >= count; });
}

void ScriptedServer::clear()
{
    const std::lock_guard<std::mutex> lock(mutex);
    received.clear();
    connections = 0;
}

void ScriptedServer::start(quint16 port)
{
    listener = listenOn(port);
    listenPort = portOf(listener);
    acceptor = std::thread(&ScriptedServer::acceptConnections, this);
}

void ScriptedServer::stop()
{
    if (listener < 0)
        return;
    ::shutdown(listener, SHUT_RDWR);
    acceptor.join();
    ::close(listener);
    listener = -1;

    std::unique_lock<std::mutex> lock(mutex);
    std::list<Worker> ending = std::move(workers);
    workers.clear();
    lock.unlock();
    for (Worker &worker : ending)
        worker.connection->shutDown();
    for (Worker &worker : ending)
        worker.thread.join();
}

void ScriptedServer::restart()
{
    start(listenPort);
}

void ScriptedServer::acceptConnections()
{
    for (;;) {
        const int fd = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0)
            return;
        const std::lock_guard<std::mutex> lock(mutex);
        releaseEndedWorkers();
        const auto connection = std::make_shared<Connection>(fd, connections++);
        workers.push_back({connection, std::thread([this, connection] {
                               serve(connection);
                               connection->hasEnded = true;
                           })});
    }
}

/// Gives back threads and sockets, so that a server may live for any number of connections.
void ScriptedServer::releaseEndedWorkers()
{
    workers.remove_if([](Worker &worker) {
        if (!worker.connection->hasEnded)
            return false;
        worker.thread.join();
        return true;
    });
}

void ScriptedServer::serve(const std::shared_ptr<Connection> &connection)
{
    std::unique_lock<std::mutex> lock(mutex);
    const RawHandler rawHandler = rawHandle;
    const bool readsBody = readBody;
    lock.unlock();

    if (rawHandler) {
        rawHandler(*connection);
        connection->close();
        return;
    }
    HttpRequest request;
    while (connection->readRequest(&request, readsBody)) {
        record(request);
        lock.lock();
        const Handler handler = handle;
        lock.unlock();
        connection->keepAlive = false;
        handler(*connection, request);
        if (!connection->keepAlive) {
            connection->close();
            return;
        }
        request = HttpRequest();
    }
    connection->close();
}

void ScriptedServer::record(const HttpRequest &request)
{
    const std::lock_guard<std::mutex> lock(mutex);
    received.append(request);
    arrived.notify_all();
}

QByteArray requestedIs(const HttpRequest &request)
{
    const QByteArray data = request.method == "GET" ? request.query() : request.body;
    const QByteArray is = formValue(data, "is");
    return is.isNull() ? QByteArray("") : is;
}

} // namespace korrintest
