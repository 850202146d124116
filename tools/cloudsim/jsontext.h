#pragma once

#include <nlohmann/json.hpp>
#include <string>

/// JSON in one line. Devices may send any bytes: what is not UTF-8 becomes U+FFFD.
inline std::string jsonText(const nlohmann::json &value)
{
    return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}
