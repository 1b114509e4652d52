#pragma once
#include <vector>

#include "foundation/sound_time.h"

class TDTracksManager;

// All clips of the project, and the placeholders of recordings in progress
// (temporary clips), ordered by position.
//
// Clips themselves are not part of the model yet, so the lists are always empty
// and every answer below is the true answer for an empty project. The project's
// track and length rules are written against these operations only, so clips
// slot in here without the project changing.
class TDClipsManager {
 public:
  int GetCount() const { return 0; }
  bool IsEmpty() const { return GetCount() == 0; }
  int GetTemporaryCount() const { return 0; }

  // The latest end among the clips, 0 when there are none.
  LSoundTime GetClipsEnd() const { return 0; }
  // The same over the temporary clips.
  LSoundTime GetTemporaryClipsEnd() const { return 0; }

  // Adds delta to the track index of every clip on a track above i and binds
  // each moved clip again to the track now at its index (pointer and id).
  void MoveClipsAboveTrack(int i, int delta, TDTracksManager& tracks);
  // Deletes every clip on track i.
  void DeleteClipsOfTrack(int i);
  // Clips of track a move to b and those of b to a, bound to the tracks there.
  void ExchangeClipsTracks(int a, int b, TDTracksManager& tracks);
  bool HasLockedClipOnTrack(int i) const;

  // The take group ids in use, for handing out a new one.
  std::vector<int> CollectTakeGroupIds() const { return {}; }

  void Clear();
  void ClearTemporary();
};

// Take groups tie the takes of one recording together.
struct TDGroupIdGenerator {
  // The smallest id from 1 up that is not in used: ids of deleted groups are
  // reused, nothing else recycles them.
  static int GetNewGroupId(std::vector<int> used);
};
