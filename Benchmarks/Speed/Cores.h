/// @file
/// Which processor a thread runs on. A wake-up across processors measures the machine, or whatever it is simulated
/// by, more than the work: rows that have threads keep them on one, and have a row beside them that does not.
#pragma once

namespace speed {

/// The processor that everything runs on unless a row says otherwise.
int firstCore();

/// Another one; firstCore() where the process has only one.
int secondCore();

/// Moves the calling thread, and so the threads that it makes from now on.
void runOn(int core);

} // namespace speed
