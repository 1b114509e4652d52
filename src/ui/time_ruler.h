#pragma once
#include <QWidget>

#include "timeline/time_line.h"

class MainDialog;

// The ruler above the track area: time (or bars and beats, with "TimelineMode"
// 3) at round steps, the bookmarks, the selected region and the cursor. A click
// moves the cursor there.
class TDTimeRuler : public QWidget, public LTimeLineNotify {
  Q_OBJECT
 public:
  TDTimeRuler(MainDialog& controller, LTimeLine& timeLine, QWidget* parent = nullptr);
  ~TDTimeRuler() override;

  void TimeLineChanged(LTimeLine& line) override;
  QSize sizeHint() const override { return {800, 28}; }
  // The label of a time as the ruler writes it: minutes, seconds and, when the
  // step is finer than a second, milliseconds.
  static QString TimeLabel(LSoundTime ms, double step);
  // The bookmark whose flag is under pixel `x`, or -1: its position.
  LSoundTime BookmarkAt(int x) const;

 signals:
  void CursorMoved(LSoundTime ms);

 protected:
  void paintEvent(QPaintEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void mouseDoubleClickEvent(QMouseEvent* event) override;
  void contextMenuEvent(QContextMenuEvent* event) override;

 private:
  void RenameBookmark(LSoundTime position);
  LSoundTime TimeAt(int x) const;

  // A bookmark flag being dragged: where it was, and where it would go now.
  LSoundTime iDragFrom = -1;
  LSoundTime iDragTo = -1;
  // A loop being dragged out: where the press was, and the other end now.
  LSoundTime iLoopAnchor = -1;
  LSoundTime iLoopTo = -1;
  int iPressX = 0;
  MainDialog& Controller;
  LTimeLine& TimeLine;
};
