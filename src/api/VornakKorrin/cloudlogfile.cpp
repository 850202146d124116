#include "cloudlogfile.h"

#include "fileaccess.h"

#include <QFile>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr size_t PIECE_BYTES = 16 * 1024;
constexpr char SENT = '\0';
constexpr char RECORD_BEGIN[] = "is=cloudlog&lang=";

QByteArray directoryOf(const QByteArray &path)
{
    const auto slash = path.lastIndexOf('/');
    return slash < 0 ? QByteArrayLiteral(".") : path.left(slash + 1);
}

bool isSameFile(int fd, const char *path)
{
    struct stat open = {};
    struct stat named = {};
    return fstat(fd, &open) == 0 && stat(path, &named) == 0 && open.st_dev == named.st_dev
        && open.st_ino == named.st_ino;
}

off_t sizeOf(int fd)
{
    struct stat status = {};
    return fstat(fd, &status) == 0 ? status.st_size : 0;
}

bool exists(const char *path)
{
    struct stat status = {};
    return lstat(path, &status) == 0;
}

bool endsInLineBreak(int fd, off_t size)
{
    char last = '\n';
    return size == 0 || (readAllAt(fd, &last, 1, size - 1) == 1 && last == '\n');
}

/// Where the last line begins.
off_t lastLineOf(int fd, off_t size)
{
    char piece[PIECE_BYTES];
    while (size > 0) {
        const off_t begin = std::max<off_t>(size - static_cast<off_t>(sizeof piece), 0);
        const auto length = static_cast<size_t>(size - begin);
        if (readAllAt(fd, piece, length, begin) != static_cast<ssize_t>(length))
            return 0;
        const auto last = std::find(std::make_reverse_iterator(piece + length),
                                    std::make_reverse_iterator(piece), '\n');
        if (last.base() != piece)
            return begin + (last.base() - piece);
        size = begin;
    }
    return 0;
}

/// Whether the file ends in a record of which a loss of power has left only the beginning, or NUL
/// bytes in its place, or which has been marked as sent; or in what cannot be read.
bool endsInTornRecord(int fd, off_t size)
{
    if (endsInLineBreak(fd, size))
        return false;
    const off_t line = lastLineOf(fd, size);
    if (line == size)
        return false;
    char begin[sizeof RECORD_BEGIN];
    const auto length = std::min(static_cast<size_t>(size - line), sizeof RECORD_BEGIN - 1);
    if (readAllAt(fd, begin, length, line) != static_cast<ssize_t>(length))
        return true;
    return begin[0] == SENT || std::memcmp(begin, RECORD_BEGIN, length) == 0;
}

/// Copies a file from @p offset on; "\r" is left out, as in what is read to be sent.
bool copy(int source, off_t offset, int target)
{
    char piece[PIECE_BYTES];
    ssize_t got;
    while ((got = readAllAt(source, piece, sizeof piece, offset)) > 0) {
        offset += got;
        const char *end = std::remove(piece, piece + got, '\r');
        if (!writeAll(target, piece, static_cast<size_t>(end - piece)))
            return false;
    }
    return got == 0;
}

/// Copies a whole file and ends it in a line break.
bool copyLines(int source, int target)
{
    return copy(source, 0, target)
        && (endsInLineBreak(source, sizeOf(source)) || writeAll(target, "\n", 1));
}

bool sync(int fd)
{
    return uninterrupted([fd] { return fsync(fd); }) == 0;
}

} // namespace

CloudLogFile::CloudLogFile(const QString &fileName, const QString &tempFileName)
    : path(QFile::encodeName(fileName)), tempPath(QFile::encodeName(tempFileName)),
      secondTempPath(tempPath + '_'), directory(directoryOf(path))
{
}

CloudLogFile::~CloudLogFile()
{
    if (fd >= 0)
        close(fd);
}

bool CloudLogFile::append(const QByteArray &record, qint64 maxSizeBytes)
{
    // Made before the file is touched, since memory may end here.
    const QByteArray line = '\n' + record + '\n';
    const DirectoryLock lock(directory.constData());
    const bool isNew = !exists(path.constData());
    struct stat status = {};
    const off_t size = stat(path.constData(), &status) == 0 ? status.st_size : 0;
    if (maxSizeBytes >= 0 && size + record.size() > maxSizeBytes)
        return false;
    const FileDescriptor file(openRegularFile(path.constData(), O_RDWR | O_APPEND | O_CREAT));
    if (!file.isOpen())
        return false;
    const int skip = endsInTornRecord(file.get(), size) ? 0 : 1;
    if (!writeAll(file.get(), line.constData() + skip, static_cast<size_t>(line.size() - skip))) {
        // Half a record is worse than none; another one's is not to be cut off with it.
        if (lock.isHeld())
            uninterrupted([&] { return ftruncate(file.get(), size); });
        return false;
    }
    return sync(file.get()) && (!isNew || lock.sync());
}

bool CloudLogFile::openForSending()
{
    fd = openRegularFile(path.constData(), O_RDWR);
    canMark = fd >= 0;
    if (fd < 0)
        fd = openRegularFile(path.constData(), O_RDONLY);
    if (fd < 0)
        return false;
    const bool isTaken =
        uninterrupted([this] { return flock(fd, LOCK_EX | LOCK_NB); }) != 0 && errno == EWOULDBLOCK;
    // Whoever had the lock before may have put another file in its place.
    if (isTaken || !isSameFile(fd, path.constData()))
        return false;
    removeRedundantTempFile();
    return true;
}

/// Reads more into the buffer. False at the file's end, or on an error.
bool CloudLogFile::fill()
{
    const auto size = buffer.size();
    buffer.resize(size + static_cast<int>(PIECE_BYTES));
    const ssize_t got =
        readAllAt(fd, buffer.data() + size, PIECE_BYTES, position + static_cast<off_t>(size));
    buffer.resize(size + static_cast<int>(std::max<ssize_t>(got, 0)));
    isUnreadable = got < 0;
    return got > 0;
}

/// @return where the buffer's first line ends; negative when the file ends before
ByteArraySize CloudLogFile::fillToLineBreak()
{
    auto end = buffer.indexOf('\n');
    for (auto searched = buffer.size(); end < 0 && fill(); searched = buffer.size())
        end = buffer.indexOf('\n', searched);
    return end;
}

bool CloudLogFile::readLine(QByteArray *line)
{
    auto end = fillToLineBreak();
    if (buffer.isEmpty())
        return false;
    if (end < 0) {
        // It may be half of what another thread or process is appending.
        const DirectoryLock lock(directory.constData());
        end = fillToLineBreak();
    }
    // Half a record that cannot be read on is not taken for a whole one.
    if (end < 0 && isUnreadable)
        return false;
    *line = end < 0 ? buffer : buffer.left(end + 1);
    buffer.remove(0, line->size());
    recordOffset = position;
    position += line->size();
    return true;
}

bool CloudLogFile::readRecord(QByteArray *record)
{
    while (readLine(record)) {
        recordStart = record->at(0);
        if (recordStart == SENT)
            continue;
        record->replace("\r", "");
        return true;
    }
    return false;
}

void CloudLogFile::dropRecord()
{
    if (!canMark)
        return;
    marks.append({recordOffset, recordStart});
    uninterrupted([this] { return pwrite(fd, &SENT, 1, recordOffset); });
}

/// Makes the file again what it was.
void CloudLogFile::unmark()
{
    for (const Mark &mark : qAsConst(marks))
        uninterrupted([&] { return pwrite(fd, &mark.original, 1, mark.offset); });
    marks.clear();
}

bool CloudLogFile::keepRest()
{
    return rewriteFrom(recordOffset, DirectoryLock(directory.constData()));
}

bool CloudLogFile::finish()
{
    const DirectoryLock lock(directory.constData());
    if (sizeOf(fd) > position)
        return rewriteFrom(position, lock);
    // In one step where there is something to follow.
    if (std::rename(tempPath.constData(), path.constData()) != 0) {
        std::remove(path.constData());
        std::rename(tempPath.constData(), path.constData());
    }
    return lock.sync();
}

/// Lets what stands from @p offset on take the file's place, behind what an earlier, interrupted
/// run has left in the temporary file.
bool CloudLogFile::rewriteFrom(off_t offset, const DirectoryLock &lock)
{
    const bool hasStale = exists(tempPath.constData());
    const FileDescriptor stale(hasStale ? openRegularFile(tempPath.constData(), O_RDWR | O_APPEND)
                                        : -1);
    const char *const restPath = (hasStale ? secondTempPath : tempPath).constData();
    const FileDescriptor rest(
        hasStale && !stale.isOpen() ? -1 : openRegularFile(restPath, O_WRONLY | O_CREAT | O_TRUNC));
    if (!rest.isOpen()) {
        unmark();
        return false;
    }
    const bool isWritten = (!hasStale || copyLines(stale.get(), rest.get()))
        && copy(fd, offset, rest.get()) && sync(rest.get());
    if (!isWritten || std::rename(restPath, path.constData()) != 0) {
        std::remove(restPath);
        return false;
    }
    if (hasStale)
        std::remove(tempPath.constData());
    return lock.sync();
}

/// Removes a temporary file that a kill left behind while or after the log was rewritten: it holds
/// nothing that the log does not.
void CloudLogFile::removeRedundantTempFile()
{
    const FileDescriptor tempFile(openRegularFile(tempPath.constData(), O_RDONLY));
    if (!tempFile.isOpen())
        return;
    if (isBeginOfUnsent(tempFile.get()))
        std::remove(tempPath.constData());
    std::remove(secondTempPath.constData());
}

bool CloudLogFile::isBeginOfUnsent(int tempFile)
{
    QByteArray record;
    off_t unsent = readRecord(&record) ? recordOffset : position;
    buffer.clear();
    position = unsent;

    char here[PIECE_BYTES];
    char there[PIECE_BYTES];
    ssize_t got;
    for (off_t offset = 0; (got = readAllAt(tempFile, there, sizeof there, offset)) > 0;
         offset += got, unsent += got) {
        const auto size = static_cast<size_t>(got);
        if (readAllAt(fd, here, size, unsent) != got || std::memcmp(here, there, size) != 0)
            return false;
    }
    return got == 0;
}
