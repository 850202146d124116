#pragma once

#include "operation.h"

/// Prints what came of an operation: data to standard output, messages to standard error, the
/// outcome as text or JSON to standard output unless data stand there.
/// @return false when standard output could not be written
bool printOutcome(const Options &options, const Outcome &outcome, const Mask &mask);
