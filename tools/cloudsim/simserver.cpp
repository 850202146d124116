#include "simserver.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <netdb.h>
#include <stdexcept>
#include <sys/socket.h>
#include <system_error>
#include <thread>
#include <unistd.h>

namespace
{

const int BACKLOG = 1024;

/// A thread per connection.
class ConnectionThreads : public httplib::TaskQueue
{
public:
    void enqueue(std::function<void()> serve) override
    {
        {
            std::lock_guard locker(mutex);
            ++running;
        }
        try {
            std::thread([this, serve] {
                serve();
                leave();
            }).detach();
        } catch (const std::system_error &) {
            // No more threads: the other connections wait meanwhile.
            serve();
            leave();
        }
    }

    void shutdown() override
    {
        std::unique_lock locker(mutex);
        left.wait(locker, [this] { return running == 0; });
    }

private:
    void leave()
    {
        // Notifies under the lock: once the last thread has let go of it, the object may be gone.
        std::lock_guard locker(mutex);
        --running;
        left.notify_all();
    }

    std::mutex mutex;
    std::condition_variable left;
    int running = 0;
};

/// RFC 9112, section 6.3: without these headers a request has no body.
bool hasBody(const httplib::Request &request)
{
    return request.has_header("Transfer-Encoding")
        || request.get_header_value("Content-Length", 0) != "";
}

/// @return false when the body breaks off or cannot be decoded
bool readBody(const httplib::Request &request, const httplib::ContentReader &reader,
              std::string &body)
{
    return !hasBody(request) || reader([&](const char *data, size_t size) {
        body.append(data, size);
        return true;
    });
}

/// Why listening failed: the address cannot be found, or @p error of the last system call.
std::string reasonFor(const std::string &address, int error)
{
    addrinfo *found = nullptr;
    const int status = getaddrinfo(address.c_str(), nullptr, nullptr, &found);
    if (status != 0)
        return gai_strerror(status);
    freeaddrinfo(found);
    return std::strerror(error);
}

} // namespace

SimServer::SimServer(Journal &journal, RequestHandler handler, std::unique_ptr<TlsContext> tls)
    : journal(journal), handler(std::move(handler)), tls(std::move(tls))
{
    new_task_queue = [] { return new ConnectionThreads; };
    // httplib's own choice lets a second simulator share the port, and take half of the requests.
    set_socket_options([](socket_t fd) {
        const int on = 1;
        setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    });
    route();
}

void SimServer::route()
{
    const char everything[] = R"([\s\S]*)";
    const auto plain = [this](const httplib::Request &request, httplib::Response &response) {
        handler(request, request.body, response);
    };
    const auto withBody = [this](const httplib::Request &request, httplib::Response &response,
                                 const httplib::ContentReader &reader) {
        std::string body;
        if (readBody(request, reader, body)) {
            handler(request, body, response);
        } else {
            response.status = std::max(response.status, 400);
            response.set_content("The body is not complete.\n", "text/plain; charset=UTF-8");
        }
    };
    Get(everything, plain); // and HEAD
    Options(everything, plain);
    Post(everything, withBody);
    Put(everything, withBody);
    Patch(everything, withBody);
    Delete(everything, withBody);
}

int SimServer::bind(const std::string &address, int port)
{
    const int bound = port == 0       ? bind_to_any_port(address)
        : bind_to_port(address, port) ? port
                                      : -1;
    const int error = errno;
    if (bound <= 0)
        throw std::runtime_error("cannot listen on " + address + " port " + std::to_string(port)
                                 + ": " + reasonFor(address, error));
    // httplib's own queue of connections is too short for many clients at once.
    ::listen(svr_sock_, BACKLOG);
    return bound;
}

void SimServer::run()
{
    listen_after_bind();
    hasRun = true;
}

void SimServer::end()
{
    // httplib's stop() does nothing before it listens.
    while (!is_running() && !hasRun)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    stop();
    std::lock_guard locker(mutex);
    ending = true;
    for (const int fd : sockets)
        shutdown(fd, SHUT_RDWR);
}

bool SimServer::process_and_close_socket(socket_t fd)
{
    {
        std::lock_guard locker(mutex);
        if (ending) {
            close(fd);
            return false;
        }
        sockets.insert(fd);
    }
    {
        Connection connection(fd, tls.get());
        if (connection.open())
            serve(connection);
    }
    std::lock_guard locker(mutex);
    sockets.erase(fd);
    close(fd);
    return true;
}

void SimServer::serve(Connection &connection)
{
    bool goesOn = true;
    while (goesOn && connection.waitForRequest()) {
        ExchangeStream stream(connection, journal);
        bool closed = false;
        const bool done = process_request(stream, false, closed, [](httplib::Request &request) {
            // Answers are never compressed: what stands in the books is what a person can read.
            request.headers.erase("Accept-Encoding");
        });
        goesOn = stream.finish() && done && !closed;
    }
    connection.close();
}
