#pragma once

#include <string>
#include <vector>

/// Changes the fault rules of a running simulator.
class FaultClient
{
public:
    /// @param url  of the simulator, e.g. "http://127.0.0.1:8080/"
    explicit FaultClient(std::string url) : url(std::move(url)) { }

    /// Each prints what is then so. @throw std::runtime_error with what went wrong
    void list();
    void add(const std::string &rule);
    void setEnabled(const std::string &id, bool enabled);
    void remove(const std::string &id);
    void clear();

private:
    std::string ask(const std::string &method, const std::string &path, const std::string &body);

    const std::string url;
};
