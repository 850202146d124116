#pragma once

#include <stdexcept>
#include <string>

/// The tool's exit statuses.
enum ExitStatus {
    EXIT_FINE = 0,
    EXIT_CLIENT = 1, ///< the library's 1xx errors
    EXIT_SERVER = 2, ///< its 2xx errors; a file that is not the expected one
    EXIT_NOTHING_NEW = 3,
    EXIT_NETWORK = 4, ///< its 3xx errors
    EXIT_SYSTEM = 5,  ///< its 4xx errors; local files
    EXIT_USAGE = 64,  ///< as in sysexits.h
};

/// Ends the tool with a message for a person.
class Failure : public std::runtime_error
{
public:
    Failure(int status, const std::string &message)
        : std::runtime_error(message), status(status) { }
    const int status;
};
