#pragma once

#include <string>

/// Keeps other simulators out of a directory while it lives; the lock dies with the process.
class DirectoryLock
{
public:
    /// @throw std::runtime_error when the directory cannot be opened or is taken
    explicit DirectoryLock(const std::string &directory);
    ~DirectoryLock();
    DirectoryLock(const DirectoryLock &) = delete;
    DirectoryLock &operator=(const DirectoryLock &) = delete;

private:
    const int fd;
};
