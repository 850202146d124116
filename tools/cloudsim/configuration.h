#pragma once

#include "catalogue.h"
#include "faultrule.h"
#include "linedjson.h"

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

/// What the local cloud starts with.
struct Configuration {
    Catalogue catalogue;
    std::vector<FaultRule> faults;

    /// The built-in one.
    static Configuration builtIn();
    /// @param directory  what relative paths of files are relative to
    /// @throw ConfigError
    static Configuration parse(const std::string &text, const std::string &directory);
    /// @throw ConfigError; line 0 when the file cannot be read
    static Configuration read(const std::string &fileName);
    /// The text of the built-in one: a configuration file to begin with.
    static const std::string &builtInText();
};

/// The catalogue as JSON, without the secret keys.
nlohmann::json toJson(const Catalogue &catalogue);
