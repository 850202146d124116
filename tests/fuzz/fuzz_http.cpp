// A raw HTTP answer through a loopback socket: the call asks for it and comes back, with a result
// that fits.
#include "korrinhost.h"
#include "scriptedserver.h"

#include <cstdint>
#include <cstdlib>
#include <mutex>

using namespace korrintest;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static std::mutex mutex;
    static QByteArray bytes;
    static ScriptedServer server([](Connection &connection, const HttpRequest &) {
        std::lock_guard<std::mutex> locker(mutex);
        connection.send(bytes);
    });
    static const OpenLibrary library;
    {
        std::lock_guard<std::mutex> locker(mutex);
        bytes = QByteArray(reinterpret_cast<const char *>(data), static_cast<int>(size));
    }
    Handle handle(baseParameters(server.url(), "remote_access"));
    handle.set("recv_timeout", "1");
    const int result = handle.checkEnable();
    if ((result == 1) != (handle.errorNo() == "0") || server.connectionCount() == 0)
        std::abort();
    server.clear();
    return 0;
}
