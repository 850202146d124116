#ifndef KORRIN_CLOUDLOGFILE_H
#define KORRIN_CLOUDLOGFILE_H

#include "bytearraysize.h"

#include <QByteArray>
#include <QString>
#include <QVector>

#include <sys/types.h>

class DirectoryLock;

/// The file with the cloud log's kept records, a record a line. What a call has kept survives a
/// kill and a loss of power, and several threads and processes may use the same file.
///
/// Appending and the exchange of files happen under a lock on the directory, sending under a lock
/// on the file, which only one at a time has; both end with the process. A record that went out is
/// marked by a NUL byte at its line's beginning, so that a kill does not let it go out again.
/// Nothing is reported but success: the log is best effort (docs/decisions/0008, 0016).
class CloudLogFile
{
public:
    /// @param fileName      of the log
    /// @param tempFileName  what remains is collected here before it takes the log's place
    CloudLogFile(const QString &fileName, const QString &tempFileName);
    ~CloudLogFile();
    Q_DISABLE_COPY(CloudLogFile)

    /// Appends a record and its line break, and syncs them. @param maxSizeBytes  of the file with
    /// the record, without this line break; negative: no limit
    bool append(const QByteArray &record, qint64 maxSizeBytes);

    /// Opens the file to send what it holds. False when there is none, or another thread or process
    /// is sending it.
    bool openForSending();
    /// The next record that has not gone out, with its line break. False at the end, and where the
    /// file cannot be read on.
    bool readRecord(QByteArray *record);
    /// The record read last need not be sent again.
    void dropRecord();
    /// Leaves the record read last and all behind it in the file. False when they cannot be
    /// rewritten; then the file stays as it is.
    bool keepRest();
    /// Removes the file when everything was read; what was appended meanwhile is kept.
    bool finish();

private:
    struct Mark {
        off_t offset;
        char original;
    };

    bool fill();
    ByteArraySize fillToLineBreak();
    bool readLine(QByteArray *line);
    bool rewriteFrom(off_t offset, const DirectoryLock &lock);
    void removeRedundantTempFile();
    bool isBeginOfUnsent(int tempFile);
    void unmark();

    const QByteArray path;
    const QByteArray tempPath;
    const QByteArray secondTempPath; ///< for the case that there is a temporary file already
    const QByteArray directory;

    int fd = -1;
    bool canMark = false;
    bool isUnreadable = false; ///< the last look at the file ended in an error
    QByteArray buffer;         ///< read from the file, not yet taken
    off_t position = 0;        ///< in the file, of the buffer's first byte
    off_t recordOffset = 0;    ///< of the record read last
    char recordStart = 0;      ///< its first byte
    QVector<Mark> marks;
};

#endif
