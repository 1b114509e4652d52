#pragma once
#include <QElapsedTimer>
#include <QWidget>
#include <array>

#include "foundation/db.h"

// A level meter of one or two channels, as bars from -60 dB to 0 dB: green, then
// yellow from -12 dB, red from -3 dB. Each bar keeps its peak for a moment as a
// thin line, so a short clip is seen. Levels arrive about 30 times a second; a
// bar falls no faster than a listener's ear would expect (about 24 dB a second),
// so it does not flicker.
class TDLevelMeter : public QWidget {
  Q_OBJECT
 public:
  static constexpr int kFloorDB = -60;

  explicit TDLevelMeter(Qt::Orientation orientation, QWidget* parent = nullptr);

  void SetLevels(LDBMultiChannel<LdB<signed char>> const& levels);
  // Back to silence at once (the transport stopped).
  void Reset();
  // What a bar shows now, in dB, for tests; kFloorDB or less is nothing.
  float Shown(int channel) const { return fShown[static_cast<std::size_t>(channel & 1)]; }
  float Peak(int channel) const { return fPeak[static_cast<std::size_t>(channel & 1)]; }

  QSize sizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  Qt::Orientation eOrientation;
  std::array<float, 2> fShown{float(kFloorDB), float(kFloorDB)};
  std::array<float, 2> fPeak{float(kFloorDB), float(kFloorDB)};
  std::array<qint64, 2> iPeakAt{0, 0};
  QElapsedTimer Clock;
  qint64 iLastUpdate = 0;
};
