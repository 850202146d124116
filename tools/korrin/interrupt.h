#pragma once

/// Lets SIGINT, SIGTERM and SIGHUP end the tool at once, whatever it is doing, with exit status
/// 130, 143 or 129 and without a temporary file left. Call it on the main thread.
void endOnSignals();
