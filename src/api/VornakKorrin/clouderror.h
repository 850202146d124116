#ifndef KORRIN_CLOUDERROR_H
#define KORRIN_CLOUDERROR_H

#include "clouddefs.h"

#include <exception>

/// A failure as a value: a number, and where more is known a text and a detail.
class Error
{
public:
    explicit Error(int number = 0, const QString &text = QString(),
                   const QString &detail = QString());
    Error(const Error &) = default;
    virtual ~Error() = default;
    Error &operator=(const Error &other) = default;

    /// The fixed text of @c number; "exceptional error." for an unknown one.
    QString getDefaultErrorText() const;

    /// @c text, or the default text when it is empty.
    QString getText() const;

    /// "number:text", the form in which an error without a handle is traced.
    QString getSummary() const;

    int number;
    QString text;
    QString detail;
};

/// An error that can be stored on a handle as "error_no", "error_text" and "error_detail".
class CloudError : public Error
{
public:
    using Error::Error;

    void saveToHandle(void *handle) const;
};

/// Error numbers: 1xx use of the library, 2xx the answer, 3xx the network, 4xx the system.
namespace errors
{
enum Number : int {
    NONE = 0,
    CLIENT_APPLICATION = 100,
    NOT_OPENED = 101,
    INVALID_HANDLE = 102,
    PARAMETER_NOT_SET = 103,
    INVALID_PARAMETER_KEY = 104,
    INVALID_PARAMETER_VALUE = 105,
    SERVER = 200,
    XML_PARSE_FAILED = 201,
    ILLEGAL_RESPONSE = 202,
    STATUS = 203,
    NETWORK = 300,
    CONNECTION = 301,
    PROXY = 302,
    CONTENT = 303,
    PROTOCOL = 304,
    TIMEOUT = 305,
    SYSTEM = 400,
    OUT_OF_MEMORY = 401,
    FILE_OPEN_FAILED = 402,
    FILE_WRITE_FAILED = 403,
    NULL_POINTER = 404,
};
} // namespace errors

/// "key:value", the form of most error details.
QString makeDetail(const QString &key, const QString &value);

/// Writes an error for which there is no handle to the debug output, as "number:text". Never
/// throws.
void traceError(int number);

/// Where memory ran out: "what at function (file:path, line:number)".
/// @param sourceName  name of the source file without its suffix
QString makeOutOfMemoryTrace(const std::exception &exception, const QString &function,
                             const QString &sourceName, int line);

/// Writes error 401 and that trace to the debug output. Never throws.
void traceOutOfMemory(const std::exception &exception, const QString &function,
                      const QString &sourceName, int line);

#endif
