// The content of the log file and of its temporary file, parted by a line "--": each record is read
// once, what remains is rewritten, and a record that is appended to it stays whole.
#include "cloudlogfile.h"

#include <QFile>
#include <QTemporaryDir>

#include <cstdint>
#include <cstdlib>

namespace
{

const QByteArray RECORD = QByteArrayLiteral("is=cloudlog&lang=en");
const QByteArray RECORD_BEGIN = QByteArrayLiteral("is=cloudlog&lang=");

void require(bool condition)
{
    if (!condition)
        std::abort();
}

void write(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    require(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
}

/// Whether a record appended to it continues its last line: neither a record, whole or torn, nor
/// marked as sent.
bool endsInForeignText(const QByteArray &log)
{
    const QByteArray line = log.mid(log.lastIndexOf('\n') + 1);
    return !line.isEmpty() && !line.startsWith('\0') && !line.startsWith(RECORD_BEGIN)
        && !RECORD_BEGIN.startsWith(line);
}

/// Reads all; the rest behind @p recordsUntilRewritten takes the file's place first, unless it is
/// negative. @return the record read last
QByteArray readAll(const QString &path, const QString &tempPath, int recordsUntilRewritten)
{
    CloudLogFile file(path, tempPath);
    require(file.openForSending());
    QByteArray record;
    QByteArray last;
    for (int count = 0; file.readRecord(&record); ++count) {
        require(!record.contains('\r'));
        if (count == recordsUntilRewritten) {
            require(file.keepRest());
            return readAll(path, tempPath, -1);
        }
        last = record;
        file.dropRecord();
    }
    require(file.finish());
    return last;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const QTemporaryDir directory;
    const QString path = directory.filePath(QStringLiteral("cloudlog.txt"));
    const QString tempPath = path + QLatin1Char('_');
    const QByteArray bytes(reinterpret_cast<const char *>(data), static_cast<int>(size));
    const auto parting = bytes.indexOf("--\n");
    const QByteArray log = parting < 0 ? bytes : bytes.left(parting);
    QFile::remove(tempPath);
    write(path, log);
    if (parting >= 0)
        write(tempPath, bytes.mid(parting + 3));

    require(CloudLogFile(path, tempPath).append(RECORD, -1));
    const QByteArray last = readAll(path, tempPath, 2);
    require(endsInForeignText(log) || last == RECORD + '\n');
    require(parting >= 0 || !QFile::exists(path));
    return 0;
}
