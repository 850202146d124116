#pragma once

#include "body.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

/// One update file. Either its bytes are made up (size) or they stand in a file (path).
struct UpdateFile {
    std::string name;
    std::string path;
    uint64_t sizeBytes = 0;

    Body body() const;
};

struct Product {
    std::string number;
    std::string version;
    std::map<std::string, UpdateFile> files; ///< by version
    bool remoteAccess = false;
    std::map<std::string, std::string> messages; ///< by language code

    /// The message in that language, else in English, else @p otherwise.
    std::string message(const std::string &language, const std::string &otherwise) const;
};

/// What the local cloud offers: products, and buckets with the keys that may write to them.
struct Catalogue {
    std::vector<Product> products;
    std::vector<std::string> buckets;
    std::map<std::string, std::string> secretByAccessKey;

    const Product *product(const std::string &number) const;
    /// The file of that name; @p version must fit unless it is empty. An empty name takes the
    /// first file of that version.
    const UpdateFile *file(const std::string &name, const std::string &version) const;
    bool hasBucket(const std::string &name) const;
};
