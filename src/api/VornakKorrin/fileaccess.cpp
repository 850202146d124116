#include "fileaccess.h"

#include "bytearraysize.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr mode_t OWNER_ONLY = S_IRUSR | S_IWUSR;
constexpr mode_t ANYBODY = OWNER_ONLY | S_IRGRP | S_IWGRP | S_IROTH | S_IWOTH;
constexpr qint64 LEAST_BLOCK_BYTES = 16 * 1024; // what a pipe holds has no size
constexpr std::chrono::seconds LOCK_TIMEOUT(5);
constexpr std::chrono::milliseconds LOCK_INTERVAL(2);

bool wouldBlock(int fd)
{
    return uninterrupted([fd] { return flock(fd, LOCK_EX | LOCK_NB); }) != 0
        && errno == EWOULDBLOCK;
}

/// Opens a file, but for a kind that @p isRefused.
template <typename Refusal>
int openUnless(const char *path, int flags, mode_t permissions, Refusal isRefused)
{
    const int fd =
        uninterrupted([=] { return open(path, flags | O_CLOEXEC | O_NOCTTY, permissions); });
    struct stat status = {};
    if (fd < 0 || (fstat(fd, &status) == 0 && !isRefused(status.st_mode)))
        return fd;
    close(fd);
    errno = EINVAL;
    return -1;
}

} // namespace

FileDescriptor::~FileDescriptor()
{
    if (number >= 0)
        close(number);
}

DirectoryLock::DirectoryLock(const char *path)
    : directory(uninterrupted([path] { return open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC); }))
{
    if (!directory.isOpen())
        return;
    const auto end = std::chrono::steady_clock::now() + LOCK_TIMEOUT;
    while (!(held = !wouldBlock(directory.get())) && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(LOCK_INTERVAL);
}

bool DirectoryLock::sync() const
{
    return directory.isOpen() && uninterrupted([this] { return fsync(directory.get()); }) == 0;
}

int openFile(const char *path, int flags)
{
    return openUnless(path, flags, ANYBODY, [](mode_t mode) { return S_ISDIR(mode); });
}

int openRegularFile(const char *path, int flags)
{
    // Not blocking: the path may lead to a pipe.
    return openUnless(path, flags | O_NONBLOCK, OWNER_ONLY,
                      [](mode_t mode) { return !S_ISREG(mode); });
}

ssize_t writeBytes(int fd, const char *data, size_t size)
{
    size_t done = 0;
    while (done < size) {
        const ssize_t written = uninterrupted([=] { return write(fd, data + done, size - done); });
        if (written <= 0)
            return done > 0 ? static_cast<ssize_t>(done) : -1;
        done += static_cast<size_t>(written);
    }
    return static_cast<ssize_t>(done);
}

bool writeAll(int fd, const char *data, size_t size)
{
    return writeBytes(fd, data, size) == static_cast<ssize_t>(size);
}

QByteArray readToEnd(int fd)
{
    struct stat status = {};
    fstat(fd, &status);
    // In one block where the size is known; a byte more tells that the end has come.
    QByteArray bytes;
    bytes.resize(toByteArraySize(std::max<qint64>(status.st_size + 1, LEAST_BLOCK_BYTES)));
    ByteArraySize done = 0;
    ssize_t got;
    while ((got = uninterrupted([&] {
                return read(fd, bytes.data() + done, static_cast<size_t>(bytes.size() - done));
            }))
           > 0) {
        done += static_cast<ByteArraySize>(got);
        if (done == bytes.size())
            bytes.resize(toByteArraySize(qint64(done) * 2));
    }
    bytes.resize(done);
    return bytes;
}

ssize_t readAllAt(int fd, char *out, size_t size, off_t offset)
{
    size_t done = 0;
    while (done < size) {
        const ssize_t got = uninterrupted(
            [=] { return pread(fd, out + done, size - done, offset + static_cast<off_t>(done)); });
        if (got < 0)
            return -1;
        if (got == 0)
            break;
        done += static_cast<size_t>(got);
    }
    return static_cast<ssize_t>(done);
}
