#include "toolrun.h"

#include "sendsignal.h"

#include <QElapsedTimer>
#include <QProcess>
#include <QTest>

#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include <vector>

namespace korrintest
{

namespace
{

const int TIMEOUT_MS = 30000;

ToolResult finish(QProcess &process, const QElapsedTimer &timer)
{
    if (!process.waitForFinished(TIMEOUT_MS)) {
        process.kill();
        process.waitForFinished();
    }
    ToolResult result;
    result.exitStatus = process.exitStatus() == QProcess::NormalExit ? process.exitCode()
                                                                     : 128 + process.exitCode();
    result.out = process.readAllStandardOutput();
    result.err = process.readAllStandardError();
    result.elapsedMs = timer.elapsed();
    return result;
}

} // namespace

ToolResult runTool(const QStringList &arguments, const QString &directory, const QByteArray &input)
{
    QElapsedTimer timer;
    timer.start();
    QProcess process;
    process.setWorkingDirectory(directory);
    process.start(QStringLiteral(KORRIN_TOOL), arguments);
    process.write(input);
    process.closeWriteChannel();
    return finish(process, timer);
}

ToolResult runToolAndSignal(const QStringList &arguments, const QString &directory, int signal,
                            const std::function<bool()> &ready)
{
    QProcess process;
    process.setWorkingDirectory(directory);
    process.start(QStringLiteral(KORRIN_TOOL), arguments);
    process.waitForStarted();
    const bool isReady = QTest::qWaitFor(ready, TIMEOUT_MS);
    QElapsedTimer timer;
    timer.start();
    sendSignal(process.processId(), isReady ? signal : SIGKILL);
    return finish(process, timer);
}

ToolResult runToolOnTerminal(const QStringList &arguments, const QString &directory)
{
    std::vector<QByteArray> texts = {QByteArrayLiteral(KORRIN_TOOL)};
    for (const QString &argument : arguments)
        texts.push_back(argument.toLocal8Bit());
    std::vector<char *> argv;
    for (QByteArray &text : texts)
        argv.push_back(text.data());
    argv.push_back(nullptr);
    const QByteArray path = directory.toLocal8Bit();

    winsize size = {};
    size.ws_col = 120;
    size.ws_row = 24;
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, &size);
    if (child == 0) {
        if (chdir(path.constData()) == 0)
            execv(argv[0], argv.data());
        _exit(127);
    }
    ToolResult result;
    char piece[4096];
    for (ssize_t got = 0; (got = read(terminal, piece, sizeof piece)) > 0;)
        result.out.append(piece, static_cast<int>(got));
    int status = 0;
    waitpid(child, &status, 0);
    close(terminal);
    result.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return result;
}

} // namespace korrintest
