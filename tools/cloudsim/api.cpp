#include "api.h"

#include "configuration.h"
#include "jsontext.h"
#include "page.h"

#include <algorithm>

namespace
{

using nlohmann::json;

const char API[] = "/_sim/api/";
const std::chrono::seconds EVENT_COMMENT_INTERVAL(15);
const uint64_t MAX_LIMIT = 10000;
const size_t MAX_BODY_BYTES = 65536;

/// What ends a request with a status other than 200.
struct ApiError {
    int status;
    std::string message;
};

uint64_t numberFrom(const std::string &text, const std::string &what)
{
    const bool isNumber = !text.empty() && text.size() <= 18
        && text.find_first_not_of("0123456789") == std::string::npos;
    if (!isNumber)
        throw ApiError{400, what + " must be a whole number"};
    return std::stoull(text);
}

uint64_t numberOf(const httplib::Request &request, const std::string &key, uint64_t otherwise)
{
    return request.has_param(key) ? numberFrom(request.get_param_value(key), "\"" + key + "\"")
                                  : otherwise;
}

Filter filterOf(const httplib::Request &request, uint64_t defaultLimit)
{
    Filter filter;
    filter.limit = std::min(numberOf(request, "limit", defaultLimit), MAX_LIMIT);
    filter.before = numberOf(request, "before", 0);
    filter.after = numberOf(request, "after", 0);
    filter.text = request.get_param_value("q");
    filter.is = request.get_param_value("is");
    filter.product = request.get_param_value("product");
    filter.path = request.get_param_value("path");
    return filter;
}

json parsed(const std::string &body)
{
    if (body.size() > MAX_BODY_BYTES)
        throw ApiError{413, "the body is longer than " + std::to_string(MAX_BODY_BYTES) + " bytes"};
    json result = json::parse(body, nullptr, false);
    if (result.is_discarded())
        throw ApiError{400, "the body is not JSON"};
    return result;
}

/// A page of another origin can send forms, but not this type without being asked first.
void requireJson(const httplib::Request &request)
{
    if (request.get_header_value("Content-Type").compare(0, 16, "application/json") != 0)
        throw ApiError{415, "the Content-Type must be application/json"};
}

void sendPage(httplib::Response &response)
{
    response.set_header("Content-Security-Policy",
                        "default-src 'none'; style-src 'unsafe-inline'; script-src 'unsafe-inline';"
                        " connect-src 'self'; img-src data:; base-uri 'none';"
                        " form-action 'none'; frame-ancestors 'none'");
    response.set_header("X-Content-Type-Options", "nosniff");
    response.set_content(std::string(pageHtml()), "text/html; charset=UTF-8");
}

} // namespace

json faultsToJson(const FaultBook &faults)
{
    json rules = json::array();
    for (const FaultRule &rule : faults.all())
        rules.push_back(rule.toJson());
    return {{"faults", rules}};
}

Api::Api(const Catalogue &catalogue, Store &store, FaultBook &faults, EventHub &events,
         std::string url, std::string version)
    : catalogue(catalogue), store(store), faults(faults), events(events), url(std::move(url)),
      version(std::move(version))
{
}

void Api::handle(const httplib::Request &request, const std::string &body,
                 httplib::Response &response)
{
    response.set_header("Cache-Control", "no-store");
    if (request.path == "/" || request.path == "/_sim") {
        response.set_redirect("/_sim/");
        return;
    }
    if (request.path == "/_sim/") {
        sendPage(response);
        return;
    }
    if (request.path == std::string(API) + "events" && request.method == "GET") {
        sendEvents(response);
        return;
    }
    int status = 200;
    json result;
    try {
        result = answer(request, body, status);
    } catch (const ApiError &error) {
        status = error.status;
        result = {{"error", error.message}};
    }
    response.status = status;
    response.set_content(jsonText(result), "application/json");
}

json Api::answer(const httplib::Request &request, const std::string &body, int &status)
{
    const std::string api = API;
    if (request.path.compare(0, api.size(), api) != 0)
        throw ApiError{404, "there is nothing here"};
    const std::string what = request.path.substr(api.size());
    const std::string oneFault = "faults/";
    const bool isOneFault = what.compare(0, oneFault.size(), oneFault) == 0;

    if (request.method == "GET" || request.method == "HEAD")
        return read(request, what);
    requireJson(request);
    if (request.method == "POST" && what == "faults") {
        status = 201;
        return addFault(body);
    }
    if (request.method == "PATCH" && isOneFault)
        return switchFault(numberFrom(what.substr(oneFault.size()), "the id"), body);
    if (request.method == "DELETE" && isOneFault)
        return removeFault(numberFrom(what.substr(oneFault.size()), "the id"));
    if (request.method == "DELETE" && what == "faults") {
        faults.clear();
        tellFaults();
        return json::object();
    }
    if (request.method == "DELETE" && what == "exchanges") {
        store.clear();
        events.publish("cleared", json::object());
        return json::object();
    }
    throw ApiError{405, "that is not possible here"};
}

json Api::read(const httplib::Request &request, const std::string &what)
{
    const std::string oneExchange = "exchanges/";
    if (what.compare(0, oneExchange.size(), oneExchange) == 0) {
        const auto found = store.exchange(numberFrom(what.substr(oneExchange.size()), "the id"));
        if (!found)
            throw ApiError{404, "there is no such exchange"};
        return *found;
    }
    if (what == "info")
        return info();
    if (what == "exchanges")
        return {{"exchanges", store.exchanges(filterOf(request, 100))}};
    if (what == "devices")
        return {{"devices", store.devices()}};
    if (what == "cloudlog")
        return {{"records", store.cloudLog(filterOf(request, 200))}};
    if (what == "reports")
        return {{"reports", store.reports()}};
    if (what == "objects")
        return {{"objects", store.objects()}};
    if (what == "faults")
        return faultsToJson(faults);
    if (what == "catalogue")
        return toJson(catalogue);
    throw ApiError{404, "there is nothing here"};
}

json Api::info()
{
    json result = store.counts();
    result["name"] = "korrin-cloudsim";
    result["version"] = version;
    result["url"] = url;
    result["started"] = isoTime(startedMs);
    return result;
}

json Api::addFault(const std::string &body)
{
    const json object = parsed(body);
    try {
        const json added = faults.add(FaultRule::fromJson(object)).toJson();
        tellFaults();
        return added;
    } catch (const std::invalid_argument &error) {
        throw ApiError{400, error.what()};
    }
}

json Api::switchFault(uint64_t id, const std::string &body)
{
    const json object = parsed(body);
    if (!object.is_object() || object.size() != 1 || !object.contains("enabled")
        || !object.at("enabled").is_boolean())
        throw ApiError{400, "expected {\"enabled\": true} or {\"enabled\": false}"};
    const auto rule = faults.setEnabled(id, object.at("enabled").get<bool>());
    if (!rule)
        throw ApiError{404, "there is no such rule"};
    tellFaults();
    return rule->toJson();
}

json Api::removeFault(uint64_t id)
{
    if (!faults.remove(id))
        throw ApiError{404, "there is no such rule"};
    tellFaults();
    return json::object();
}

void Api::tellFaults()
{
    events.publish("faults", faultsToJson(faults));
}

void Api::sendEvents(httplib::Response &response)
{
    const auto write = [listener = events.listen()](size_t, httplib::DataSink &sink) {
        const auto text = listener->take(EVENT_COMMENT_INTERVAL);
        if (!text)
            return false;
        const std::string chunk = text->empty() ? ":\n\n" : *text;
        return sink.write(chunk.data(), chunk.size());
    };
    response.set_chunked_content_provider("text/event-stream", write);
}
