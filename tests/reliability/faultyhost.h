#ifndef KORRIN_TESTS_FAULTYHOST_H
#define KORRIN_TESTS_FAULTYHOST_H

#include <QByteArray>
#include <QFile>
#include <QHash>
#include <QString>

namespace korrintest
{

/// The environment of a host whose file operations below @p directory go wrong as @p fault says,
/// for instance "write,2,28" or "any,7,kill" (tests/chost/filefaults.c).
inline QHash<QString, QString> faultEnvironment(const QString &directory, const QByteArray &fault)
{
    // Under a sanitizer, its runtime lets itself be preloaded behind another library only if told
    // so.
    return {{QStringLiteral("LD_PRELOAD"), QStringLiteral(KORRIN_TEST_FILEFAULTS)},
            {QStringLiteral("ASAN_OPTIONS"), QStringLiteral("verify_asan_link_order=0")},
            {QStringLiteral("KORRIN_FAULT_DIR"), directory},
            {QStringLiteral("KORRIN_FAULT"), QString::fromLatin1(fault)}};
}

/// Whether the call that was to go wrong has been made.
inline bool hasStruck(const QString &directory)
{
    return QFile::exists(directory + QStringLiteral("/.struck"));
}

} // namespace korrintest

#endif
