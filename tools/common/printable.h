#pragma once

#include <string>

/// The text with blanks for control characters, in UTF-8: no byte of the server's or of a file's
/// may steer the terminal.
/// @param kept  control characters that stay
std::string printable(const std::string &text, const char *kept = "");
