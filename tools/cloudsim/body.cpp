#include "body.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

/// SplitMix64 (Steele, Lea, Flood, OOPSLA 2014): any word of the sequence without those before it.
uint64_t mixed(uint64_t seed, uint64_t index)
{
    uint64_t word = seed + (index + 1) * 0x9e3779b97f4a7c15u;
    word = (word ^ (word >> 30)) * 0xbf58476d1ce4e5b9u;
    word = (word ^ (word >> 27)) * 0x94d049bb133111ebu;
    return word ^ (word >> 31);
}

class File
{
public:
    explicit File(const std::string &path) : fd(open(path.c_str(), O_RDONLY | O_CLOEXEC))
    {
        struct stat status = {};
        if (fd < 0 || fstat(fd, &status) != 0)
            throw std::runtime_error("cannot read the file " + path + ": " + std::strerror(errno));
        if (!S_ISREG(status.st_mode))
            throw std::runtime_error("cannot read the file " + path + ": it is no regular file");
        sizeBytes = static_cast<uint64_t>(status.st_size);
    }
    ~File() { close(fd); }
    File(const File &) = delete;
    File &operator=(const File &) = delete;

    uint64_t size() const { return sizeBytes; }

    /// What the file has lost since it was opened is read as zeroes.
    void read(uint64_t offset, char *out, size_t count) const
    {
        while (count > 0) {
            const ssize_t got = pread(fd, out, count, static_cast<off_t>(offset));
            if (got <= 0) {
                std::memset(out, 0, count);
                return;
            }
            offset += static_cast<uint64_t>(got);
            out += got;
            count -= static_cast<size_t>(got);
        }
    }

private:
    const int fd;
    uint64_t sizeBytes = 0;
};

} // namespace

Body::Body(uint64_t size, Reader contents) : sizeBytes(size), reader(std::move(contents)) { }

Body::Body(std::string text) : sizeBytes(text.size())
{
    reader = [shared = std::make_shared<const std::string>(std::move(text))](
                 uint64_t offset, char *out, size_t count) {
        std::memcpy(out, shared->data() + offset, count);
    };
}

Body Body::madeUp(uint64_t size, uint64_t seed)
{
    return Body(size, [seed](uint64_t offset, char *out, size_t count) {
        for (size_t i = 0; i < count;) {
            const uint64_t position = offset + i;
            const uint64_t word = mixed(seed, position / 8);
            const size_t skip = position % 8;
            const size_t take = std::min(count - i, 8 - skip);
            std::memcpy(out + i, reinterpret_cast<const char *>(&word) + skip, take);
            i += take;
        }
    });
}

Body Body::padded(Body body, uint64_t at, uint64_t count, char filler)
{
    const uint64_t total = body.size() + count;
    return Body(
        total,
        [body = std::move(body), at, count, filler](uint64_t offset, char *out, size_t size) {
            while (size > 0) {
                size_t take;
                if (offset < at) {
                    take = static_cast<size_t>(std::min<uint64_t>(size, at - offset));
                    body.read(offset, out, take);
                } else if (offset < at + count) {
                    take = static_cast<size_t>(std::min<uint64_t>(size, at + count - offset));
                    std::memset(out, filler, take);
                } else {
                    take = size;
                    body.read(offset - count, out, take);
                }
                offset += take;
                out += take;
                size -= take;
            }
        });
}

Body Body::fromFile(const std::string &path)
{
    auto file = std::make_shared<const File>(path);
    const uint64_t size = file->size();
    return Body(size, [file = std::move(file)](uint64_t offset, char *out, size_t count) {
        file->read(offset, out, count);
    });
}

std::string Body::text() const
{
    std::string result(static_cast<size_t>(sizeBytes), '\0');
    read(0, result.data(), result.size());
    return result;
}
