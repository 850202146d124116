#pragma once

#include "api.h"
#include "s3service.h"

/// Answers every request: devices through the services, people through the page and the API.
class Cloud
{
public:
    Cloud(const Catalogue &catalogue, Store &store, FaultBook &faults, EventHub &events,
          std::string url, std::string version);

    void handle(const httplib::Request &request, const std::string &body,
                httplib::Response &response);

private:
    Answer answerDevice(const ServiceRequest &request, Subject &subject);

    FaultBook &faults;
    EventHub &events;
    const UpdateService updateService;
    const S3Service s3Service;
    Api api;
};
