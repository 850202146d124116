#ifndef KORRIN_XMLRESPONSE_H
#define KORRIN_XMLRESPONSE_H

#include "clouddefs.h"

class XmlHandler;

/// What the tasks with an XML answer have in common.
namespace XmlResponse
{

/// Parses the handle's received data; on failure stores error 201 and returns false.
bool parse(void *handle, XmlHandler &handler);

/// Compares the answer's "is" with the request's; when they differ, stores error 202 and returns
/// false. @p detailFormat takes the key, the request's value and the answer's value.
bool checkEcho(void *handle, const XmlHandler &handler, const QString &requestValue,
               const QString &detailFormat);

} // namespace XmlResponse

#endif
