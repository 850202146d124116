#include "faultbook.h"

#include <algorithm>

void Fault::add(const FaultRule &rule)
{
    kinds += (kinds.empty() ? "" : "+") + nameOf(rule.kind);
    switch (rule.kind) {
    case FaultKind::Delay:
        delayMs += rule.number;
        break;
    case FaultKind::Stall:
        stalls = true;
        stallsInBody = rule.stallsInBody;
        break;
    case FaultKind::Drip:
        bytesPerSecond = rule.number;
        break;
    case FaultKind::Cut:
        cuts = true;
        cutAfterBytes = rule.bytes;
        break;
    case FaultKind::Close:
        closes = true;
        break;
    case FaultKind::Reset:
        resets = true;
        break;
    case FaultKind::Status:
        status = static_cast<int>(rule.number);
        break;
    case FaultKind::Echo:
        echoes = true;
        echo = rule.text;
        break;
    case FaultKind::Refuse:
        refuses = true;
        code = rule.code;
        message = rule.text;
        break;
    case FaultKind::Space:
        addsSpace = true;
        break;
    case FaultKind::Malformed:
        breaksXml = true;
        break;
    case FaultKind::Huge:
        fillUpToBytes = rule.number;
        break;
    }
}

FaultRule FaultBook::add(FaultRule rule)
{
    std::lock_guard locker(mutex);
    rule.id = ++lastId;
    rules.push_back(rule);
    return rule;
}

std::vector<FaultRule> FaultBook::all() const
{
    std::lock_guard locker(mutex);
    return rules;
}

std::optional<FaultRule> FaultBook::setEnabled(uint64_t id, bool enabled)
{
    std::lock_guard locker(mutex);
    for (FaultRule &rule : rules) {
        if (rule.id == id) {
            rule.setEnabled(enabled);
            return rule;
        }
    }
    return {};
}

bool FaultBook::remove(uint64_t id)
{
    std::lock_guard locker(mutex);
    const auto found = std::find_if(rules.begin(), rules.end(),
                                    [&](const FaultRule &rule) { return rule.id == id; });
    if (found == rules.end())
        return false;
    rules.erase(found);
    return true;
}

void FaultBook::clear()
{
    std::lock_guard locker(mutex);
    rules.clear();
}

Fault FaultBook::faultFor(const FaultTarget &target)
{
    std::lock_guard locker(mutex);
    Fault fault;
    for (FaultRule &rule : rules) {
        if (rule.meets(target))
            fault.add(rule);
    }
    return fault;
}
