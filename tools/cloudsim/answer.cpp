#include "answer.h"

namespace
{

const std::string DECLARATION = R"(<?xml version="1.0" encoding="UTF-8"?>)";
const std::string XML_TYPE = "text/xml; charset=UTF-8";

} // namespace

Answer Answer::text(int status, const std::string &text)
{
    Answer answer;
    answer.status = status;
    answer.contentType = "text/plain; charset=UTF-8";
    answer.body = Body(text);
    return answer;
}

std::string xmlEscaped(const std::string &text)
{
    std::string result;
    for (const char c : text) {
        if (c == '&')
            result += "&amp;";
        else if (c == '<')
            result += "&lt;";
        else if (c == '>')
            result += "&gt;";
        else if (static_cast<unsigned char>(c) >= ' ' || c == '\t' || c == '\n' || c == '\r')
            result += c;
    }
    return result;
}

Answer xmlAnswer(const Elements &elements, const Fault &fault)
{
    // Devices take text between elements for the value of the one before: there is none.
    const std::string space = fault.addsSpace ? "\n  " : "";
    std::string text = DECLARATION + "<response>";
    for (const auto &[name, value] : elements) {
        const std::string &sent = name == "is" && fault.echoes ? fault.echo : value;
        text += space + "<" + name + ">" + xmlEscaped(sent) + "</" + name + ">";
    }
    text += (fault.addsSpace ? "\n" : "")
        + std::string(fault.breaksXml ? "</unclosed>" : "</response>");

    Answer answer;
    answer.contentType = XML_TYPE;
    answer.body = Body(text);
    return answer;
}

void fillUp(Answer &answer, const Fault &fault)
{
    const uint64_t size = answer.body.size();
    if (size >= fault.fillUpToBytes)
        return;
    // Into the message, so that XML stays XML; anything else grows at its end.
    uint64_t at = size;
    if (answer.contentType == XML_TYPE) {
        const size_t found = answer.body.text().find("</message>");
        at = found == std::string::npos ? size : found;
    }
    answer.body = Body::padded(answer.body, at, fault.fillUpToBytes - size, 'x');
}
