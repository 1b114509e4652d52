#include "effects/multi_effect_window.h"

#include <algorithm>

namespace {

// The order effects are listed in; those whose work is still to come are left out.
constexpr int kListOrder[] = {LSPT_Gain,    LSPT_Chorus,           LSPT_DRCSimple,     LSPT_Distortion, LSPT_Echo,
                              LSPT_Reverb3, LSPT_Flanger,          LSPT_Tremolo,       LSPT_Wahwah,     LSPT_HighPass,
                              LSPT_LowPass, LSPT_ParametricEqBand, LSPT_GraphicEqBand, LSPT_EqPointLine};

}  // namespace

LMultiEffectWindow::LMultiEffectWindow(LSoundProcessMulti& chain, LMultiEffectWindowNotify& notify,
                                       std::string const& programName)
    : Chain(chain), Notify(notify), szRootText(programName + " Effects") {
  CustomiseEffects();
  vSelected.assign(static_cast<std::size_t>(Chain.GetCount()), false);
}

void LMultiEffectWindow::CustomiseEffects() {
  vAvailable.clear();
  for (int type : kListOrder) {
    if (LSPHasSignalWork(type)) vAvailable.push_back(LSoundProcessMulti::CreateSoundProcessByType(type));
  }
}

LSoundProcess const* LMultiEffectWindow::GetAvailable(int index) const {
  if (index < 0 || index >= GetAvailableCount()) return nullptr;
  return vAvailable[static_cast<std::size_t>(index)].get();
}

void LMultiEffectWindow::ClampSelection() {
  vSelected.resize(static_cast<std::size_t>(Chain.GetCount()), false);
}

std::vector<int> LMultiEffectWindow::GetSelection() const {
  std::vector<int> out;
  for (int i = 0; i < static_cast<int>(vSelected.size()) && i < Chain.GetCount(); ++i) {
    if (vSelected[static_cast<std::size_t>(i)]) out.push_back(i);
  }
  return out;
}

int LMultiEffectWindow::GetSelectedEffect() const {
  std::vector<int> const s = GetSelection();
  return s.empty() ? -1 : s.front();
}

void LMultiEffectWindow::SetSelected(int index, bool selected) {
  ClampSelection();
  if (index >= 0 && index < Chain.GetCount()) vSelected[static_cast<std::size_t>(index)] = selected;
}

void LMultiEffectWindow::AddSelectedEffect() {
  LSoundProcess const* chosen = GetAvailable(iAvailableSelection);
  if (chosen == nullptr) return;
  std::unique_ptr<LSoundProcess> copy = chosen->GetNewCopy();
  copy->bBypass = false;
  Chain.Append(std::move(copy));
  int const index = Chain.GetCount() - 1;
  SelectEffect(index);
  Notify.EffectMessage(LSPMessage::EffectAdded, index);
}

void LMultiEffectWindow::RemoveSelectedEffect() {
  std::vector<int> const selection = GetSelection();
  if (selection.empty()) return;
  // Detached from the back, so the earlier indices stay good; deleted only after
  // the parent has let go of them and the display has moved on.
  std::vector<std::unique_ptr<LSoundProcess>> detached;
  for (auto it = selection.rbegin(); it != selection.rend(); ++it) detached.push_back(Chain.Detach(*it));
  vSelected.assign(static_cast<std::size_t>(Chain.GetCount()), false);
  Notify.EffectMessage(LSPMessage::EffectDeleted, 0);
  Notify.EffectMessage(LSPMessage::ParametersChanged, 1);
  int const last = selection.back();
  SelectEffect(last < Chain.GetCount() ? last : Chain.GetCount() - 1);
  detached.clear();
}

void LMultiEffectWindow::Reorder(int from, int to) {
  int const count = Chain.GetCount();
  if (from < 0 || from >= count) return;
  std::unique_ptr<LSoundProcess> moving = Chain.Detach(from);
  // `to` names a place in the list as it was, before the effect left it.
  int at = to >= count || to < 0 ? Chain.GetCount() : (to > from ? to - 1 : to);
  Chain.Insert(at, std::move(moving));
  vSelected.assign(static_cast<std::size_t>(Chain.GetCount()), false);
  vSelected[static_cast<std::size_t>(at)] = true;
  Notify.EffectRowsChanged();
  Notify.EffectMessage(LSPMessage::ListChanged, 0);
}

void LMultiEffectWindow::UpdateEffectEnabledState(std::vector<bool> const& enabled) {
  for (int i = 0; i < Chain.GetCount() && i < static_cast<int>(enabled.size()); ++i)
    Chain.GetAt(i)->bBypass = !enabled[static_cast<std::size_t>(i)];
  Notify.EffectMessage(LSPMessage::ParametersChanged, 0);
}

void LMultiEffectWindow::SetEffectEnabled(int index, bool enabled) {
  std::vector<bool> rows;
  for (int i = 0; i < Chain.GetCount(); ++i) rows.push_back(i == index ? enabled : !Chain.GetAt(i)->bBypass);
  UpdateEffectEnabledState(rows);
}

void LMultiEffectWindow::SelectEffect(int index) {
  int const count = Chain.GetCount();
  index = count == 0 ? -1 : std::clamp(index, 0, count - 1);
  if (static_cast<int>(vSelected.size()) != count) Notify.EffectRowsChanged();
  vSelected.assign(static_cast<std::size_t>(count), false);
  if (index >= 0) vSelected[static_cast<std::size_t>(index)] = true;
  Notify.EffectEditorChanged(index);
}

std::vector<std::string> LMultiEffectWindow::GetPresetList() const {
  LSoundProcess const* p = Chain.GetAt(GetSelectedEffect());
  if (p == nullptr) return {"--- No Presets ---"};
  int const n = p->GetNumPresets();
  if (n <= 0) return {"No Presets Available"};
  std::vector<std::string> out{"--- Select Preset ---"};
  for (int i = 0; i < n; ++i) {
    char name[260];
    p->GetPresetsName(i, name);
    out.emplace_back(name);
  }
  return out;
}

int LMultiEffectWindow::GetPresetListSelection() const {
  LSoundProcess const* p = Chain.GetAt(GetSelectedEffect());
  return p == nullptr ? 0 : p->GetIndexInPreset() + 1;
}

void LMultiEffectWindow::ChoosePreset(int entry) {
  int const selected = GetSelectedEffect();
  LSoundProcess* p = Chain.GetAt(selected);
  if (p == nullptr || entry <= 0 || entry > p->GetNumPresets()) return;
  Notify.EffectMessage(LSPMessage::PresetChosen, entry - 1);
  p->SetPreset(entry - 1);
  if (p->GetEditorType() == 1 && p->GetSoundProcessType() != LSPT_ExternalPlugin) Notify.EffectEditorChanged(selected);
  Notify.EffectMessage(LSPMessage::ParametersChanged, 0);
}

void LMultiEffectWindow::UpdateEffectParameterValue(int index, double value) {
  LSoundProcess* p = Chain.GetAt(GetSelectedEffect());
  if (p == nullptr) return;
  LSoundProcessParameter param;
  p->GetParameterByIndex(index, &param);
  if (param.pValue == nullptr) return;
  std::vector<unsigned char> wanted(static_cast<std::size_t>(param.iSize));
  LSPStoreValue(param.eType, value, wanted.data());
  if (std::equal(wanted.begin(), wanted.end(), static_cast<unsigned char const*>(param.pValue))) return;
  p->SetParameterByIndex(index, wanted.data());
  Notify.EffectMessage(LSPMessage::ParametersChanged, 0);
}

bool LMultiEffectWindow::CanSaveEffectsChain() {
  if (!Chain.IsEmpty()) return true;
  Notify.Alert("No effects added, please add some effects and then try again.", "Save Effect Chain");
  return false;
}

bool LMultiEffectWindow::SaveEffectsChainFile(std::string const& path) {
  if (!CanSaveEffectsChain()) return false;
  if (LSPSaveChainFile(Chain, path)) return true;
  Notify.Alert("Can not open file to save the effects.", "Write Error");
  return false;
}

bool LMultiEffectWindow::LoadEffectChainFile(char const* path) {
  int const before = Chain.GetCount();
  if (path == nullptr || !LSPLoadChainFile(Chain, path)) {
    Notify.Alert("Can not open file to load the effects.", "Read Error");
    return false;
  }
  if (Chain.GetCount() != before) {
    SelectLastEffect();
    Notify.EffectMessage(LSPMessage::ListChanged, 0);
  }
  return true;
}
