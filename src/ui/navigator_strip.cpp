#include "ui/navigator_strip.h"

#include <QMouseEvent>
#include <QPainter>
#include <algorithm>

#include "shell/main_dialog.h"

TDNavigatorStrip::TDNavigatorStrip(MainDialog& controller, LTimeLine& timeLine, QWidget* parent)
    : QWidget(parent), Controller(controller), TimeLine(timeLine) {
  setObjectName(QStringLiteral("navigator"));
  setFixedHeight(36);
  setCursor(Qt::PointingHandCursor);
  setToolTip(tr("The whole project: click or drag to move the view"));
  TimeLine.AddNotify(this);
}

TDNavigatorStrip::~TDNavigatorStrip() { TimeLine.RemoveNotify(this); }

void TDNavigatorStrip::TimeLineChanged(LTimeLine&) { update(); }

int TDNavigatorStrip::PixelOf(LSoundTime t) const {
  LSoundTime const end = std::max<LSoundTime>(1, TimeLine.GetEnd());
  return static_cast<int>(static_cast<double>(t) * (width() - 1) / static_cast<double>(end));
}

LSoundTime TDNavigatorStrip::TimeOf(int x) const {
  LSoundTime const end = std::max<LSoundTime>(1, TimeLine.GetEnd());
  return static_cast<LSoundTime>(static_cast<double>(x) * static_cast<double>(end) / std::max(1, width() - 1));
}

void TDNavigatorStrip::paintEvent(QPaintEvent*) {
  QPainter p(this);
  p.fillRect(rect(), QColor(38, 41, 45));
  TDProject const& project = Controller.GetProject();
  int const tracks = std::max(1, project.Tracks.GetTrackCount());
  double const rowHeight = static_cast<double>(height() - 4) / tracks;
  for (auto const& clip : project.Clips.GetClips()) {
    TDTrack const* track = project.Tracks.GetTrack(clip->iTrackIndex);
    if (track == nullptr) continue;
    QColor colour(track->Colour.uRed >> 8, track->Colour.uGreen >> 8, track->Colour.uBlue >> 8);
    colour = colour.lighter(170);
    int const x0 = PixelOf(clip->iPosition), x1 = std::max(x0 + 1, PixelOf(clip->GetEndTime()));
    int const y = 2 + static_cast<int>(clip->iTrackIndex * rowHeight);
    p.fillRect(QRect(x0, y, x1 - x0, std::max(1, static_cast<int>(rowHeight) - 1)), colour);
  }
  for (auto const& mark : project.GetBookmarks()) {
    p.fillRect(QRect(PixelOf(mark.iPosition), 0, 1, height()),
               QColor(mark.Colour.uRed >> 8, mark.Colour.uGreen >> 8, mark.Colour.uBlue >> 8));
  }
  p.fillRect(QRect(PixelOf(Controller.GetCursorPosition()), 0, 1, height()), QColor(220, 60, 60));
  // What the lanes show now.
  int const v0 = PixelOf(TimeLine.GetViewStart()), v1 = PixelOf(TimeLine.GetViewEnd());
  QRect const view(v0, 0, std::max(3, v1 - v0), height() - 1);
  p.fillRect(view, QColor(255, 255, 255, 40));
  p.setPen(QPen(QColor(240, 240, 240), 1));
  p.drawRect(view);
}

void TDNavigatorStrip::CentreViewOn(int x) {
  LSoundTime const span = TimeLine.GetViewEnd() - TimeLine.GetViewStart();
  LSoundTime start = TimeOf(x) - span / 2;
  start = std::clamp<LSoundTime>(start, 0, std::max<LSoundTime>(0, TimeLine.GetEnd() - span));
  TimeLine.SetViewRegion(start, start + span);
}

void TDNavigatorStrip::mousePressEvent(QMouseEvent* event) {
  if (event->button() == Qt::LeftButton) CentreViewOn(static_cast<int>(event->position().x()));
}

void TDNavigatorStrip::mouseMoveEvent(QMouseEvent* event) {
  if (event->buttons() & Qt::LeftButton) CentreViewOn(static_cast<int>(event->position().x()));
}
