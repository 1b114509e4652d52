#pragma once
#include <QDialog>
#include <cstdint>
#include <memory>

#include "effects/multi_effect_window.h"

class MainDialog;
class QCheckBox;
class QComboBox;
class QFormLayout;
class QLabel;
class QListWidget;
class QPushButton;
class QTreeWidget;
class QWidget;

// The live effects of one track: the effects that may be added, the chain with a
// bypass box per effect (drag to reorder), the presets and the parameters of the
// selected effect. What each click does to the chain is decided by
// LMultiEffectWindow; this draws it and hands its messages to the controller.
class TDEffectChainPanel : public QDialog, public LMultiEffectWindowNotify {
  Q_OBJECT
 public:
  TDEffectChainPanel(MainDialog& controller, int track, QWidget* parent = nullptr);
  ~TDEffectChainPanel() override;

  // Shows the panel of `track`, making it if no panel of that track is open.
  static TDEffectChainPanel* OpenFor(MainDialog& controller, int track, QWidget* parent);
  // Closes the panels whose track is gone.
  static void CloseStale(MainDialog& controller, QWidget* parent);

  // The chain changed from outside the panel, as by a menu command.
  void Refresh();

  LMultiEffectWindow& Model() { return *pModel; }
  std::uint64_t TrackId() const { return uTrackId; }
  QTreeWidget* AvailableTree() const { return availableTree; }
  QListWidget* ChainList() const { return chainList; }
  QComboBox* PresetBox() const { return presetBox; }
  QPushButton* AddButton() const { return addButton; }
  QPushButton* RemoveButton() const { return removeButton; }
  QWidget* ParameterEditor() const { return editorHolder; }

  // LMultiEffectWindowNotify
  void EffectMessage(int message, int argument) override;
  void Alert(std::string const& text, std::string const& caption) override;
  void EffectRowsChanged() override;
  void EffectEditorChanged(int index) override;

 private:
  void FillRows();
  void FillPresets();
  void BuildEditor(int index);
  void ParameterMoved(int index, double value);
  void SaveChain();
  void LoadChain();

  MainDialog& Controller;
  std::uint64_t uTrackId;
  std::unique_ptr<LMultiEffectWindow> pModel;
  QTreeWidget* availableTree;
  QListWidget* chainList;
  QComboBox* presetBox;
  QPushButton* addButton;
  QPushButton* removeButton;
  QWidget* editorHolder;
  QFormLayout* editorForm;
  QLabel* editorNote;
  bool bFilling = false;
};
