// The calling thread's share of the processor against the program's other
// threads. Lowering a thread's priority needs no privilege (raising it back
// does), so it is only ever lowered, once, when a worker starts; work that
// must change priority moves to a thread of the other priority instead.
#pragma once

namespace qv::platform {

// Makes the calling thread (and the threads it starts from now on) yield to
// the program's threads at normal priority, by `steps` nice levels (1 to
// 19). Nothing happens where the system refuses.
void yieldToOthers(int steps);

// Makes the calling thread run only on a core nothing else wants
// (SCHED_IDLE), below even threads at nice 19; nice 19 where the system
// refuses.
void runWhenIdle();

// The calling thread's nice value (0 for the usual priority, 19 the lowest).
int niceness();

}  // namespace qv::platform
