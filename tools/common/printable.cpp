#include "printable.h"

#include <cstring>

namespace
{

/// U+0080 to U+009F: terminals take some of them for the beginning of a sequence as well.
bool isC1(const std::string &text, size_t at)
{
    return text[at] == '\xc2' && at + 1 < text.size()
        && static_cast<unsigned char>(text[at + 1]) >= 0x80
        && static_cast<unsigned char>(text[at + 1]) < 0xa0;
}

} // namespace

std::string printable(const std::string &text, const char *kept)
{
    std::string result;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        const bool isControl = static_cast<unsigned char>(c) < ' ' || c == '\x7f';
        if (isC1(text, i)) {
            result += ' ';
            ++i;
        } else {
            result += isControl && (c == '\0' || !std::strchr(kept, c)) ? ' ' : c;
        }
    }
    return result;
}
