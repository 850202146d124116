#ifndef KORRIN_BENCH_COUNTERS_H
#define KORRIN_BENCH_COUNTERS_H

/// What the server has seen since it was last asked; printed as one line of numbers in this order.
struct Counters {
    long long checks = 0;
    long long logs = 0;
    long long sentBytes = 0;   ///< of the large file, in whole downloads
    long long storedBytes = 0; ///< of uploads with the right signature

    bool operator==(const Counters &other) const
    {
        return checks == other.checks && logs == other.logs && sentBytes == other.sentBytes
            && storedBytes == other.storedBytes;
    }
};

#endif
