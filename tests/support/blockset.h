#ifndef KORRIN_TESTS_BLOCKSET_H
#define KORRIN_TESTS_BLOCKSET_H

#include <atomic>
#include <cstddef>
#include <mutex>

namespace korrintest
{

/// Addresses of memory blocks, for an allocator: allocates nothing itself, is ready before any
/// constructor has run, and can be used by all threads.
class BlockSet
{
public:
    void insert(const void *block);

    /// @return true when @p block was in the set
    bool remove(const void *block);

    long size() const { return count; }

private:
    static constexpr std::size_t CAPACITY = 1 << 14;

    std::size_t find(const void *block) const;

    std::mutex mutex;
    std::atomic<long> count{0};
    const void *blocks[CAPACITY] = {};
};

} // namespace korrintest

#endif
