#include "catalogue.h"

#include <algorithm>
#include <functional>

Body UpdateFile::body() const
{
    return path.empty() ? Body::madeUp(sizeBytes, std::hash<std::string>()(name))
                        : Body::fromFile(path);
}

std::string Product::message(const std::string &language, const std::string &otherwise) const
{
    for (const std::string &candidate : {language, std::string("en")}) {
        const auto found = messages.find(candidate);
        if (found != messages.end())
            return found->second;
    }
    return otherwise;
}

const Product *Catalogue::product(const std::string &number) const
{
    const auto found = std::find_if(products.begin(), products.end(),
                                    [&](const Product &p) { return p.number == number; });
    return found == products.end() ? nullptr : &*found;
}

const UpdateFile *Catalogue::file(const std::string &name, const std::string &version) const
{
    for (const Product &product : products) {
        for (const auto &[fileVersion, file] : product.files) {
            if ((file.name == name || (name.empty() && !version.empty()))
                && (version.empty() || version == fileVersion))
                return &file;
        }
    }
    return nullptr;
}

bool Catalogue::hasBucket(const std::string &name) const
{
    return std::find(buckets.begin(), buckets.end(), name) != buckets.end();
}
