#include "exitstatus.h"
#include "interrupt.h"
#include "listings.h"
#include "outcome.h"

#include <clocale>
#include <cstdio>

namespace
{

int run(const Options &options)
{
    switch (options.command) {
    case Command::Version:
        return printVersions();
    case Command::Params:
        return printParameters();
    case Command::Errors:
        return printErrors(options.errorNumber);
    default:
        break;
    }
    const Parameters parameters = readParameters(options.configFile, options.parameters);
    const Mask mask(parameters);
    Messages messages(mask, options.trace);
    const Outcome outcome = runOperation(options, parameters, messages);
    if (!printOutcome(options, outcome, mask))
        throw Failure(EXIT_SYSTEM, "standard output cannot be written");
    return outcome.exitStatus(options);
}

} // namespace

int main(int argc, char **argv)
{
    std::setlocale(LC_CTYPE, "");
    Options options;
    int exitStatus = 0;
    if (!readCommandLine(argc, argv, options, exitStatus))
        return exitStatus;
    endOnSignals();
    try {
        return run(options);
    } catch (const Failure &failure) {
        std::fprintf(stderr, "korrin: %s\n", failure.what());
        return failure.status;
    }
}
