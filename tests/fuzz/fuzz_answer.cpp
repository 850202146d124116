// An answer of the server: whatever it holds, parsing ends, and soon.
#include "xmlhandler.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    XmlHandler handler;
    const bool parsed =
        handler.execute(QByteArray(reinterpret_cast<const char *>(data), static_cast<int>(size)));
    if (parsed != handler.errorMessage.isEmpty())
        std::abort();
    return 0;
}
