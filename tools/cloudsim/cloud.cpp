#include "cloud.h"

#include "settings.h"

#include <algorithm>

namespace
{

const size_t PIECE_BYTES = 64 * 1024;
const size_t MAX_TEXT_BYTES = 1024 * 1024;

ServiceRequest serviceRequest(const httplib::Request &request, const std::string &body)
{
    ServiceRequest result;
    result.method = request.method;
    result.path = request.path;
    result.rawPath = request.target.substr(0, request.target.find('?'));
    result.headers.insert(request.headers.begin(), request.headers.end());
    result.body = body;
    return result;
}

/// GET requests have their items in the query, POST requests in the body: their query is what the
/// device's address for the server has.
QueryItems itemsOf(const httplib::Request &request, const std::string &body)
{
    if (request.method == "POST")
        return QueryItems(body);
    const size_t mark = request.target.find('?');
    return QueryItems(mark == std::string::npos ? std::string() : request.target.substr(mark + 1));
}

Subject subjectOf(const ServiceRequest &request, QueryItems items)
{
    Subject subject;
    subject.path = request.path;
    if (!UpdateService::serves(request.path))
        return subject;
    subject.is = items.value("is");
    subject.product = items.value("pn");
    subject.version = items.value(subject.is == "nsv" ? "nsv" : "sv");
    if (subject.is == "nsv")
        subject.result = items.value("st");
    if (subject.is == "cloudlog")
        subject.version = settingsFromSummary(items.value("pr")).value("soft_ver", "");
    subject.items = std::move(items);
    return subject;
}

bool isForPeople(const httplib::Request &request)
{
    const bool opensRoot = request.path == "/" && request.method == "GET"
        && request.get_header_value("Accept").find("text/html") != std::string::npos;
    return opensRoot || request.path == "/_sim" || request.path.compare(0, 6, "/_sim/") == 0;
}

/// RFC 9110, sections 15.3.5 and 15.4.5.
bool hasNoBody(int status)
{
    return status == 204 || status == 304;
}

void send(const Answer &answer, httplib::Response &response)
{
    response.status = answer.status;
    for (const auto &[name, value] : answer.headers)
        response.set_header(name, value);
    if (hasNoBody(answer.status) || (answer.body.size() == 0 && answer.contentType.empty()))
        return;
    if (answer.body.size() <= MAX_TEXT_BYTES) {
        response.set_content(answer.body.text(), answer.contentType);
        return;
    }
    const auto write = [body = answer.body](size_t offset, size_t length, httplib::DataSink &sink) {
        std::string piece(std::min(length, PIECE_BYTES), '\0');
        body.read(offset, piece.data(), piece.size());
        return sink.write(piece.data(), piece.size());
    };
    response.set_content_provider(answer.body.size(), answer.contentType, write);
}

} // namespace

Cloud::Cloud(const Catalogue &catalogue, Store &store, FaultBook &faults, EventHub &events,
             std::string url, std::string version)
    : faults(faults), events(events), updateService(catalogue), s3Service(catalogue, store),
      api(catalogue, store, faults, events, std::move(url), std::move(version))
{
}

void Cloud::handle(const httplib::Request &request, const std::string &body,
                   httplib::Response &response)
{
    ExchangeStream &stream = ExchangeStream::current();
    if (isForPeople(request)) {
        stream.setPassThrough();
        api.handle(request, body, response);
        return;
    }
    const ServiceRequest asked = serviceRequest(request, body);
    Subject subject = subjectOf(asked, itemsOf(request, body));
    subject.fault = faults.faultFor({subject.path, subject.is, subject.product});
    if (!subject.fault.kinds.empty())
        events.publish("faults", faultsToJson(faults));
    const Answer answer = answerDevice(asked, subject);
    subject.answerBodyBytes = request.method == "HEAD" ? 0 : answer.body.size();
    stream.setSubject(std::move(subject));
    send(answer, response);
}

Answer Cloud::answerDevice(const ServiceRequest &request, Subject &subject)
{
    const Fault &fault = subject.fault;
    Answer answer;
    if (fault.status != 0) {
        answer = Answer::text(fault.status,
                              "Status " + std::to_string(fault.status) + " by a fault rule.\n");
    } else if (UpdateService::serves(request.path)) {
        answer = updateService.answer(request, subject);
    } else if (s3Service.serves(request)) {
        bool stored = false;
        answer = s3Service.answer(request, fault, stored);
        if (stored)
            events.publish("objects", nlohmann::json::object());
    } else {
        answer = Answer::text(404, "There is nothing here.\n");
    }
    fillUp(answer, fault);
    return answer;
}
