#pragma once
#include <map>
#include <mutex>
#include <string>

// The per-user preference store: values addressed by section and key, kept as
// text in one file that is rewritten whole (temporary file, fsync, rename) on
// every change, so a crash never leaves a half-written preference file.
// Callers always pass a default: a missing or unreadable key is never an error.

// "section/key", or "sectionkey" when the section already ends with '/'.
// False (and an empty result) when the full key would pass 520 bytes.
bool _LSettingGetFullKeyName(const char* section, const char* key, std::string& out);

int LUserSettingGet(const char* section, const char* key, int defaultValue);
bool LUserSettingGet(const char* section, const char* key, bool defaultValue);
void LUserSettingSet(const char* section, const char* key, int value);
void LUserSettingSet(const char* section, const char* key, bool value);
// True when the key was found; otherwise `out` receives the default.
bool LUserSettingGetString(const char* section, const char* key, const char* defaultValue, std::string& out);
void LUserSettingSetString(const char* section, const char* key, const char* value);
// Removes the key and its enciphered twin "__key".
void LUserSettingDeleteItem(const char* section, const char* key);
void LUserSettingDeleteSection(const char* section);

class LUserSettingsStore {
 public:
  // The store every LUserSetting... call uses; its file is
  // <UserConfigFolder>/settings.conf until UseFile points it elsewhere.
  static LUserSettingsStore& Global();

  explicit LUserSettingsStore(std::string filePath);

  // Forget what was read and use another file from now on.
  void UseFile(std::string filePath);
  const std::string& FilePath() const { return szFilePath; }

  bool Get(const std::string& fullKey, std::string& value);
  void Set(const std::string& fullKey, const std::string& value);
  void Erase(const std::string& fullKey);
  void ErasePrefix(const std::string& prefix);

 private:
  void LoadIfNeeded();
  bool Store();

  std::recursive_mutex mtx;
  std::string szFilePath;
  bool bLoaded = false;
  std::map<std::string, std::string> values;
};
