#include "failingallocator.h"

#include "blockset.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <initializer_list>
#include <link.h>
#include <new>
#include <unwind.h>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KORRIN_COVERS_MALLOC 0
#else
#define KORRIN_COVERS_MALLOC 1
#endif

namespace korrintest
{

namespace
{

/// What the code at an address is, as far as running out of memory goes.
enum class Code {
    Library,    ///< the program: the library's objects, while a call runs
    Values,     ///< Qt Core and the C++ library, which pass std::bad_alloc on to their caller
    Containers, ///< the part of Values that checks what malloc returns
    Elsewhere   ///< makes no promise, or allocates for itself
};

struct Segment {
    std::uintptr_t begin;
    std::uintptr_t end;
    Code code;
};

struct Place {
    std::uintptr_t address;
    Code code;
};

constexpr int MAX_SEGMENTS = 32;
Segment segments[MAX_SEGMENTS];
int segmentCount = 0;

// Filled by the one thread that fails: looking up a symbol is slow.
constexpr std::size_t MAX_PLACES = 8192;
Place places[MAX_PLACES];

// Plain thread-local data: whatever allocates must not allocate itself.
thread_local bool isActive = false;
thread_local int allocationsLeft = 0; // 0: not failing
thread_local FailingAllocator::Extent failureExtent = FailingAllocator::Once;
thread_local bool failed = false;
thread_local int paused = 0;

BlockSet libraryBlocks;

Code codeOfModule(const char *name)
{
    if (name[0] == '\0')
        return Code::Library; // the program itself has no name
    const bool isValues = std::strstr(name, "libQt5Core.") || std::strstr(name, "libQt6Core.")
        || std::strstr(name, "libstdc++.");
    return isValues ? Code::Values : Code::Elsewhere;
}

int addSegments(dl_phdr_info *info, std::size_t, void *)
{
    const Code code = codeOfModule(info->dlpi_name);
    for (int i = 0; i < info->dlpi_phnum && segmentCount < MAX_SEGMENTS; ++i) {
        const ElfW(Phdr) &header = info->dlpi_phdr[i];
        if (code == Code::Elsewhere || header.p_type != PT_LOAD || !(header.p_flags & PF_X))
            continue;
        const std::uintptr_t begin = info->dlpi_addr + header.p_vaddr;
        segments[segmentCount++] = {begin, begin + header.p_memsz, code};
    }
    return 0;
}

bool isAnyOf(const char *symbol, std::initializer_list<const char *> classes)
{
    for (const char *name : classes) {
        if (std::strstr(symbol, name))
            return true;
    }
    return false;
}

/// QObject's connections and the event loop are not made for exceptions.
Code codeOfSymbol(std::uintptr_t address)
{
    Dl_info info;
    if (dladdr(reinterpret_cast<void *>(address), &info) == 0 || !info.dli_sname)
        return Code::Values;
    if (isAnyOf(info.dli_sname, {"10QArrayData", "9QListData", "9QHashData", "12QMapDataBase"}))
        return Code::Containers;
    return isAnyOf(info.dli_sname,
                   {"QObject", "QMetaObject", "QCoreApplication", "QEvent", "QTimer", "QThread",
                    "QAbstractEventDispatcher"})
        ? Code::Elsewhere
        : Code::Values;
}

Code findCode(std::uintptr_t address)
{
    for (int i = 0; i < segmentCount; ++i) {
        if (address >= segments[i].begin && address < segments[i].end)
            return segments[i].code == Code::Values ? codeOfSymbol(address) : segments[i].code;
    }
    return Code::Elsewhere;
}

Code codeAt(std::uintptr_t address)
{
    Place &place = places[address * 31 % MAX_PLACES];
    if (place.address != address)
        place = {address, findCode(address)};
    return place.code;
}

struct Walk {
    std::uintptr_t caller; ///< where the allocation function returns to
    bool isCallerReached;
    Code nearest;
};

/// Looks for the nearest frame that does not allocate on behalf of its caller.
_Unwind_Reason_Code visitFrame(_Unwind_Context *context, void *data)
{
    Walk *walk = static_cast<Walk *>(data);
    const std::uintptr_t address = _Unwind_GetIP(context);
    if (address == walk->caller)
        walk->isCallerReached = true;
    if (!walk->isCallerReached)
        return _URC_NO_REASON;
    walk->nearest = codeAt(address);
    const bool isOnBehalf = walk->nearest == Code::Values || walk->nearest == Code::Containers;
    return isOnBehalf ? _URC_NO_REASON : _URC_NORMAL_STOP;
}

bool isNearestLibrary(std::uintptr_t caller)
{
    Walk walk = {caller, false, Code::Elsewhere};
    _Unwind_Backtrace(visitFrame, &walk);
    return walk.nearest == Code::Library;
}

bool isMadeByLibrary(void *caller, bool isMalloc)
{
    if (!isActive || paused > 0)
        return false;
    const MemoryAvailable whileLooking;
    const auto address = reinterpret_cast<std::uintptr_t>(caller);
    return (!isMalloc || codeAt(address) == Code::Containers) && isNearestLibrary(address);
}

bool shallFail()
{
    if (allocationsLeft == 0 || --allocationsLeft > 0)
        return false;
    if (failureExtent == FailingAllocator::Forever)
        allocationsLeft = 1;
    failed = true;
    return true;
}

template <typename Allocate>
void *allocateFor(void *caller, bool isMalloc, Allocate allocate)
{
    if (!isMadeByLibrary(caller, isMalloc))
        return allocate();
    const MemoryAvailable coveredAlready;
    void *block = shallFail() ? nullptr : allocate();
    if (block)
        libraryBlocks.insert(block);
    return block;
}

void *allocate(std::size_t size, void *caller)
{
    void *block = allocateFor(caller, false, [size] { return std::malloc(size > 0 ? size : 1); });
    if (!block)
        throw std::bad_alloc();
    return block;
}

void release(void *block)
{
    libraryBlocks.remove(block);
    std::free(block);
}

} // namespace

FailingAllocator::FailingAllocator(int position, Extent extent)
{
    if (segmentCount == 0)
        dl_iterate_phdr(addSegments, nullptr);
    failed = false;
    failureExtent = extent;
    allocationsLeft = position;
    isActive = true;
}

bool FailingAllocator::stop()
{
    isActive = false;
    return failed;
}

bool FailingAllocator::coversMalloc()
{
    return KORRIN_COVERS_MALLOC;
}

long FailingAllocator::libraryBlocks()
{
    return korrintest::libraryBlocks.size();
}

MemoryAvailable::MemoryAvailable()
{
    ++paused;
}

MemoryAvailable::~MemoryAvailable()
{
    --paused;
}

} // namespace korrintest

void *operator new(std::size_t size)
{
    return korrintest::allocate(size, __builtin_return_address(0));
}

void *operator new[](std::size_t size)
{
    return korrintest::allocate(size, __builtin_return_address(0));
}

void operator delete(void *block) noexcept
{
    korrintest::release(block);
}

void operator delete[](void *block) noexcept
{
    korrintest::release(block);
}

void operator delete(void *block, std::size_t) noexcept
{
    korrintest::release(block);
}

void operator delete[](void *block, std::size_t) noexcept
{
    korrintest::release(block);
}

// Texts, byte arrays and lists of Qt take their memory from malloc.
#if KORRIN_COVERS_MALLOC

extern "C" {

void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);
void *__libc_realloc(void *block, std::size_t size);
void __libc_free(void *block);

void *malloc(std::size_t size) noexcept
{
    return korrintest::allocateFor(__builtin_return_address(0), true,
                                   [size] { return __libc_malloc(size); });
}

void *calloc(std::size_t count, std::size_t size) noexcept
{
    return korrintest::allocateFor(__builtin_return_address(0), true,
                                   [=] { return __libc_calloc(count, size); });
}

void *realloc(void *block, std::size_t size) noexcept
{
    // Forgotten first: another thread may be given the old place as soon as it is free.
    const bool wasLibrarys = korrintest::libraryBlocks.remove(block);
    void *resized = korrintest::allocateFor(__builtin_return_address(0), true,
                                            [=] { return __libc_realloc(block, size); });
    if (wasLibrarys)
        korrintest::libraryBlocks.insert(resized ? resized : block);
    return resized;
}

void free(void *block) noexcept
{
    korrintest::libraryBlocks.remove(block);
    __libc_free(block);
}
}

#endif
