#pragma once

#include "exchangestream.h"

#include <atomic>
#include <functional>
#include <httplib.h>
#include <memory>
#include <mutex>
#include <set>

/// Takes a request and fills in its answer; @p body is empty when the request has none.
using RequestHandler = std::function<void(const httplib::Request &request, const std::string &body,
                                          httplib::Response &response)>;

/// The HTTP server: httplib's, on connections of our own that keep their bytes and can break.
/// Each connection has a thread, since a stalled one must not hold up another.
class SimServer : private httplib::Server
{
public:
    SimServer(Journal &journal, RequestHandler handler, std::unique_ptr<TlsContext> tls);

    /// @param port  0 takes a free one. @return the port. @throw std::runtime_error
    int bind(const std::string &address, int port);
    /// Serves until end() is called.
    void run();
    /// Ends run() and every connection; from another thread than run()'s, once.
    void end();

private:
    bool process_and_close_socket(socket_t fd) override;
    void serve(Connection &connection);
    void route();

    Journal &journal;
    const RequestHandler handler;
    const std::unique_ptr<TlsContext> tls;

    std::mutex mutex;
    std::set<int> sockets; ///< of the open connections
    bool ending = false;
    std::atomic<bool> hasRun{false};
};
