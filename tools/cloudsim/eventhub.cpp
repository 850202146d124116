#include "eventhub.h"

#include "jsontext.h"

#include <utility>

namespace
{

const size_t MAX_WAITING_BYTES = 1024 * 1024;

} // namespace

void EventListener::put(const std::string &event)
{
    std::lock_guard locker(mutex);
    if (waiting.size() + event.size() > MAX_WAITING_BYTES)
        return;
    waiting += event;
    changed.notify_one();
}

void EventListener::end()
{
    std::lock_guard locker(mutex);
    ended = true;
    changed.notify_one();
}

std::optional<std::string> EventListener::take(std::chrono::milliseconds timeout)
{
    std::unique_lock locker(mutex);
    changed.wait_for(locker, timeout, [this] { return ended || !waiting.empty(); });
    if (ended)
        return {};
    return std::exchange(waiting, {});
}

std::shared_ptr<EventListener> EventHub::listen()
{
    auto listener = std::make_shared<EventListener>();
    std::lock_guard locker(mutex);
    if (ended)
        listener->end();
    else
        listeners.push_back(listener);
    return listener;
}

void EventHub::publish(const std::string &name, const nlohmann::json &data)
{
    std::lock_guard locker(mutex);
    listeners.remove_if([](const auto &listener) { return listener.expired(); });
    if (listeners.empty())
        return;
    const std::string event = "event: " + name + "\ndata: " + jsonText(data) + "\n\n";
    for (const auto &weak : listeners) {
        if (const auto listener = weak.lock())
            listener->put(event);
    }
}

void EventHub::end()
{
    std::lock_guard locker(mutex);
    ended = true;
    for (const auto &weak : listeners) {
        if (const auto listener = weak.lock())
            listener->end();
    }
}
