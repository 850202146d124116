// A host in C++ that needs no server.
#include <korrin.h>

#include <iostream>
#include <memory>
#include <string>

namespace
{

using Handle = std::unique_ptr<void, decltype(&korrinDisposeHandle)>;

bool keepsParameters()
{
    const Handle handle(korrinCreateHandle(), &korrinDisposeHandle);
    return handle && korrinSetParameter(handle.get(), KORRIN_KEY_MODE, KORRIN_MODE_UPDATE)
        && korrinGetParameter(handle.get(), KORRIN_KEY_MODE) == std::string(KORRIN_MODE_UPDATE);
}

} // namespace

int main()
{
    if (!korrinOpen())
        return 1;
    const bool works = keepsParameters();
    std::cout << korrinGetSoftVersion() << '\n';
    return korrinClose() && works ? 0 : 1;
}
