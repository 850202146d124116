#ifndef KORRIN_UPLOADER_H
#define KORRIN_UPLOADER_H

#include "httptask.h"
#include "xmlhandler.h"

/// Sends with a POST; the answer's "is" must equal that of the posted form data.
class Uploader : public HttpTask
{
public:
    using HttpTask::HttpTask;

    bool start() override;

    XmlHandler xmlHandler; ///< the values of the last answer

protected:
    bool processResponse() override;
};

#endif
