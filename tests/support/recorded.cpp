#include "recorded.h"

#include <QFile>
#include <QJsonDocument>

namespace korrintest
{

QJsonObject recordedObject(const QString &fileName)
{
    QFile file(QStringLiteral(KORRIN_TEST_DATA_DIR "/recorded/") + fileName);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QJsonDocument::fromJson(file.readAll()).object();
}

QJsonArray recordedCases(const QString &fileName)
{
    return recordedObject(fileName).value(QStringLiteral("cases")).toArray();
}

} // namespace korrintest
