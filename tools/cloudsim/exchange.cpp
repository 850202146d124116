#include "exchange.h"

#include <chrono>
#include <cstdio>
#include <ctime>

int64_t nowMs()
{
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration_cast<std::chrono::milliseconds>(now).count();
}

std::string isoTime(int64_t timeMs)
{
    const std::time_t seconds = static_cast<std::time_t>(timeMs / 1000);
    std::tm utc = {};
    gmtime_r(&seconds, &utc);
    char text[64];
    const size_t size = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &utc);
    std::snprintf(text + size, sizeof text - size, ".%03dZ", static_cast<int>(timeMs % 1000));
    return text;
}
