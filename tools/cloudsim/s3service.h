#pragma once

#include "answer.h"
#include "catalogue.h"
#include "store.h"
#include "updateservice.h"

/// Objects below "/BUCKET/": PUT with AWS Signature Version 2 (Amazon S3 REST API reference,
/// "Signing and authenticating REST requests"); GET and HEAD are open to everybody.
class S3Service
{
public:
    S3Service(const Catalogue &catalogue, Store &store) : catalogue(catalogue), store(store) { }

    bool serves(const ServiceRequest &request) const;
    /// @param stored  set to true when an object was stored
    Answer answer(const ServiceRequest &request, const Fault &fault, bool &stored) const;

private:
    Answer put(const ServiceRequest &request, const std::string &bucket, const std::string &key,
               bool &stored) const;
    Answer get(const ServiceRequest &request, const std::string &bucket,
               const std::string &key) const;

    const Catalogue &catalogue;
    Store &store;
};
