// The content of the log file and of its temporary file, parted by a line "--": a record that is
// appended stays whole, and what remains behind some records is rewritten. Without a temporary file
// each record is read once, in order.
#include "cloudlogfile.h"

#include <QFile>
#include <QList>
#include <QTemporaryDir>

#include <cstdint>
#include <cstdlib>

namespace
{

const QByteArray RECORD = QByteArrayLiteral("is=cloudlog&lang=en");
const QByteArray RECORD_BEGIN = QByteArrayLiteral("is=cloudlog&lang=");
constexpr int RECORDS_UNTIL_REWRITTEN = 2;

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

QByteArray read(const QString &path)
{
    QFile file(path);
    require(file.open(QIODevice::ReadOnly));
    return file.readAll();
}

/// Whether a record appended to it continues its last line: neither a record, whole or torn, nor
/// marked as sent.
bool endsInForeignText(const QByteArray &log)
{
    const QByteArray line = log.mid(log.lastIndexOf('\n') + 1);
    return !line.isEmpty() && !line.startsWith('\0') && !line.startsWith(RECORD_BEGIN)
        && !RECORD_BEGIN.startsWith(line);
}

/// The records of a log that ends in a line break: the lines that are not marked as sent. Rewriting
/// takes "\r" out, which may uncover a mark.
QList<QByteArray> recordsOf(const QByteArray &log)
{
    QList<QByteArray> records;
    const QList<QByteArray> lines = log.left(log.size() - 1).split('\n');
    for (QByteArray line : lines) {
        const bool isMarked = line.startsWith('\0');
        line.replace("\r", "");
        const bool isRewritten = records.size() >= RECORDS_UNTIL_REWRITTEN;
        if (!isMarked && !(isRewritten && line.startsWith('\0')))
            records.append(line + '\n');
    }
    return records;
}

/// Reads all; the rest behind @p recordsUntilRewritten takes the file's place first, unless it is
/// negative. @return the records
QList<QByteArray> readAll(const QString &path, const QString &tempPath, int recordsUntilRewritten)
{
    CloudLogFile file(path, tempPath);
    require(file.openForSending());
    QList<QByteArray> records;
    QByteArray record;
    while (file.readRecord(&record)) {
        require(!record.contains('\r'));
        if (records.size() == recordsUntilRewritten) {
            require(file.keepRest());
            return records + readAll(path, tempPath, -1);
        }
        records.append(record);
        file.dropRecord();
    }
    require(file.finish());
    return records;
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
    const QByteArray appended = read(path);
    require(appended == log + RECORD + '\n' || appended == log + '\n' + RECORD + '\n');
    const QList<QByteArray> records = readAll(path, tempPath, RECORDS_UNTIL_REWRITTEN);
    require(!records.isEmpty());
    require(endsInForeignText(log) || records.last() == RECORD + '\n');
    if (parting < 0)
        require(records == recordsOf(appended) && !QFile::exists(path));
    return 0;
}
