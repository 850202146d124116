#include "options.h"

#include "faultclient.h"

#include <CLI/CLI.hpp>
#include <iostream>

namespace
{

const char DESCRIPTION[] =
    "A local cloud for devices that use the VornakKorrin library: update checks, downloads,\n"
    "reports, remote access, signed uploads and the cloud log, with faults on demand.\n"
    "Its page for people is at /_sim/.";

const char FOOTER[] =
    "A fault RULE is KIND[:VALUE][,path=PATH][,is=KIND][,product=NUMBER]\n"
    "[,every=N|,next=N|,probability=P,seed=S]. Kinds: delay:MS, stall[:before|:body],\n"
    "drip:BYTES_PER_SECOND, cut[:BYTES], close, reset, status:CODE, echo[:TEXT],\n"
    "refuse[:CODE[:MESSAGE]], space, malformed, huge[:BYTES].\n\n"
    "Examples:\n"
    "  korrin-cloudsim --port 0 --log\n"
    "  korrin-cloudsim --fault status:503,is=chkud,next=2\n"
    "  korrin-cloudsim fault add delay:1500,path=/su/* --url http://127.0.0.1:8080/\n\n"
    "Exit status: 0 ended by SIGINT or SIGTERM, 1 something failed, 2 wrong configuration,\n"
    "64 wrong usage.";

void addRunOptions(CLI::App &app, Options &options)
{
    app.add_option("--config", options.configFile,
                   "Products, files, keys and faults (JSON; default: the built-in example)")
        ->type_name("FILE");
    app.add_option("--listen", options.listen, "Address to listen on")
        ->type_name("ADDRESS")
        ->capture_default_str();
    app.add_option("--port", options.port, "Port to listen on; 0 takes a free one")
        ->type_name("N")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    auto *certificate = app.add_option("--tls-cert", options.tlsCertificate,
                                       "Certificate chain (PEM): speak HTTPS");
    auto *key = app.add_option("--tls-key", options.tlsKey, "Private key (PEM)");
    certificate->type_name("FILE")->needs(key);
    key->type_name("FILE")->needs(certificate);
    app.add_option("--data", options.dataDirectory,
                   "Directory to keep everything in (default: in memory)")
        ->type_name("DIR");
    app.add_flag("--log", options.logs, "Print one line per exchange");
    app.add_option("--fault", options.faults, "Add a fault rule; may be repeated")
        ->type_name("RULE")
        ->take_all()
        ->allow_extra_args(false);
    app.add_flag("--print-config", options.printsConfig,
                 "Print the built-in configuration and exit");
}

CLI::App *addFaultCommand(CLI::App &fault, Options &options, const std::string &name,
                          const std::string &description, std::function<void(FaultClient &)> run)
{
    CLI::App *command = fault.add_subcommand(name, description);
    command->add_option("--url", options.url, "The simulator's URL")->type_name("URL")->required();
    command->callback([&options, run = std::move(run)] {
        options.faultCommand = [&options, run] {
            FaultClient client(options.url);
            run(client);
        };
    });
    return command;
}

void addFaultCommands(CLI::App &app, Options &options, std::string &argument)
{
    CLI::App &fault = *app.add_subcommand("fault", "Change the faults of a running simulator");
    fault.require_subcommand(1);
    const auto withArgument = [&](CLI::App *command, const char *name, const char *description) {
        command->add_option(name, argument, description)->required();
    };
    addFaultCommand(fault, options, "list", "Print the rules",
                    [](FaultClient &client) { client.list(); });
    withArgument(addFaultCommand(fault, options, "add", "Add a rule",
                                 [&](FaultClient &client) { client.add(argument); }),
                 "RULE", "The rule, see korrin-cloudsim --help");
    withArgument(addFaultCommand(fault, options, "enable", "Switch a rule on",
                                 [&](FaultClient &client) { client.setEnabled(argument, true); }),
                 "ID", "The rule's number");
    withArgument(addFaultCommand(fault, options, "disable", "Switch a rule off",
                                 [&](FaultClient &client) { client.setEnabled(argument, false); }),
                 "ID", "The rule's number");
    withArgument(addFaultCommand(fault, options, "remove", "Remove a rule",
                                 [&](FaultClient &client) { client.remove(argument); }),
                 "ID", "The rule's number");
    addFaultCommand(fault, options, "clear", "Remove all rules",
                    [](FaultClient &client) { client.clear(); });
}

} // namespace

bool readCommandLine(int argc, char **argv, Options &options, int &exitStatus)
{
    static std::string argument; // of a fault command, which runs after this function
    CLI::App app(DESCRIPTION, "korrin-cloudsim");
    app.footer(FOOTER);
    app.set_version_flag("--version", "korrin-cloudsim " KORRIN_VERSION);
    addRunOptions(app, options);
    addFaultCommands(app, options, argument);
    try {
        app.parse(argc, argv);
        return true;
    } catch (const CLI::Success &request) {
        exitStatus = app.exit(request);
    } catch (const CLI::ParseError &error) {
        std::cerr << "korrin-cloudsim: " << error.what() << "\nTry 'korrin-cloudsim --help'.\n";
        exitStatus = EXIT_USAGE;
    }
    return false;
}
