#ifndef KORRIN_TESTS_FAILINGALLOCATOR_H
#define KORRIN_TESTS_FAILINGALLOCATOR_H

namespace korrintest
{

/// Lets memory run out for the library, on the thread and for the scope of this object.
///
/// An allocation is the library's when only Qt's value classes and the C++ library stand between
/// it and the library's code. What Qt's network classes, its event loop or other threads allocate
/// never fails. The program must be linked with failingallocator.cpp and the library's objects.
class FailingAllocator
{
public:
    enum Extent { Once, Forever };

    /// Fails the allocation number @p position, counted from 1, and with Forever all that follow.
    FailingAllocator(int position, Extent extent);
    ~FailingAllocator() { stop(); }
    FailingAllocator(const FailingAllocator &) = delete;
    FailingAllocator &operator=(const FailingAllocator &) = delete;

    /// Ends the scope early.
    /// @return true when an allocation has failed
    bool stop();

    /// Whether texts and byte arrays can fail: a sanitizer's malloc is left alone, and only what is
    /// allocated with new fails then.
    static bool coversMalloc();

    /// Number of the library's blocks from all scopes so far that no thread has freed yet.
    static long libraryBlocks();
};

/// Keeps a scope inside a FailingAllocator's from failing.
class MemoryAvailable
{
public:
    MemoryAvailable();
    ~MemoryAvailable();
    MemoryAvailable(const MemoryAvailable &) = delete;
    MemoryAvailable &operator=(const MemoryAvailable &) = delete;
};

} // namespace korrintest

#endif
