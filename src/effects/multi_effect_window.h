#pragma once
#include <memory>
#include <string>
#include <vector>

#include "effects/sound_process_multi.h"

// Messages the chain editor sends to its parent, as numbers with an argument.
namespace LSPMessage {
inline constexpr int ParametersChanged = 2000;  // argument 1: restart now rather than after a moment
inline constexpr int ListChanged = 2001;        // the order changed, or effects were loaded
inline constexpr int EffectAdded = 2003;        // argument: the new effect's index
inline constexpr int EffectDeleted = 2004;
inline constexpr int PresetChosen = 6000;  // to the editor panel: argument, the preset's index
}  // namespace LSPMessage

// What the chain editor needs from the window around it and from its parent.
class LMultiEffectWindowNotify {
 public:
  virtual ~LMultiEffectWindowNotify() = default;
  virtual void EffectMessage(int message, int argument) = 0;
  virtual void Alert(std::string const& text, std::string const& caption) = 0;
  // The rows must be drawn again from the chain.
  virtual void EffectRowsChanged() {}
  // The editor of the selected effect must be built again (-1: none selected).
  virtual void EffectEditorChanged(int) {}
};

// The chain editor of one track, without its window: what a click in the list,
// a check box, a drag, a preset or a slider does to the chain, and what the
// parent is told. The chain is borrowed; the list of effects that may be added
// is the editor's own.
class LMultiEffectWindow {
 public:
  LMultiEffectWindow(LSoundProcessMulti& chain, LMultiEffectWindowNotify& notify, std::string const& programName);

  LSoundProcessMulti& GetChain() { return Chain; }

  // The effects that may be added, in the order they are listed; only those that
  // do their signal work in this build.
  void CustomiseEffects();
  int GetAvailableCount() const { return static_cast<int>(vAvailable.size()); }
  LSoundProcess const* GetAvailable(int index) const;
  // "<program> Effects", the root the available effects hang from.
  std::string const& GetAvailableRootText() const { return szRootText; }
  // -1 selects the root.
  void SetAvailableSelection(int index) { iAvailableSelection = index; }
  int GetAvailableSelection() const { return iAvailableSelection; }

  // The chain's rows selected; several may be.
  std::vector<int> GetSelection() const;
  int GetSelectedEffect() const;  // the first selected, or -1
  void SetSelected(int index, bool selected);

  // A copy of the chosen available effect, not bypassed, at the end of the
  // chain, selected; the parent hears 2003. Nothing happens on the root.
  void AddSelectedEffect();
  // Detaches every selected effect; the parent hears 2004 and then 2000 with 1,
  // and only then are they deleted. The selection goes to the index of the last
  // one removed, or to the new last effect.
  void RemoveSelectedEffect();
  // Moves the effect at `from` before the effect now at `to`; a `to` at or past
  // the end appends. The parent hears 2001.
  void Reorder(int from, int to);
  // For each row, bypass is the inverse of its check box; the parent hears 2000.
  void UpdateEffectEnabledState(std::vector<bool> const& enabled);
  void SetEffectEnabled(int index, bool enabled);
  // Clamps to the list and shows that effect's editor.
  void SelectEffect(int index);
  void SelectLastEffect() { SelectEffect(Chain.GetCount() - 1); }

  // The preset list of the selected effect: a first entry, then the names.
  std::vector<std::string> GetPresetList() const;
  // The entry of the preset list that matches the effect's values.
  int GetPresetListSelection() const;
  // Entry `entry` of the preset list was chosen; entry 0 does nothing.
  void ChoosePreset(int entry);

  // A control of the selected effect's editor moved to `value`. The chain is
  // touched, and the parent told, only when the value differs.
  template <class T>
  void UpdateEffectParameter(int index, T value) {
    LSoundProcess* p = Chain.GetAt(GetSelectedEffect());
    if (p == nullptr) return;
    LSoundProcessParameter param;
    p->GetParameterByIndex(index, &param);
    if (param.pValue == nullptr || static_cast<std::size_t>(param.iSize) != sizeof(T)) return;
    if (*static_cast<T const*>(param.pValue) == value) return;
    p->SetParameterByIndex(index, &value);
    Notify.EffectMessage(LSPMessage::ParametersChanged, 0);
  }
  // The same for a value the editor holds as a double, such as a slider's.
  void UpdateEffectParameterValue(int index, double value);

  // Chain files. The window asks for the path between the first and the second
  // call; both tell the user, in the program's words, when they fail.
  bool CanSaveEffectsChain();
  bool SaveEffectsChainFile(std::string const& path);
  bool LoadEffectChainFile(char const* path);

 private:
  void ClampSelection();

  LSoundProcessMulti& Chain;
  LMultiEffectWindowNotify& Notify;
  std::vector<std::unique_ptr<LSoundProcess>> vAvailable;
  std::string szRootText;
  int iAvailableSelection = -1;
  std::vector<bool> vSelected;
};
