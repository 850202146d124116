#include "directorylock.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/file.h>
#include <unistd.h>

DirectoryLock::DirectoryLock(const std::string &directory)
    : fd(open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
{
    if (fd < 0)
        throw std::runtime_error("directory " + directory + ": " + std::strerror(errno));
    if (flock(fd, LOCK_EX | LOCK_NB) == 0)
        return;
    const int error = errno;
    close(fd);
    throw std::runtime_error(error == EWOULDBLOCK
                                 ? "another simulator keeps its data in " + directory
                                 : "directory " + directory + ": " + std::strerror(error));
}

DirectoryLock::~DirectoryLock()
{
    close(fd);
}
