#pragma once

#include "parameters.h"

#include <string>
#include <vector>

/// Hides secrets in what the tool prints: the S3 secret key and the passwords of proxies.
class Mask
{
public:
    /// Knows no secrets, but the places where they stand.
    Mask() = default;
    explicit Mask(const Parameters &parameters);

    std::string hidden(const std::string &text) const;

private:
    void add(const std::string &secret);

    std::vector<std::string> secrets; ///< as they stand and percent-encoded, longest first
};
