#pragma once

#include "faultrule.h"

#include <mutex>
#include <vector>

/// All that the rules do to one answer.
struct Fault {
    std::string kinds; ///< for people, e.g. "delay+status"; empty when no rule met the exchange

    uint64_t delayMs = 0;
    uint64_t bytesPerSecond = 0; ///< 0: at full speed
    bool stalls = false;
    bool stallsInBody = false;
    bool closes = false;
    bool resets = false;
    bool cuts = false;
    std::optional<uint64_t> cutAfterBytes; ///< of the body; half of it when absent

    int status = 0; ///< 0: as it comes
    bool echoes = false;
    std::string echo;
    bool refuses = false;
    std::string code;
    std::string message;
    bool addsSpace = false;
    bool breaksXml = false;
    uint64_t fillUpToBytes = 0;

    /// True when the request is not carried out: nothing is kept of what it brings.
    bool preventsRequest() const { return status != 0 || refuses; }
    /// True when the answer takes noticeable time because of it.
    bool isSlow() const { return delayMs > 0 || bytesPerSecond > 0 || stalls; }

    void add(const FaultRule &rule);
};

/// The rules, in their order. Safe to use from any thread.
class FaultBook
{
public:
    /// @return the rule with its id
    FaultRule add(FaultRule rule);
    std::vector<FaultRule> all() const;
    std::optional<FaultRule> setEnabled(uint64_t id, bool enabled);
    bool remove(uint64_t id);
    void clear();

    /// What befalls this exchange; counts it in the rules.
    Fault faultFor(const FaultTarget &target);

private:
    mutable std::mutex mutex;
    std::vector<FaultRule> rules;
    uint64_t lastId = 0;
};
