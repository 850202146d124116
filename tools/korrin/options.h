#pragma once

#include <string>
#include <vector>

enum class Command { Check, Send, SendFile, Recv, RecvFile, Version, Params, Errors };

/// What the command line asks for.
struct Options {
    Command command = Command::Version;
    std::string commandName;

    std::vector<std::string> parameters; ///< "key=value", "key=@FILE"
    std::string configFile;
    std::string path; ///< of the file to send or receive
    std::string text; ///< to send; "-": standard input
    std::string sha256;
    std::string errorNumber; ///< of the errors command; empty: all

    bool json = false;
    bool trace = false;
    bool quiet = false;
    bool onlyIfNew = false;
    bool checkFirst = false;
};

/// @return true to go on with @p options, false to exit with @p exitStatus
bool readCommandLine(int argc, char **argv, Options &options, int &exitStatus);
