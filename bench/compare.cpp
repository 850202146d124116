// Runs the client programs in turn against one server and prints what each row took.
//
// Usage: bench_compare ROUNDS BYTES DIRECTORY SERVER PROGRAM...
//
// BYTES is the size of the large file, which is kept in DIRECTORY. Each round starts each program
// once for each row; after each run the server's counters and the received file must be what the
// row demands. A line for each row and program, separated by tabs: row, program, and medians over
// the rounds of: seconds, seconds of the processor, peak memory in KiB, and both times as a ratio
// of the first program's to this one's in the same round.

#include "counters.h"
#include "pattern.h"
#include "process.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <map>
#include <memory>

namespace
{

struct Row {
    const char *name;
    const char *operation;       ///< of the first program
    const char *othersOperation; ///< null: the row has the first program alone
    int exchanges;
    int runsPerRound;
    bool isStart = false; ///< measured from the start of the process on
};

// Of the small exchanges many, so that what a run takes to start does not show.
const std::vector<Row> ROWS = {
    {"check", "check", "check", 300, 1},
    {"log", "log", "log", 300, 1},
    {"receive", "receive", "receive", 1, 1},
    {"receive-streamed", "receive", "receive-streamed", 1, 1},
    {"upload", "upload", "upload", 1, 1},
    {"upload-streamed", "upload", "upload-streamed", 1, 1},
    {"start", "check", "check", 1, 5, true},
    {"kept", "kept", nullptr, 1000, 1},
};

struct Figures {
    double seconds;
    double processorSeconds;
    double peakKib;
};

using Runs = std::vector<Figures>;

class Comparison
{
public:
    Comparison(char **arguments, std::vector<std::string> clientPrograms)
        : rounds(std::atoi(arguments[0])), bytes(std::atoll(arguments[1])), directory(arguments[2]),
          server({arguments[3], arguments[1]}), programs(std::move(clientPrograms)),
          url("http://127.0.0.1:" + std::to_string(std::atoi(server.readLine().c_str())))
    {
    }

    void run()
    {
        writeSourceFile();
        for (const Row &row : ROWS)
            compare(row);
        std::remove(sourceFile().c_str());
        std::remove(targetFile().c_str());
    }

private:
    std::string sourceFile() const { return directory + "/source.zip"; }
    std::string targetFile() const { return directory + "/target.bin"; }

    [[noreturn]] static void fail(const Row &row, const std::string &program, const char *what)
    {
        std::fprintf(stderr, "%s, %s: %s\n", row.name, program.c_str(), what);
        std::exit(1);
    }

    void writeSourceFile() const
    {
        const std::string block = patternBlock();
        std::ofstream file(sourceFile());
        for (long long written = 0; written < bytes;) {
            const long long piece = std::min<long long>(bytes - written, block.size());
            file.write(block.data(), piece);
            written += piece;
        }
    }

    bool isTargetComplete() const
    {
        std::ifstream file(targetFile());
        const std::string block = patternBlock();
        std::string piece(block.size(), '\0');
        long long size = 0;
        while (file.read(piece.data(), static_cast<std::streamsize>(piece.size())),
               file.gcount() > 0) {
            const auto count = static_cast<std::size_t>(file.gcount());
            if (block.compare(0, count, piece, 0, count) != 0)
                return false;
            size += file.gcount();
        }
        return size == bytes;
    }

    /// What a run must have left in the server's counters.
    Counters expected(const std::string &operation, int exchanges) const
    {
        Counters counters;
        if (operation == "check" || operation == "log")
            counters.checks = exchanges;
        if (operation == "log")
            counters.logs = exchanges;
        if (operation == "kept") {
            counters.checks = 1;
            counters.logs = exchanges + 1;
        }
        if (operation.rfind("receive", 0) == 0)
            counters.sentBytes = bytes;
        if (operation.rfind("upload", 0) == 0)
            counters.storedBytes = bytes;
        return counters;
    }

    Counters seen()
    {
        server.writeLine();
        Counters counters;
        std::sscanf(server.readLine().c_str(), "%lld %lld %lld %lld", &counters.checks,
                    &counters.logs, &counters.sentBytes, &counters.storedBytes);
        return counters;
    }

    Figures runOnce(const Row &row, const std::string &program, const std::string &operation)
    {
        const bool isReceive = operation.rfind("receive", 0) == 0;
        std::remove(targetFile().c_str());
        const Figures figures =
            measureRun(row, program, operation, isReceive ? targetFile() : sourceFile());
        if (!(seen() == expected(operation, row.exchanges)))
            fail(row, program, "the server has seen something else");
        if (isReceive && !isTargetComplete())
            fail(row, program, "the file is not what was sent");
        return figures;
    }

    Figures measureRun(const Row &row, const std::string &program, const std::string &operation,
                       const std::string &file) const
    {
        timespec start = {};
        clock_gettime(CLOCK_MONOTONIC, &start);
        Process client({program, operation, url, std::to_string(row.exchanges), file});
        long long firstAnswer = 0;
        long long time = 0;
        long long processor = 0;
        const bool isMeasured = std::sscanf(client.readLine().c_str(), "%lld %lld %lld",
                                            &firstAnswer, &time, &processor)
            == 3;
        const Process::Usage usage = client.wait();
        if (!isMeasured || !usage.succeeded)
            fail(row, program, "failed");
        if (row.isStart) {
            time = firstAnswer - (start.tv_sec * 1000000000LL + start.tv_nsec);
            return {static_cast<double>(time) / 1e9, usage.processorSeconds, usage.peakKib};
        }
        return {static_cast<double>(time) / 1e9, static_cast<double>(processor) / 1e9,
                usage.peakKib};
    }

    void compare(const Row &row)
    {
        std::vector<Runs> runs(row.othersOperation ? programs.size() : 1);
        for (int i = 0; i < rounds * row.runsPerRound; ++i) {
            for (std::size_t p = 0; p < runs.size(); ++p)
                runs[p].push_back(
                    runOnce(row, programs[p], p == 0 ? row.operation : row.othersOperation));
        }
        for (std::size_t p = 0; p < runs.size(); ++p)
            print(row, programs[p], runs[0], runs[p]);
    }

    /// The median of what @p figure gives for the runs of a round.
    template <typename Figure>
    static double median(const Runs &first, const Runs &other, Figure figure)
    {
        std::vector<double> values;
        for (std::size_t i = 0; i < other.size(); ++i)
            values.push_back(figure(first[i], other[i]));
        std::sort(values.begin(), values.end());
        return values[values.size() / 2];
    }

    static void print(const Row &row, const std::string &program, const Runs &first,
                      const Runs &other)
    {
        using F = const Figures &;
        std::printf(
            "%s\t%s\t%.6f\t%.6f\t%.0f\t%.3f\t%.3f\n", row.name,
            program.substr(program.rfind('/') + 1).c_str(),
            median(first, other, [](F, F run) { return run.seconds; }),
            median(first, other, [](F, F run) { return run.processorSeconds; }),
            median(first, other, [](F, F run) { return run.peakKib; }),
            median(first, other, [](F a, F b) { return a.seconds / b.seconds; }),
            median(first, other, [](F a, F b) { return a.processorSeconds / b.processorSeconds; }));
        std::fflush(stdout);
    }

    const int rounds;
    const long long bytes;
    const std::string directory;
    Process server;
    const std::vector<std::string> programs;
    const std::string url;
};

} // namespace

int main(int argc, char **argv)
{
    if (argc < 6) {
        std::fprintf(stderr, "Usage: %s ROUNDS BYTES DIRECTORY SERVER PROGRAM...\n", argv[0]);
        return 64;
    }
    Comparison(argv + 1, std::vector<std::string>(argv + 5, argv + argc)).run();
    return 0;
}
