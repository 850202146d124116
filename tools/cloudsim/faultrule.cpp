#include "faultrule.h"

#include <array>
#include <set>
#include <stdexcept>
#include <vector>

namespace
{

using nlohmann::json;

const uint64_t HUGE_BYTES = 64 * 1024 * 1024;
const uint64_t MAX_BYTES = uint64_t(16) << 30;
const uint64_t MAX_DELAY_MS = 24 * 3600 * 1000;

/// A kind, its name, and the keys that its parameters have in JSON, in the order of the text form.
struct KindDescription {
    FaultKind kind;
    const char *name;
    std::vector<std::string> parameters;
};

const std::vector<KindDescription> kinds = {
    {FaultKind::Delay, "delay", {"ms"}},
    {FaultKind::Stall, "stall", {"at"}},
    {FaultKind::Drip, "drip", {"bytes_per_second"}},
    {FaultKind::Cut, "cut", {"bytes"}},
    {FaultKind::Close, "close", {}},
    {FaultKind::Reset, "reset", {}},
    {FaultKind::Status, "status", {"code"}},
    {FaultKind::Echo, "echo", {"text"}},
    {FaultKind::Refuse, "refuse", {"code", "message"}},
    {FaultKind::Space, "space", {}},
    {FaultKind::Malformed, "malformed", {}},
    {FaultKind::Huge, "huge", {"bytes"}},
};

const KindDescription &describe(FaultKind kind)
{
    for (const KindDescription &description : kinds) {
        if (description.kind == kind)
            return description;
    }
    throw std::logic_error("a fault without a description");
}

const KindDescription &describe(const std::string &name)
{
    std::string known;
    for (const KindDescription &description : kinds) {
        if (name == description.name)
            return description;
        known += (known.empty() ? "" : ", ") + std::string(description.name);
    }
    throw std::invalid_argument("unknown fault \"" + name + "\"; there are: " + known);
}

[[noreturn]] void refuse(const std::string &key, const std::string &expected)
{
    throw std::invalid_argument("\"" + key + "\" must be " + expected);
}

uint64_t wholeNumber(const json &object, const std::string &key, uint64_t least, uint64_t most)
{
    const json &value = object.at(key);
    if (!value.is_number_unsigned() || value.get<uint64_t>() < least
        || value.get<uint64_t>() > most)
        refuse(key, "a whole number from " + std::to_string(least) + " to " + std::to_string(most));
    return value.get<uint64_t>();
}

std::string textOf(const json &object, const std::string &key, const std::string &otherwise = {})
{
    if (!object.contains(key))
        return otherwise;
    if (!object.at(key).is_string())
        refuse(key, "a text");
    return object.at(key).get<std::string>();
}

void refuseUnknownKeys(const json &object, const std::set<std::string> &known)
{
    for (const auto &item : object.items()) {
        if (known.count(item.key()) == 0)
            throw std::invalid_argument("unknown key \"" + item.key() + "\"");
    }
}

FaultMatch matchFromJson(const json &object)
{
    if (!object.is_object())
        refuse("match", "an object");
    refuseUnknownKeys(object, {"path", "is", "product", "every", "next", "probability", "seed"});
    FaultMatch match;
    match.path = textOf(object, "path");
    match.is = textOf(object, "is");
    match.product = textOf(object, "product");
    if (object.contains("every"))
        match.every = wholeNumber(object, "every", 1, UINT32_MAX);
    if (object.contains("next"))
        match.next = wholeNumber(object, "next", 1, UINT32_MAX);
    if (object.contains("probability")) {
        const json &value = object.at("probability");
        if (!value.is_number() || value.get<double>() < 0 || value.get<double>() > 1)
            refuse("probability", "a number from 0 to 1");
        match.probability = value.get<double>();
    }
    if (object.contains("seed") && !match.probability)
        throw std::invalid_argument("\"seed\" belongs to \"probability\"");
    if (object.contains("seed"))
        match.seed = wholeNumber(object, "seed", 0, UINT64_MAX);
    if ((match.every > 0) + (match.next > 0) + match.probability.has_value() > 1)
        throw std::invalid_argument(
            "only one of \"every\", \"next\", \"probability\" may be given");
    return match;
}

void readParameters(FaultRule &rule, const json &object)
{
    const bool hasBytes = object.contains("bytes");
    switch (rule.kind) {
    case FaultKind::Delay:
        if (!object.contains("ms"))
            throw std::invalid_argument("\"ms\" is missing");
        rule.number = wholeNumber(object, "ms", 0, MAX_DELAY_MS);
        break;
    case FaultKind::Stall: {
        const std::string at = textOf(object, "at", "before");
        if (at != "before" && at != "body")
            refuse("at", "\"before\" or \"body\"");
        rule.stallsInBody = at == "body";
        break;
    }
    case FaultKind::Drip:
        if (!object.contains("bytes_per_second"))
            throw std::invalid_argument("\"bytes_per_second\" is missing");
        rule.number = wholeNumber(object, "bytes_per_second", 1, UINT32_MAX);
        break;
    case FaultKind::Cut:
        if (hasBytes)
            rule.bytes = wholeNumber(object, "bytes", 0, MAX_BYTES);
        break;
    case FaultKind::Status:
        if (!object.contains("code"))
            throw std::invalid_argument("\"code\" is missing");
        rule.number = wholeNumber(object, "code", 200, 999);
        break;
    case FaultKind::Echo:
        rule.text = textOf(object, "text", "other");
        break;
    case FaultKind::Refuse:
        rule.code = textOf(object, "code", "99");
        rule.text = textOf(object, "message", "refused by a fault rule");
        break;
    case FaultKind::Huge:
        rule.number = hasBytes ? wholeNumber(object, "bytes", 1, MAX_BYTES) : HUGE_BYTES;
        break;
    case FaultKind::Close:
    case FaultKind::Reset:
    case FaultKind::Space:
    case FaultKind::Malformed:
        break;
    }
}

/// "503" is a number, "0.5" as well; what else there is stays text.
json valueFromText(const std::string &text)
{
    const json number = json::parse(text, nullptr, false);
    return number.is_number() ? number : json(text);
}

std::vector<std::string> split(const std::string &text, char separator, size_t most)
{
    std::vector<std::string> parts;
    size_t begin = 0;
    while (parts.size() + 1 < most) {
        const size_t end = text.find(separator, begin);
        if (end == std::string::npos)
            break;
        parts.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    parts.push_back(text.substr(begin));
    return parts;
}

/// "refuse:12:no" becomes {"fault": "refuse", "code": "12", "message": "no"}.
json kindFromText(const std::string &text)
{
    const std::string name = text.substr(0, text.find(':'));
    const KindDescription &description = describe(name);
    json object = {{"fault", name}};
    if (name.size() == text.size())
        return object;
    if (description.parameters.empty())
        throw std::invalid_argument("\"" + name + "\" takes no value");
    const std::vector<std::string> values =
        split(text.substr(name.size() + 1), ':', description.parameters.size());
    const bool takesText =
        description.kind == FaultKind::Echo || description.kind == FaultKind::Refuse;
    for (size_t i = 0; i < values.size(); ++i)
        object[description.parameters[i]] = takesText ? json(values[i]) : valueFromText(values[i]);
    return object;
}

} // namespace

std::string nameOf(FaultKind kind)
{
    return describe(kind).name;
}

FaultRule FaultRule::fromJson(const json &object)
{
    if (!object.is_object())
        throw std::invalid_argument("a fault rule must be an object");
    if (!object.contains("fault"))
        throw std::invalid_argument("\"fault\" is missing");
    const KindDescription &description = describe(textOf(object, "fault"));
    std::set<std::string> known = {"id", "enabled", "match", "fault", "hits"};
    known.insert(description.parameters.begin(), description.parameters.end());
    refuseUnknownKeys(object, known);

    FaultRule rule;
    rule.kind = description.kind;
    if (object.contains("enabled")) {
        if (!object.at("enabled").is_boolean())
            refuse("enabled", "true or false");
        rule.enabled = object.at("enabled").get<bool>();
    }
    if (object.contains("match"))
        rule.match = matchFromJson(object.at("match"));
    readParameters(rule, object);
    rule.random.seed(rule.match.seed);
    return rule;
}

FaultRule FaultRule::fromText(const std::string &text)
{
    const std::vector<std::string> parts = split(text, ',', SIZE_MAX);
    json object = kindFromText(parts.front());
    json match = json::object();
    for (size_t i = 1; i < parts.size(); ++i) {
        const size_t equals = parts[i].find('=');
        if (equals == std::string::npos)
            throw std::invalid_argument("\"" + parts[i] + "\" is not KEY=VALUE");
        const std::string key = parts[i].substr(0, equals);
        const std::string value = parts[i].substr(equals + 1);
        const bool isText = key == "path" || key == "is" || key == "product";
        match[key] = isText ? json(value) : valueFromText(value);
    }
    object["match"] = match;
    return fromJson(object);
}

json FaultRule::toJson() const
{
    json matching = json::object();
    if (!match.path.empty())
        matching["path"] = match.path;
    if (!match.is.empty())
        matching["is"] = match.is;
    if (!match.product.empty())
        matching["product"] = match.product;
    if (match.every > 0)
        matching["every"] = match.every;
    if (match.next > 0)
        matching["next"] = match.next;
    if (match.probability) {
        matching["probability"] = *match.probability;
        matching["seed"] = match.seed;
    }
    json object = {{"id", id},
                   {"enabled", enabled},
                   {"match", matching},
                   {"fault", nameOf(kind)},
                   {"hits", hits}};
    switch (kind) {
    case FaultKind::Delay:
        object["ms"] = number;
        break;
    case FaultKind::Stall:
        object["at"] = stallsInBody ? "body" : "before";
        break;
    case FaultKind::Drip:
        object["bytes_per_second"] = number;
        break;
    case FaultKind::Cut:
        if (bytes)
            object["bytes"] = *bytes;
        break;
    case FaultKind::Status:
        object["code"] = number;
        break;
    case FaultKind::Echo:
        object["text"] = text;
        break;
    case FaultKind::Refuse:
        object["code"] = code;
        object["message"] = text;
        break;
    case FaultKind::Huge:
        object["bytes"] = number;
        break;
    case FaultKind::Close:
    case FaultKind::Reset:
    case FaultKind::Space:
    case FaultKind::Malformed:
        break;
    }
    return object;
}

void FaultRule::setEnabled(bool on)
{
    if (on && !enabled)
        candidates = 0;
    enabled = on;
}

bool FaultRule::meets(const FaultTarget &target)
{
    const bool isPrefix = !match.path.empty() && match.path.back() == '*';
    const bool pathFits = isPrefix
        ? target.path.compare(0, match.path.size() - 1, match.path, 0, match.path.size() - 1) == 0
        : match.path.empty() || target.path == match.path;
    if (!enabled || !pathFits || (!match.is.empty() && target.is != match.is)
        || (!match.product.empty() && target.product != match.product))
        return false;

    ++candidates;
    if (match.every > 0 && candidates % match.every != 0)
        return false;
    if (match.next > 0 && candidates > match.next)
        return false;
    if (match.probability
        && std::uniform_real_distribution<double>(0, 1)(random) >= *match.probability)
        return false;
    ++hits;
    return true;
}
