#pragma once

#include <string>
#include <utility>
#include <vector>

/// Keys and values to set on a handle, in UTF-8, in their order.
using Parameters = std::vector<std::pair<std::string, std::string>>;

/// Those of the configuration file, if one is named, then those of the command line.
/// @throw Failure  EXIT_USAGE for what cannot be set, EXIT_SYSTEM for a file that cannot be read
Parameters readParameters(const std::string &configFile,
                          const std::vector<std::string> &assignments);

/// What the library is given: it takes Latin-1. @throw Failure  EXIT_USAGE when it does not fit;
/// @p what names the text
std::string toLatin1(const std::string &utf8, const std::string &what);
