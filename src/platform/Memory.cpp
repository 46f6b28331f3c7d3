#include "platform/Memory.h"

#include <malloc.h>

namespace qv::memory {

long long heapBytesInUse() {
    struct mallinfo2 m = mallinfo2();
    return static_cast<long long>(m.uordblks + m.hblkhd);
}

void returnFreeMemory() { malloc_trim(0); }

}  // namespace qv::memory
