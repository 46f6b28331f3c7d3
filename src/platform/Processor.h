// The processors as the program sees them: how many cores it may run on,
// and the processor time its threads have taken, for the schedulers that
// share the machine between the player and the preview copies.
#pragma once

namespace qv::platform {

// Cores this process may run on (its affinity), at least 1.
int processorCores();

// Processor seconds the calling thread has taken so far: its own decoding,
// not that of threads it hands work to.
double threadCpuSeconds();

// Processor seconds every thread of the process has taken so far.
double processCpuSeconds();

}  // namespace qv::platform
