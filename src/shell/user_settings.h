#pragma once
#include <functional>
#include <map>
#include <mutex>
#include <string>

#include "foundation/atomic_file.h"
#include "project/rgb16.h"

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

// A password or token is kept under "__key", enciphered by LSettingEncrypt, so
// that it does not stand in the file as plain text. The cipher key is built into
// the program: this keeps a password from a glance, not from a determined reader.
void LUserSettingSetPassword(const char* section, const char* key, const char* text);
// True when "__key" was found and deciphered; otherwise `out` receives the default.
bool LUserSettingGetPassword(const char* section, const char* key, const char* defaultValue, std::string& out);

// The text, zero-filled to (length + 8) rounded down to a multiple of 8 bytes,
// enciphered with Blowfish (ECB) under the program's fixed key, in base64. An
// empty text gives an empty result.
void LSettingEncrypt(std::string& out, const char* text);
// Reverses LSettingEncrypt in place. Text that LSettingEncrypt could not have
// written (bad base64, a broken length, a damaged block) gives false and an
// empty text.
bool LSettingDecrypt(std::string& text);

// A colour as its three 16-bit components in decimal under one key, "red,green,blue".
void LSettingSetColor(const char* section, const char* key, const TDRGB16& colour);
// True when the key holds three components of 0..65535; otherwise `out` receives the default.
bool LSettingGetColor(const char* section, const char* key, const TDRGB16& defaultValue, TDRGB16& out);

// Sets a boolean in the preference file of another application of the suite,
// named by its identifier "com.orvanesoftware.<name>" (or by <name> alone): the
// file <config>/<name>/settings.conf beside our own, so that one application
// can, say, switch off a first-run hint of another. Our own identifier,
// "com.orvanesoftware.tandrel", writes to our own store. An identifier whose
// name is empty or holds anything but letters, digits, '-' and '_' is refused.
void LSettingForApplicationSetBool(const char* applicationId, const char* section, const char* key, bool value);

// One preference file. Every change is written through at once (temporary file,
// fsync, rename). Another process may write the same file: each call first
// looks whether the file changed on disk since it was last read or written,
// and reads it again if so; a change holds a lock on "<file>.lock" from that
// look to the rename, so two processes never drop each other's keys.
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
  using Values = std::map<std::string, std::string>;

  void Sync();
  void Read();
  // Under the file lock: sync, let `change` edit the values, store if it says it did.
  void Change(const std::function<bool(Values&)>& change);
  bool Store();

  std::recursive_mutex mtx;
  std::string szFilePath;
  bool bLoaded = false;
  LFileStamp stamp;  // the version of the file that `values` reflects
  Values values;
};
