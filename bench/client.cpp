#include "client.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <vector>

namespace
{

using Nanoseconds = long long;

Nanoseconds now(clockid_t clock)
{
    timespec time = {};
    clock_gettime(clock, &time);
    return time.tv_sec * 1000000000LL + time.tv_nsec;
}

Nanoseconds median(std::vector<Nanoseconds> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

} // namespace

int measure(int count, const Exchange &exchange)
{
    std::vector<Nanoseconds> times;
    Nanoseconds firstAnswer = 0;
    Nanoseconds processorStart = now(CLOCK_PROCESS_CPUTIME_ID);
    for (int i = 0; i < count; ++i) {
        // The first of many is left out: it loads what the others find loaded.
        if (i == 1) {
            times.clear();
            processorStart = now(CLOCK_PROCESS_CPUTIME_ID);
        }
        const Nanoseconds start = now(CLOCK_MONOTONIC);
        if (!exchange())
            return 1;
        const Nanoseconds end = now(CLOCK_MONOTONIC);
        times.push_back(end - start);
        if (i == 0)
            firstAnswer = end;
    }
    const Nanoseconds processor = now(CLOCK_PROCESS_CPUTIME_ID) - processorStart;
    std::printf("%lld %lld %lld\n", firstAnswer, median(times),
                processor / static_cast<Nanoseconds>(times.size()));
    return 0;
}

int runClient(int argc, char **argv)
{
    const Job job = argc == 5 ? Job{argv[1], argv[2], std::atoi(argv[3]), argv[4]} : Job{};
    const Exchange exchange = job.count > 0 ? exchangeFor(job) : Exchange();
    if (!exchange) {
        std::fprintf(stderr, "Usage: %s OPERATION URL COUNT FILE\n", argv[0]);
        return 64;
    }
    // Of kept records the count is that of the records.
    return measure(job.operation == "kept" ? 1 : job.count, exchange);
}
