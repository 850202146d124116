#include "blockset.h"

#include <cstdint>
#include <cstdlib>

namespace korrintest
{

void BlockSet::insert(const void *block)
{
    const std::lock_guard<std::mutex> lock(mutex);
    const std::size_t place = find(block);
    if (blocks[place])
        return;
    blocks[place] = block;
    if (++count > static_cast<long>(CAPACITY / 2))
        std::abort(); // far more than a call needs
}

bool BlockSet::remove(const void *block)
{
    if (count == 0)
        return false;
    const std::lock_guard<std::mutex> lock(mutex);
    std::size_t place = find(block);
    if (!block || !blocks[place])
        return false;
    blocks[place] = nullptr;
    --count;
    // What was put off to a later place because of this block may stand nearer now.
    for (place = (place + 1) % CAPACITY; blocks[place]; place = (place + 1) % CAPACITY) {
        const void *const other = blocks[place];
        blocks[place] = nullptr;
        blocks[find(other)] = other;
    }
    return true;
}

/// Where @p block is, or the free place for it.
std::size_t BlockSet::find(const void *block) const
{
    // Blocks stand at multiples of 16.
    std::size_t place = reinterpret_cast<std::uintptr_t>(block) / 16 % CAPACITY;
    while (blocks[place] && blocks[place] != block)
        place = (place + 1) % CAPACITY;
    return place;
}

} // namespace korrintest
