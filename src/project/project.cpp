#include "project/project.h"

#include <algorithm>
#include <climits>
#include <filesystem>
#include <system_error>

#include "foundation/app_paths.h"
#include "project/clip_audio.h"
#include "project/project_paths.h"

namespace {

// "track_year-month-day_hour-minute-second", numbers unpadded, as the names of
// earlier recordings have always been.
std::string RecordStem(int track, const std::tm& when) {
  return std::to_string(track + 1) + '_' + std::to_string(when.tm_year + 1900) + '-' + std::to_string(when.tm_mon + 1) +
         '-' + std::to_string(when.tm_mday) + '_' + std::to_string(when.tm_hour) + '-' + std::to_string(when.tm_min) +
         '-' + std::to_string(when.tm_sec);
}

std::tm LocalNow() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  return local;
}

}  // namespace

TDProject::TDProject() : WorkRegion(iEnd) {}

void TDProject::Close() {
  // Clips first: a clip refers to its track.
  Clips.Clear();
  Clips.ClearTemporary();
  Tracks.Clear();
  szFilePath.clear();
  Bookmarks.clear();
  ResetEditRegion();
}

TDTrack* TDProject::AddTrackAfter(int i) {
  TDTrack* track = Tracks.AddTrackAfter(i);
  if (track) Clips.MoveClipsAboveTrack(i, +1, Tracks);
  return track;
}

bool TDProject::DeleteTrack(int i) {
  if (!Tracks.IsTrackValid(i)) return false;
  Clips.DeleteClipsOfTrack(i);
  Tracks.DeleteTrack(i);
  Clips.MoveClipsAboveTrack(i, -1, Tracks);
  return true;
}

bool TDProject::ExchangeTracks(int a, int b) {
  if (!Tracks.ExchangeTracks(a, b)) return false;
  Clips.ExchangeClipsTracks(a, b, Tracks);
  return true;
}

LSoundTime TDProject::LatestContentEnd(bool withBookmarks, bool& any) const {
  any = false;
  LSoundTime latest = 0;
  if (!Clips.IsEmpty()) {
    any = true;
    latest = std::max(latest, Clips.GetClipsEnd());
  }
  if (Clips.GetTemporaryCount() > 0) {
    any = true;
    latest = std::max(latest, Clips.GetTemporaryClipsEnd());
  }
  if (withBookmarks) {
    for (const LTimeLineBookmark& bookmark : Bookmarks) {
      any = true;
      latest = std::max(latest, bookmark.iPosition);
    }
  }
  return latest;
}

void TDProject::NotifyClipsChanged() {
  if (pNotify) pNotify->prntfClipsChanged(0);
}

void TDProject::SetEnd(LSoundTime end) {
  // Only real clips hold the end out here; bookmarks and recordings in progress
  // are covered by ResetEnd.
  LSoundTime next = kMinimumEnd;
  if (!Clips.IsEmpty()) next = std::max({kMinimumEnd, end, Clips.GetClipsEnd() + kEndMargin});
  if (next == iEnd) return;
  iEnd = next;
  Tracks.UpdateAutomationEnvLine(0, iEnd);
  NotifyClipsChanged();
}

void TDProject::ResetEnd() {
  bool any = false;
  const LSoundTime latest = LatestContentEnd(true, any);
  const LSoundTime wanted = any ? latest + kEndMargin : kMinimumEnd;
  if (iEnd < wanted) {
    iEnd = wanted;
    Tracks.UpdateAutomationEnvLine(0, iEnd);
  }
  NotifyClipsChanged();
}

void TDProject::TrimEnd() {
  bool any = false;
  const LSoundTime latest = LatestContentEnd(false, any);
  iEnd = any ? latest + kEndMargin : kMinimumEnd;
  Tracks.UpdateAutomationEnvLine(0, iEnd);
  WorkRegion.ClampToLimits();
  NotifyClipsChanged();
}

void TDProject::IncreaseEnd() {
  iEnd += kEndMargin;
}

void TDProject::SetEditRegion(int start, int end, int firstTrack, int lastTrack) {
  EditRegion = TDEditRegion{start, end, firstTrack, lastTrack};
}

bool TDProject::IsClipInEditRegion(LSoundTime clipStart, LSoundTime clipEnd, int track) const {
  const TDEditRegion& r = EditRegion;
  if (r.iStart == r.iEnd || r.iFirstTrack > r.iLastTrack) return false;
  if (r.iEnd < clipStart || clipEnd < r.iStart) return false;
  return track >= r.iFirstTrack && track <= r.iLastTrack;
}

TDClip* TDProject::GetClipInEditRegion() const {
  for (auto const& c : Clips.GetClips()) {
    if (IsClipInEditRegion(*c)) return c.get();
  }
  return nullptr;
}

int TDProject::GetNumClipsInEditRegion() const {
  int n = 0;
  for (auto const& c : Clips.GetClips()) n += IsClipInEditRegion(*c) ? 1 : 0;
  return n;
}

TDClip* TDProject::AddClip(std::unique_ptr<TDClip> clip, int track, bool findFree) {
  if (!clip || Tracks.GetTrackCount() == 0) return nullptr;
  if (!Tracks.IsTrackValid(track)) track = Tracks.GetCurrentTrackIndex();
  clip->uClipId = TDClipID::GetNewId();
  clip->BindTrack(Tracks.GetTrack(track), track);
  // A clip that comes without lines gets flat ones over its length.
  clip->InitFadePoints();
  if (findFree) {
    int free = FindTrackNoOverlapped(*clip);
    if (free == INT_MIN) {
      // Every track is taken at that time: a new one below the last takes it.
      int const last = Tracks.GetTrackCount() - 1;
      if (AddTrackAfter(last) != nullptr) free = last + 1;
    }
    if (free != INT_MIN) clip->BindTrack(Tracks.GetTrack(free), free);
  }
  TDClip* added = Clips.AddClip(std::move(clip));
  ResetEnd();
  return added;
}

TDClip* TDProject::AddClipFinalise(std::unique_ptr<TDClip> clip, std::string const& path, int track,
                                   LSoundTime position) {
  int const count = Tracks.GetTrackCount();
  if (!clip || count == 0) return nullptr;
  if (track < 0 || track >= count) track = ((track % count) + count) % count;
  clip->uClipId = TDClipID::GetNewId();
  std::size_t const slash = path.find_last_of('/');
  clip->szName = slash == std::string::npos ? path : path.substr(slash + 1);
  clip->iPosition = position;
  clip->BindTrack(Tracks.GetTrack(track), track);
  clip->InitFadePoints();
  TDClip* added = Clips.AddClip(std::move(clip));
  ResetEnd();
  return added;
}

TDClip* TDProject::AddTemporaryClip(LCutListAudio const& list, LSoundTime position, int track) {
  auto clip = std::make_unique<TDClipAudio>(list);
  clip->szName = "Recording...";
  clip->iPosition = position;
  clip->BindTrack(Tracks.GetTrack(track), track);
  TDClip* added = Clips.AddTemporaryClip(std::move(clip));
  ResetEnd();
  return added;
}

bool TDProject::DeleteClip(std::uint32_t id) { return DeleteClip(Clips.GetClip(id)); }

bool TDProject::DeleteClip(TDClip const* clip) {
  if (!Clips.DeleteClip(clip)) return false;
  NotifyClipsChanged();
  return true;
}

int TDProject::DeleteSelectedClips() {
  std::vector<TDClip const*> doomed;
  for (auto const& c : Clips.GetClips()) {
    if (c->bSelected && !c->bLocked) doomed.push_back(c.get());
  }
  for (TDClip const* c : doomed) Clips.DeleteClip(c);
  if (!doomed.empty()) NotifyClipsChanged();
  return static_cast<int>(doomed.size());
}

int TDProject::FindTrackNoOverlapped(TDClip const& clip) const { return FindTrackNoOverlapped(clip, clip.iTrackIndex); }

int TDProject::FindTrackNoOverlapped(TDClip const& clip, int own) const {
  bool taken[256] = {};
  for (auto const& c : Clips.GetClips()) {
    if (c.get() == &clip || c->iTrackIndex < 0 || c->iTrackIndex > own || c->iTrackIndex >= 256) continue;
    if (c->Overlaps(clip.iPosition, clip.GetEndTime())) taken[c->iTrackIndex] = true;
  }
  for (int t = std::min(own, 255); t >= 0; --t) {
    if (Tracks.IsTrackValid(t) && !taken[t]) return t;
  }
  return INT_MIN;
}

int TDProject::AdjustClipPositionNoOverlapping(TDClip const& clip, int track) const {
  int const count = Tracks.GetTrackCount();
  if (count == 0) return track;
  track = ((track % count) + count) % count;
  int const free = FindTrackNoOverlapped(clip, track);
  return free == INT_MIN ? track : free;
}

LProcessResult TDProject::StretchClip(LProcessInterface& pi, TDClip& clip, LSoundTime length, bool keepPitch) {
  LProcessResult const r = clip.Stretch(pi, length, keepPitch);
  if (r == LProcessFinished) ResetEnd();
  return r;
}

bool TDProject::CrossFadeClips() {
  if (!Clips.CrossFadeClips()) return false;
  NotifyClipsChanged();
  return true;
}

int TDProject::GetNewTakeGroupId() const {
  return TDGroupIdGenerator::GetNewGroupId(Clips.CollectTakeGroupIds());
}

void TDProject::AddBookmark(const LTimeLineBookmark& bookmark) {
  Bookmarks.push_front(bookmark);
}

LTimeLineBookmark* TDProject::FindBookmark(LSoundTime position) {
  for (LTimeLineBookmark& b : Bookmarks) {
    if (b.iPosition == position) return &b;
  }
  return nullptr;
}

bool TDProject::RemoveBookmark(LSoundTime position) {
  auto const before = Bookmarks.size();
  Bookmarks.remove_if([position](const LTimeLineBookmark& b) { return b.iPosition == position; });
  return Bookmarks.size() != before;
}

bool TDProject::CreateAudioRecordName(int track, std::string& out) const {
  return CreateAudioRecordName(track, LocalNow(), out);
}

bool TDProject::CreateAudioRecordName(int track, const std::tm& when, std::string& out) const {
  const TDTrack* t = Tracks.GetTrack(track);
  if (!t) return false;
  out = RecordStem(track, when) + '_' + t->GetName();
  return true;
}

bool TDProject::CreateRecordFilePath(int track, std::string& out, const std::string& ext) const {
  return CreateRecordFilePath(track, LocalNow(), out, ext);
}

bool TDProject::CreateRecordFilePath(int track, const std::tm& when, std::string& out, const std::string& ext) const {
  if (!Tracks.IsTrackValid(track)) return false;
  std::string folder;
  if (!GetRecordingFolder(folder)) return false;
  out = (std::filesystem::path(folder) / (RecordStem(track, when) + '.' + ext)).string();
  return true;
}

bool TDProject::GetRecordingFolder(std::string& out) {
  const std::filesystem::path folder = std::filesystem::path(LAppPaths::UserDataFolder()) / "Recordings";
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (!std::filesystem::is_directory(folder, error)) return false;
  out = folder.string();
  return true;
}
