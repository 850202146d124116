#pragma once

#include <string>
#include <vector>

/// One parameter of a handle.
struct Key {
    const char *name;
    bool settable; ///< by the host; else a result that the library sets
    const char *unit;
    const char *defaultValue;
    const char *meaning;
};

/// All of them, those that the host sets first.
const std::vector<Key> &allKeys();

/// @return null for an unknown name
const Key *findKey(const std::string &name);

/// The settable key whose name is nearest to @p name, for a suggestion.
const Key &nearestKey(const std::string &name);
