#pragma once

#include "answer.h"
#include "catalogue.h"
#include "exchangestream.h"

/// What a service is asked.
struct ServiceRequest {
    std::string method;
    std::string path; ///< decoded
    std::string rawPath;
    std::multimap<std::string, std::string, httplib::detail::ci> headers;
    std::string body;
};

/// The services below "/su" (update) and "/ra" (remote access).
class UpdateService
{
public:
    explicit UpdateService(const Catalogue &catalogue) : catalogue(catalogue) { }

    static bool serves(const std::string &path);
    /// Answers, and notes in @p subject what the request brought: records and reports.
    Answer answer(const ServiceRequest &request, Subject &subject) const;

private:
    Answer search(const Subject &subject) const;
    Answer upload(Subject &subject) const;
    Answer download(const Subject &subject) const;
    Answer remoteAccess(const ServiceRequest &request, const Subject &subject) const;

    const Catalogue &catalogue;
};
