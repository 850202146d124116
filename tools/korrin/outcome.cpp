#include "outcome.h"

#include "errortable.h"
#include "jsontext.h"
#include "keys.h"
#include "printable.h"

#include <cstdio>
#include <korrin.h>

namespace
{

using nlohmann::ordered_json;

const char *const ANSWER_KEYS[] = {KORRIN_KEY_MESSAGE, KORRIN_KEY_NEW_SOFT_VER, KORRIN_KEY_IS,
                                   KORRIN_KEY_STATUS, KORRIN_KEY_STATUS_CODE};

std::string line(const std::string &name, const std::string &value)
{
    const size_t width = 14;
    return "  " + name + std::string(name.size() < width ? width - name.size() : 1, ' ') + value
        + "\n";
}

std::string answerLines(const Outcome &outcome, const Mask &mask)
{
    std::string text;
    for (const char *key : ANSWER_KEYS) {
        const std::string &value = outcome.results.at(key);
        if (!value.empty())
            text += line(key, printable(mask.hidden(value)));
    }
    return text;
}

std::string successText(const Options &options, const Outcome &outcome, const Mask &mask)
{
    std::string text = options.commandName + ": done";
    if (options.command == Command::Check)
        text = outcome.nothingNew && !outcome.results.at(KORRIN_KEY_NEW_SOFT_VER).empty()
            ? "check: granted, nothing newer"
            : "check: granted";
    else if (options.command == Command::Recv)
        text += ", " + std::to_string(outcome.data.size()) + " bytes";
    text += "\n";
    if (options.command == Command::RecvFile)
        text += line("file", outcome.receivedFile) + line("sha256", outcome.sha256);
    return text + answerLines(outcome, mask);
}

std::string failureText(const Options &options, const Outcome &outcome, const Mask &mask)
{
    std::string text = "korrin: " + options.commandName + " failed: ";
    if (!outcome.problem.empty())
        return text + printable(mask.hidden(outcome.problem)) + "\n";
    const auto result = [&](const char *key) {
        return printable(mask.hidden(outcome.results.at(key)));
    };
    text += result(KORRIN_KEY_ERROR_NO) + " " + result(KORRIN_KEY_ERROR_TEXT) + "\n"
        + line("detail", result(KORRIN_KEY_ERROR_DETAIL));
    if (const ErrorDescription *description = findError(outcome.errorNumber()))
        text += line("cause", description->cause) + line("remedy", description->remedy);
    return text + answerLines(outcome, mask);
}

std::string json(const Options &options, const Outcome &outcome, const Mask &mask)
{
    ordered_json results = ordered_json::object();
    for (const Key &key : allKeys()) {
        if (!key.settable)
            results[key.name] = mask.hidden(outcome.results.at(key.name));
    }
    ordered_json object = {{"operation", options.commandName},
                           {"success", outcome.succeeded},
                           {"exit_status", outcome.exitStatus(options)},
                           {"duration_ms", outcome.durationMs},
                           {"results", results}};
    if (!outcome.problem.empty())
        object["problem"] = mask.hidden(outcome.problem);
    if (options.command == Command::Recv)
        object["bytes"] = outcome.data.size();
    if (options.command == Command::RecvFile && outcome.succeeded) {
        object["file"] = outcome.receivedFile;
        object["sha256"] = outcome.sha256;
    }
    return jsonText(object) + "\n";
}

void write(const std::string &text, FILE *stream)
{
    std::fwrite(text.data(), 1, text.size(), stream);
}

} // namespace

void printOutcome(const Options &options, const Outcome &outcome, const Mask &mask)
{
    FILE *const stream = options.command == Command::Recv ? stderr : stdout;
    if (options.json)
        write(json(options, outcome, mask), stream);
    else if (!outcome.succeeded)
        write(failureText(options, outcome, mask), stderr);
    else if (!options.quiet)
        write(successText(options, outcome, mask), stream);
}
