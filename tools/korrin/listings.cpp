#include "listings.h"

#include "errortable.h"
#include "exitstatus.h"
#include "keys.h"

#include <algorithm>
#include <cstdio>
#include <korrin.h>

namespace
{

void print(const ErrorDescription &error)
{
    std::printf("%3d  %s\n     Cause:  %s\n     Remedy: %s\n", error.number, error.text,
                error.cause, error.remedy);
}

} // namespace

std::string versions()
{
    return std::string("korrin " KORRIN_VERSION ", library ") + korrinGetSoftVersion();
}

int printVersions()
{
    std::printf("%s\n", versions().c_str());
    return EXIT_FINE;
}

int printParameters()
{
    std::printf("%-25s%-8s%-7s%-11s%s\n", "KEY", "", "UNIT", "DEFAULT", "MEANING");
    for (const Key &key : allKeys()) {
        std::printf("%-25s%-8s%-7s%-11s%s\n", key.name, key.settable ? "set" : "result", key.unit,
                    key.defaultValue, key.meaning);
    }
    return EXIT_FINE;
}

int printErrors(const std::string &number)
{
    if (number.empty()) {
        for (const ErrorDescription &error : allErrors())
            print(error);
        return EXIT_FINE;
    }
    const auto &errors = allErrors();
    const auto error = std::find_if(errors.begin(), errors.end(), [&](const ErrorDescription &e) {
        return std::to_string(e.number) == number;
    });
    if (error == errors.end())
        throw Failure(EXIT_USAGE, "there is no error " + number + "; 'korrin errors' lists all");
    print(*error);
    return EXIT_FINE;
}
