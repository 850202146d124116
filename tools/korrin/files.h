#pragma once

#include <string>
#include <sys/types.h>

/// A file's bytes; "-" is standard input. @throw Failure  EXIT_SYSTEM
std::string contentsOf(const std::string &path);

/// Writes it to standard output, behind what has been printed. @throw Failure  EXIT_SYSTEM
void writeOut(const std::string &data);

/// The file's SHA-256 in lower-case hexadecimal. @throw Failure  EXIT_SYSTEM
std::string sha256Of(const std::string &path);

/// A file that comes into being beside its target and takes the target's place when all is well;
/// otherwise it leaves no trace.
class TemporaryFile
{
public:
    /// @throw Failure  EXIT_SYSTEM
    explicit TemporaryFile(const std::string &target);
    ~TemporaryFile();
    TemporaryFile(const TemporaryFile &) = delete;
    TemporaryFile &operator=(const TemporaryFile &) = delete;

    const std::string &path() const { return name; }
    /// Syncs it and lets it replace the target. @throw Failure  EXIT_SYSTEM
    void commit();

    /// Removes what there is of it when a signal ends the program; from its handler, on the
    /// thread that made it.
    static void removeCurrent();

private:
    std::string target;
    mode_t mode = 0;  ///< that the target gets
    std::string name; ///< empty when there is nothing to remove
};
