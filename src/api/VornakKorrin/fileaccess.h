#ifndef KORRIN_FILEACCESS_H
#define KORRIN_FILEACCESS_H

#include <QByteArray>

#include <cerrno>
#include <cstddef>

#include <sys/types.h>

/// Calls again what a signal interrupted; not for ever, whatever the system does (QFile would).
template <typename Call>
auto uninterrupted(Call call)
{
    const int mostCalls = 10000; // a pipe may keep a host with a timer waiting for seconds
    auto result = call();
    for (int calls = 1; result == -1 && errno == EINTR && calls < mostCalls; ++calls)
        result = call();
    return result;
}

/// A file descriptor for the length of a scope.
class FileDescriptor
{
public:
    explicit FileDescriptor(int number) : number(number) { }
    ~FileDescriptor();
    FileDescriptor(const FileDescriptor &) = delete;
    FileDescriptor &operator=(const FileDescriptor &) = delete;

    int get() const { return number; }
    bool isOpen() const { return number >= 0; }

private:
    const int number;
};

/// A lock on a directory that ends with the object, at the latest with the process. It is waited
/// for only for a while: a process that stands still must not hold up all others.
class DirectoryLock
{
public:
    explicit DirectoryLock(const char *path);

    /// False when another one has kept it for too long.
    bool isHeld() const { return held; }

    /// Makes what was created, renamed or removed in the directory survive a loss of power.
    bool sync() const;

private:
    const FileDescriptor directory;
    bool held = true;
};

/// Opens what the host names: a file, a device or a pipe; -1 for a directory. A file that is
/// created has the rights that the process's umask leaves.
int openFile(const char *path, int flags);

/// Opens a regular file; -1 for anything else. Never waits. A file that is created is its owner's
/// only.
int openRegularFile(const char *path, int flags);

/// @return the bytes written, fewer after an error; -1 when it left none
ssize_t writeBytes(int fd, const char *data, size_t size);
/// @return false unless everything was written
bool writeAll(int fd, const char *data, size_t size);

/// What there is to read up to the end or an error. Throws std::bad_alloc when that is too much.
QByteArray readToEnd(int fd);

/// Reads until @p size bytes are there or the file ends. @return the bytes read, -1 on an error
ssize_t readAllAt(int fd, char *out, size_t size, off_t offset);

#endif
