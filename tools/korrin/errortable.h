#pragma once

#include <vector>

/// What an error number means to a person.
struct ErrorDescription {
    int number;
    const char *text;
    const char *cause;
    const char *remedy;
};

const std::vector<ErrorDescription> &allErrors();

/// @return null for an unknown number
const ErrorDescription *findError(int number);
