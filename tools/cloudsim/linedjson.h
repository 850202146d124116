#pragma once

#include <map>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

/// What is wrong with a configuration, and in which line (counted from 1).
class ConfigError : public std::runtime_error
{
public:
    ConfigError(int line, const std::string &what) : std::runtime_error(what), line(line) { }
    const int line;
};

/// A JSON document that knows in which line each of its values stands.
struct LinedJson {
    nlohmann::json document;
    std::map<std::string, int>
        lines; ///< by JSON pointer (RFC 6901); an object's is that of its "{"

    /// @throw ConfigError when @p text is no JSON, or an object holds the same key twice
    static LinedJson parse(const std::string &text);
};
