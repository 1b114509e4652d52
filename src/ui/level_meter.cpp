#include "ui/level_meter.h"

#include <QPainter>
#include <algorithm>

namespace {
constexpr float kFallPerSecond = 24.0f;
constexpr qint64 kPeakHoldMs = 1500;
}  // namespace

TDLevelMeter::TDLevelMeter(Qt::Orientation orientation, QWidget* parent) : QWidget(parent), eOrientation(orientation) {
  Clock.start();
  setAttribute(Qt::WA_OpaquePaintEvent);
  if (eOrientation == Qt::Horizontal) {
    setMinimumWidth(60);
    setFixedHeight(sizeHint().height());
  } else {
    setFixedWidth(sizeHint().width());
  }
}

QSize TDLevelMeter::sizeHint() const { return eOrientation == Qt::Horizontal ? QSize(160, 14) : QSize(10, 60); }

void TDLevelMeter::SetLevels(LDBMultiChannel<LdB<signed char>> const& levels) {
  qint64 const now = Clock.elapsed();
  float const fall = kFallPerSecond * static_cast<float>(std::max<qint64>(0, now - iLastUpdate)) / 1000.0f;
  iLastUpdate = now;
  int const channels = levels.GetChannels();
  for (int c = 0; c < 2; ++c) {
    // A mono source shows on both bars; more channels than two fold onto them.
    float in = float(kFloorDB);
    for (int k = channels == 1 ? 0 : c; k < channels; k += 2) in = std::max(in, float(levels[k].Get()));
    auto const i = static_cast<std::size_t>(c);
    fShown[i] = std::max(in, fShown[i] - fall);
    if (in >= fPeak[i] || now - iPeakAt[i] > kPeakHoldMs) {
      fPeak[i] = in;
      iPeakAt[i] = now;
    }
  }
  update();
}

void TDLevelMeter::Reset() {
  fShown.fill(float(kFloorDB));
  fPeak.fill(float(kFloorDB));
  update();
}

void TDLevelMeter::paintEvent(QPaintEvent*) {
  QPainter p(this);
  p.fillRect(rect(), QColor(24, 26, 28));
  bool const across = eOrientation == Qt::Horizontal;
  int const length = across ? width() - 2 : height() - 2;
  int const thickness = ((across ? height() : width()) - 3) / 2;
  auto toPixels = [&](float dB) {
    float const f = std::clamp((dB - kFloorDB) / float(-kFloorDB), 0.0f, 1.0f);
    return static_cast<int>(f * float(length));
  };
  int const yellow = toPixels(-12), red = toPixels(-3);
  for (int c = 0; c < 2; ++c) {
    auto const i = static_cast<std::size_t>(c);
    int const lit = toPixels(fShown[i]);
    int const offset = 1 + c * (thickness + 1);
    auto bar = [&](int from, int to, QColor colour) {
      if (to <= from) return;
      QRect const r = across ? QRect(1 + from, offset, to - from, thickness)
                             : QRect(offset, height() - 1 - to, thickness, to - from);
      p.fillRect(r, colour);
    };
    bar(0, std::min(lit, yellow), QColor(46, 204, 113));
    bar(yellow, std::min(lit, red), QColor(241, 196, 15));
    bar(red, lit, QColor(231, 76, 60));
    if (fPeak[i] > kFloorDB) {
      int const at = std::max(1, toPixels(fPeak[i]));
      bar(at - 1, at, fPeak[i] >= -3 ? QColor(231, 76, 60) : QColor(220, 220, 220));
    }
  }
}
