#pragma once
#include <QWidget>
#include <cstdint>

#include "timeline/project_control.h"
#include "timeline/time_line.h"
#include "timeline/wave_profile_drawing.h"

class MainDialog;
class TDClip;

// The tracks' lanes with their clips, drawn from the clips' outlines, the
// selected region and the cursor. Mouse gestures go through TDProjectControl
// while the button is down and to the controller at the release. The view (what
// time the area shows) is the shared LTimeLine; vertical scrolling is the
// enclosing scroll area's.
class TDTrackArea : public QWidget, public LTimeLineNotify {
  Q_OBJECT
 public:
  TDTrackArea(MainDialog& controller, LTimeLine& timeLine, QWidget* parent = nullptr);
  ~TDTrackArea() override;

  // The height of every track changed, or their number.
  void TracksChanged();
  // Where playback is now; -1 when nothing plays.
  void SetPlayPosition(LSoundTime ms);
  LSoundTime PlayPosition() const { return iPlayPosition; }
  TDPixelSoundTimeMapper Mapper() const;
  // The rectangle a clip is drawn in, in this widget's pixels.
  QRect ClipRect(TDClip const& clip) const;
  // Draws everything into `painter` over `clip`: shared by paintEvent and the
  // drawing benchmark.
  void Draw(QPainter& painter, QRect const& clip);

  void TimeLineChanged(LTimeLine& line) override;

  QSize sizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void wheelEvent(QWheelEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;

 private:
  enum class Gesture { None, Drag, Copy, TrimLeft, TrimRight, Region, FadePoint };
  TDClip* ClipAt(QPoint p) const;
  void UpdateControlView();
  void DrawClip(QPainter& painter, TDClip& clip, QRect const& visible);
  void DrawFadeLine(QPainter& painter, TDClip const& clip, QRect const& r);

  MainDialog& Controller;
  LTimeLine& TimeLine;
  TDProjectControl Control;
  TDWaveProfileGeometry Geometry;  // reused for every clip drawn
  Gesture eGesture = Gesture::None;
  std::uint32_t uGestureClip = 0;
  int iGesturePoint = -1;
  bool bMoved = false;
  LSoundTime iRegionAnchor = 0;
  int iRegionAnchorTrack = 0;
  LSoundTime iPlayPosition = -1;
};
