#include "operation.h"

#include "exitstatus.h"
#include "files.h"
#include "keys.h"
#include "version.h"

#include <QString>
#include <algorithm>
#include <cctype>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <korrin.h>
#include <unistd.h>

namespace
{

/// The open library and a handle with the parameters.
class DeviceHandle
{
public:
    explicit DeviceHandle(const Parameters &parameters)
    {
        korrinOpen();
        handle = korrinCreateHandle();
        if (!handle) {
            korrinClose();
            throw Failure(EXIT_SYSTEM, "no memory is left");
        }
        for (const auto &[key, value] : parameters)
            korrinSetParameter(handle, key.c_str(), toLatin1(value, key).c_str());
    }
    ~DeviceHandle() { korrinClose(); }
    DeviceHandle(const DeviceHandle &) = delete;
    DeviceHandle &operator=(const DeviceHandle &) = delete;

    void *get() const { return handle; }
    std::string value(const char *key) const { return korrinGetParameter(handle, key); }

private:
    void *handle = nullptr;
};

bool isUtf8(const std::string &text)
{
    return QString::fromStdString(text).toStdString() == text;
}

std::string dataToSend(const Options &options, const DeviceHandle &device)
{
    const bool isPiped = options.text == "-";
    const std::string data = isPiped ? contentsOf("-") : options.text;
    // The library takes a log for Latin-1 text, anything else for bytes. Piped bytes that are not
    // UTF-8 may be Latin-1 already.
    const bool isText =
        device.value(KORRIN_KEY_MODE) == KORRIN_MODE_UPDATE && (!isPiped || isUtf8(data));
    return isText ? toLatin1(data, "the text") : data;
}

bool send(const Options &options, const DeviceHandle &device)
{
    const std::string data = dataToSend(options, device);
    if (data.size() > INT_MAX)
        throw Failure(EXIT_USAGE, "the text is longer than 2 GiB");
    return korrinSendData(device.get(), data.data(), static_cast<int>(data.size())) == 1;
}

bool receive(const DeviceHandle &device, Outcome &outcome)
{
    const char *data = nullptr;
    int size = 0;
    const bool done = korrinRecvData(device.get(), &data, &size) == 1;
    if (data)
        outcome.data.assign(data, static_cast<size_t>(size));
    return done;
}

bool receiveFile(const Options &options, const DeviceHandle &device, Outcome &outcome)
{
    TemporaryFile file(options.path);
    const std::string path = toLatin1(file.path(), "the path");
    if (korrinRecvFile(device.get(), path.c_str()) != 1)
        return false;
    outcome.sha256 = sha256Of(file.path());
    std::string wanted = options.sha256;
    std::transform(wanted.begin(), wanted.end(), wanted.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (!wanted.empty() && wanted != outcome.sha256) {
        throw Failure(EXIT_SERVER, "what was received has another SHA-256: " + outcome.sha256);
    }
    file.commit();
    outcome.receivedFile = options.path;
    return true;
}

bool perform(const Options &options, const DeviceHandle &device, Outcome &outcome)
{
    if (options.checkFirst && korrinCheckEnable(device.get()) != 1)
        return false;
    switch (options.command) {
    case Command::Check:
        return korrinCheckEnable(device.get()) == 1;
    case Command::Send:
        return send(options, device);
    case Command::SendFile:
        return korrinSendFile(device.get(), toLatin1(options.path, "the path").c_str()) == 1;
    case Command::Recv:
        return receive(device, outcome);
    default:
        return receiveFile(options, device, outcome);
    }
}

template <typename Action>
void notingProblems(Outcome &outcome, Action action)
{
    try {
        action();
    } catch (const Failure &failure) {
        outcome.succeeded = false;
        outcome.problem = failure.what();
        outcome.problemStatus = failure.status;
    }
}

} // namespace

int Outcome::errorNumber() const
{
    return std::atoi(results.at(KORRIN_KEY_ERROR_NO).c_str());
}

int Outcome::exitStatus(const Options &options) const
{
    if (!problem.empty())
        return problemStatus;
    if (succeeded)
        return options.onlyIfNew && nothingNew ? EXIT_NOTHING_NEW : EXIT_FINE;
    switch (errorNumber() / 100) {
    case 1:
        return EXIT_CLIENT;
    case 2:
        return EXIT_SERVER;
    case 3:
        return EXIT_NETWORK;
    default:
        return EXIT_SYSTEM;
    }
}

Outcome runOperation(const Options &options, const Parameters &parameters, Messages &messages)
{
    korrinEnableDebugOutput(options.trace);
    const DeviceHandle device(parameters);
    const bool transfers = options.command != Command::Check;
    if (transfers && !options.quiet && isatty(STDERR_FILENO)) {
        korrinEnableDebugOutput(1);
        messages.showProgress(options.command == Command::Send
                              || options.command == Command::SendFile);
    }

    Outcome outcome;
    const auto start = std::chrono::steady_clock::now();
    notingProblems(outcome, [&] { outcome.succeeded = perform(options, device, outcome); });
    const std::chrono::duration<double, std::milli> duration =
        std::chrono::steady_clock::now() - start;
    messages.endProgress();
    if (outcome.succeeded)
        notingProblems(outcome, [&] { writeOut(outcome.data); });

    outcome.durationMs = duration.count();
    for (const Key &key : allKeys()) {
        if (!key.settable)
            outcome.results[key.name] = device.value(key.name);
    }
    outcome.nothingNew = outcome.succeeded
        && !isNewerVersion(outcome.results[KORRIN_KEY_NEW_SOFT_VER],
                           device.value(KORRIN_KEY_SOFT_VER));
    return outcome;
}
