#include "errortable.h"

#include <korrin.h>

const std::vector<ErrorDescription> &allErrors()
{
    static const std::vector<ErrorDescription> errors = {
        {KORRIN_ERROR_NONE, "no error.", "The operation succeeded.", "None is needed."},
        {KORRIN_ERROR_CLIENT_APPLICATION, "client application error.",
         "The group of 1xx; not raised itself.", "See 101 to 105."},
        {KORRIN_ERROR_NOT_OPENED, "cloud not opened.",
         "A function was called before korrinOpen() or after korrinClose().",
         "Open the library first."},
        {KORRIN_ERROR_INVALID_HANDLE, "invalid handle.",
         "The handle is null, was disposed of, or was never created.",
         "Use a handle from korrinCreateHandle() until you dispose of it."},
        {KORRIN_ERROR_PARAMETER_NOT_SET, "parameter not set.",
         "A parameter that the call needs is empty; the detail names it.",
         "Set that parameter; product_no and mode are always needed."},
        {KORRIN_ERROR_INVALID_PARAMETER_KEY, "invalid parameter key.",
         "The key is unknown, or only the library sets it.", "See 'korrin params'."},
        {KORRIN_ERROR_INVALID_PARAMETER_VALUE, "invalid parameter value.",
         "mode, send_data_type or result has an unknown value; the detail names it.",
         "See 'korrin params' for the values."},
        {KORRIN_ERROR_SERVER, "server error.", "The group of 2xx; not raised itself.",
         "See 201 to 203."},
        {KORRIN_ERROR_XML_PARSE_FAILED, "xml parse failed.",
         "The answer is not XML: a login page, a proxy's page, or a wrong server_url.",
         "Look at the answer with --trace; check server_url."},
        {KORRIN_ERROR_ILLEGAL_RESPONSE, "illegal response received.",
         "The answer is one to another kind of request, or has white space between elements.",
         "Look at the answer with --trace; the server is at fault."},
        {KORRIN_ERROR_STATUS, "status error.",
         "The server understood the request and refused it; text and detail are the server's.",
         "Read the message; check product_no, soft_ver and language_code."},
        {KORRIN_ERROR_NETWORK, "network error.", "A network failure of no other group.",
         "Read the detail; try again later."},
        {KORRIN_ERROR_CONNECTION, "network connection error.",
         "Connection refused, host not found, connection broken off, or TLS failed.",
         "Check server_url, http_proxy, name resolution, network, clock and CA certificates."},
        {KORRIN_ERROR_PROXY, "network proxy error.",
         "The proxy wants a user and password, others than those in http_proxy.",
         "Check http_proxy: http://[user:password@]host:port."},
        {KORRIN_ERROR_CONTENT, "network content error.",
         "The server answered with an HTTP status of 400 or more; the text names it.",
         "401, 403: keys or clock; 404: server_url or file name; 5xx: try again later."},
        {KORRIN_ERROR_PROTOCOL, "network protocol error",
         "server_url has no known scheme or is not a URL.", "Use http:// or https://."},
        {KORRIN_ERROR_TIMEOUT, "timeout occurred.",
         "The exchange was silent for recv_timeout seconds.",
         "Check the network; raise recv_timeout for a slow server."},
        {KORRIN_ERROR_SYSTEM, "system error.", "The group of 4xx; not raised itself.",
         "See 401 to 404."},
        {KORRIN_ERROR_OUT_OF_MEMORY, "memory allocation error.",
         "Memory ran out; the detail names the place.", "Free memory, or transfer less at once."},
        {KORRIN_ERROR_FILE_OPEN_FAILED, "file open failed.",
         "The local file does not exist or may not be opened; the detail names it.",
         "Check path, directory and permissions."},
        {KORRIN_ERROR_FILE_WRITE_FAILED, "file write failed.",
         "The disk is full or failing; the detail tells how much was written.",
         "Make room and receive again."},
        {KORRIN_ERROR_NULL_POINTER, "null pointer assigned.",
         "A host passed a null pointer to korrinRecvData().",
         "Pass the addresses of two variables."},
    };
    return errors;
}

const ErrorDescription *findError(int number)
{
    for (const ErrorDescription &error : allErrors()) {
        if (error.number == number)
            return &error;
    }
    return nullptr;
}
