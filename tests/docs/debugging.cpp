// The examples of docs/debugging.md: what a Qt host does with the library's debug messages.
// Usage: debugging URL
#include <QCoreApplication>
#include <QTime>

#include <cstdio>
#include <korrin.h>

namespace
{

// [handler]
void writeMessage(QtMsgType, const QMessageLogContext &, const QString &message)
{
    std::fprintf(stderr, "%s %s\n", qPrintable(QTime::currentTime().toString(Qt::ISODateWithMs)),
                 message.toLocal8Bit().constData());
}
// [handler]

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    // [install]
    qInstallMessageHandler(writeMessage);
    korrinEnableDebugOutput(1);
    // [install]
    korrinOpen();
    void *handle = korrinCreateHandle();
    korrinSetParameter(handle, KORRIN_KEY_SERVER_URL, argc > 1 ? argv[1] : "");
    korrinSetParameter(handle, KORRIN_KEY_MODE, KORRIN_MODE_REMOTE_ACCESS);
    korrinSetParameter(handle, KORRIN_KEY_PRODUCT_NO, "KX-100");
    const int result = korrinCheckEnable(handle);
    korrinClose();
    return result ? 0 : 1;
}
