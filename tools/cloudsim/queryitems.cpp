#include "queryitems.h"

#include <algorithm>

namespace
{

int hexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

/// RFC 3986, section 2.1; what is no escape stays as it is.
std::string percentDecoded(const std::string &text)
{
    std::string result;
    for (size_t i = 0; i < text.size(); ++i) {
        const int high = text[i] == '%' && i + 2 < text.size() ? hexDigit(text[i + 1]) : -1;
        const int low = high >= 0 ? hexDigit(text[i + 2]) : -1;
        if (low >= 0) {
            result += static_cast<char>(high * 16 + low);
            i += 2;
        } else {
            result += text[i];
        }
    }
    return result;
}

} // namespace

QueryItems::QueryItems(std::string query)
{
    while (!query.empty() && (query.back() == '\n' || query.back() == '\r'))
        query.pop_back();
    for (size_t begin = 0; begin < query.size();) {
        const size_t end = std::min(query.find('&', begin), query.size());
        const std::string item = query.substr(begin, end - begin);
        const size_t equals = std::min(item.find('='), item.size());
        const std::string value = equals < item.size() ? item.substr(equals + 1) : std::string();
        if (!item.empty())
            items.emplace_back(percentDecoded(item.substr(0, equals)), percentDecoded(value));
        begin = end + 1;
    }
}

std::string QueryItems::value(const std::string &key) const
{
    for (const auto &[name, value] : items) {
        if (name == key)
            return value;
    }
    return {};
}
