#include "exitstatus.h"
#include "files.h"
#include "interrupt.h"
#include "listings.h"
#include "outcome.h"
#include "printable.h"

#include <clocale>
#include <cstdio>

namespace
{

int runCommand(const Options &options)
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
    printOutcome(options, outcome, mask);
    return outcome.exitStatus(options);
}

int run(const Options &options)
{
    const int exitStatus = runCommand(options);
    writeOut({});
    return exitStatus;
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
        // No parameters are known here: a mistyped line may hold a secret all the same.
        const std::string text = printable(Mask().hidden(failure.what()));
        std::fprintf(stderr, "korrin: %s\n", text.c_str());
        return failure.status;
    }
}
