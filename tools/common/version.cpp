#include "version.h"

#include <algorithm>

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
