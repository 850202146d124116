#include "books.h"
#include "cloud.h"
#include "configuration.h"
#include "directorylock.h"
#include "options.h"
#include "simserver.h"

#include <csignal>
#include <iostream>
#include <optional>
#include <pthread.h>
#include <sys/resource.h>
#include <thread>

namespace
{

/// The wait for the signals that end the program. They are blocked in every thread, so that only
/// sigwait() takes them.
class EndSignals
{
public:
    EndSignals()
    {
        sigemptyset(&signals);
        sigaddset(&signals, SIGINT);
        sigaddset(&signals, SIGTERM);
        pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    }

    void wait() const
    {
        int signal = 0;
        sigwait(&signals, &signal);
    }

private:
    sigset_t signals;
};

/// A connection is a descriptor: allows as many as the system lets us.
void raiseDescriptorLimit()
{
    rlimit limit = {};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

Configuration configurationFor(const Options &options)
{
    return options.configFile.empty() ? Configuration::builtIn()
                                      : Configuration::read(options.configFile);
}

std::string urlOf(const Options &options, int port)
{
    const bool isIpv6 = options.listen.find(':') != std::string::npos;
    return (options.tlsKey.empty() ? "http://" : "https://")
        + (isIpv6 ? "[" + options.listen + "]" : options.listen) + ":" + std::to_string(port) + "/";
}

int serve(const Options &options, const Configuration &configuration)
{
    const EndSignals end;
    FaultBook faults;
    for (const FaultRule &rule : configuration.faults)
        faults.add(rule);
    for (const std::string &text : options.faults)
        faults.add(FaultRule::fromText(text));
    std::unique_ptr<TlsContext> tls;
    if (!options.tlsKey.empty())
        tls = std::make_unique<TlsContext>(options.tlsCertificate, options.tlsKey);

    std::optional<DirectoryLock> lock;
    if (!options.dataDirectory.empty())
        lock.emplace(options.dataDirectory);
    Store store(options.dataDirectory);
    EventHub events;
    Books books(store, events, options.logs);
    std::unique_ptr<Cloud> cloud;
    SimServer server(
        books,
        [&cloud](const httplib::Request &request, const std::string &body,
                 httplib::Response &response) { cloud->handle(request, body, response); },
        std::move(tls));
    const int port = server.bind(options.listen, options.port);
    const std::string url = urlOf(options, port);
    cloud = std::make_unique<Cloud>(configuration.catalogue, store, faults, events, url,
                                    KORRIN_VERSION);

    std::thread serving([&server] { server.run(); });
    std::cout << url << std::endl;
    end.wait();
    events.end();
    server.end();
    serving.join();
    return 0;
}

int run(const Options &options)
{
    if (options.faultCommand) {
        options.faultCommand();
        return 0;
    }
    if (options.printsConfig) {
        std::cout << Configuration::builtInText();
        return 0;
    }
    try {
        return serve(options, configurationFor(options));
    } catch (const ConfigError &error) {
        std::cerr << "korrin-cloudsim: " << options.configFile << ":"
                  << (error.line > 0 ? std::to_string(error.line) + ":" : "") << " " << error.what()
                  << "\n";
        return EXIT_CONFIG;
    }
}

} // namespace

int main(int argc, char **argv)
{
    Options options;
    int exitStatus = 0;
    if (!readCommandLine(argc, argv, options, exitStatus))
        return exitStatus;
    std::signal(SIGPIPE, SIG_IGN);
    raiseDescriptorLimit();
    try {
        return run(options);
    } catch (const std::invalid_argument &error) {
        std::cerr << "korrin-cloudsim: " << error.what() << "\n";
        return EXIT_USAGE;
    } catch (const std::exception &error) {
        std::cerr << "korrin-cloudsim: " << error.what() << "\n";
        return 1;
    }
}
