#pragma once

#include <string>

/// Those of the tool and the library, in one line.
std::string versions();

/// The commands that only print what the tool knows. Each returns the exit status.
int printVersions();
int printParameters();
/// @param number  empty: all. @throw Failure  EXIT_USAGE for what is no error's number
int printErrors(const std::string &number);
