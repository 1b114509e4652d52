#include "project/automation.h"

#include <algorithm>
#include <cmath>

#include "project/name_limit.h"
#include "sound/envelope_sources.h"

// ---- the automations ----

template <class Stream>
bool TDSPAutomation::SaveContainer(LSDFWriter<Stream>& writer, std::uint16_t id, std::string const* name) const {
  writer.StartContainer(id, lUnknown);
  if (name != nullptr) writer.WriteString(TDAutomationChunk::Name, *name, 0);
  writer.EndContainer(id);
  return writer.IsOk();
}

template <class Stream>
bool TDSPAutomation::LoadContainer(LSDFReader<Stream>& reader, LSDFReaderChunk<Stream> const& container,
                                   std::string* name) {
  lUnknown.clear();
  for (LSDFReaderChunkIterator<Stream> it(reader, container); it.IsValid(); it.Next()) {
    bool ok;
    if (name != nullptr && it->GetChunkID() == TDAutomationChunk::Name && it->GetChunkType() == LSDFTypeString) {
      ok = it->ReadString(*name);
      if (ok) *name = TDCutName(*name);
    } else {
      ok = it->ReadUnknownChunk(lUnknown);
    }
    if (!ok) return false;
  }
  return reader.IsValid();
}

bool TDSPAutomation::SaveToSDF(LSDFWriter<LOutputStreamFile>& writer, std::uint16_t id) const {
  return SaveContainer(writer, id, nullptr);
}
bool TDSPAutomation::SaveToSDF(LSDFWriter<LOutputStreamMemory>& writer, std::uint16_t id) const {
  return SaveContainer(writer, id, nullptr);
}
bool TDSPAutomation::LoadFromSDF(LSDFReader<LInputStreamFile>& reader,
                                 LSDFReaderChunk<LInputStreamFile> const& container) {
  return LoadContainer(reader, container, nullptr);
}
bool TDSPAutomation::LoadFromSDF(LSDFReader<LInputStreamMemory>& reader,
                                 LSDFReaderChunk<LInputStreamMemory> const& container) {
  return LoadContainer(reader, container, nullptr);
}

namespace {

// The first line's points as the source wants them: sorted, in their own kind.
template <class Point>
std::vector<Point> FirstLine(std::vector<LEnvelopeLine> const& lines) {
  std::vector<Point> points;
  points.reserve(lines.front().size());
  for (LEnvelopePoint const& p : lines.front()) points.emplace_back(p);
  LSortEnvelopePoints(points);
  return points;
}

}  // namespace

LSoundSource TDSPGainAutomation::OpenSource(LSoundSource const& source, std::vector<LEnvelopeLine> const& lines) const {
  if (lines.empty()) return source;
  return LSoundSource::Make<LSRCGainEnvelope>(source, FirstLine<LEnvelopePointVol>(lines));
}

void TDSPGainAutomation::GetParaName(int index, std::string& out) const {
  out = index == 0 ? "Volume" : "";
}

int TDSPGainAutomation::GetParaType(int index) const {
  return index == 0 ? TDAutomationParaVolume : TDAutomationParaPlain;
}

LSoundSource TDSPPanAutomation::OpenSource(LSoundSource const& source, std::vector<LEnvelopeLine> const& lines) const {
  if (lines.empty()) return source;
  return LSoundSource::Make<LSRCPanEnvelope>(source, FirstLine<LEnvelopePointPan>(lines));
}

void TDSPPanAutomation::GetParaName(int index, std::string& out) const {
  out = index == 0 ? "Pan Volume" : "";
}

int TDSPPanAutomation::GetParaType(int index) const {
  return index == 0 ? TDAutomationParaPan : TDAutomationParaPlain;
}

LSoundSource TDSPVSTAutomation::OpenSource(LSoundSource const& source, std::vector<LEnvelopeLine> const&) const {
  return source;
}

void TDSPVSTAutomation::GetParaName(int, std::string& out) const {
  out = szName;
}

int TDSPVSTAutomation::GetParaType(int) const {
  return TDAutomationParaPlain;
}

void TDSPVSTAutomation::SetName(std::string_view name) {
  szName = TDCutName(name);
}

bool TDSPVSTAutomation::SaveToSDF(LSDFWriter<LOutputStreamFile>& writer, std::uint16_t id) const {
  return SaveContainer(writer, id, &szName);
}
bool TDSPVSTAutomation::SaveToSDF(LSDFWriter<LOutputStreamMemory>& writer, std::uint16_t id) const {
  return SaveContainer(writer, id, &szName);
}
bool TDSPVSTAutomation::LoadFromSDF(LSDFReader<LInputStreamFile>& reader,
                                    LSDFReaderChunk<LInputStreamFile> const& container) {
  return LoadContainer(reader, container, &szName);
}
bool TDSPVSTAutomation::LoadFromSDF(LSDFReader<LInputStreamMemory>& reader,
                                    LSDFReaderChunk<LInputStreamMemory> const& container) {
  return LoadContainer(reader, container, &szName);
}

LCountedPtr<TDSPAutomation> TDMakeAutomation(int type) {
  switch (type) {
    case TDAutomationTypeGain: return LCountedPtr<TDSPAutomation>(new TDSPGainAutomation);
    case TDAutomationTypePan: return LCountedPtr<TDSPAutomation>(new TDSPPanAutomation);
    case TDAutomationTypeVST: return LCountedPtr<TDSPAutomation>(new TDSPVSTAutomation);
    default: return LCountedPtr<TDSPAutomation>();
  }
}

// ---- a row ----

void TDTrackAutomation::ValidatePoints(LSoundTime start, LSoundTime end) {
  if (start > end) std::swap(start, end);
  if (vPoints.empty()) {
    vPoints = {LEnvelopePoint{0.0, start}, LEnvelopePoint{0.0, end}};
    return;
  }
  LSortEnvelopePoints(vPoints);

  // `inward` is +1 at the start (the range lies after it) and -1 at the end.
  // Distances in 64 bits: points may lie anywhere a time can.
  auto fitEnd = [this](LSoundTime at, std::int64_t inward) {
    auto inside = [&](LEnvelopePoint const& p) {
      std::int64_t const d = (std::int64_t{p.iPosition} - at) * inward;
      return d >= 0 && d <= kEndReach;
    };
    if (std::any_of(vPoints.begin(), vPoints.end(), inside)) return;
    // The nearest point just outside stands for the end; it moves onto it.
    LEnvelopePoint* nearest = nullptr;
    for (LEnvelopePoint& p : vPoints) {
      std::int64_t const d = (std::int64_t{at} - p.iPosition) * inward;
      if (d > 0 && d <= kEndReach && (nearest == nullptr || d < (std::int64_t{at} - nearest->iPosition) * inward)) {
        nearest = &p;
      }
    }
    if (nearest != nullptr) {
      nearest->iPosition = at;
    } else {
      vPoints.push_back(LEnvelopePoint{GetAmplitudeAtPos(vPoints, at), at});
    }
    LSortEnvelopePoints(vPoints);
  };
  fitEnd(start, +1);
  fitEnd(end, -1);

  std::erase_if(vPoints, [&](LEnvelopePoint const& p) { return p.iPosition < start || p.iPosition > end; });

  // Against the neighbours that stay: a run of equal values keeps only its ends.
  LEnvelopeLine kept;
  kept.reserve(vPoints.size());
  for (std::size_t i = 0; i < vPoints.size(); ++i) {
    bool const flat = !kept.empty() && i + 1 < vPoints.size() && kept.back().dValue == vPoints[i].dValue &&
                      vPoints[i + 1].dValue == vPoints[i].dValue;
    if (!flat) kept.push_back(vPoints[i]);
  }
  vPoints = std::move(kept);
}

template <class Stream>
bool TDTrackAutomation::SaveToSDF(LSDFWriter<Stream>& writer, std::uint16_t id) const {
  using Conv = LEnvPointDoubleTimeConverter;
  writer.StartContainer(id, lUnknown);
  writer.WriteInt(TDAutomationChunk::ParaIndex, iParaIndex, 0);
  writer.StartContainer(TDAutomationChunk::Points, lPointsUnknown, 1);
  int position = 0;
  for (LEnvelopePoint const& p : vPoints) {
    writer.StartContainer(TDAutomationChunk::Point, position++);
    writer.WriteInt(TDAutomationChunk::PointPosition, Conv::TimeToStored(p.iPosition), 0);
    writer.WriteFloat(TDAutomationChunk::PointValue, Conv::ValueToStored(p.dValue), 1);
    writer.EndContainer(TDAutomationChunk::Point);
  }
  writer.EndContainer(TDAutomationChunk::Points);
  writer.EndContainer(id);
  return writer.IsOk();
}

namespace {

template <class Stream>
bool LoadPoint(LSDFReader<Stream>& reader, LSDFReaderChunk<Stream> const& container, LEnvelopePoint& point) {
  using Conv = LEnvPointDoubleTimeConverter;
  for (LSDFReaderChunkIterator<Stream> it(reader, container); it.IsValid(); it.Next()) {
    bool ok = true;
    if (it->GetChunkID() == TDAutomationChunk::PointPosition) {
      std::int32_t t = 0;
      ok = it->ReadInt(t);
      if (ok) point.iPosition = Conv::TimeFromStored(t);
    } else if (it->GetChunkID() == TDAutomationChunk::PointValue) {
      float v = 0.0f;
      ok = it->ReadFloat(v);
      if (ok) point.dValue = Conv::ValueFromStored(v);
    }
    if (!ok) return false;
  }
  return reader.IsValid();
}

}  // namespace

template <class Stream>
bool TDTrackAutomation::LoadFromSDF(LSDFReader<Stream>& reader, LSDFReaderChunk<Stream> const& container) {
  iParaIndex = 0;
  vPoints.clear();
  lUnknown.clear();
  lPointsUnknown.clear();
  for (LSDFReaderChunkIterator<Stream> it(reader, container); it.IsValid(); it.Next()) {
    bool ok = true;
    if (it->GetChunkID() == TDAutomationChunk::ParaIndex) {
      std::int32_t index = 0;
      ok = it->ReadInt(index);
      if (ok) iParaIndex = index;
    } else if (it->GetChunkID() == TDAutomationChunk::Points && it->GetChunkType() == LSDFTypeContainer) {
      for (LSDFReaderChunkIterator<Stream> pt(reader, *it); pt.IsValid(); pt.Next()) {
        if (pt->GetChunkID() == TDAutomationChunk::Point && pt->GetChunkType() == LSDFTypeContainer) {
          LEnvelopePoint point;
          if (!LoadPoint(reader, *pt, point)) return false;
          vPoints.push_back(point);
        } else if (!pt->ReadUnknownChunk(lPointsUnknown)) {
          return false;
        }
      }
      ok = reader.IsValid();
    } else {
      ok = it->ReadUnknownChunk(lUnknown);
    }
    if (!ok) return false;
  }
  LSortEnvelopePoints(vPoints);
  return reader.IsValid();
}

template bool TDTrackAutomation::SaveToSDF<LOutputStreamFile>(LSDFWriter<LOutputStreamFile>&, std::uint16_t) const;
template bool TDTrackAutomation::SaveToSDF<LOutputStreamMemory>(LSDFWriter<LOutputStreamMemory>&, std::uint16_t) const;
template bool TDTrackAutomation::LoadFromSDF<LInputStreamFile>(LSDFReader<LInputStreamFile>&,
                                                               LSDFReaderChunk<LInputStreamFile> const&);
template bool TDTrackAutomation::LoadFromSDF<LInputStreamMemory>(LSDFReader<LInputStreamMemory>&,
                                                                 LSDFReaderChunk<LInputStreamMemory> const&);

// ---- the rows of a track ----

TDAutomationTracksManager::TDAutomationTracksManager(TDAutomationTracksManager const& other) {
  vRows.reserve(other.vRows.size());
  for (auto const& row : other.vRows) vRows.push_back(std::make_unique<TDTrackAutomation>(*row));
}

TDAutomationTracksManager& TDAutomationTracksManager::operator=(TDAutomationTracksManager const& other) {
  if (this != &other) {
    TDAutomationTracksManager copy(other);
    vRows = std::move(copy.vRows);
  }
  return *this;
}

int TDAutomationTracksManager::AddTrackAutomation(LCountedPtr<TDSPAutomation> const& automation, int paraIndex) {
  if (!automation) return -1;
  for (std::size_t i = 0; i < vRows.size(); ++i) {
    if (vRows[i]->lpAutomation.Get() == automation.Get() && vRows[i]->iParaIndex == paraIndex) {
      return static_cast<int>(i);
    }
  }
  vRows.push_back(std::make_unique<TDTrackAutomation>(automation, paraIndex));
  return static_cast<int>(vRows.size()) - 1;
}

bool TDAutomationTracksManager::DeleteAutomationTrack(int index) {
  if (index < 0 || index >= GetCount()) return false;
  vRows.erase(vRows.begin() + index);
  return true;
}

TDTrackAutomation* TDAutomationTracksManager::GetAutomationTrack(int index) {
  return index >= 0 && index < GetCount() ? vRows[static_cast<std::size_t>(index)].get() : nullptr;
}

TDTrackAutomation const* TDAutomationTracksManager::GetAutomationTrack(int index) const {
  return index >= 0 && index < GetCount() ? vRows[static_cast<std::size_t>(index)].get() : nullptr;
}

void TDAutomationTracksManager::GetAllAutomations(std::vector<LCountedPtr<TDSPAutomation>>& out) const {
  out.clear();
  for (auto const& row : vRows) {
    if (!row->lpAutomation) continue;
    bool const seen = std::any_of(out.begin(), out.end(), [&](LCountedPtr<TDSPAutomation> const& a) {
      return a.Get() == row->lpAutomation.Get();
    });
    if (!seen) out.push_back(row->lpAutomation);
  }
}

int TDAutomationTracksManager::GetTotalAutomationTracksHeightDialogUnits() const {
  int total = 0;
  for (auto const& row : vRows) total += row->GetSubTrackHeightDialogUnits();
  return total;
}

void TDAutomationTracksManager::ValidatePoints(LSoundTime start, LSoundTime end) {
  for (auto& row : vRows) row->ValidatePoints(start, end);
}

LSoundSource TDAutomationTracksManager::OpenSource(LSoundSource const& source, LSoundTime time) const {
  std::vector<LCountedPtr<TDSPAutomation>> automations;
  GetAllAutomations(automations);
  LSoundSource current = source;
  for (LCountedPtr<TDSPAutomation> const& automation : automations) {
    std::vector<TDTrackAutomation const*> rows;
    for (auto const& row : vRows) {
      if (row->lpAutomation.Get() == automation.Get()) rows.push_back(row.get());
    }
    std::stable_sort(rows.begin(), rows.end(), [](TDTrackAutomation const* a, TDTrackAutomation const* b) {
      return a->iParaIndex < b->iParaIndex;
    });
    std::vector<LEnvelopeLine> lines;
    lines.reserve(rows.size());
    for (TDTrackAutomation const* row : rows) {
      LEnvelopeLine line = row->vPoints;
      for (LEnvelopePoint& p : line) p.iPosition -= time;
      lines.push_back(std::move(line));
    }
    current = automation->OpenSource(current, lines);
  }
  return current;
}
