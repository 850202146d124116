// Runs a fuzz target over files and directories of inputs, without a fuzzer.
#include <QDirIterator>
#include <QFile>

#include <cstdint>
#include <cstdio>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

int main(int argc, char **argv)
{
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        QDirIterator inputs(QString::fromLocal8Bit(argv[i]), QDir::Files);
        for (; inputs.hasNext(); ++count) {
            QFile file(inputs.next());
            if (!file.open(QIODevice::ReadOnly))
                return 2;
            const QByteArray bytes = file.readAll();
            LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t *>(bytes.constData()),
                                   static_cast<size_t>(bytes.size()));
        }
    }
    std::printf("%d inputs\n", count);
    return count > 0 ? 0 : 1;
}
