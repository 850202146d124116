#include "options.h"

#include "exitstatus.h"
#include "listings.h"
#include "mask.h"
#include "printable.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>

namespace
{

const char DESCRIPTION[] =
    "Talks to the maker's cloud as a device does: every operation of the VornakKorrin library.";

const char FOOTER[] =
    "A parameter's VALUE of the form @FILE is read from that file; @@ begins a value with @.\n\n"
    "Exit status: 0 success, 1 wrong parameters (errors 1xx), 2 refused or mis-answered by the\n"
    "server (2xx), 3 nothing new (check --if-new), 4 network (3xx), 5 system (4xx), 64 wrong\n"
    "usage, 130 ended by Ctrl-C.\n\n"
    "Examples:\n"
    "  korrin check --config device.conf -p soft_ver=1.0\n"
    "  korrin recv-file update.bin --config device.conf --check --sha256 HEX\n"
    "  korrin send --config device.conf -p send_data_type=result -p result=1 -p soft_ver=2.0\n"
    "  korrin errors 301";

bool isSha256(const std::string &text)
{
    return text.size() == 64
        && text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
}

CLI::App *addCommand(CLI::App &app, Options &options, Command command, const std::string &name,
                     const std::string &description)
{
    CLI::App *added = app.add_subcommand(name, description);
    added->callback([&options, command, name] {
        options.command = command;
        options.commandName = name;
    });
    return added;
}

CLI::App *addOperation(CLI::App &app, Options &options, Command command, const std::string &name,
                       const std::string &description)
{
    CLI::App *added = addCommand(app, options, command, name, description);
    added
        ->add_option("-p,--param", options.parameters,
                     "Set a parameter; may be repeated (see 'korrin params')")
        ->type_name("KEY=VALUE")
        ->take_all()
        ->allow_extra_args(false);
    added
        ->add_option("--config", options.configFile,
                     "File with lines 'key = value' and comments after #; -p wins")
        ->type_name("FILE");
    added->add_flag("--json", options.json, "Print the outcome as one JSON object");
    added->add_flag("--trace", options.trace, "Print the library's debug messages");
    added->add_flag("-q,--quiet", options.quiet, "Print nothing but data, errors and JSON");
    return added;
}

void addOperations(CLI::App &app, Options &options)
{
    const CLI::Validator notEmpty(
        [](std::string &text) { return text.empty() ? "it is empty" : std::string(); }, "");
    addOperation(app, options, Command::Check, "check", "Ask for a newer version or remote access")
        ->add_flag("--if-new", options.onlyIfNew, "Exit with 3 when there is no newer version");

    addOperation(app, options, Command::Send, "send", "Send a text: a result, a log, an object")
        ->add_option("TEXT", options.text, "The text; - reads standard input (default: nothing)");

    addOperation(app, options, Command::SendFile, "send-file", "Send a file")
        ->add_option("PATH", options.path, "The file")
        ->required()
        ->check(notEmpty);

    CLI::App *recv =
        addOperation(app, options, Command::Recv, "recv", "Receive to standard output");
    CLI::App *recvFile = addOperation(app, options, Command::RecvFile, "recv-file",
                                      "Receive to a file, which is replaced when all is well");
    recvFile->add_option("PATH", options.path, "The file")->required()->check(notEmpty);
    for (CLI::App *command : {recv, recvFile}) {
        command->add_flag("--check", options.checkFirst,
                          "Ask first, so that the request names the offered version");
    }
    recvFile->add_option("--sha256", options.sha256, "Take it only if it has this SHA-256")
        ->type_name("HEX")
        ->check(CLI::Validator(
            [](std::string &text) {
                return isSha256(text) ? std::string() : "a SHA-256 has 64 hexadecimal digits";
            },
            ""));
}

} // namespace

bool readCommandLine(int argc, char **argv, Options &options, int &exitStatus)
{
    CLI::App app(DESCRIPTION, "korrin");
    app.footer(FOOTER);
    app.set_version_flag("--version", versions());
    app.require_subcommand(0, 1); // whose own message would hide a mistyped command
    addOperations(app, options);
    addCommand(app, options, Command::Version, "version", "Print the versions");
    addCommand(app, options, Command::Params, "params", "List the parameters");
    addCommand(app, options, Command::Errors, "errors", "Explain the error numbers")
        ->add_option("NUMBER", options.errorNumber, "Only this one");
    try {
        app.parse(argc, argv);
        if (app.get_subcommands().empty())
            throw CLI::RequiredError("A command");
        return true;
    } catch (const CLI::Success &request) {
        exitStatus = app.exit(request);
    } catch (const CLI::ParseError &error) {
        std::cerr << "korrin: " << printable(Mask().hidden(error.what()))
                  << "\nTry 'korrin --help'.\n";
        exitStatus = EXIT_USAGE;
    }
    return false;
}
