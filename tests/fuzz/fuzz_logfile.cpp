// The content of the log file and of its temporary file, parted by a line "--": each record is read
// once, and what remains is rewritten.
#include "cloudlogfile.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <cstdint>
#include <cstdlib>

namespace
{

void write(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const QTemporaryDir directory;
    const QString path = directory.filePath(QStringLiteral("cloudlog.txt"));
    const QString tempPath = path + QLatin1Char('_');
    const QByteArray bytes(reinterpret_cast<const char *>(data), static_cast<int>(size));
    const auto parting = bytes.indexOf("--\n");
    QFile::remove(tempPath);
    write(path, parting < 0 ? bytes : bytes.left(parting));
    if (parting >= 0)
        write(tempPath, bytes.mid(parting + 3));

    CloudLogFile(path, tempPath).append("is=cloudlog&lang=en", -1);
    CloudLogFile file(path, tempPath);
    if (!file.openForSending())
        std::abort();
    QByteArray record;
    for (int count = 0; file.readRecord(&record); ++count) {
        if (record.contains('\r'))
            std::abort();
        if (count == 2)
            return file.keepRest() ? 0 : (std::abort(), 0);
        file.dropRecord();
    }
    if (!file.finish() || (parting < 0 && QFile::exists(path)))
        std::abort();
    return 0;
}
