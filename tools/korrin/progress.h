#pragma once

#include <chrono>
#include <cstdint>
#include <string>

/// A bar on standard error, drawn from the library's "(Sending...)" and "(Receiving...)" messages.
/// One thread at a time.
class Progress
{
public:
    /// @param sends  whether sent or received bytes are shown
    explicit Progress(bool sends) : sends(sends) { }

    /// Takes a debug message; what is no progress is ignored.
    void take(const std::string &message);
    /// Removes the bar from the terminal, so that other text can follow.
    void clear();

private:
    void draw(int64_t done, int64_t total);

    const bool sends;
    const std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point lastDrawn;
    bool visible = false;
};

/// "45 % [####      ] 471.0 KiB of 1.0 MiB, 2.3 MiB/s, 1 s left"; a total of zero or less is
/// unknown.
std::string progressText(int64_t done, int64_t total, double seconds);
