// The server of the benchmark, a process of its own: does as little as it can.
//
// Usage: bench_server BYTES      of the file that /ra/download gives
//
// Prints its port. For each line on its standard input it prints its counters and starts them anew;
// it ends when its standard input does.

#include "client.h"
#include "counters.h"
#include "pattern.h"
#include "signature.h"

#include <algorithm>
#include <arpa/inet.h>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <netinet/tcp.h>
#include <poll.h>
#include <strings.h>
#include <sys/mman.h>
#include <sys/sendfile.h>
#include <unistd.h>
#include <vector>

namespace
{

Counters counters;
long long downloadBytes = 0;
int patternFile = -1;

struct Request {
    std::string head; ///< with its empty line
    std::string body; ///< as far as it came with the head

    std::string method() const { return head.substr(0, head.find(' ')); }

    std::string target() const
    {
        const std::size_t start = head.find(' ') + 1;
        return head.substr(start, head.find(' ', start) - start);
    }

    std::string header(const std::string &name) const
    {
        for (std::size_t line = head.find("\r\n"); line != std::string::npos;
             line = head.find("\r\n", line + 2)) {
            const char *start = head.c_str() + line + 2;
            if (strncasecmp(start, name.c_str(), name.size()) != 0 || start[name.size()] != ':')
                continue;
            const std::size_t value = head.find_first_not_of(' ', line + 2 + name.size() + 1);
            return head.substr(value, head.find("\r\n", value) - value);
        }
        return {};
    }

    long long contentLength() const { return std::atoll(header("Content-Length").c_str()); }
};

bool sendAll(int fd, const std::string &bytes)
{
    return send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

bool readHead(int fd, Request *request)
{
    char buffer[16 * 1024];
    std::size_t end = std::string::npos;
    while (end == std::string::npos) {
        const ssize_t got = recv(fd, buffer, sizeof buffer, 0);
        if (got <= 0)
            return false;
        request->head.append(buffer, static_cast<std::size_t>(got));
        end = request->head.find("\r\n\r\n");
    }
    request->body = request->head.substr(end + 4);
    request->head.resize(end + 4);
    return true;
}

bool readBody(int fd, Request *request)
{
    char buffer[16 * 1024];
    const auto length = static_cast<std::size_t>(request->contentLength());
    while (request->body.size() < length) {
        const ssize_t got = recv(fd, buffer, sizeof buffer, 0);
        if (got <= 0)
            return false;
        request->body.append(buffer, static_cast<std::size_t>(got));
    }
    return true;
}

bool discardBody(int fd, const Request &request)
{
    constexpr long long PIECE_BYTES = 4 * 1024 * 1024;
    long long left = request.contentLength() - static_cast<long long>(request.body.size());
    while (left > 0) {
        // The kernel drops the bytes without copying them (tcp(7)).
        const ssize_t got =
            recv(fd, nullptr, static_cast<std::size_t>(std::min(left, PIECE_BYTES)), MSG_TRUNC);
        if (got <= 0)
            return false;
        left -= got;
    }
    return true;
}

std::string itemIs(const std::string &items)
{
    const std::size_t start = items.find("is=") + 3;
    return items.substr(start, items.find('&', start) - start);
}

std::string answer(const std::string &type, const std::string &body)
{
    return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size())
        + "\r\nContent-Type: " + type + "\r\n\r\n" + body;
}

std::string grant(const std::string &is)
{
    return answer("text/xml; charset=UTF-8",
                  "<?xml version=\"1.0\" encoding=\"UTF-8\"?><response><is>" + is
                      + "</is><status>1</status><status_code>0</status_code><message>Version 2.0 "
                        "is ready.</message><new_soft_ver>2.0</new_soft_ver></response>");
}

bool serveCheck(int fd, const Request &request)
{
    ++counters.checks;
    return sendAll(fd, grant(itemIs(request.target())));
}

bool serveLog(int fd, Request *request)
{
    if (!readBody(fd, request))
        return false;
    ++counters.logs;
    return sendAll(fd, grant(itemIs(request->body)));
}

bool serveDownload(int fd)
{
    if (!sendAll(fd,
                 "HTTP/1.1 200 OK\r\nContent-Type: application/octet-stream\r\nContent-Length: "
                     + std::to_string(downloadBytes) + "\r\n\r\n"))
        return false;
    const auto blockBytes = static_cast<long long>(patternBlock().size());
    for (long long sent = 0; sent < downloadBytes;) {
        off_t offset = sent % blockBytes;
        const long long piece = std::min(blockBytes - offset, downloadBytes - sent);
        const ssize_t done = sendfile(fd, patternFile, &offset, static_cast<std::size_t>(piece));
        if (done <= 0)
            return false;
        sent += done;
    }
    counters.sentBytes += downloadBytes;
    return true;
}

bool serveUpload(int fd, const Request &request)
{
    if (!discardBody(fd, request))
        return false;
    const std::string text = "PUT\n\n" + request.header("Content-Type") + '\n'
        + request.header("Date") + '\n' + request.target();
    const std::string expected =
        std::string("AWS ") + ACCESS_KEY + ':' + signatureOf(SECRET_KEY, text);
    if (request.header("Authorization") != expected)
        return sendAll(fd, "HTTP/1.1 403 Forbidden\r\nContent-Length: 0\r\n\r\n");
    counters.storedBytes += request.contentLength();
    return sendAll(fd, answer("text/plain", ""));
}

/// Serves one request; false when the connection is to be closed.
bool serve(int fd)
{
    Request request;
    if (!readHead(fd, &request))
        return false;
    const std::string target = request.target();
    const std::string path = target.substr(0, target.find('?'));
    if (request.method() == "PUT")
        return serveUpload(fd, request);
    if (request.method() == "POST")
        return serveLog(fd, &request);
    return path == "/ra/download" ? serveDownload(fd) : serveCheck(fd, request);
}

int listenOnFreePort()
{
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (bind(fd, reinterpret_cast<sockaddr *>(&address), size) != 0 || listen(fd, SOMAXCONN) != 0
        || getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size) != 0)
        return -1;
    std::printf("%d\n", ntohs(address.sin_port));
    std::fflush(stdout);
    return fd;
}

int acceptConnection(int listener)
{
    const int fd = accept(listener, nullptr, nullptr);
    const int on = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return fd;
}

/// False at the end of the input.
bool answerDriver()
{
    char buffer[16];
    if (read(STDIN_FILENO, buffer, sizeof buffer) <= 0)
        return false;
    std::printf("%lld %lld %lld %lld\n", counters.checks, counters.logs, counters.sentBytes,
                counters.storedBytes);
    std::fflush(stdout);
    counters = Counters();
    return true;
}

int makePatternFile()
{
    const std::string block = patternBlock();
    const int fd = memfd_create("pattern", 0);
    return write(fd, block.data(), block.size()) == static_cast<ssize_t>(block.size()) ? fd : -1;
}

void serveAll(int listener)
{
    std::vector<pollfd> polled = {{STDIN_FILENO, POLLIN, 0}, {listener, POLLIN, 0}};
    while (poll(polled.data(), polled.size(), -1) > 0) {
        if (polled[0].revents && !answerDriver())
            return;
        // Backwards, since closed ones are taken out.
        for (std::size_t i = polled.size() - 1; i > 1; --i) {
            if (!polled[i].revents || serve(polled[i].fd))
                continue;
            close(polled[i].fd);
            polled.erase(polled.begin() + static_cast<std::ptrdiff_t>(i));
        }
        if (polled[1].revents)
            polled.push_back({acceptConnection(listener), POLLIN, 0});
    }
}

} // namespace

int main(int argc, char **argv)
{
    downloadBytes = argc == 2 ? std::atoll(argv[1]) : 0;
    if (downloadBytes <= 0) {
        std::fprintf(stderr, "Usage: %s BYTES\n", argv[0]);
        return 64;
    }
    std::signal(SIGPIPE, SIG_IGN); // sendfile() has no flag against it
    patternFile = makePatternFile();
    const int listener = listenOnFreePort();
    if (patternFile < 0 || listener < 0) {
        std::perror(argv[0]);
        return 1;
    }
    serveAll(listener);
    return 0;
}
