#ifndef KORRIN_TESTS_RECORDED_H
#define KORRIN_TESTS_RECORDED_H

#include <QJsonArray>
#include <QJsonObject>

namespace korrintest
{

/// A file of tests/data/recorded; an empty object when it cannot be read.
QJsonObject recordedObject(const QString &fileName);

/// Its "cases".
QJsonArray recordedCases(const QString &fileName);

} // namespace korrintest

#endif
