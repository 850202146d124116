#ifndef KORRIN_TESTS_PROCESSUSAGE_H
#define KORRIN_TESTS_PROCESSUSAGE_H

namespace korrintest
{

/// What the test's process holds, as proc(5) tells.
struct ProcessUsage {
    int residentKib = 0;
    int descriptors = 0;
    int threads = 0;

    static ProcessUsage now();
};

} // namespace korrintest

#endif
