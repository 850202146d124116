#include "parameters.h"

#include "exitstatus.h"
#include "files.h"
#include "keys.h"

#include <algorithm>

namespace
{

const char BLANKS[] = " \t\r\n";

std::string trimmed(const std::string &text)
{
    const size_t begin = text.find_first_not_of(BLANKS);
    if (begin == std::string::npos)
        return {};
    return text.substr(begin, text.find_last_not_of(BLANKS) - begin + 1);
}

/// "@FILE" stands for the file's contents, "@@text" for "@text".
std::string resolved(const std::string &value)
{
    if (value.empty() || value.front() != '@')
        return value;
    if (value.size() > 1 && value[1] == '@')
        return value.substr(1);
    return trimmed(contentsOf(value.substr(1)));
}

void requireSettable(const std::string &name)
{
    const Key *key = findKey(name);
    if (!key) {
        throw Failure(EXIT_USAGE,
                      "unknown parameter \"" + name + "\"; did you mean \"" + nearestKey(name).name
                          + "\"?");
    }
    if (!key->settable)
        throw Failure(EXIT_USAGE, "parameter \"" + name + "\" is a result and cannot be set");
}

std::pair<std::string, std::string> assignment(const std::string &text)
{
    const size_t equals = text.find('=');
    if (equals == std::string::npos)
        throw Failure(EXIT_USAGE, "\"" + text + "\" is not KEY=VALUE");
    const std::string key = trimmed(text.substr(0, equals));
    requireSettable(key);
    std::string value = resolved(trimmed(text.substr(equals + 1)));
    toLatin1(value, "the value of \"" + key + "\""); // refused before anything is sent
    return {key, std::move(value)};
}

/// A "#" at a line's beginning or after a blank begins a comment.
std::string withoutComment(const std::string &line)
{
    for (size_t at = line.find('#'); at != std::string::npos; at = line.find('#', at + 1)) {
        if (at == 0 || line[at - 1] == ' ' || line[at - 1] == '\t')
            return line.substr(0, at);
    }
    return line;
}

void readFile(const std::string &path, Parameters &parameters)
{
    const std::string text = contentsOf(path);
    int number = 0;
    for (size_t begin = 0; begin < text.size(); ++number) {
        const size_t end = std::min(text.find('\n', begin), text.size());
        const std::string line = trimmed(withoutComment(text.substr(begin, end - begin)));
        begin = end + 1;
        if (line.empty())
            continue;
        try {
            parameters.push_back(assignment(line));
        } catch (const Failure &failure) {
            throw Failure(failure.status,
                          path + ":" + std::to_string(number + 1) + ": " + failure.what());
        }
    }
}

} // namespace

Parameters readParameters(const std::string &configFile,
                          const std::vector<std::string> &assignments)
{
    Parameters parameters;
    if (!configFile.empty())
        readFile(configFile, parameters);
    for (const std::string &text : assignments)
        parameters.push_back(assignment(text));
    return parameters;
}

std::string toLatin1(const std::string &utf8, const std::string &what)
{
    std::string result;
    for (size_t i = 0; i < utf8.size(); ++i) {
        const auto byte = static_cast<unsigned char>(utf8[i]);
        const bool hasNext =
            i + 1 < utf8.size() && (static_cast<unsigned char>(utf8[i + 1]) & 0xc0) == 0x80;
        if (byte < 0x80 && byte != 0) {
            result += utf8[i];
        } else if ((byte == 0xc2 || byte == 0xc3) && hasNext) {
            result += static_cast<char>((byte << 6) | (utf8[++i] & 0x3f));
        } else {
            throw Failure(EXIT_USAGE, what + " has a character that Latin-1 lacks");
        }
    }
    return result;
}
