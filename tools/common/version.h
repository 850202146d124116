#pragma once

#include <string>

/// True when @p version comes after @p other: runs of digits compare as numbers, the rest byte by
/// byte, so that "1.10" comes after "1.9".
bool isNewerVersion(const std::string &version, const std::string &other);
