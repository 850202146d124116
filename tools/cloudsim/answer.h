#pragma once

#include "body.h"
#include "faultbook.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

/// An answer before it becomes HTTP.
struct Answer {
    int status = 200;
    std::string contentType;
    Body body;
    std::map<std::string, std::string> headers;

    static Answer text(int status, const std::string &text);
};

/// The elements of one of the cloud's XML answers, in their order.
using Elements = std::vector<std::pair<std::string, std::string>>;

/// What a device's request is answered with. @p fault may change elements and form.
Answer xmlAnswer(const Elements &elements, const Fault &fault);

/// Text with what XML reserves escaped, and without the characters that XML 1.0 does not allow
/// (section 2.2).
std::string xmlEscaped(const std::string &text);

/// What the fault makes of a finished answer's size.
void fillUp(Answer &answer, const Fault &fault);
