#pragma once
#include <QWidget>

#include "timeline/time_line.h"

class MainDialog;

// The whole project in a thin strip under the lanes: every clip as a small bar in
// its track's colour, the bookmarks, the cursor, and a frame around what the
// lanes show now. A click or a drag there moves the view, keeping its width.
class TDNavigatorStrip : public QWidget, public LTimeLineNotify {
  Q_OBJECT
 public:
  TDNavigatorStrip(MainDialog& controller, LTimeLine& timeLine, QWidget* parent = nullptr);
  ~TDNavigatorStrip() override;

  void TimeLineChanged(LTimeLine& line) override;
  // The strip's pixel of a time, and back.
  int PixelOf(LSoundTime t) const;
  LSoundTime TimeOf(int x) const;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;

 private:
  void CentreViewOn(int x);

  MainDialog& Controller;
  LTimeLine& TimeLine;
};
