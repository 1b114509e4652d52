#include "ui/track_area.h"

#include <QMouseEvent>
#include <QPainter>
#include <QPaintEvent>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>

#include "project/clip_audio.h"
#include "sound/envelope_points.h"
#include "shell/main_dialog.h"
#include "shell/user_settings.h"

namespace {

constexpr int kEdgeGrab = 4;  // pixels either side of a clip's end that trim it

QColor TrackColour(TDTrack const& track) {
  return QColor(track.Colour.uRed >> 8, track.Colour.uGreen >> 8, track.Colour.uBlue >> 8);
}

}  // namespace

TDTrackArea::TDTrackArea(MainDialog& controller, LTimeLine& timeLine, QWidget* parent)
    : QWidget(parent), Controller(controller), TimeLine(timeLine), Control(controller.GetProject()) {
  setObjectName(QStringLiteral("trackArea"));
  setMouseTracking(true);
  setAttribute(Qt::WA_OpaquePaintEvent);
  setFocusPolicy(Qt::ClickFocus);
  TimeLine.AddNotify(this);
  TracksChanged();
}

TDTrackArea::~TDTrackArea() { TimeLine.RemoveNotify(this); }

QSize TDTrackArea::sizeHint() const {
  TDTrackPixelMapping const rows(Controller.GetProject().Tracks);
  return {800, rows.GetAllTracksHeightPixels()};
}

void TDTrackArea::TracksChanged() {
  TDTrackPixelMapping const rows(Controller.GetProject().Tracks);
  setMinimumHeight(rows.GetAllTracksHeightPixels());
  updateGeometry();
  update();
}

void TDTrackArea::SetPlayPosition(LSoundTime ms) {
  if (ms == iPlayPosition) return;
  iPlayPosition = ms;
  update();
}

TDPixelSoundTimeMapper TDTrackArea::Mapper() const {
  return TDPixelSoundTimeMapper(0, std::max(1, width()), TimeLine.GetViewStart(), TimeLine.GetViewEnd());
}

void TDTrackArea::UpdateControlView() {
  Control.SetView(Mapper(), width());
  Control.iTimelineMode = LUserSettingGet("Settings", "TimelineMode", TDProjectControl::kTimelineModeTime);
}

void TDTrackArea::TimeLineChanged(LTimeLine&) { update(); }

void TDTrackArea::resizeEvent(QResizeEvent* event) {
  QWidget::resizeEvent(event);
  UpdateControlView();
}

QRect TDTrackArea::ClipRect(TDClip const& clip) const {
  TDPixelSoundTimeMapper const map = Mapper();
  TDTrackPixelMapping const rows(Controller.GetProject().Tracks);
  int const x0 = map.MapSoundTimeToPixel(clip.iPosition);
  int const x1 = map.MapSoundTimeToPixel(clip.GetEndTime());
  int const top = rows.GetTrackYPixel(clip.iTrackIndex);
  TDTrack const* track = Controller.GetProject().Tracks.GetTrack(clip.iTrackIndex);
  int const body = track != nullptr && track->bCollapsed ? TDTrackPixelMapping::kCollapsedPixels
                                                         : TDTrackPixelMapping::GetTrackBodyHeight();
  return QRect(QPoint(x0, top + 2), QPoint(std::max(x0 + 1, x1 - 1), top + body - 3));
}

TDClip* TDTrackArea::ClipAt(QPoint p) const {
  TDProject& project = Controller.GetProject();
  TDTrackPixelMapping const rows(project.Tracks);
  if (!rows.IsPixelYInAnyTrack(p.y())) return nullptr;
  int const track = rows.MapPixelYToTrackIndex(p.y());
  // The last drawn is on top, so it is the one hit.
  auto const& clips = project.Clips.GetClips();
  for (auto it = clips.rbegin(); it != clips.rend(); ++it) {
    TDClip* c = it->get();
    if (c->iTrackIndex != track || !c->IsPlayable()) continue;
    if (ClipRect(*c).adjusted(-kEdgeGrab, 0, kEdgeGrab, 0).contains(p)) return c;
  }
  return nullptr;
}

void TDTrackArea::paintEvent(QPaintEvent* event) {
  QPainter painter(this);
  Draw(painter, event->rect());
}

void TDTrackArea::Draw(QPainter& painter, QRect const& area) {
  // The view may have moved since the last event; lines and handles are placed
  // through the control, so it takes the view first.
  UpdateControlView();
  TDProject& project = Controller.GetProject();
  TDTrackPixelMapping const rows(project.Tracks);
  TDPixelSoundTimeMapper const map = Mapper();
  QPalette const& pal = palette();
  painter.fillRect(area, pal.color(QPalette::Base).darker(104));

  // Lanes: the current track a little lighter, each with a line below it.
  int const count = project.Tracks.GetTrackCount();
  int const current = project.Tracks.GetCurrentTrackIndex();
  for (int i = 0; i < count; ++i) {
    int const top = rows.GetTrackYPixel(i);
    int const height = rows.GetTrackHeight(i);
    if (top > area.bottom() || top + height < area.top()) continue;
    QRect const lane(area.left(), top, area.width(), height);
    if (i == current) painter.fillRect(lane, pal.color(QPalette::Base));
    painter.setPen(pal.color(QPalette::Mid));
    painter.drawLine(lane.left(), top + height - 1, lane.right(), top + height - 1);
  }

  // Grid lines where the grid snaps, so a user sees where a clip will land.
  if (project.GridMode) {
    QColor grid = pal.color(QPalette::Mid);
    grid.setAlpha(90);
    painter.setPen(grid);
    double const step = Control.GetBestGridInterval();
    if (Control.iTimelineMode == TDProjectControl::kTimelineModeTime && step > 0) {
      double t = std::ceil(TimeLine.GetViewStart() / step) * step;
      for (; t <= TimeLine.GetViewEnd(); t += step) {
        int const x = map.MapSoundTimeToPixel(static_cast<LSoundTime>(t));
        painter.drawLine(x, area.top(), x, area.bottom());
      }
    }
  }

  // The loop: faint green over every lane, with its ends marked.
  TDWorkRegionInfo const& loop = project.WorkRegion;
  if (!loop.IsEmpty()) {
    int const x0 = map.MapSoundTimeToPixel(loop.GetStart());
    int const x1 = map.MapSoundTimeToPixel(loop.GetEnd());
    painter.fillRect(QRect(QPoint(x0, area.top()), QPoint(x1, area.bottom())), QColor(60, 170, 90, 28));
    painter.setPen(QPen(QColor(60, 170, 90, 160), 1, Qt::DashLine));
    painter.drawLine(x0, area.top(), x0, area.bottom());
    painter.drawLine(x1, area.top(), x1, area.bottom());
  }

  // The selected region, behind the clips of its tracks.
  TDEditRegion const& region = project.GetEditRegion();
  if (region.iStart != region.iEnd && region.iFirstTrack >= 0) {
    int const x0 = map.MapSoundTimeToPixel(region.iStart);
    int const x1 = map.MapSoundTimeToPixel(region.iEnd);
    int const y0 = rows.GetTrackYPixel(region.iFirstTrack);
    int const y1 = rows.GetTrackYPixel(region.iLastTrack + 1);
    QColor shade = pal.color(QPalette::Highlight);
    shade.setAlpha(50);
    painter.fillRect(QRect(QPoint(x0, y0), QPoint(x1, y1 - 1)), shade);
  }

  for (auto const& c : project.Clips.GetClips()) {
    if (!c->IsPlayable()) continue;
    QRect const r = ClipRect(*c);
    if (!r.intersects(area)) continue;
    DrawClip(painter, *c, r);
  }

  // The cursor, and where playback is when it plays.
  painter.setPen(QPen(QColor(200, 40, 40), 1));
  int const cursor = map.MapSoundTimeToPixel(Controller.GetCursorPosition());
  painter.drawLine(cursor, area.top(), cursor, area.bottom());
  if (iPlayPosition >= 0) {
    painter.setPen(QPen(QColor(20, 120, 40), 2));
    int const play = map.MapSoundTimeToPixel(iPlayPosition);
    painter.drawLine(play, area.top(), play, area.bottom());
  }
}

void TDTrackArea::DrawClip(QPainter& painter, TDClip& clip, QRect const& r) {
  TDProject& project = Controller.GetProject();
  TDTrack const* track = project.Tracks.GetTrack(clip.iTrackIndex);
  if (track == nullptr) return;
  QColor const colour = TrackColour(*track);
  bool const silent = project.Tracks.IsTrackSilent(clip.iTrackIndex);
  QColor body = colour.lighter(silent ? 260 : 210);
  painter.fillRect(r, body);

  // Only the visible columns of a clip are laid out, so a long clip zoomed in
  // costs what the screen shows.
  int const left = std::max(r.left(), 0);
  int const right = std::min(r.right(), width() - 1);
  auto* audio = dynamic_cast<TDClipAudio*>(&clip);
  bool const collapsed = track->bCollapsed;
  if (audio != nullptr && right > left && !collapsed) {
    TDPixelSoundTimeMapper const map = Mapper();
    // Columns counted from the clip's own first column, so a scroll keeps the
    // columns already read and reads only those that came into view.
    double const framesPerPixel = map.GetMSPerPixel() * audio->GetSampleRate() / 1000.0;
    int const firstColumn = left - r.left();
    audio->CreateWaveProfileColumns(framesPerPixel, firstColumn, right + 1 - left);
    std::uint8_t const* upper = audio->GetUpperProfile();
    std::uint8_t const* lower = audio->GetLowerProfile();
    int const columns = std::min(audio->GetProfileColumns(), right + 1 - left);
    if (upper != nullptr && columns > 0) {
      // The selection stretches: the region's columns over this clip, when its
      // track is one of the region's.
      TDEditRegion const& region = project.GetEditRegion();
      bool const inRegion = region.iStart != region.iEnd && clip.iTrackIndex >= region.iFirstTrack &&
                            clip.iTrackIndex <= region.iLastTrack;
      int selStart = 0, selEnd = 0;
      if (inRegion) {
        selStart = map.MapSoundTimeToPixel(region.iStart) - left;
        selEnd = map.MapSoundTimeToPixel(region.iEnd) - left;
      }
      int const top = r.top() + TDProjectControl::kTitleStripPixels;
      TDLayoutWaveProfile(upper, lower, columns, top, r.bottom() - top, selStart, selEnd, Geometry);
      QColor const wave = silent ? colour.lighter(150) : colour.darker(130);
      QColor const selectedWave = QColor(30, 60, 160);
      for (auto const& stretch : Geometry.aStretches) {
        if (stretch.iFrom >= stretch.iTo) continue;
        QPen pen(stretch.bSelected ? selectedWave : wave);
        if (silent) pen.setStyle(Qt::DotLine);
        painter.setPen(pen);
        for (int x = stretch.iFrom; x < stretch.iTo; ++x) {
          TDWaveProfileLine const& line = Geometry.vLines[static_cast<std::size_t>(x)];
          painter.drawLine(left + x, line.iTop, left + x, line.iBottom);
        }
      }
    }
  }

  if (!collapsed) DrawFadeLine(painter, clip, r);

  // Title strip and frame; a selected clip stands out, a locked one is dashed.
  QRect const title(r.left(), r.top(), r.width(), std::min(r.height(), TDProjectControl::kTitleStripPixels - 1));
  painter.fillRect(title, colour.lighter(150));
  painter.setPen(clip.bSelected ? QPen(palette().color(QPalette::Highlight), 2)
                                : QPen(colour.darker(150), 1, clip.bLocked ? Qt::DashLine : Qt::SolidLine));
  painter.drawRect(r.adjusted(0, 0, -1, -1));
  painter.setPen(palette().color(QPalette::Text));
  QFont font = painter.font();
  font.setPixelSize(10);
  painter.setFont(font);
  QString name = QString::fromStdString(clip.szName);
  if (clip.IsTake()) name += QStringLiteral("  [Take %1]").arg(clip.iTakeNumber);
  painter.drawText(title.adjusted(4, 0, -2, 0), Qt::AlignVCenter | Qt::AlignLeft, name);
}

void TDTrackArea::DrawFadeLine(QPainter& painter, TDClip const& clip, QRect const& r) {
  TDTrack const* track = Controller.GetProject().Tracks.GetTrack(clip.iTrackIndex);
  FadeType const type = track != nullptr && track->iFadeTypeShown == FadeTypePan ? FadeTypePan : FadeTypeVolume;
  TDClipFadePoints const& line = clip.GetFadeListByType(type);
  if (line.empty()) return;
  painter.save();
  painter.setClipRect(r);
  painter.setRenderHint(QPainter::Antialiasing, true);
  QColor const colour = type == FadeTypePan ? QColor(40, 110, 200) : QColor(230, 150, 20);
  painter.setPen(QPen(colour, 1.5));
  QPolygon polygon;
  polygon.reserve(static_cast<int>(line.size()));
  for (TDClipFadePoint const& point : line) {
    TDPixelPoint const at = Control.FadePointPixel(clip, point);
    polygon << QPoint(at.x, at.y);
  }
  painter.drawPolyline(polygon);
  // Handles only where a user could grab them: a flat line with two anchors shows none.
  if (line.size() > 2 || line.front().dValue != 0.0 || line.back().dValue != 0.0) {
    painter.setBrush(colour);
    for (QPoint const& p : polygon) painter.drawRect(p.x() - 2, p.y() - 2, 4, 4);
  }
  painter.restore();
}

void TDTrackArea::mousePressEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton) return;
  UpdateControlView();
  QPoint const p = event->position().toPoint();
  TDProject& project = Controller.GetProject();
  bMoved = false;
  TDClip* clip = ClipAt(p);
  if (clip != nullptr) {
    bool const add = event->modifiers() & Qt::ShiftModifier;
    if (!clip->bSelected || !add) Controller.EvClipSelect(clip->uClipId, add);
    uGestureClip = clip->uClipId;
    iGesturePoint = add ? -1 : Control.MapPixelToNearestFadePoint(p.x(), p.y(), *clip);
    if (iGesturePoint >= 0) {
      if (clip->bLocked) {
        Controller.SayClipLocked();
        eGesture = Gesture::None;
      } else {
        eGesture = Gesture::FadePoint;
      }
    } else if (!add && Control.IsPixelAtClipLeftEdge(*clip, p.x(), p.y(), kEdgeGrab)) {
      eGesture = Gesture::TrimLeft;
    } else if (!add && Control.IsPixelAtClipRightEdge(*clip, p.x(), p.y(), kEdgeGrab)) {
      eGesture = Gesture::TrimRight;
    } else {
      eGesture = (event->modifiers() & Qt::ControlModifier) ? Gesture::Copy : Gesture::Drag;
      Control.BeginDrag(p.x(), p.y());
    }
    update();
    return;
  }
  // Empty space: the cursor goes there and a region may be drawn from it.
  LSoundTime time = std::max<LSoundTime>(0, Mapper().MapPixelToSoundTime(p.x()));
  if (project.GridMode) time = Control.MapToGridSnapPointRound(time);
  project.Clips.DeselectAllClips();
  TDTrackPixelMapping const rows(project.Tracks);
  iRegionAnchorTrack = rows.MapPixelYToTrackIndex(p.y());
  iRegionAnchor = time;
  project.ResetEditRegion();
  Controller.SetCursorPosition(time);
  if (project.Tracks.IsTrackValid(iRegionAnchorTrack)) Controller.CmTrackSelect(iRegionAnchorTrack);
  TimeLine.SetPositionNoNotify(time, this);
  eGesture = Gesture::Region;
  update();
}

void TDTrackArea::mouseMoveEvent(QMouseEvent* event) {
  QPoint const p = event->position().toPoint();
  TDProject& project = Controller.GetProject();
  if (eGesture == Gesture::None) {
    // The cursor tells what a press here would do.
    UpdateControlView();
    TDClip* clip = ClipAt(p);
    bool const edge = clip != nullptr && (Control.IsPixelAtClipLeftEdge(*clip, p.x(), p.y(), kEdgeGrab) ||
                                          Control.IsPixelAtClipRightEdge(*clip, p.x(), p.y(), kEdgeGrab));
    setCursor(edge ? Qt::SizeHorCursor : clip != nullptr ? Qt::OpenHandCursor : Qt::IBeamCursor);
    return;
  }
  bMoved = true;
  bool const snap = project.GridMode && !(event->modifiers() & Qt::AltModifier);
  switch (eGesture) {
    case Gesture::Drag:
    case Gesture::Copy:
      if (Control.IsDraggingAllowed(p.x(), p.y())) {
        Control.DragClip(p.x(), p.y(), snap, eGesture == Gesture::Copy);
      }
      break;
    case Gesture::TrimLeft:
    case Gesture::TrimRight:
      if (TDClip* clip = project.Clips.GetClip(uGestureClip)) {
        Control.TrimOrExpandClip(p.x(), p.y(), *clip, eGesture == Gesture::TrimLeft, snap);
      }
      break;
    case Gesture::FadePoint:
      if (TDClip* clip = project.Clips.GetClip(uGestureClip)) {
        Control.DragFadePoint(p.x(), p.y(), *clip, iGesturePoint);
        TDTrack const* track = project.Tracks.GetTrack(clip->iTrackIndex);
        bool const pan = track != nullptr && track->iFadeTypeShown == FadeTypePan;
        TDClipFadePoints const& line = clip->GetFadeListByType(pan ? FadeTypePan : FadeTypeVolume);
        if (iGesturePoint < static_cast<int>(line.size())) {
          double const value = line[static_cast<std::size_t>(iGesturePoint)].dValue;
          // The level as a user reads it: decibels for volume, a side for pan.
          setToolTip(pan ? QStringLiteral("Pan %1%").arg(std::lround(value * 100))
                         : value <= -1.0 ? QStringLiteral("Silence")
                                         : QStringLiteral("%1 dB").arg(LEnvelopePointVol(value, 0).GetDB().Get()));
        }
      }
      break;
    case Gesture::Region: {
      LSoundTime time = std::max<LSoundTime>(0, Mapper().MapPixelToSoundTime(std::clamp(p.x(), 0, width())));
      if (snap) time = Control.MapToGridSnapPointRound(time);
      TDTrackPixelMapping const rows(project.Tracks);
      int const track = rows.MapPixelYToTrackIndex(std::max(0, p.y()));
      project.SetEditRegion(std::min(time, iRegionAnchor), std::max(time, iRegionAnchor),
                            std::min(track, iRegionAnchorTrack), std::max(track, iRegionAnchorTrack));
      break;
    }
    case Gesture::None: break;
  }
  update();
}

void TDTrackArea::mouseReleaseEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton) return;
  Gesture const gesture = eGesture;
  eGesture = Gesture::None;
  switch (gesture) {
    case Gesture::Drag:
      Controller.EvClipsDragEnd(bMoved && (Control.GetDragTimeOffset() != 0 || Control.GetDragRowOffset() != 0));
      break;
    case Gesture::Copy:
      if (bMoved) Controller.EvClipsDragCopy(Control.GetDragTimeOffset(), Control.GetDragRowOffset());
      break;
    case Gesture::FadePoint:
      setToolTip(QString());
      Controller.EvFadePointDragEnd(uGestureClip, bMoved);
      break;
    case Gesture::TrimLeft: Controller.EvClipEndTrimOrExpand(uGestureClip, true); break;
    case Gesture::TrimRight: Controller.EvClipEndTrimOrExpand(uGestureClip, false); break;
    default: break;
  }
  Control.Reset();
  update();
}

void TDTrackArea::wheelEvent(QWheelEvent* event) {
  int const delta = event->angleDelta().y();
  if (event->modifiers() & Qt::ControlModifier) {
    // Zoom about the time under the pointer, so it stays under it.
    LSoundTime const anchor = Mapper().MapPixelToSoundTime(static_cast<int>(event->position().x()));
    TimeLine.SetViewRegionZoom(delta > 0 ? 0.8 : 1.25, anchor);
    event->accept();
    return;
  }
  if (event->modifiers() & Qt::ShiftModifier || event->angleDelta().x() != 0) {
    int const steps = (event->angleDelta().x() != 0 ? event->angleDelta().x() : delta) / 120;
    LSoundTime const span = TimeLine.GetViewEnd() - TimeLine.GetViewStart();
    LSoundTime const move = -steps * std::max<LSoundTime>(1, span / 10);
    TimeLine.SetViewRegion(TimeLine.GetViewStart() + move, TimeLine.GetViewEnd() + move);
    event->accept();
    return;
  }
  event->ignore();  // the scroll area scrolls the tracks
}
