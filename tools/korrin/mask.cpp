#include "mask.h"

#include <QByteArray>
#include <algorithm>
#include <korrin.h>

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

/// What stands between "//user:" and the last "@" before the next "/" or blank.
std::string withoutPasswords(const std::string &text)
{
    const char blanks[] = " \t\r\n\v\f";
    std::string result;
    size_t copied = 0;
    for (size_t at = text.find("//"); at != std::string::npos; at = text.find("//", at + 1)) {
        const size_t user = at + 2;
        const size_t colon = text.find_first_of(std::string("/@:") + blanks, user);
        if (colon == std::string::npos)
            break;
        if (text[colon] != ':')
            continue;
        const size_t end =
            std::min(text.find_first_of(std::string("/") + blanks, colon), text.size());
        const size_t sign = text.substr(colon, end - colon).rfind('@');
        if (sign != std::string::npos) {
            result.append(text, copied, colon + 1 - copied) += HIDDEN;
            copied = colon + sign;
        }
        at = end - 1;
    }
    return result.append(text, copied, std::string::npos);
}

/// What stands behind the name of the secret key's parameter, to the last quotation mark or the
/// end.
std::string withoutSecretKeys(const std::string &text)
{
    const std::string name = KORRIN_KEY_AWS_SECRET_ACCESS_KEY;
    for (size_t at = text.find(name); at != std::string::npos; at = text.find(name, at + 1)) {
        const size_t value = text.find_first_not_of("):= \t", at + name.size());
        if (value == std::string::npos)
            break;
        if (text[value] == '"')
            continue;
        const size_t quote = text.rfind('"');
        const bool isQuoted = quote != std::string::npos && quote > value;
        return text.substr(0, value) + HIDDEN + (isQuoted ? text.substr(quote) : std::string());
    }
    return text;
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
    std::string result = text;
    for (const std::string &secret : secrets)
        replaceAll(result, secret);
    return withoutSecretKeys(withoutPasswords(result));
}
