#pragma once

#include <string>

/// RFC 4648, section 4, with padding.
std::string toBase64(const std::string &bytes);
