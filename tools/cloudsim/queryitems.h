#pragma once

#include <string>
#include <utility>
#include <vector>

/// The items of a URL-encoded query, decoded, in their order.
class QueryItems
{
public:
    QueryItems() = default;
    /// "a=1&b=%41": items are parted by "&", keys end at the first "="; "+" stays a plus sign, as
    /// the devices mean it. A line break at the end, which kept log records carry, is left out.
    explicit QueryItems(std::string query);

    /// The first value of that key; empty when there is none.
    std::string value(const std::string &key) const;
    const std::vector<std::pair<std::string, std::string>> &all() const { return items; }

private:
    std::vector<std::pair<std::string, std::string>> items;
};
