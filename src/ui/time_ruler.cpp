#include "ui/time_ruler.h"

#include <QContextMenuEvent>
#include <QInputDialog>
#include <QMenu>
#include <QMouseEvent>
#include <QPainter>
#include <algorithm>
#include <cmath>

#include "shell/main_dialog.h"
#include "shell/user_settings.h"
#include "timeline/pixel_time_mapper.h"
#include "timeline/project_control.h"
#include "timeline/time_beat_mapper.h"

TDTimeRuler::TDTimeRuler(MainDialog& controller, LTimeLine& timeLine, QWidget* parent)
    : QWidget(parent), Controller(controller), TimeLine(timeLine) {
  setObjectName(QStringLiteral("timeRuler"));
  setFixedHeight(28);
  TimeLine.AddNotify(this);
}

TDTimeRuler::~TDTimeRuler() { TimeLine.RemoveNotify(this); }

void TDTimeRuler::TimeLineChanged(LTimeLine&) { update(); }

QString TDTimeRuler::TimeLabel(LSoundTime ms, double step) {
  bool const negative = ms < 0;
  long long const a = std::llabs(static_cast<long long>(ms));
  QString text = QStringLiteral("%1:%2").arg(a / 60000).arg((a / 1000) % 60, 2, 10, QLatin1Char('0'));
  if (step < 1000) text += QStringLiteral(".%1").arg(a % 1000, 3, 10, QLatin1Char('0'));
  return negative ? QStringLiteral("-") + text : text;
}

void TDTimeRuler::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  QPalette const& pal = palette();
  painter.fillRect(rect(), pal.color(QPalette::Window));
  TDPixelSoundTimeMapper const map(0, std::max(1, width()), TimeLine.GetViewStart(), TimeLine.GetViewEnd());
  TDProject const& project = Controller.GetProject();

  // The loop as a green band across the top, the one being dragged as it goes.
  LSoundTime loopStart = project.WorkRegion.GetStart(), loopEnd = project.WorkRegion.GetEnd();
  if (iLoopAnchor >= 0 && iLoopTo >= 0) {
    loopStart = std::min(iLoopAnchor, iLoopTo);
    loopEnd = std::max(iLoopAnchor, iLoopTo);
  }
  if (loopStart != loopEnd) {
    painter.fillRect(QRect(QPoint(map.MapSoundTimeToPixel(loopStart), 0), QPoint(map.MapSoundTimeToPixel(loopEnd), 8)),
                     QColor(60, 170, 90, 170));
  }

  // The selected region as a band along the bottom.
  TDEditRegion const& region = project.GetEditRegion();
  if (region.iStart != region.iEnd) {
    QColor band = pal.color(QPalette::Highlight);
    band.setAlpha(120);
    painter.fillRect(QRect(QPoint(map.MapSoundTimeToPixel(region.iStart), height() - 6),
                           QPoint(map.MapSoundTimeToPixel(region.iEnd), height() - 1)),
                     band);
  }

  QFont font = painter.font();
  font.setPixelSize(10);
  painter.setFont(font);
  painter.setPen(pal.color(QPalette::WindowText));
  double const span = TimeLine.GetViewEnd() - TimeLine.GetViewStart();
  bool const beats = LUserSettingGet("Settings", "TimelineMode", 0) == TDProjectControl::kTimelineModeBeats;
  if (beats) {
    // Bars and beats: a tick a beat when there is room, a label a bar.
    auto const& tempos = project.Metronome.GetTempoChanges();
    int const perBar = std::max(1, project.iTimeSignatureBeats);
    double const first = std::floor(LTimeBeatMapper::GetBeatFromTime(TimeLine.GetViewStart(), tempos, 0, 0.0));
    double const last = LTimeBeatMapper::GetBeatFromTime(TimeLine.GetViewEnd(), tempos, 0, 0.0);
    double const pixelsPerBeat = width() / std::max(1.0, last - first);
    int barStep = 1;
    while (pixelsPerBeat * perBar * barStep < 40) barStep *= 2;
    for (double b = first; b <= last; b += 1.0) {
      int const beat = static_cast<int>(b);
      bool const bar = beat % perBar == 0;
      if (!bar && pixelsPerBeat < 6) continue;
      int const x = map.MapSoundTimeToPixel(LTimeBeatMapper::GetTimeFromBeat(b, tempos, 0.0, 0));
      painter.drawLine(x, bar ? 10 : 20, x, height() - 1);
      int const barNumber = beat / perBar;
      if (bar && barNumber % barStep == 0) painter.drawText(x + 3, 10, QString::number(barNumber + 1));
    }
  } else {
    double const step = TDGetTimeInterval(span, width(), 10);
    double const major = step * 10;
    for (double t = std::ceil(TimeLine.GetViewStart() / step) * step; t <= TimeLine.GetViewEnd(); t += step) {
      int const x = map.MapSoundTimeToPixel(static_cast<LSoundTime>(std::llround(t)));
      bool const labelled = std::fmod(std::fabs(t), major) < 0.5;
      painter.drawLine(x, labelled ? 12 : (std::fmod(std::fabs(t), major / 2) < 0.5 ? 18 : 22), x, height() - 1);
      if (labelled) painter.drawText(x + 3, 10, TimeLabel(static_cast<LSoundTime>(std::llround(t)), step));
    }
  }

  // Bookmarks as small flags in their colours; one being dragged shows where it goes.
  for (auto const& mark : project.GetBookmarks()) {
    int const x = map.MapSoundTimeToPixel(mark.iPosition == iDragFrom && iDragTo >= 0 ? iDragTo : mark.iPosition);
    QColor const c(mark.Colour.uRed >> 8, mark.Colour.uGreen >> 8, mark.Colour.uBlue >> 8);
    painter.fillRect(QRect(x, 0, 6, 8), c);
    painter.setPen(c);
    painter.drawLine(x, 0, x, height() - 1);
  }

  painter.setPen(QPen(QColor(200, 40, 40), 1));
  int const cursor = map.MapSoundTimeToPixel(Controller.GetCursorPosition());
  painter.drawLine(cursor, 0, cursor, height() - 1);
}

LSoundTime TDTimeRuler::TimeAt(int x) const {
  TDPixelSoundTimeMapper const map(0, std::max(1, width()), TimeLine.GetViewStart(), TimeLine.GetViewEnd());
  return std::max<LSoundTime>(0, map.MapPixelToSoundTime(x));
}

LSoundTime TDTimeRuler::BookmarkAt(int x) const {
  TDPixelSoundTimeMapper const map(0, std::max(1, width()), TimeLine.GetViewStart(), TimeLine.GetViewEnd());
  LSoundTime found = -1;
  int best = 5;  // the flag is 6 pixels wide, right of its line
  for (auto const& mark : Controller.GetProject().GetBookmarks()) {
    int const d = x - map.MapSoundTimeToPixel(mark.iPosition);
    if (d >= -1 && d < 7 && std::abs(d - 2) < best) {
      best = std::abs(d - 2);
      found = mark.iPosition;
    }
  }
  return found;
}

void TDTimeRuler::mousePressEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton) return;
  int const x = static_cast<int>(event->position().x());
  // A flag grabbed near the top is dragged; anywhere else the cursor goes there.
  if (event->position().y() < 10) {
    iDragFrom = BookmarkAt(x);
    iDragTo = -1;
    if (iDragFrom >= 0) return;
  }
  // A click sets the cursor; a drag from here makes the loop instead.
  LSoundTime const time = TimeAt(x);
  iLoopAnchor = time;
  iLoopTo = -1;
  iPressX = x;
  Controller.SetCursorPosition(time);
  TimeLine.SetPosition(time);
  emit CursorMoved(time);
}

void TDTimeRuler::mouseMoveEvent(QMouseEvent* event) {
  int const x = static_cast<int>(event->position().x());
  if (iDragFrom >= 0) {
    iDragTo = TimeAt(x);
    update();
  } else if (iLoopAnchor >= 0 && (event->buttons() & Qt::LeftButton) && (iLoopTo >= 0 || std::abs(x - iPressX) > 3)) {
    iLoopTo = TimeAt(x);
    update();
  }
}

void TDTimeRuler::mouseReleaseEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton) return;
  if (iDragFrom >= 0) {
    LSoundTime const from = iDragFrom, to = iDragTo;
    iDragFrom = iDragTo = -1;
    if (to >= 0) Controller.CmBookmarkMove(from, to);
  } else if (iLoopAnchor >= 0 && iLoopTo >= 0) {
    LSoundTime const from = iLoopAnchor, to = iLoopTo;
    iLoopAnchor = iLoopTo = -1;
    Controller.SetWorkRegion(from, to);
  }
  iLoopAnchor = iLoopTo = -1;
  update();
}

void TDTimeRuler::mouseDoubleClickEvent(QMouseEvent* event) {
  LSoundTime const mark = BookmarkAt(static_cast<int>(event->position().x()));
  if (mark >= 0) RenameBookmark(mark);
}

void TDTimeRuler::RenameBookmark(LSoundTime position) {
  LTimeLineBookmark const* mark = Controller.GetProject().FindBookmark(position);
  if (mark == nullptr) return;
  bool ok = false;
  QString const name = QInputDialog::getText(this, tr("Rename Bookmark"), tr("Name"), QLineEdit::Normal,
                                             QString::fromStdString(mark->GetName()), &ok);
  if (ok) Controller.CmBookmarkRename(position, name.trimmed().toStdString());
}

void TDTimeRuler::contextMenuEvent(QContextMenuEvent* event) {
  int const x = event->pos().x();
  LSoundTime const mark = BookmarkAt(x);
  QMenu menu(this);
  if (mark >= 0) {
    menu.addAction(tr("Rename Bookmark..."), this, [this, mark] { RenameBookmark(mark); });
    menu.addAction(tr("Delete Bookmark"), this, [this, mark] { Controller.CmBookmarkDelete(mark); });
  } else {
    LSoundTime const time = TimeAt(x);
    menu.addAction(tr("Add Bookmark Here"), this, [this, time] {
      Controller.SetCursorPosition(time);
      TimeLine.SetPosition(time);
      Controller.CmBookmarkAdd();
      emit CursorMoved(time);
    });
  }
  if (!Controller.GetProject().WorkRegion.IsEmpty()) {
    menu.addSeparator();
    menu.addAction(tr("Clear Loop"), this, [this] { Controller.CmDeselectLoopArea(); });
  }
  menu.exec(event->globalPos());
}
