#ifndef KORRIN_TESTS_SCRIPTHOST_H
#define KORRIN_TESTS_SCRIPTHOST_H

#include <QByteArray>
#include <QHash>
#include <QProcess>
#include <QStringList>

namespace korrintest
{

/// Drives a plain C host in a process of its own: its working directory, environment and standard
/// error are the test's to choose.
class ScriptHost
{
public:
    struct Answer {
        int result = -1;
        QByteArray bytes;
    };

    /// @param runner  a program, and its arguments, that runs the host
    explicit ScriptHost(const QString &workingDirectory = QString(),
                        const QHash<QString, QString> &environment = {},
                        const QStringList &runner = {});
    /// Fails the test when the host has not ended well, unless it was killed.
    ~ScriptHost();

    /// Makes one call and waits for its answer.
    Answer call(const QByteArray &command);

    /// The handle's name for later calls; empty when none was created.
    QByteArray create() { return call("create").bytes; }
    int set(const QByteArray &handle, const QByteArray &key, const QByteArray &value);
    QByteArray get(const QByteArray &handle, const QByteArray &key);
    int check(const QByteArray &handle) { return call("check " + handle).result; }
    int send(const QByteArray &handle, const QByteArray &data);
    int sendFile(const QByteArray &handle, const QByteArray &path);
    int recvFile(const QByteArray &handle, const QByteArray &path);
    /// Sends the host's standard error to @p path from now on.
    void redirectErrors(const QString &path);

    /// Bytes as a word of a command.
    static QByteArray word(const QByteArray &bytes);

    /// What the host has written to standard error, unless redirected; ends it first.
    QByteArray finish();

private:
    bool hasEndedWell() const;

    QProcess process;
    bool isStuck = false;
};

} // namespace korrintest

#endif
