#pragma once
#include <QFrame>

class QLabel;
class QLineEdit;
class QSlider;
class QToolButton;
class MainDialog;
class TDTrack;
class TDLevelMeter;

// One track's header: colour strip, name, arm, mute, solo, volume and pan.
// It shows the model and sends every change through the controller.
class TDTrackControl : public QFrame {
  Q_OBJECT
 public:
  TDTrackControl(MainDialog& controller, int track, QWidget* parent = nullptr);

  int Track() const { return iTrack; }
  void SetTrack(int track) { iTrack = track; }
  // Reads the track's state from the project again.
  void Apply();

  QLineEdit* NameEdit() const { return nameEdit; }
  QToolButton* MuteButton() const { return muteButton; }
  QToolButton* SoloButton() const { return soloButton; }
  QToolButton* ArmButton() const { return armButton; }
  QSlider* VolumeSlider() const { return volumeSlider; }
  QSlider* PanSlider() const { return panSlider; }
  // Opens the track's live effects; lit while the track has any.
  QToolButton* EffectsButton() const { return effectsButton; }
  // The track's level while playing, at the header's right edge.
  TDLevelMeter* Meter() const { return meter; }

 protected:
  void mousePressEvent(QMouseEvent* event) override;

 private:
  MainDialog& Controller;
  int iTrack;
  QLabel* colourStrip;
  QLabel* numberLabel;
  QLineEdit* nameEdit;
  QToolButton* armButton;
  QToolButton* muteButton;
  QToolButton* soloButton;
  QToolButton* collapseButton;
  QToolButton* effectsButton;
  QSlider* volumeSlider;
  QLabel* volumeLabel;
  QSlider* panSlider;
  QWidget* detailRow;
  TDLevelMeter* meter;
  bool bApplying = false;
};
