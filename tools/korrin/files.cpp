#include "files.h"

#include "exitstatus.h"

#include <QCryptographicHash>
#include <QFile>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <pthread.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

char currentTemporary[PATH_MAX]; ///< what removeCurrent() removes
volatile std::sig_atomic_t hasCurrentTemporary = 0;

[[noreturn]] void fail(const std::string &what, const std::string &path)
{
    throw Failure(EXIT_SYSTEM, "cannot " + what + " " + path + ": " + std::strerror(errno));
}

class Descriptor
{
public:
    explicit Descriptor(int number) : number(number) { }
    ~Descriptor()
    {
        if (number > STDERR_FILENO)
            close(number);
    }
    Descriptor(const Descriptor &) = delete;
    Descriptor &operator=(const Descriptor &) = delete;
    const int number;
};

/// No signal is handled while it lives.
class SignalsBlocked
{
public:
    SignalsBlocked()
    {
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, &before);
    }
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }
    SignalsBlocked(const SignalsBlocked &) = delete;
    SignalsBlocked &operator=(const SignalsBlocked &) = delete;

private:
    sigset_t before;
};

/// Where a symbolic link leads, so that the file is replaced and not the link.
std::string followed(const std::string &path)
{
    char real[PATH_MAX];
    return realpath(path.c_str(), real) ? real : path;
}

std::string directoryOf(const std::string &path)
{
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

std::string nameOf(const std::string &path)
{
    const size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

void sync(const std::string &path, int flags)
{
    const Descriptor fd(open(path.c_str(), flags | O_CLOEXEC));
    if (fd.number < 0 || fsync(fd.number) != 0)
        fail("sync", path);
}

/// The mode of the file that is replaced, or that of a new one.
mode_t modeFor(const std::string &target)
{
    struct stat status = {};
    if (stat(target.c_str(), &status) == 0) {
        if (!S_ISREG(status.st_mode))
            throw Failure(EXIT_SYSTEM, target + " is not a regular file");
        return status.st_mode & 07777;
    }
    if (lstat(target.c_str(), &status) == 0)
        throw Failure(EXIT_SYSTEM, target + " is a link that leads nowhere");
    const mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

} // namespace

std::string contentsOf(const std::string &path)
{
    const Descriptor fd(path == "-" ? STDIN_FILENO : open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::string result;
    char piece[65536];
    ssize_t got = fd.number < 0 ? -1 : 1;
    while (got > 0) {
        got = read(fd.number, piece, sizeof piece);
        if (got > 0)
            result.append(piece, static_cast<size_t>(got));
    }
    if (got < 0)
        fail("read", path);
    return result;
}

void writeOut(const std::string &data)
{
    std::fwrite(data.data(), 1, data.size(), stdout);
    if (std::fflush(stdout) != 0 || std::ferror(stdout))
        throw Failure(EXIT_SYSTEM, "standard output cannot be written");
}

std::string sha256Of(const std::string &path)
{
    QFile file(QFile::decodeName(path.c_str()));
    QCryptographicHash hash(QCryptographicHash::Sha256);
    if (!file.open(QIODevice::ReadOnly) || !hash.addData(&file))
        fail("read", path);
    return hash.result().toHex().toStdString();
}

TemporaryFile::TemporaryFile(const std::string &wanted) : target(followed(wanted))
{
    mode = modeFor(target);
    const std::string directory = directoryOf(target);
    name = directory + (directory == "." ? "/." : ".") + nameOf(target) + ".XXXXXX";
    const SignalsBlocked blocked;
    const Descriptor fd(mkostemp(name.data(), O_CLOEXEC));
    if (fd.number < 0) {
        name.clear();
        fail("create a file beside", target);
    }
    currentTemporary[name.copy(currentTemporary, sizeof currentTemporary - 1)] = '\0';
    hasCurrentTemporary = 1;
}

TemporaryFile::~TemporaryFile()
{
    if (!name.empty())
        removeCurrent();
}

void TemporaryFile::commit()
{
    if (chmod(name.c_str(), mode) != 0)
        fail("set the mode of", name);
    sync(name, O_RDONLY);
    if (rename(name.c_str(), target.c_str()) != 0)
        fail("replace", target);
    hasCurrentTemporary = 0;
    name.clear();
    sync(directoryOf(target), O_RDONLY | O_DIRECTORY);
}

void TemporaryFile::removeCurrent()
{
    if (hasCurrentTemporary)
        unlink(currentTemporary);
    hasCurrentTemporary = 0;
}
