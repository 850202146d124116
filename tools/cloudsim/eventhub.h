#pragma once

#include <chrono>
#include <condition_variable>
#include <list>
#include <memory>
#include <mutex>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

/// One reader of the events. What it does not take in time is dropped, so that it cannot fill the
/// memory; the ids of the exchanges show the gap.
class EventListener
{
public:
    void put(const std::string &event);
    void end();
    /// Waits for events. @return all there are, an empty text after @p timeout, nothing at the end
    std::optional<std::string> take(std::chrono::milliseconds timeout);

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::string waiting;
    bool ended = false;
};

/// Spreads what happens to everybody who listens, as server-sent events (HTML Living Standard,
/// section 9.2). Safe to use from any thread.
class EventHub
{
public:
    std::shared_ptr<EventListener> listen();
    void publish(const std::string &name, const nlohmann::json &data);
    /// Ends all listeners, and those to come.
    void end();

private:
    std::mutex mutex;
    std::list<std::weak_ptr<EventListener>> listeners;
    bool ended = false;
};
