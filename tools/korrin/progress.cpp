#include "progress.h"

#include <cstdio>

namespace
{

const int BAR_CHARACTERS = 24;
const std::chrono::milliseconds DRAW_INTERVAL(100);

/// "1.0 MiB"
std::string amount(double bytes)
{
    const char *const units[] = {"B", "KiB", "MiB", "GiB"};
    size_t unit = 0;
    while (bytes >= 1024 && unit < 3) {
        bytes /= 1024;
        ++unit;
    }
    char text[32];
    std::snprintf(text, sizeof text, unit == 0 ? "%.0f %s" : "%.1f %s", bytes, units[unit]);
    return text;
}

} // namespace

std::string progressText(int64_t done, int64_t total, double seconds)
{
    const double rate = seconds > 0 ? static_cast<double>(done) / seconds : 0;
    const std::string speed = amount(rate) + "/s";
    if (total <= 0)
        return amount(static_cast<double>(done)) + ", " + speed;

    const double part = static_cast<double>(done) / static_cast<double>(total);
    const int filled = static_cast<int>(part * BAR_CHARACTERS);
    char percent[16];
    std::snprintf(percent, sizeof percent, "%3d %% [", static_cast<int>(part * 100));
    std::string text = percent + std::string(static_cast<size_t>(filled), '#')
        + std::string(static_cast<size_t>(BAR_CHARACTERS - filled), ' ') + "] "
        + amount(static_cast<double>(done)) + " of " + amount(static_cast<double>(total)) + ", "
        + speed;
    if (rate > 0 && done < total) {
        const double left = static_cast<double>(total - done) / rate;
        text += ", " + std::to_string(static_cast<int64_t>(left + 1)) + " s left";
    }
    return text;
}

void Progress::take(const std::string &message)
{
    const std::string head = sends ? "(Sending...) " : "(Receiving...) ";
    if (message.compare(0, head.size(), head) != 0)
        return;
    long long done = 0;
    long long total = 0;
    // Qt sends 0/0 when an upload's answer arrives.
    if (std::sscanf(message.c_str() + head.size(), "%lld/%lld byte", &done, &total) == 2
        && done > 0)
        draw(done, done > total ? 0 : total);
}

void Progress::draw(int64_t done, int64_t total)
{
    const auto now = std::chrono::steady_clock::now();
    if (visible && done != total && now - lastDrawn < DRAW_INTERVAL)
        return;
    lastDrawn = now;
    visible = true;
    const std::chrono::duration<double> elapsed = now - start;
    std::fprintf(stderr, "\r%s\033[K", progressText(done, total, elapsed.count()).c_str());
}

void Progress::clear()
{
    if (visible)
        std::fputs("\r\033[K", stderr);
    visible = false;
}
