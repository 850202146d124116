#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <optional>
#include <random>
#include <string>

/// What a fault does to an answer.
enum class FaultKind {
    Delay,
    Stall,
    Drip,
    Cut,
    Close,
    Reset,
    Status,
    Echo,
    Refuse,
    Space,
    Malformed,
    Huge,
};

std::string nameOf(FaultKind kind);

/// The exchange that a rule may meet.
struct FaultTarget {
    std::string path;
    std::string is;
    std::string product;
};

/// Which exchanges a rule meets. Empty texts and numbers of zero do not narrow it.
struct FaultMatch {
    std::string path; ///< exact, or a beginning followed by "*"
    std::string is;
    std::string product;
    uint64_t every = 0; ///< every n-th of the exchanges that fit otherwise
    uint64_t next = 0;  ///< only the first n of them
    std::optional<double> probability;
    uint64_t seed = 1;
};

/// One rule: which exchanges, and what befalls their answers.
class FaultRule
{
public:
    /// From its JSON form, e.g. {"match": {"is": "chkud"}, "fault": "delay", "ms": 500}.
    /// @throw std::invalid_argument with what is wrong
    static FaultRule fromJson(const nlohmann::json &json);
    /// From its text form, e.g. "delay:500,is=chkud". @throw std::invalid_argument
    static FaultRule fromText(const std::string &text);

    nlohmann::json toJson() const;

    /// Switching a rule on starts its counting anew: "next": 2 meets the next two exchanges again.
    void setEnabled(bool on);

    /// Whether this exchange is met; counts it.
    bool meets(const FaultTarget &target);

    uint64_t id = 0;
    bool enabled = true;
    FaultMatch match;
    FaultKind kind = FaultKind::Close;
    uint64_t number = 0;           ///< ms, bytes per second, bytes, or HTTP status
    std::optional<uint64_t> bytes; ///< cut: after so many bytes of the body
    bool stallsInBody = false;     ///< stall: after the head and half of the body
    std::string text;              ///< echo: the "is"; refuse: the message
    std::string code;              ///< refuse: the status_code
    uint64_t hits = 0;

private:
    uint64_t candidates = 0;
    std::mt19937_64 random;
};
