#pragma once

#include "eventhub.h"
#include "exchangestream.h"
#include "store.h"

/// Notes every exchange in the store, tells it to those who listen, and logs it in one line.
class Books : public Journal
{
public:
    /// @param logs  whether finished exchanges are written to standard output
    Books(Store &store, EventHub &events, bool logs) : store(store), events(events), logs(logs) { }

    uint64_t begun(Exchange exchange, const Subject &subject) override;
    void ended(Exchange exchange) override;

private:
    Store &store;
    EventHub &events;
    const bool logs;
    std::mutex logMutex;
};
