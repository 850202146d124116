#pragma once

#include "messages.h"
#include "options.h"
#include "parameters.h"

#include <map>
#include <string>

/// What came of an operation.
struct Outcome {
    bool succeeded = false;
    double durationMs = 0;
    std::map<std::string, std::string> results; ///< of all result keys
    std::string data;                           ///< that recv received
    std::string receivedFile;                   ///< that recv-file wrote; empty when none
    std::string sha256;                         ///< of it
    bool nothingNew = false;                    ///< check: no newer version is offered

    std::string problem; ///< what the tool itself could not do; empty when there is none
    int problemStatus = 0;

    int errorNumber() const;
    int exitStatus(const Options &options) const;
};

/// Does what the options ask for, on one handle. @throw Failure  when nothing was tried
Outcome runOperation(const Options &options, const Parameters &parameters, Messages &messages);
