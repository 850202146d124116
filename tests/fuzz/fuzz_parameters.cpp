// Keys and values through the C functions: the input's first line is the key, the rest the value.
#include "korrin.h"

#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const bool opened = korrinOpen() == 1;
    const std::string text(reinterpret_cast<const char *>(data), size);
    const size_t end = text.find('\n');
    const std::string key = text.substr(0, end);
    const std::string value = end == std::string::npos ? std::string() : text.substr(end + 1);

    void *handle = korrinCreateHandle();
    if (!opened || !handle)
        std::abort();
    korrinSetParameter(handle, key.c_str(), value.c_str());
    const std::string number = korrinGetParameter(handle, KORRIN_KEY_ERROR_NO);
    if (number != "0" && number != "104")
        std::abort();
    korrinGetParameter(handle, key.c_str());
    if (korrinDisposeHandle(handle) != 1)
        std::abort();
    return 0;
}
