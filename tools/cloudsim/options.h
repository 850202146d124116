#pragma once

#include <functional>
#include <string>
#include <vector>

/// What the command line asks for.
struct Options {
    std::string configFile;
    std::string listen = "127.0.0.1";
    int port = 8080;
    std::string tlsCertificate;
    std::string tlsKey;
    std::string dataDirectory;
    bool logs = false;
    std::vector<std::string> faults;
    bool printsConfig = false;

    std::string url;                    ///< of the running simulator that a fault command is for
    std::function<void()> faultCommand; ///< empty: run a simulator
};

const int EXIT_CONFIG = 2;
const int EXIT_USAGE = 64; ///< as in sysexits.h

/// @return true to go on with @p options, false to exit with @p exitStatus
bool readCommandLine(int argc, char **argv, Options &options, int &exitStatus);
