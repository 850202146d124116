#pragma once

#include <cstdint>
#include <functional>
#include <string>

/// The bytes of an answer's body: those at hand as they are, large ones made when they are sent.
class Body
{
public:
    /// Writes the @p size bytes from @p offset on to @p out; they lie within the body.
    using Reader = std::function<void(uint64_t offset, char *out, size_t size)>;

    Body() = default;
    explicit Body(std::string text);

    /// Bytes that look random and are the same at every start, told apart by @p seed.
    static Body madeUp(uint64_t size, uint64_t seed);
    /// Bytes that another body is made of, with @p count times @p filler inserted at @p at.
    static Body padded(Body body, uint64_t at, uint64_t count, char filler);
    /// The contents of a file, opened now. @throw std::runtime_error when it cannot be read
    static Body fromFile(const std::string &path);

    uint64_t size() const { return sizeBytes; }
    void read(uint64_t offset, char *out, size_t count) const { reader(offset, out, count); }
    /// The whole body in memory.
    std::string text() const;

private:
    Body(uint64_t size, Reader reader);

    uint64_t sizeBytes = 0;
    Reader reader = [](uint64_t, char *, size_t) {};
};
