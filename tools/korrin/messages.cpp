#include "messages.h"

#include "printable.h"

#include <QString>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <mutex>
#include <string_view>

namespace
{

std::mutex mutex; // guards what follows, and the object
Messages *current = nullptr;

void handle(QtMsgType, const QMessageLogContext &, const QString &message)
{
    std::lock_guard locker(mutex);
    if (current)
        current->take(message.toStdString());
}

/// Composed messages come in quotes, with a blank behind.
std::string plain(std::string_view message)
{
    while (!message.empty() && message.back() == ' ')
        message.remove_suffix(1);
    if (message.size() >= 2 && message.front() == '"' && message.back() == '"')
        message = message.substr(1, message.size() - 2);
    return std::string(message);
}

/// "12:34:56.789"
std::string timeStamp()
{
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto sinceEpoch =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch());
    std::tm local = {};
    localtime_r(&seconds, &local);
    char text[32];
    const size_t size = std::strftime(text, sizeof text, "%H:%M:%S", &local);
    std::snprintf(text + size, sizeof text - size, ".%03d",
                  static_cast<int>(sinceEpoch.count() % 1000));
    return text;
}

} // namespace

Messages::Messages(const Mask &mask, bool traces) : mask(mask), traces(traces)
{
    std::lock_guard locker(mutex);
    current = this;
    qInstallMessageHandler(handle);
}

Messages::~Messages()
{
    qInstallMessageHandler(nullptr);
    std::lock_guard locker(mutex);
    current = nullptr;
}

void Messages::showProgress(bool sends)
{
    std::lock_guard locker(mutex);
    progress.emplace(sends);
}

void Messages::endProgress()
{
    std::lock_guard locker(mutex);
    if (progress)
        progress->clear();
    progress.reset();
}

void Messages::take(const std::string &message)
{
    const std::string text = plain(message);
    if (progress && text == "@::sendCloudLog()") {
        progress->clear();
        progress.reset();
    }
    if (traces) {
        if (progress)
            progress->clear();
        const std::string shown = printable(mask.hidden(text), "\n\t");
        std::fprintf(stderr, "%s %s\n", timeStamp().c_str(), shown.c_str());
    }
    if (progress)
        progress->take(text);
}
