// SoundChoice: which sound of a recorder the user hears, "Canal : mélange /
// 1 / 2 / …". A recorder's inputs are the channels of its files or, for a
// take written as one file per input, those files: input k is channel k of
// a polyphonic file, or the take's k-th one-channel lane ("Tr1", "Tr2").
// "mélange" (0) is what the synchronisation chose: the channels that carry
// sound, and a take's mix.
//
// The choice is applied to a synchronisation result, which the player, the
// render and every writer then read as it stands. Pure functions; any thread.
#pragma once

#include <map>

#include "sync/SyncResult.h"

namespace qv::SoundChoice {

// Highest choice a source offers, 0 when it has nothing to choose from
// (one channel, or no file placed).
int inputs(const SyncResult& result, int sourceIndex);

// `result` with each source of `choices` (source index to choice) heard as
// chosen; a choice beyond the inputs of a file leaves that file as it was.
SyncResult apply(SyncResult result, const std::map<int, int>& choices);

}  // namespace qv::SoundChoice
