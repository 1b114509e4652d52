#include "project/anchor_envelope_line.h"

#include <algorithm>
#include <utility>

TDAnchorEnvelopePointLine::TDAnchorEnvelopePointLine(LSoundTime start, LSoundTime end) {
  if (start > end) std::swap(start, end);
  vPoints = {TDAnchorEnvelopePoint{start, 0.0}, TDAnchorEnvelopePoint{end, 0.0}};
}

int TDAnchorEnvelopePointLine::IndexOf(TDAnchorEnvelopePoint const* point) const {
  for (std::size_t i = 0; i < vPoints.size(); ++i) {
    if (&vPoints[i] == point) return static_cast<int>(i);
  }
  return -1;
}

TDAnchorEnvelopePoint* TDAnchorEnvelopePointLine::AddEnvelopePoint(LSoundTime position, double value) {
  if (position <= vPoints.front().iPosition || position >= vPoints.back().iPosition) return nullptr;
  auto at = std::lower_bound(vPoints.begin(), vPoints.end(), position,
                             [](TDAnchorEnvelopePoint const& p, LSoundTime t) { return p.iPosition < t; });
  if (at->iPosition == position) return nullptr;
  return &*vPoints.insert(at, TDAnchorEnvelopePoint{position, value});
}

bool TDAnchorEnvelopePointLine::DeleteEnvelopePoint(TDAnchorEnvelopePoint const* point) {
  int const i = IndexOf(point);
  if (i <= 0 || i >= GetEnvelopePointsCount() - 1) return false;
  vPoints.erase(vPoints.begin() + i);
  return true;
}

bool TDAnchorEnvelopePointLine::ModifyEnvelopePoint(TDAnchorEnvelopePoint* point, LSoundTime position, double value) {
  int const i = IndexOf(point);
  if (i < 0) return false;
  point->dValue = value;
  if (i == 0 || i == GetEnvelopePointsCount() - 1) return true;
  LSoundTime const lo = vPoints[static_cast<std::size_t>(i) - 1].iPosition + 1;
  LSoundTime const hi = vPoints[static_cast<std::size_t>(i) + 1].iPosition - 1;
  // Inner points stand strictly between their neighbours, so lo <= hi.
  point->iPosition = std::clamp(position, lo, hi);
  return true;
}

double TDAnchorEnvelopePointLine::GetAmplitude(LSoundTime position) const {
  if (position < vPoints.front().iPosition || position > vPoints.back().iPosition) return 0.0;
  auto after = std::upper_bound(vPoints.begin(), vPoints.end(), position,
                                [](LSoundTime t, TDAnchorEnvelopePoint const& p) { return t < p.iPosition; });
  if (after == vPoints.end()) return vPoints.back().dValue;
  auto before = after - 1;
  double const span = static_cast<double>(after->iPosition) - static_cast<double>(before->iPosition);
  double const into = static_cast<double>(position) - static_cast<double>(before->iPosition);
  return before->dValue + (after->dValue - before->dValue) * (into / span);
}

TDAnchorEnvelopePoint* TDAnchorEnvelopePointLine::FindEnvelopePoint(LSoundTime position) {
  for (TDAnchorEnvelopePoint& p : vPoints) {
    if (p.iPosition == position) return &p;
  }
  return nullptr;
}

TDAnchorEnvelopePoint* TDAnchorEnvelopePointLine::FindEnvelopePointBefore(LSoundTime position) {
  TDAnchorEnvelopePoint* found = nullptr;
  for (TDAnchorEnvelopePoint& p : vPoints) {
    if (p.iPosition < position) found = &p;
  }
  return found;
}

TDAnchorEnvelopePoint* TDAnchorEnvelopePointLine::FindEnvelopePointAfter(LSoundTime position) {
  for (TDAnchorEnvelopePoint& p : vPoints) {
    if (p.iPosition > position) return &p;
  }
  return nullptr;
}
