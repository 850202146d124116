// A Qt host whose event loop goes on while calls run: they are made in a worker thread, and their
// outcome comes back as a queued call. Usage: qthost URL
#include <QCoreApplication>
#include <QThread>
#include <QTimer>

#include <cstdio>
#include <korrin.h>

// [cloud]
/// Owns a handle and the thread that works with it. Lives in the host's thread.
class Cloud : public QObject
{
public:
    struct Outcome {
        bool succeeded;
        QByteArray newVersion;
        QByteArray errorDetail;
    };

    explicit Cloud(const QByteArray &url) : handle(korrinCreateHandle())
    {
        korrinSetParameter(handle, KORRIN_KEY_SERVER_URL, url.constData());
        korrinSetParameter(handle, KORRIN_KEY_MODE, KORRIN_MODE_UPDATE);
        korrinSetParameter(handle, KORRIN_KEY_PRODUCT_NO, "KX-100");
        korrinSetParameter(handle, KORRIN_KEY_SOFT_VER, "1.0");
        korrinSetParameter(handle, KORRIN_KEY_CLOUD_LOG_FILE_MAX_SIZE, "0");
        worker.moveToThread(&thread);
        thread.start();
    }

    /// Ends a call that is under way instead of waiting for it.
    ~Cloud() override
    {
        korrinDisposeHandle(handle);
        thread.quit();
        thread.wait();
    }

    /// @param done  called in the host's thread, unless this object is gone by then
    template <typename Done>
    void check(Done done)
    {
        QMetaObject::invokeMethod(&worker, [this, done] {
            Outcome outcome{korrinCheckEnable(handle) == 1, {}, {}};
            outcome.newVersion = korrinGetParameter(handle, KORRIN_KEY_NEW_SOFT_VER);
            outcome.errorDetail = korrinGetParameter(handle, KORRIN_KEY_ERROR_DETAIL);
            QMetaObject::invokeMethod(this, [done, outcome] { done(outcome); });
        });
    }

private:
    void *const handle; ///< used by the worker's thread once that runs
    QThread thread;
    QObject worker;
};
// [cloud]

int main(int argc, char **argv)
{
    if (argc != 2)
        return 64;
    QCoreApplication application(argc, argv); // before the library is opened
    korrinOpen();
    int exitStatus = 1;
    {
        Cloud cloud(argv[1]);
        // What the host has to do meanwhile.
        int ticks = 0;
        QTimer timer;
        QObject::connect(&timer, &QTimer::timeout, &timer, [&ticks] { ++ticks; });
        timer.start(10);

        cloud.check([&](const Cloud::Outcome &outcome) {
            std::printf("%s, %d ticks meanwhile\n",
                        outcome.succeeded ? outcome.newVersion.constData()
                                          : outcome.errorDetail.constData(),
                        ticks);
            application.exit(outcome.succeeded ? 0 : 1);
        });
        exitStatus = QCoreApplication::exec();
    }
    korrinClose();
    return exitStatus;
}
