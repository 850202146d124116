#ifndef KORRIN_ENABLECHECKER_H
#define KORRIN_ENABLECHECKER_H

#include "httptask.h"
#include "xmlhandler.h"

/// Asks with a GET; the answer's "is" must equal the request URL's.
class EnableChecker : public HttpTask
{
public:
    using HttpTask::HttpTask;

    bool start() override;

    XmlHandler xmlHandler; ///< the values of the last answer

protected:
    bool processResponse() override;
};

#endif
