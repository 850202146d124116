#pragma once

#include <nlohmann/json.hpp>
#include <string>

/// Takes a log record's settings summary apart: "http_proxy:…,https_proxy:…,…" in the order in
/// which devices write it; values may hold commas and colons. What does not have that form is
/// returned whole, under "".
nlohmann::json settingsFromSummary(const std::string &summary);
