#include "faultclient.h"

#include "faultrule.h"
#include "jsontext.h"

#include <httplib.h>
#include <iostream>
#include <stdexcept>

namespace
{

using nlohmann::json;

const char FAULTS[] = "/_sim/api/faults";

/// "2  off  delay {"ms":500} where {"is":"chkud"}, met 3"
void print(const json &rule)
{
    json parameters = rule;
    for (const char *other : {"id", "enabled", "fault", "match", "hits"})
        parameters.erase(other);
    std::cout << rule.at("id") << (rule.at("enabled").get<bool>() ? "  on   " : "  off  ")
              << rule.at("fault").get<std::string>();
    if (!parameters.empty())
        std::cout << " " << jsonText(parameters);
    if (!rule.at("match").empty())
        std::cout << " where " << jsonText(rule.at("match"));
    std::cout << ", met " << rule.at("hits") << "\n";
}

} // namespace

std::string FaultClient::ask(const std::string &method, const std::string &path,
                             const std::string &body)
{
    const std::string base = url.substr(0, url.find_last_not_of('/') + 1);
    httplib::Client client(base);
    // The simulator is one's own, and its certificate usually made by oneself.
    client.enable_server_certificate_verification(false);
    httplib::Request request;
    request.method = method;
    request.path = path;
    request.body = body;
    request.set_header("Content-Type", "application/json");
    const httplib::Result result = client.send(request);
    if (!result)
        throw std::runtime_error(base + " does not answer: " + httplib::to_string(result.error()));
    if (result->status < 300)
        return result->body;
    const json answer = json::parse(result->body, nullptr, false);
    throw std::runtime_error(answer.is_object() && answer.contains("error")
                                 ? answer.at("error").get<std::string>()
                                 : base + " is no simulator: status "
                                     + std::to_string(result->status));
}

void FaultClient::list()
{
    const json answer = json::parse(ask("GET", FAULTS, ""));
    for (const json &rule : answer.at("faults"))
        print(rule);
}

void FaultClient::add(const std::string &rule)
{
    json object = FaultRule::fromText(rule).toJson();
    object.erase("id");
    print(json::parse(ask("POST", FAULTS, jsonText(object))));
}

void FaultClient::setEnabled(const std::string &id, bool enabled)
{
    const json wanted = {{"enabled", enabled}};
    print(json::parse(ask("PATCH", FAULTS + ("/" + id), jsonText(wanted))));
}

void FaultClient::remove(const std::string &id)
{
    ask("DELETE", FAULTS + ("/" + id), "");
}

void FaultClient::clear()
{
    ask("DELETE", FAULTS, "");
}
