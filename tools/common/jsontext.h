#pragma once

#include <nlohmann/json.hpp>
#include <string>

/// JSON in one line. Texts from the other side may hold any bytes: what is not UTF-8 becomes
/// U+FFFD.
template <typename Json>
std::string jsonText(const Json &value)
{
    return value.dump(-1, ' ', false, Json::error_handler_t::replace);
}
