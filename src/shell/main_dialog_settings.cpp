// The preferences the settings window shows: read from the stores and the
// project, and written back in one go when the user accepts.
#include "shell/main_dialog.h"
#include "shell/user_settings.h"

MainDialog::TDSettings MainDialog::GetSettings() const {
  TDSettings s;
  LUserSettingGetString("Settings", "SoundOutDevice", "", s.szPlayDevice);
  s.iSampleRate = Project.PreferSampleRate.GetPreferredSampleRate();
  s.szSaveFolder = ProjectsFolder();
  s.bMetronome = Project.Metronome.bMetronomeOn;
  s.iMetronomeVolume = Project.Metronome.GetMetronomeVolume();
  return s;
}

bool MainDialog::ApplySettings(TDSettings const& s) {
  if (s.iSampleRate < 8000 || s.iSampleRate > 192000) {
    View.Alert("Please choose a sample rate between 8000 and 192000 Hz.", "Settings");
    return false;
  }
  TDSettings const before = GetSettings();
  LUserSettingSetString("Settings", "SoundOutDevice", s.szPlayDevice.c_str());
  if (s.szPlayDevice != before.szPlayDevice) Engine.SetPlayDevice(s.szPlayDevice);
  if (!s.szSaveFolder.empty()) LUserSettingSetString("Settings", "SaveDir", s.szSaveFolder.c_str());
  LUserSettingSet("Settings", "MetronomeMode", s.bMetronome);
  bool projectChanged = false;
  if (s.iSampleRate != before.iSampleRate) {
    Project.PreferSampleRate.SetPreferSampleRate(s.iSampleRate);
    projectChanged = true;
  }
  if (s.bMetronome != before.bMetronome || s.iMetronomeVolume != before.iMetronomeVolume) {
    Project.Metronome.bMetronomeOn = s.bMetronome;
    Project.Metronome.SetMetronomeVolume(s.iMetronomeVolume);
    projectChanged = true;
  }
  // What plays follows at once; the project's own settings are an edit like any other.
  if (projectChanged) {
    SetProjectDirty();
    RestartIfPlaying();
  }
  return true;
}
