#ifndef KORRIN_S3UPLOADER_H
#define KORRIN_S3UPLOADER_H

#include "httptask.h"

/// Puts the send data as a zip archive into Amazon S3, with a PUT that is signed with AWS Signature
/// Version 2 ("Signing and authenticating REST requests", Amazon S3 Developer Guide).
/// The path of the request's URL must be the resource, "/bucket/key".
class S3Uploader : public HttpTask
{
public:
    using HttpTask::HttpTask;

    bool start() override;

private:
    /// Adds date, content and authorization headers to the request.
    bool makeRequest();
};

#endif
