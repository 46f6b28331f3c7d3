// What the C heap holds, and handing its free pages back to the system.
// Linux with glibc; both are cheap enough to call between phases of work.
#pragma once

namespace qv::memory {

// Bytes handed out by malloc and not yet freed, over every arena and the
// blocks mapped on their own.
long long heapBytesInUse();

// Gives the free pages of every arena back to the system. Long decodes
// leave tens of megabytes freed but resident; this makes them count no more.
void returnFreeMemory();

}  // namespace qv::memory
