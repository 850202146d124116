#include "catalogue.h"

#include <algorithm>
#include <functional>

namespace
{

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

/// The run of digits, without leading zeroes, that begins at @p position, which moves behind it.
std::string number(const std::string &text, size_t &position)
{
    const size_t begin = position;
    while (position < text.size() && isDigit(text[position]))
        ++position;
    const std::string digits = text.substr(begin, position - begin);
    return digits.substr(std::min(digits.find_first_not_of('0'), digits.size()));
}

} // namespace

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

bool isNewerVersion(const std::string &version, const std::string &other)
{
    size_t i = 0;
    size_t k = 0;
    while (i < version.size() && k < other.size()) {
        if (isDigit(version[i]) && isDigit(other[k])) {
            const std::string a = number(version, i);
            const std::string b = number(other, k);
            if (a != b)
                return a.size() != b.size() ? a.size() > b.size() : a > b;
        } else {
            if (version[i] != other[k])
                return static_cast<unsigned char>(version[i])
                    > static_cast<unsigned char>(other[k]);
            ++i;
            ++k;
        }
    }
    return i < version.size();
}
