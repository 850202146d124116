#pragma once

/// Lets SIGINT and SIGTERM end the tool at once, whatever it is doing, with exit status 130 or 143
/// and without a temporary file left. Call it before there is another thread.
void endOnSignals();
