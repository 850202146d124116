#pragma once

/// The commands that only print what the tool knows. Each returns the exit status.
int printVersions();
int printParameters();
/// @param number  negative: all
int printErrors(int number);
