#include "fileaccess.h"

#include <chrono>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr mode_t OWNER_ONLY = S_IRUSR | S_IWUSR;
constexpr std::chrono::seconds LOCK_TIMEOUT(5);
constexpr std::chrono::milliseconds LOCK_INTERVAL(2);

bool wouldBlock(int fd)
{
    return uninterrupted([fd] { return flock(fd, LOCK_EX | LOCK_NB); }) != 0
        && errno == EWOULDBLOCK;
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
    while (wouldBlock(directory.get()) && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(LOCK_INTERVAL);
}

bool DirectoryLock::sync() const
{
    return directory.isOpen() && uninterrupted([this] { return fsync(directory.get()); }) == 0;
}

int openRegularFile(const char *path, int flags)
{
    // Not blocking: the path may lead to a pipe.
    const int fd = uninterrupted(
        [=] { return open(path, flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, OWNER_ONLY); });
    struct stat status = {};
    if (fd < 0 || (fstat(fd, &status) == 0 && S_ISREG(status.st_mode)))
        return fd;
    close(fd);
    errno = EINVAL;
    return -1;
}

bool writeAll(int fd, const char *data, size_t size)
{
    while (size > 0) {
        const ssize_t written = uninterrupted([=] { return write(fd, data, size); });
        if (written <= 0)
            return false;
        data += written;
        size -= static_cast<size_t>(written);
    }
    return true;
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
