#pragma once
#include <cstdint>
#include <memory>
#include <vector>

#include "foundation/process_interface.h"
#include "foundation/sound_time.h"
#include "project/clip.h"

class TDTracksManager;
class LCutListAudio;

// All clips of the project in one list ordered by position, and the placeholders
// of recordings in progress (temporary clips) in another. The list owns its clips.
//
// Takes are ordinary clips sharing a group id; the operations below keep a group
// together: its takes stand at one place on one track, share their lock, and one
// of them is active.
class TDClipsManager {
 public:
  using ClipList = std::vector<std::unique_ptr<TDClip>>;

  TDClipsManager();
  ~TDClipsManager();
  TDClipsManager(TDClipsManager const&) = delete;
  TDClipsManager& operator=(TDClipsManager const&) = delete;

  // In order of position, after clips at the same position.
  TDClip* AddClip(std::unique_ptr<TDClip> clip);
  TDClip* AddTemporaryClip(std::unique_ptr<TDClip> clip);
  // Puts the list back in order of position after positions changed.
  void SortByPosition();
  ClipList const& GetClips() const { return vClips; }
  ClipList const& GetTemporaryClips() const { return vTemporary; }

  TDClip* GetClip(std::uint32_t id) const;
  bool SelectClip(std::uint32_t id, bool selected);
  // Removes and destroys; false when the clip is not in the list.
  bool DeleteClip(std::uint32_t id);
  bool DeleteClip(TDClip const* clip);
  // Removes without destroying.
  std::unique_ptr<TDClip> TakeClip(TDClip const* clip);

  int GetCount() const { return static_cast<int>(vClips.size()); }
  int GetNumClips() const { return GetCount(); }
  bool IsEmpty() const { return vClips.empty(); }
  int GetTemporaryCount() const { return static_cast<int>(vTemporary.size()); }
  int GetNumTempClips() const { return GetTemporaryCount(); }
  int GetNumAudioClips() const;
  int GetNumMidiClips() const;
  int GetNumClipsOnTrack(int track) const;
  int GetNumSelectedClips() const;
  int GetNumTakesInGroup(std::uint32_t group) const;

  // Ends on the timeline; 0 when nothing counts.
  LSoundTime GetClipsEnd() const;
  LSoundTime GetTemporaryClipsEnd() const;
  // Only clips that play: a take must be the active one.
  LSoundTime GetPlayableClipsEnd() const;
  LSoundTime GetMidiClipsEnd() const;
  // Playable clips on tracks that are heard (not muted, not silenced by a solo).
  LSoundTime GetAudibleEnd(TDTracksManager const& tracks) const;
  LSoundTime CalculateEnd(bool withTemporary) const;

  void SelectAllClips();
  void DeselectAllClips();
  // The first selected clip in list order, or null.
  TDClip* GetSelectedClip() const;
  void SelectAllClipsOfTrack(int track);
  // Of the selected clips: the earliest start and the latest end (0 with none).
  LSoundTime GetSelClipMinStartPos() const;
  LSoundTime GetSelClipMaxEndPos() const;
  // Whether two selected clips on one track overlap.
  bool GetSelClipsOverlapped() const;

  void LockSelectedClips(bool lock);
  // Locks all selected if any of them is unlocked, else unlocks them all.
  void LockToggleSelectedClips();
  bool HasClipsLocked(int track) const;
  bool HasLockedClipOnTrack(int track) const { return HasClipsLocked(track); }
  bool HasClipsSelectedAndLocked() const;
  bool HasAtLeastOneClipNotLocked() const;
  // Every take of the clip's group gets the clip's lock.
  void SetAllTakesLockAsClip(TDClip const& clip);

  // The takes of a group in list order.
  std::vector<TDClip*> GetTakesInGroup(std::uint32_t group) const;
  // The take with the next higher (lower) number, wrapping round; null for a clip
  // that is not a take.
  TDClip* GetNextClipTake(TDClip const& clip) const;
  TDClip* GetPrevClipTake(TDClip const& clip) const;
  // Makes the take of that number active and selected, and the others neither.
  bool SelectTakeByTakeId(int number, TDClip& clip);
  // Every take of the clip's group goes to the clip's place and track.
  void AlignAllTakesPosition(TDClip const& clip);
  // The same for each group, after its active take.
  void AlignAllTakesPosition();
  // Deletes one take; the first other take of the group becomes active, and a
  // lone survivor stops being a take.
  void DeleteOneClipInTakeGroup(TDClip const* clip);
  void DeleteAllClipsInTakeGroup(TDClip const* clip);
  bool HasAnyTakeSelected() const;
  // The take group ids in use, for handing out a new one.
  std::vector<int> CollectTakeGroupIds() const;

  // Marks every file the audio clips name as preserved (after a save or load).
  void PreserveAudioCuts() const;
  // Every clip's lines made valid for its length (after a load).
  void ValidateFadePoints();
  // A point at timeline `time` on the line its track shows, in each selected,
  // unlocked clip that `time` falls inside, with the level the line has there.
  // The count of points made: a point already at that time is not counted.
  int AddFadePoint(LSoundTime time);
  // The two selected clips, both audio, the first in time fading out over the
  // stretch where they overlap and the second fading in over it. False, with
  // nothing changed, unless exactly two clips are selected, neither is MIDI nor
  // locked, and they overlap in time.
  bool CrossFadeClips();
  // Moves unlocked clips: scope 1 only selected, 2 only unselected, else all;
  // kind 1 skips MIDI clips, 2 skips audio clips.
  void OffsetClipsPosition(LSoundTime delta, int scope, int kind);
  // Restores each selected unlocked clip; false when a selected clip was locked.
  bool RestoreClip(LProcessInterface& pi);
  // 0 clears all temporary clips, a positive kind the audio ones, a negative kind
  // the MIDI ones.
  void ClearTemporaryClip(int kind);

  // Adds delta to the track index of every clip on a track above i and binds
  // each moved clip again to the track now at its index (pointer and id).
  void MoveClipsAboveTrack(int i, int delta, TDTracksManager& tracks);
  void DeleteClipsOfTrack(int i);
  // Clips of track a move to b and those of b to a, bound to the tracks there.
  void ExchangeClipsTracks(int a, int b, TDTracksManager& tracks);

  void Clear();
  void ClearTemporary() { vTemporary.clear(); }

 private:
  ClipList::iterator Find(TDClip const* clip);

  ClipList vClips;
  ClipList vTemporary;
};

// Take groups tie the takes of one recording together.
struct TDGroupIdGenerator {
  // The smallest id from 1 up that is not in used: ids of deleted groups are
  // reused, nothing else recycles them.
  static int GetNewGroupId(std::vector<int> used);
};
