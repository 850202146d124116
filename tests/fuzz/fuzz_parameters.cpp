// Keys and values through the C functions: the input's first line is the key, the rest the value.
// What was accepted is read back, without the white space around it.
#include "korrin.h"

#include <QString>

#include <cstdint>
#include <cstdlib>
#include <string>

namespace
{

void require(bool condition)
{
    if (!condition)
        std::abort();
}

/// What a text that is handed in as Latin-1 comes out as.
std::string stored(const std::string &text)
{
    return QString::fromLatin1(text.c_str()).trimmed().toUtf8().toStdString();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool opened = korrinOpen() == 1;
    const std::string text(reinterpret_cast<const char *>(data), size);
    const size_t end = text.find('\n');
    const std::string key = text.substr(0, end);
    const std::string value = end == std::string::npos ? std::string() : text.substr(end + 1);

    void *handle = korrinCreateHandle();
    require(opened && handle);
    const bool isAccepted = korrinSetParameter(handle, key.c_str(), value.c_str()) == 1;
    const std::string number = korrinGetParameter(handle, KORRIN_KEY_ERROR_NO);
    require(number == (isAccepted ? "0" : "104"));
    if (isAccepted)
        require(korrinGetParameter(handle, stored(key).c_str()) == stored(value));
    korrinGetParameter(handle, key.c_str());
    require(korrinDisposeHandle(handle) == 1);
    return 0;
}
