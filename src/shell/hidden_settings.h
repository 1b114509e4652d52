#pragma once
#include <string>

// The hidden store: a few values the suite keeps apart from the preferences,
// in the file "settings.conf" of the folder ".orvanesoftware" in the user's
// home. Same file format, atomic writes and guard against a second process as
// the user store. The folder, with its parents, is made (private) on the first set.

// $HOME/.orvanesoftware, read afresh on every call.
std::string LUserHiddenSettingsFolder();

void LUserHiddenSettingSetString(const char* section, const char* key, const char* value);
// True when the key was found; otherwise `out` receives the default.
bool LUserHiddenSettingGetString(const char* section, const char* key, const char* defaultValue, std::string& out);
