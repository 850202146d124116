#include "rawsocket.h"

#include <arpa/inet.h>
#include <cstdlib>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace korrintest
{

namespace
{

sockaddr_in loopback(quint16 port)
{
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(port);
    return address;
}

sockaddr *generic(sockaddr_in *address)
{
    return reinterpret_cast<sockaddr *>(address);
}

} // namespace

RawSocket::RawSocket(int descriptor) : fd(descriptor)
{
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

RawSocket::~RawSocket()
{
    ::close(fd);
}

bool RawSocket::send(const QByteArray &bytes)
{
    qint64 sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count = ::send(fd, bytes.constData() + sent,
                                     static_cast<size_t>(bytes.size() - sent), MSG_NOSIGNAL);
        if (count <= 0)
            return false;
        sent += count;
    }
    return true;
}

QByteArray RawSocket::readSome()
{
    char buffer[65536];
    const ssize_t count = recv(fd, buffer, sizeof buffer, 0);
    return count > 0 ? QByteArray(buffer, static_cast<int>(count)) : QByteArray();
}

void RawSocket::close()
{
    ::shutdown(fd, SHUT_WR);
    while (!readSome().isEmpty()) { }
}

void RawSocket::reset()
{
    const linger now = {1, 0};
    setsockopt(fd, SOL_SOCKET, SO_LINGER, &now, sizeof now);
    // The reset goes out when the last descriptor is closed, so put another file in its place.
    const int placeholder = socket(AF_INET, SOCK_STREAM, 0);
    dup2(placeholder, fd);
    ::close(placeholder);
}

void RawSocket::shutDown()
{
    ::shutdown(fd, SHUT_RDWR);
}

int listenOn(quint16 port)
{
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address = loopback(port);
    if (bind(fd, generic(&address), sizeof address) != 0 || listen(fd, 256) != 0)
        std::abort();
    return fd;
}

quint16 portOf(int descriptor)
{
    sockaddr_in address = {};
    socklen_t size = sizeof address;
    getsockname(descriptor, generic(&address), &size);
    return ntohs(address.sin_port);
}

int connectTo(quint16 port)
{
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(port);
    if (connect(fd, generic(&address), sizeof address) == 0)
        return fd;
    ::close(fd);
    return -1;
}

RefusingPort::RefusingPort() : fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    // Bound, but not listening.
    sockaddr_in address = loopback(0);
    if (bind(fd, generic(&address), sizeof address) != 0)
        std::abort();
}

RefusingPort::~RefusingPort()
{
    ::close(fd);
}

} // namespace korrintest
