// A C++ host: a small wrapper over the C functions that opens, closes and disposes by scope.
// Usage: raiihost URL FILE
#include <iostream>
#include <korrin.h>
#include <new>
#include <stdexcept>
#include <string>

namespace korrin
{

// [wrapper]
/// What a call left on its handle when it failed.
class Error : public std::runtime_error
{
public:
    Error(int errorNumber, const std::string &detail)
        : std::runtime_error(std::to_string(errorNumber) + ' ' + detail), number(errorNumber)
    {
    }
    const int number; ///< KORRIN_ERROR_…
};

/// The library, open for the length of a scope; one in a process, as there is one opened state.
class Library
{
public:
    Library()
    {
        if (!korrinOpen())
            throw std::bad_alloc();
    }
    ~Library() { korrinClose(); }
    Library(const Library &) = delete;
    Library &operator=(const Library &) = delete;
};

/// A handle for the length of a scope, used by one thread at a time. Texts and data are copies, so
/// the handle's return buffer is nobody's concern.
class Handle
{
public:
    Handle() : handle(korrinCreateHandle())
    {
        if (!handle)
            throw std::bad_alloc();
    }
    ~Handle() { korrinDisposeHandle(handle); }
    Handle(const Handle &) = delete;
    Handle &operator=(const Handle &) = delete;

    std::string get(const char *key) const { return korrinGetParameter(handle, key); }
    Handle &set(const char *key, const std::string &value)
    {
        return check(korrinSetParameter(handle, key, value.c_str()));
    }

    Handle &checkEnable() { return check(korrinCheckEnable(handle)); }
    Handle &sendFile(const std::string &path)
    {
        return check(korrinSendFile(handle, path.c_str()));
    }
    Handle &recvFile(const std::string &path)
    {
        return check(korrinRecvFile(handle, path.c_str()));
    }
    Handle &sendData(const std::string &data)
    {
        return check(korrinSendData(handle, data.data(), static_cast<int>(data.size())));
    }
    std::string recvData()
    {
        const char *data = nullptr;
        int size = 0;
        check(korrinRecvData(handle, &data, &size));
        return {data, static_cast<std::size_t>(size)};
    }

private:
    Handle &check(int result)
    {
        if (!result)
            throw Error(std::stoi('0' + get(KORRIN_KEY_ERROR_NO)), get(KORRIN_KEY_ERROR_DETAIL));
        return *this;
    }

    void *const handle;
};
// [wrapper]

} // namespace korrin

int main(int argc, char **argv)
{
    if (argc != 3)
        return 64;
    try {
        // [use]
        const korrin::Library library;
        korrin::Handle handle;
        handle.set(KORRIN_KEY_SERVER_URL, argv[1])
            .set(KORRIN_KEY_MODE, KORRIN_MODE_UPDATE)
            .set(KORRIN_KEY_PRODUCT_NO, "KX-100")
            .set(KORRIN_KEY_SOFT_VER, "1.0");
        handle.checkEnable();
        const std::string version = handle.get(KORRIN_KEY_NEW_SOFT_VER);
        std::cout << "new version: " << version << '\n';
        handle.set(KORRIN_KEY_DOWNLOAD_FILE_PATH, "kx-100-" + version + ".bin").recvFile(argv[2]);
        std::cout << "bytes: " << handle.recvData().size() << '\n';
        // [use]
        return 0;
    } catch (const korrin::Error &error) {
        std::cout << "failed: " << error.what() << '\n';
    } catch (const std::bad_alloc &) {
        std::cout << "out of memory\n";
    }
    return 1;
}
