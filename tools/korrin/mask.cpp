#include "mask.h"

#include <QByteArray>
#include <algorithm>
#include <korrin.h>
#include <regex>

namespace
{

const char HIDDEN[] = "***";

/// Shorter ones would hide parts of innocent words; they are found by the place where they stand.
const size_t SHORTEST_SEARCHED_BYTES = 4;

std::string passwordOf(const std::string &url)
{
    const size_t at = url.rfind('@');
    const size_t begin = url.find("//");
    const size_t colon = url.find(':', begin == std::string::npos ? 0 : begin + 2);
    return at == std::string::npos || colon == std::string::npos || colon > at
        ? std::string()
        : url.substr(colon + 1, at - colon - 1);
}

/// @param kept  the reserved characters that stand for themselves, as in a query
std::string percentEncoded(const std::string &text, const char *kept = "")
{
    return QByteArray::fromStdString(text).toPercentEncoding(kept).toStdString();
}

std::string percentDecoded(const std::string &text)
{
    return QByteArray::fromPercentEncoding(QByteArray::fromStdString(text)).toStdString();
}

void replaceAll(std::string &text, const std::string &what)
{
    for (size_t at = text.find(what); at != std::string::npos;
         at = text.find(what, at + sizeof HIDDEN - 1))
        text.replace(at, what.size(), HIDDEN);
}

} // namespace

Mask::Mask(const Parameters &parameters)
{
    for (const auto &[key, value] : parameters) {
        if (key == KORRIN_KEY_AWS_SECRET_ACCESS_KEY)
            add(value);
        if (key == KORRIN_KEY_HTTP_PROXY || key == KORRIN_KEY_HTTPS_PROXY)
            add(passwordOf(value));
    }
    std::sort(secrets.begin(), secrets.end(),
              [](const std::string &a, const std::string &b) { return a.size() > b.size(); });
}

void Mask::add(const std::string &secret)
{
    for (const std::string &form : {secret, percentEncoded(secret), percentDecoded(secret),
                                    percentEncoded(secret, "!$'()*+,/:;=?@")}) {
        if (form.size() >= SHORTEST_SEARCHED_BYTES)
            secrets.push_back(form);
    }
}

std::string Mask::hidden(const std::string &text) const
{
    static const std::regex userInfo("(//[^/@:\\s]*:)[^/\\s]*@");
    static const std::regex secretLine(
        "(\\(aws_secret_access_key\\) ?|aws_secret_access_key:)[^\"]*");
    std::string result = text;
    for (const std::string &secret : secrets)
        replaceAll(result, secret);
    result = std::regex_replace(result, userInfo, "$1***@");
    return std::regex_replace(result, secretLine, "$1***");
}
