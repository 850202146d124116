#pragma once

#include "catalogue.h"
#include "eventhub.h"
#include "faultbook.h"
#include "store.h"

#include <httplib.h>

/// The page at "/_sim/" and the JSON interface below "/_sim/api" (docs/simulator.md).
class Api
{
public:
    Api(const Catalogue &catalogue, Store &store, FaultBook &faults, EventHub &events,
        std::string url, std::string version);

    void handle(const httplib::Request &request, const std::string &body,
                httplib::Response &response);

private:
    nlohmann::json answer(const httplib::Request &request, const std::string &body, int &status);
    nlohmann::json read(const httplib::Request &request, const std::string &what);
    nlohmann::json info();
    nlohmann::json addFault(const std::string &body);
    nlohmann::json switchFault(uint64_t id, const std::string &body);
    nlohmann::json removeFault(uint64_t id);
    void sendEvents(httplib::Response &response);
    void tellFaults();

    const Catalogue &catalogue;
    Store &store;
    FaultBook &faults;
    EventHub &events;
    const std::string url;
    const std::string version;
    const int64_t startedMs = nowMs();
};

/// {"faults": […]}
nlohmann::json faultsToJson(const FaultBook &faults);
