// The calling thread's share of the processor against the program's other
// threads. Raising a thread's niceness needs no privilege (lowering it back
// does), so it is only ever raised, once, when a worker starts.
#pragma once

namespace qv::platform {

// Makes the calling thread (and the threads it starts from now on) yield to
// the program's threads at normal priority, by `steps` nice levels (1 to
// 19). Nothing happens where the system refuses.
void yieldToOthers(int steps);

}  // namespace qv::platform
