#include "project/clips_manager.h"

#include <algorithm>

#include "project/clip_audio.h"
#include "project/tracks_manager.h"

namespace {

bool ByPosition(std::unique_ptr<TDClip> const& a, std::unique_ptr<TDClip> const& b) {
  return a->iPosition < b->iPosition;
}

}  // namespace

TDClipsManager::TDClipsManager() = default;
TDClipsManager::~TDClipsManager() = default;

TDClip* TDClipsManager::AddClip(std::unique_ptr<TDClip> clip) {
  TDClip* raw = clip.get();
  auto const at = std::upper_bound(vClips.begin(), vClips.end(), clip, ByPosition);
  vClips.insert(at, std::move(clip));
  return raw;
}

TDClip* TDClipsManager::AddTemporaryClip(std::unique_ptr<TDClip> clip) {
  clip->bTemporary = true;
  vTemporary.push_back(std::move(clip));
  return vTemporary.back().get();
}

void TDClipsManager::SortByPosition() { std::stable_sort(vClips.begin(), vClips.end(), ByPosition); }

TDClipsManager::ClipList::iterator TDClipsManager::Find(TDClip const* clip) {
  return std::find_if(vClips.begin(), vClips.end(), [clip](auto const& c) { return c.get() == clip; });
}

TDClip* TDClipsManager::GetClip(std::uint32_t id) const {
  for (auto const& c : vClips) {
    if (c->uClipId == id) return c.get();
  }
  return nullptr;
}

bool TDClipsManager::SelectClip(std::uint32_t id, bool selected) {
  TDClip* clip = GetClip(id);
  if (clip == nullptr) return false;
  clip->bSelected = selected;
  return true;
}

bool TDClipsManager::DeleteClip(std::uint32_t id) { return DeleteClip(GetClip(id)); }

bool TDClipsManager::DeleteClip(TDClip const* clip) { return TakeClip(clip) != nullptr; }

std::unique_ptr<TDClip> TDClipsManager::TakeClip(TDClip const* clip) {
  auto const it = Find(clip);
  if (clip == nullptr || it == vClips.end()) return nullptr;
  std::unique_ptr<TDClip> taken = std::move(*it);
  vClips.erase(it);
  return taken;
}

int TDClipsManager::GetNumAudioClips() const {
  return static_cast<int>(std::count_if(vClips.begin(), vClips.end(), [](auto const& c) { return !c->IsMidi(); }));
}

int TDClipsManager::GetNumMidiClips() const { return GetCount() - GetNumAudioClips(); }

int TDClipsManager::GetNumClipsOnTrack(int track) const {
  return static_cast<int>(
      std::count_if(vClips.begin(), vClips.end(), [track](auto const& c) { return c->iTrackIndex == track; }));
}

int TDClipsManager::GetNumSelectedClips() const {
  return static_cast<int>(std::count_if(vClips.begin(), vClips.end(), [](auto const& c) { return c->bSelected; }));
}

int TDClipsManager::GetNumTakesInGroup(std::uint32_t group) const {
  if (group == 0) return 0;
  return static_cast<int>(
      std::count_if(vClips.begin(), vClips.end(), [group](auto const& c) { return c->uTakeGroupId == group; }));
}

namespace {

template <class Pred>
LSoundTime LatestEnd(TDClipsManager::ClipList const& clips, Pred counts) {
  LSoundTime end = 0;
  for (auto const& c : clips) {
    if (counts(*c)) end = std::max(end, c->GetEndTime());
  }
  return end;
}

}  // namespace

LSoundTime TDClipsManager::GetClipsEnd() const {
  return LatestEnd(vClips, [](TDClip const&) { return true; });
}

LSoundTime TDClipsManager::GetTemporaryClipsEnd() const {
  return LatestEnd(vTemporary, [](TDClip const&) { return true; });
}

LSoundTime TDClipsManager::GetPlayableClipsEnd() const {
  return LatestEnd(vClips, [](TDClip const& c) { return c.IsPlayable(); });
}

LSoundTime TDClipsManager::GetMidiClipsEnd() const {
  return LatestEnd(vClips, [](TDClip const& c) { return c.IsMidi(); });
}

LSoundTime TDClipsManager::GetAudibleEnd(TDTracksManager const& tracks) const {
  return LatestEnd(vClips, [&](TDClip const& c) {
    return c.IsPlayable() && tracks.IsTrackValid(c.iTrackIndex) && !tracks.IsTrackSilent(c.iTrackIndex);
  });
}

LSoundTime TDClipsManager::CalculateEnd(bool withTemporary) const {
  LSoundTime end = GetClipsEnd();
  if (withTemporary) end = std::max(end, GetTemporaryClipsEnd());
  return end;
}

void TDClipsManager::SelectAllClips() {
  for (auto& c : vClips) c->bSelected = true;
}

void TDClipsManager::DeselectAllClips() {
  for (auto& c : vClips) c->bSelected = false;
}

TDClip* TDClipsManager::GetSelectedClip() const {
  for (auto const& c : vClips) {
    if (c->bSelected) return c.get();
  }
  return nullptr;
}

void TDClipsManager::SelectAllClipsOfTrack(int track) {
  for (auto& c : vClips) {
    if (c->iTrackIndex == track) c->bSelected = true;
  }
}

LSoundTime TDClipsManager::GetSelClipMinStartPos() const {
  TDClipActionMinStartPos action;
  TDClipConditionSelected const selected;
  for (auto const& c : vClips) {
    if (selected.IsItemSatisfyCondition(*c)) action.ExecuteActionOnItem(*c);
  }
  return action.iPosition;
}

LSoundTime TDClipsManager::GetSelClipMaxEndPos() const {
  TDClipActionMaxEndPos action;
  TDClipConditionSelected const selected;
  for (auto const& c : vClips) {
    if (selected.IsItemSatisfyCondition(*c)) action.ExecuteActionOnItem(*c);
  }
  return action.iPosition;
}

bool TDClipsManager::GetSelClipsOverlapped() const {
  for (std::size_t i = 0; i < vClips.size(); ++i) {
    TDClip const& a = *vClips[i];
    if (!a.bSelected) continue;
    for (std::size_t j = i + 1; j < vClips.size(); ++j) {
      TDClip const& b = *vClips[j];
      if (b.bSelected && b.iTrackIndex == a.iTrackIndex && a.Overlaps(b.iPosition, b.GetEndTime())) return true;
    }
  }
  return false;
}

void TDClipsManager::LockSelectedClips(bool lock) {
  for (auto& c : vClips) {
    if (c->bSelected) {
      c->bLocked = lock;
      SetAllTakesLockAsClip(*c);
    }
  }
}

void TDClipsManager::LockToggleSelectedClips() {
  bool const anyUnlocked =
      std::any_of(vClips.begin(), vClips.end(), [](auto const& c) { return c->bSelected && !c->bLocked; });
  LockSelectedClips(anyUnlocked);
}

bool TDClipsManager::HasClipsLocked(int track) const {
  return std::any_of(vClips.begin(), vClips.end(),
                     [track](auto const& c) { return c->iTrackIndex == track && c->bLocked; });
}

bool TDClipsManager::HasClipsSelectedAndLocked() const {
  return std::any_of(vClips.begin(), vClips.end(), [](auto const& c) { return c->bSelected && c->bLocked; });
}

bool TDClipsManager::HasAtLeastOneClipNotLocked() const {
  return std::any_of(vClips.begin(), vClips.end(), [](auto const& c) { return !c->bLocked; });
}

void TDClipsManager::SetAllTakesLockAsClip(TDClip const& clip) {
  if (!clip.IsTake()) return;
  for (TDClip* take : GetTakesInGroup(clip.uTakeGroupId)) take->bLocked = clip.bLocked;
}

std::vector<TDClip*> TDClipsManager::GetTakesInGroup(std::uint32_t group) const {
  std::vector<TDClip*> out;
  if (group == 0) return out;
  for (auto const& c : vClips) {
    if (c->uTakeGroupId == group) out.push_back(c.get());
  }
  return out;
}

TDClip* TDClipsManager::GetNextClipTake(TDClip const& clip) const {
  if (!clip.IsTake()) return nullptr;
  TDClip* next = nullptr;
  TDClip* lowest = nullptr;
  for (TDClip* t : GetTakesInGroup(clip.uTakeGroupId)) {
    if (t->iTakeNumber > clip.iTakeNumber && (next == nullptr || t->iTakeNumber < next->iTakeNumber)) next = t;
    if (lowest == nullptr || t->iTakeNumber < lowest->iTakeNumber) lowest = t;
  }
  return next != nullptr ? next : lowest;
}

TDClip* TDClipsManager::GetPrevClipTake(TDClip const& clip) const {
  if (!clip.IsTake()) return nullptr;
  TDClip* prev = nullptr;
  TDClip* highest = nullptr;
  for (TDClip* t : GetTakesInGroup(clip.uTakeGroupId)) {
    if (t->iTakeNumber < clip.iTakeNumber && (prev == nullptr || t->iTakeNumber > prev->iTakeNumber)) prev = t;
    if (highest == nullptr || t->iTakeNumber > highest->iTakeNumber) highest = t;
  }
  return prev != nullptr ? prev : highest;
}

bool TDClipsManager::SelectTakeByTakeId(int number, TDClip& clip) {
  if (!clip.IsTake()) return false;
  std::vector<TDClip*> const takes = GetTakesInGroup(clip.uTakeGroupId);
  if (std::none_of(takes.begin(), takes.end(), [number](TDClip* t) { return t->iTakeNumber == number; })) {
    return false;
  }
  AlignAllTakesPosition(clip);
  for (TDClip* t : takes) t->bActiveTake = t->bSelected = t->iTakeNumber == number;
  return true;
}

void TDClipsManager::AlignAllTakesPosition(TDClip const& clip) {
  if (!clip.IsTake()) return;
  for (TDClip* t : GetTakesInGroup(clip.uTakeGroupId)) {
    t->iPosition = clip.iPosition;
    t->iTrackIndex = clip.iTrackIndex;
    t->pTrack = clip.pTrack;
    t->uTrackId = clip.uTrackId;
  }
  SortByPosition();
}

void TDClipsManager::AlignAllTakesPosition() {
  std::vector<TDClip*> active;
  for (auto const& c : vClips) {
    if (c->IsTake() && c->bActiveTake) active.push_back(c.get());
  }
  for (TDClip* c : active) AlignAllTakesPosition(*c);
}

void TDClipsManager::DeleteOneClipInTakeGroup(TDClip const* clip) {
  if (clip == nullptr) return;
  std::uint32_t const group = clip->uTakeGroupId;
  bool const wasActive = clip->bActiveTake;
  if (!DeleteClip(clip) || group == 0) return;
  std::vector<TDClip*> const rest = GetTakesInGroup(group);
  if (rest.empty()) return;
  if (wasActive || std::none_of(rest.begin(), rest.end(), [](TDClip* t) { return t->bActiveTake; })) {
    for (TDClip* t : rest) t->bActiveTake = false;
    rest.front()->bActiveTake = true;
  }
  if (rest.size() == 1) {
    rest.front()->uTakeGroupId = 0;
    rest.front()->iTakeNumber = 0;
    rest.front()->bActiveTake = true;
  }
}

void TDClipsManager::DeleteAllClipsInTakeGroup(TDClip const* clip) {
  if (clip == nullptr) return;
  if (!clip->IsTake()) {
    DeleteClip(clip);
    return;
  }
  std::uint32_t const group = clip->uTakeGroupId;
  std::erase_if(vClips, [group](auto const& c) { return c->uTakeGroupId == group; });
}

bool TDClipsManager::HasAnyTakeSelected() const {
  return std::any_of(vClips.begin(), vClips.end(), [](auto const& c) { return c->bSelected && c->IsTake(); });
}

std::vector<int> TDClipsManager::CollectTakeGroupIds() const {
  std::vector<int> ids;
  for (auto const& c : vClips) {
    if (c->IsTake()) ids.push_back(static_cast<int>(c->uTakeGroupId));
  }
  return ids;
}

void TDClipsManager::PreserveAudioCuts() const {
  for (auto const& c : vClips) {
    if (auto const* audio = dynamic_cast<TDClipAudio const*>(c.get())) audio->PreserveCutList();
  }
}

void TDClipsManager::ValidateFadePoints() {
  for (auto& c : vClips) c->ValidateFadePoints();
}

int TDClipsManager::AddFadePoint(LSoundTime time) {
  int added = 0;
  for (auto& c : vClips) {
    if (!c->bSelected || c->bLocked || time <= c->iPosition || time >= c->GetEndTime()) continue;
    FadeType const type = c->GetFadeTypeShown();
    std::size_t const before = c->GetFadeListByType(type).size();
    if (c->AddFadePointAtTime(time - c->iPosition, type) != nullptr && c->GetFadeListByType(type).size() > before) {
      ++added;
    }
  }
  return added;
}

bool TDClipsManager::CrossFadeClips() {
  std::vector<TDClip*> selected;
  for (auto const& c : vClips) {
    if (c->bSelected) selected.push_back(c.get());
  }
  if (selected.size() != 2) return false;
  TDClip* first = selected[0];
  TDClip* second = selected[1];
  if (first->IsMidi() || second->IsMidi() || first->bLocked || second->bLocked) return false;
  if (second->iPosition < first->iPosition) std::swap(first, second);
  if (!first->Overlaps(second->iPosition, second->GetEndTime())) return false;
  // The overlap runs from where the second begins to the earlier of the ends.
  LSoundTime const overlapEnd = std::min(first->GetEndTime(), second->GetEndTime());
  first->FadeOutRegion(second->iPosition - first->iPosition, first->GetEnd(), FadeTypeVolume);
  second->FadeInRegion(0, overlapEnd - second->iPosition, FadeTypeVolume);
  return true;
}

void TDClipsManager::OffsetClipsPosition(LSoundTime delta, int scope, int kind) {
  for (auto& c : vClips) {
    if (c->bLocked) continue;
    if (scope == 1 && !c->bSelected) continue;
    if (scope == 2 && c->bSelected) continue;
    if (kind == 1 && c->IsMidi()) continue;
    if (kind == 2 && !c->IsMidi()) continue;
    c->iPosition += delta;
  }
  SortByPosition();
}

bool TDClipsManager::RestoreClip(LProcessInterface& pi) {
  bool allRestored = true;
  for (auto& c : vClips) {
    if (!c->bSelected) continue;
    if (c->bLocked) {
      allRestored = false;
      continue;
    }
    c->RestoreToOriginal(pi);
  }
  return allRestored;
}

void TDClipsManager::ClearTemporaryClip(int kind) {
  std::erase_if(vTemporary, [kind](auto const& c) {
    return kind == 0 || (kind > 0 && !c->IsMidi()) || (kind < 0 && c->IsMidi());
  });
}

void TDClipsManager::MoveClipsAboveTrack(int i, int delta, TDTracksManager& tracks) {
  for (auto& c : vClips) {
    if (c->iTrackIndex > i) {
      int const index = c->iTrackIndex + delta;
      c->BindTrack(tracks.GetTrack(index), index);
    }
  }
}

void TDClipsManager::DeleteClipsOfTrack(int i) {
  std::erase_if(vClips, [i](auto const& c) { return c->iTrackIndex == i; });
}

void TDClipsManager::ExchangeClipsTracks(int a, int b, TDTracksManager& tracks) {
  for (auto& c : vClips) {
    if (c->iTrackIndex == a) {
      c->BindTrack(tracks.GetTrack(b), b);
    } else if (c->iTrackIndex == b) {
      c->BindTrack(tracks.GetTrack(a), a);
    }
  }
}

void TDClipsManager::Clear() {
  vClips.clear();
  vTemporary.clear();
}

int TDGroupIdGenerator::GetNewGroupId(std::vector<int> used) {
  std::sort(used.begin(), used.end());
  int candidate = 1;
  for (int id : used) {
    if (id == candidate)
      ++candidate;
    else if (id > candidate)
      break;
  }
  return candidate;
}
