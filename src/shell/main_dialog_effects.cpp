// The live effect commands and events of the controller.
#include <strings.h>

#include <cstdlib>

#include "effects/multi_effect_window.h"
#include "effects/table_effects.h"
#include "foundation/app_paths.h"
#include "shell/main_dialog.h"
#include "shell/user_settings.h"

namespace {

constexpr char kEffectChanged[] = "Effect Changed";

double SettingDouble(const char* key, double fallback) {
  std::string text;
  if (!LUserSettingGetString("Settings", key, "", text) || text.empty()) return fallback;
  char* end = nullptr;
  double const value = std::strtod(text.c_str(), &end);
  return end == text.c_str() ? fallback : value;
}

}  // namespace

void MainDialog::InstallEffectDefaults() {
  LSPSetDistortionDefaultsProvider([] {
    LSPDistortionDefaults d;
    d.dDegree = SettingDouble("DistortionDegree", d.dDegree);
    d.fLevel = static_cast<float>(SettingDouble("DistortionLevel", d.fLevel));
    d.iGain = LUserSettingGet("Settings", "DistortionGain", d.iGain);
    return d;
  });
}

std::string MainDialog::GetEffectChainFolder() {
  std::string folder;
  LUserSettingGetString("Settings", "MultiEffectsFolder", (LAppPaths::HomeFolder() + "/Music").c_str(), folder);
  return folder;
}

void MainDialog::SetEffectChainFolder(const std::string& folder) {
  LUserSettingSetString("Settings", "MultiEffectsFolder", folder.c_str());
}

void MainDialog::AddLiveEffect(int type) {
  const int track = CurrentTrack();
  TDTrack* t = Project.Tracks.GetTrack(track);
  if (!t) return;
  t->EffectChain.Append(LSoundProcessMulti::CreateSoundProcessByType(type));
  View.UITrackChangeApply(track);
  EvEffectAdd(t->EffectChain.GetCount() - 1);
}

void MainDialog::CmTrackLiveEffectsAddAmplify() {
  AddLiveEffect(LSPT_Gain);
}
void MainDialog::CmTrackLiveEffectsAddHighpass() {
  AddLiveEffect(LSPT_HighPass);
}
void MainDialog::CmTrackLiveEffectsAddLowpass() {
  AddLiveEffect(LSPT_LowPass);
}

void MainDialog::EvEffectWindowMessage(int message, int argument) {
  switch (message) {
    case LSPMessage::ParametersChanged: EvEffectParametersChanged(argument != 0); break;
    case LSPMessage::ListChanged: EvEffectListChanged(); break;
    case LSPMessage::EffectAdded: EvEffectAdd(argument); break;
    case LSPMessage::EffectDeleted: EvEffectDelete(); break;
    default: break;
  }
}

void MainDialog::EvEffectParametersChanged(bool restartNow) {
  SetProjectDirty();
  Loop.SetTimer(TIMER_EFFECT_UNDO, kEffectChangeDelayMs);
  if (restartNow) {
    CmRestart();
  } else {
    // A slider drag sends a stream of these; the mix is rebuilt once it rests.
    Loop.SetTimer(TIMER_RESTART, kEffectChangeDelayMs);
  }
}

void MainDialog::EffectChangedUndoPoint() {
  // A run of changes to effects is one step back for the user, however long.
  if (::strcasecmp(szUndoPointName.c_str(), kEffectChanged) == 0) HistoryDiscardNewest();
  SetUndoPoint(kEffectChanged);
}

void MainDialog::EvEffectAdd(int) {
  SetUndoPoint("Add Effect");
  CmRestart();
}

// No restart: the chain editor follows a removal with a parameter change that
// restarts at once.
void MainDialog::EvEffectDelete() {
  SetUndoPoint("Delete Effect");
}

void MainDialog::EvEffectListChanged() {
  SetProjectDirty();
  View.UIProjectStateApply();
  CmRestart();
}

void MainDialog::CmRestart() {
  // Scrubbing restarts the same way until the scrub point exists.
  if (Engine.IsPlaying() || Engine.IsScrubbing()) Engine.Restart();
}
