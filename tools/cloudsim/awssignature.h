#pragma once

#include "updateservice.h"

#include <map>
#include <string>

/// What is wrong with a signed request; an empty code means nothing is.
struct SignatureFault {
    std::string code; ///< of Amazon S3's error answers
    std::string message;
    std::string stringToSign; ///< where it helps to find the difference
};

/// Verifies the "Authorization: AWS KEY:SIGNATURE" of a request, and its date, which may differ
/// from @p nowSeconds (since 1970) by 15 minutes.
SignatureFault verifySignature(const ServiceRequest &request,
                               const std::map<std::string, std::string> &secretByAccessKey,
                               int64_t nowSeconds);

/// The text that is signed: method, Content-MD5, Content-Type, Date, "x-amz-" headers, path.
std::string stringToSign(const ServiceRequest &request);
