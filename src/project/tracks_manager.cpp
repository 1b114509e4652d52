#include "project/tracks_manager.h"

#include <algorithm>
#include <utility>

TDTracksManager::TDTracksManager() : m_Defaults([] { return TDTrackDefaults{}; }) {}

void TDTracksManager::SetNewTrackDefaultsProvider(DefaultsProvider provider) {
  if (provider)
    m_Defaults = std::move(provider);
  else
    m_Defaults = [] { return TDTrackDefaults{}; };
}

std::unique_ptr<TDTrack> TDTracksManager::MakeTrack() const {
  auto track = std::make_unique<TDTrack>(m_Defaults());
  // A new track joins whatever solo state the others are in.
  track->bSilencedBySolo = IsAnyTrackSolo();
  return track;
}

void TDTracksManager::Renumber(std::size_t from) {
  for (std::size_t n = from; n < m_Tracks.size(); ++n) m_Tracks[n]->iIndex = static_cast<int>(n);
}

TDTrack* TDTracksManager::AddTrack() {
  m_Tracks.push_back(MakeTrack());
  Renumber(m_Tracks.size() - 1);
  return m_Tracks.back().get();
}

TDTrack* TDTracksManager::AddTrackAfter(int i) {
  if (i < -1 || i >= GetTrackCount()) return nullptr;
  const auto at = static_cast<std::size_t>(i + 1);
  m_Tracks.insert(m_Tracks.begin() + static_cast<std::ptrdiff_t>(at), MakeTrack());
  Renumber(at);
  return m_Tracks[at].get();
}

bool TDTracksManager::DeleteTrack(int i) {
  if (!IsTrackValid(i)) return false;
  m_Tracks.erase(m_Tracks.begin() + i);
  Renumber(static_cast<std::size_t>(i));
  SetCurrentTrackIndex(iCurrentTrack);
  // The deleted track may have been the only solo one.
  UpdateSilencedBySolo();
  return true;
}

bool TDTracksManager::ExchangeTracks(int a, int b) {
  if (!IsTrackValid(a) || !IsTrackValid(b)) return false;
  std::swap(m_Tracks[static_cast<std::size_t>(a)], m_Tracks[static_cast<std::size_t>(b)]);
  m_Tracks[static_cast<std::size_t>(a)]->iIndex = a;
  m_Tracks[static_cast<std::size_t>(b)]->iIndex = b;
  return true;
}

void TDTracksManager::Clear() {
  m_Tracks.clear();
  iCurrentTrack = 0;
}

TDTrack* TDTracksManager::GetTrack(int i) {
  return IsTrackValid(i) ? m_Tracks[static_cast<std::size_t>(i)].get() : nullptr;
}

const TDTrack* TDTracksManager::GetTrack(int i) const {
  return IsTrackValid(i) ? m_Tracks[static_cast<std::size_t>(i)].get() : nullptr;
}

TDTrack* TDTracksManager::GetTrackById(std::uint64_t id) {
  if (id == 0) return nullptr;
  for (auto& track : m_Tracks)
    if (track->uTrackId == id) return track.get();
  return nullptr;
}

bool TDTracksManager::IsTrackValid(int i) const {
  return i >= 0 && i < GetTrackCount();
}

void TDTracksManager::SetCurrentTrackIndex(int i) {
  iCurrentTrack = std::clamp(i, 0, std::max(0, GetTrackCount() - 1));
}

bool TDTracksManager::IsTrackSilent(int i) const {
  const TDTrack* track = GetTrack(i);
  if (!track) return false;
  if (track->bMute) return true;
  if (track->bSolo) return false;
  return IsAnyTrackSolo();
}

bool TDTracksManager::SetTrackSolo(int i, bool on) {
  TDTrack* track = GetTrack(i);
  if (!track) return false;
  track->bSolo = on;
  if (on) track->bMute = false;
  UpdateSilencedBySolo();
  return true;
}

bool TDTracksManager::SetTrackMute(int i, bool on) {
  TDTrack* track = GetTrack(i);
  if (!track) return false;
  track->bMute = on;
  if (on) return SetTrackSolo(i, false);
  UpdateSilencedBySolo();
  return true;
}

void TDTracksManager::UpdateSilencedBySolo() {
  // A solo track is never silenced by solo, not even by another solo track; every
  // other track is while any track is solo.
  const bool anySolo = IsAnyTrackSolo();
  for (auto& track : m_Tracks) track->bSilencedBySolo = anySolo && !track->bSolo;
}

bool TDTracksManager::SetTrackPan(int i, double pan) {
  TDTrack* track = GetTrack(i);
  if (!track) return false;
  track->PannedVolume.dPan = std::clamp(pan, -1.0, 1.0);
  track->PannedVolume.ApplyCentreToLeftAndRight();
  return true;
}

bool TDTracksManager::SetTrackVolume(int i, float dB) {
  TDTrack* track = GetTrack(i);
  if (!track) return false;
  track->PannedVolume.fCentre = dB;
  track->PannedVolume.ApplyCentreToLeftAndRight();
  return true;
}

bool TDTracksManager::IsAnyTrackSolo() const {
  return std::any_of(m_Tracks.begin(), m_Tracks.end(), [](const auto& t) { return t->bSolo; });
}

bool TDTracksManager::IsAnyTrackRecordAudio() const {
  return std::any_of(m_Tracks.begin(), m_Tracks.end(),
                     [](const auto& t) { return t->IsRecordMode() && !t->bRecordMidi; });
}

bool TDTracksManager::IsAnyTrackRecordMidi() const {
  return std::any_of(m_Tracks.begin(), m_Tracks.end(),
                     [](const auto& t) { return t->IsRecordMode() && t->bRecordMidi; });
}

bool TDTracksManager::IsAnyTrackRecordMonitored() const {
  return std::any_of(m_Tracks.begin(), m_Tracks.end(), [](const auto& t) { return t->bMonitor; });
}

void TDTracksManager::EnsureAllTrackIds() {
  for (auto& track : m_Tracks) track->EnsureTrackId();
}

void TDTracksManager::UpdateAutomationEnvLine(LSoundTime start, LSoundTime end) {
  for (auto& track : m_Tracks) {
    track->Automation.ValidatePoints(start, end);
    track->EffectAutomation.ValidatePoints(start, end);
  }
}
