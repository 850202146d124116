#ifndef KORRIN_BENCH_PATTERN_H
#define KORRIN_BENCH_PATTERN_H

#include <cstddef>
#include <string>

/// The large file of the benchmark repeats this block.
inline std::string patternBlock()
{
    std::string block(1024 * 1024, '\0');
    for (std::size_t i = 0; i < block.size(); ++i)
        block[i] = static_cast<char>(i * 31 + (i >> 8));
    return block;
}

#endif
