#ifndef KORRIN_BENCH_CLIENT_H
#define KORRIN_BENCH_CLIENT_H

#include <functional>
#include <string>

/// What all client programs are told: PROGRAM OPERATION URL COUNT FILE
///
/// Operations, each on a new connection:
///  - check: a check of the update service's kind, with its XML answer parsed
///  - log: the same, and the post of a cloud log record about it
///  - receive: a download that is held in memory and then written to FILE
///  - upload: FILE, read into memory, in a PUT with AWS Signature Version 2
///  - receive-streamed, upload-streamed: without holding the body (not the library)
///  - kept: a check before which COUNT records, kept in FILE's directory, are posted (the library)
struct Job {
    std::string operation;
    std::string url; ///< of the server, without a path
    int count;
    std::string file;
};

/// One exchange; false when it went wrong.
using Exchange = std::function<bool()>;

/// Makes the exchanges and prints what they took, for the driver: when the first had its answer on
/// the monotonic clock, then the median time and the mean processor time of one, in nanoseconds.
/// @return the program's exit status
int measure(int count, const Exchange &exchange);

/// Each client program's own: the job's exchange; null for an operation that it does not have.
Exchange exchangeFor(const Job &job);

/// Reads the job, and measures what exchangeFor() gives.
int runClient(int argc, char **argv);

// What the requests and the server's answers of all programs have in common.
inline const char *const ACCESS_KEY = "bench-key";
inline const char *const SECRET_KEY = "bench-secret";
inline const char *const BUCKET_PATH = "/bucket/";
inline const char *const PRODUCT_NO = "PN-1";
inline const char *const SOFT_VERSION = "1.0";
inline const char *const LANGUAGE = "en";
inline constexpr int TIMEOUT_S = 30;

#endif
