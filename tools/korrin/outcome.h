#pragma once

#include "operation.h"

/// Prints what came of an operation: messages to standard error, the outcome as text or JSON to
/// standard output unless data stand there.
void printOutcome(const Options &options, const Outcome &outcome, const Mask &mask);
