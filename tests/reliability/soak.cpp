// Makes many calls in mixed modes, threads and faults against a local cloud, and watches what the
// process holds. Usage: soak CALLS [CSV-FILE]. Exits 0 when memory, descriptors and threads stay
// flat and calls of each kind succeed.

#include "korrinhost.h"
#include "processusage.h"
#include "simulator.h"

#include <QCoreApplication>
#include <QTemporaryDir>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <thread>
#include <vector>

using namespace korrintest;

namespace
{

const int THREADS = 4;
const int SAMPLES = 100;
const int CALLS_PER_HANDLE = 50;
// Between the two quarters that are compared; with 2,000 calls, these are 1,000 calls apart.
const int MOST_GROWTH_KIB = 1024;

struct Sample {
    int calls = 0;
    ProcessUsage usage;
};

/// What became of the calls of a kind.
struct Kind {
    const char *name;
    std::atomic<int> calls{0};
    std::atomic<int> successes{0};

    void add(int result)
    {
        ++calls;
        successes += result;
    }
    /// The rest meets faults, or a mode that has no answer for it.
    bool isAlive() const { return successes > calls / 10; }
};

struct Kinds {
    Kind check{"check"};
    Kind send{"send"};
    Kind recv{"recv"};
    Kind recvFile{"recvFile"};
    Kind sendFile{"sendFile"};

    int calls() const
    {
        return check.calls + send.calls + recv.calls + recvFile.calls + sendFile.calls;
    }
};

void addFaults(Simulator &cloud)
{
    int seed = 0;
    for (const char *fault :
         {R"("fault":"close")", R"("fault":"reset")", R"("fault":"status","code":503)",
          R"("fault":"malformed")", R"("fault":"refuse")", R"("fault":"cut")", R"("fault":"echo")",
          R"("fault":"delay","ms":5)", R"("fault":"drip","bytes_per_second":100000)"}) {
        cloud.addFault(QByteArray("{") + fault + R"(,"match":{"probability":0.02,"seed":)"
                       + QByteArray::number(++seed) + "}}");
    }
}

/// A handle's life: a mode, and a row of calls.
void useHandle(const QByteArray &url, const QString &directory, std::mt19937 &random, int calls,
               Kinds *kinds)
{
    const QList<QByteArray> modes = {"update", "update", "remote_access", "submit_info",
                                     "s3_upload"};
    const QByteArray mode = modes.at(int(random() % unsigned(modes.size())));
    Handle handle(baseParameters(url + (mode == "s3_upload" ? "kx-logs/object" : ""), mode));
    handle.set("product_no", "KX-200");
    handle.set("download_file_path", "kx-200-1.4.bin");
    handle.set("send_data_type", "update_log");
    handle.set("cloud_log_file_max_size", "100000");
    handle.set("cloud_log_file_save_dir", directory.toLocal8Bit());
    handle.set("aws_access_key", "KORRINSIMACCESSKEY");
    handle.set("aws_secret_access_key", "korrin/sim+secret");
    const QByteArray file =
        (directory + QLatin1String("/file-") + QString::number(random())).toLocal8Bit();
    for (int i = 0; i < calls; ++i) {
        switch (random() % 5) {
        case 0:
            kinds->check.add(handle.checkEnable());
            break;
        case 1:
            kinds->send.add(handle.sendData(QByteArray(int(random() % 5000), 'd')));
            break;
        case 2:
            kinds->recv.add(handle.recvData());
            break;
        case 3:
            kinds->recvFile.add(handle.recvFile(file));
            break;
        default:
            kinds->sendFile.add(handle.sendFile(file)); // exists after a reception
        }
    }
    std::remove(file.constData());
}

double median(std::vector<int> values)
{
    std::sort(values.begin(), values.end());
    return values.at(values.size() / 2);
}

/// Compares the last quarter with the second: the first warms caches up.
bool isFlat(const std::vector<Sample> &samples, const char *what, int ProcessUsage::*field,
            int most)
{
    const size_t quarter = samples.size() / 4;
    std::vector<int> early;
    std::vector<int> late;
    for (size_t i = 0; i < samples.size(); ++i) {
        if (i >= quarter && i < 2 * quarter)
            early.push_back(samples[i].usage.*field);
        if (i >= samples.size() - quarter)
            late.push_back(samples[i].usage.*field);
    }
    const double growth = median(late) - median(early);
    std::printf("%-14s %8.0f -> %8.0f\n", what, median(early), median(late));
    return growth <= most;
}

void write(const std::vector<Sample> &samples, const char *fileName)
{
    FILE *file = std::fopen(fileName, "w");
    if (!file)
        std::exit(2);
    std::fputs("calls,resident_kib,descriptors,threads\n", file);
    for (const Sample &sample : samples) {
        std::fprintf(file, "%d,%d,%d,%d\n", sample.calls, sample.usage.residentKib,
                     sample.usage.descriptors, sample.usage.threads);
    }
    std::fclose(file);
}

} // namespace

int main(int argc, char **argv)
{
    const int calls = argc > 1 ? std::atoi(argv[1]) : 0;
    if (calls < SAMPLES * THREADS) {
        std::fprintf(stderr, "Usage: soak CALLS [CSV-FILE], at least %d calls\n",
                     SAMPLES * THREADS);
        return 64;
    }
    const QCoreApplication application(argc, argv);
    Simulator cloud;
    QTemporaryDir directory;
    if (!cloud.start() || !directory.isValid())
        return 2;
    addFaults(cloud);

    const OpenLibrary library;
    Kinds kinds;
    std::vector<Sample> samples;
    const int callsPerRound = calls / SAMPLES;
    for (int round = 0; round < SAMPLES; ++round) {
        std::vector<std::thread> threads;
        for (int thread = 0; thread < THREADS; ++thread) {
            threads.emplace_back([&, thread, round] {
                std::mt19937 random(unsigned(round * THREADS + thread));
                for (int left = callsPerRound / THREADS; left > 0; left -= CALLS_PER_HANDLE) {
                    useHandle(cloud.url(), directory.path(), random,
                              std::min(left, CALLS_PER_HANDLE), &kinds);
                }
            });
        }
        for (std::thread &thread : threads)
            thread.join();
        samples.push_back({kinds.calls(), ProcessUsage::now()});
        cloud.api("DELETE", "exchanges", QByteArray()); // keeps the cloud small
    }

    if (argc > 2)
        write(samples, argv[2]);
    std::printf("%d calls, second quarter -> last quarter:\n", samples.back().calls);
    const bool memoryIsFlat =
        isFlat(samples, "resident KiB", &ProcessUsage::residentKib, MOST_GROWTH_KIB);
    const bool descriptorsAreFlat = isFlat(samples, "descriptors", &ProcessUsage::descriptors, 0);
    const bool threadsAreFlat = isFlat(samples, "threads", &ProcessUsage::threads, 0);
    bool areAlive = true;
    for (const Kind *kind :
         {&kinds.check, &kinds.send, &kinds.recv, &kinds.recvFile, &kinds.sendFile}) {
        std::printf("%-14s %8d of %d calls succeeded\n", kind->name, kind->successes.load(),
                    kind->calls.load());
        areAlive = areAlive && kind->isAlive();
    }
    return memoryIsFlat && descriptorsAreFlat && threadsAreFlat && areAlive ? 0 : 1;
}
