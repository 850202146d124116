#ifndef KORRIN_TESTS_CURL_H
#define KORRIN_TESTS_CURL_H

#include <QByteArray>
#include <QList>

namespace korrintest
{

struct CurlResult {
    int exitStatus = -1; ///< of curl(1): 0 when an answer came, e.g. 52 for an empty one
    int status = 0;      ///< HTTP status of the last answer
    QByteArray head;     ///< of the last answer, without the empty line
    QByteArray body;

    /// A header's value, empty when there is none.
    QByteArray header(const QByteArray &name) const;
};

/// Runs curl(1), without configuration files and proxies, with these arguments.
CurlResult curl(const QList<QByteArray> &arguments);

} // namespace korrintest

#endif
