#include "project/clips_manager.h"

#include <algorithm>

// With no clips in the lists there is nothing to move, delete or rebind; these
// bodies are filled in together with the clip list.

void TDClipsManager::MoveClipsAboveTrack(int, int, TDTracksManager&) {}

void TDClipsManager::DeleteClipsOfTrack(int) {}

void TDClipsManager::ExchangeClipsTracks(int, int, TDTracksManager&) {}

bool TDClipsManager::HasLockedClipOnTrack(int) const {
  return false;
}

void TDClipsManager::Clear() {}

void TDClipsManager::ClearTemporary() {}

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
