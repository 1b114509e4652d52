#include "shell/hidden_settings.h"

#include <mutex>

#include "foundation/app_paths.h"
#include "shell/user_settings.h"

namespace {

struct HiddenStore {
  std::mutex mtx;
  LUserSettingsStore store{""};

  // Points the store at the file under the current home, so that a changed
  // HOME (as in tests) is followed. Call with mtx held.
  LUserSettingsStore& Current() {
    const std::string path = LUserHiddenSettingsFolder() + "/settings.conf";
    if (store.FilePath() != path) store.UseFile(path);
    return store;
  }
};

HiddenStore& Hidden() {
  static HiddenStore hidden;
  return hidden;
}

}  // namespace

std::string LUserHiddenSettingsFolder() {
  return LAppPaths::HomeFolder() + "/.orvanesoftware";
}

void LUserHiddenSettingSetString(const char* section, const char* key, const char* value) {
  std::string full;
  if (!_LSettingGetFullKeyName(section, key, full)) return;
  HiddenStore& hidden = Hidden();
  std::lock_guard lock(hidden.mtx);
  hidden.Current().Set(full, value ? value : "");  // makes the folder, with its parents, private
}

bool LUserHiddenSettingGetString(const char* section, const char* key, const char* defaultValue, std::string& out) {
  std::string full;
  if (_LSettingGetFullKeyName(section, key, full)) {
    HiddenStore& hidden = Hidden();
    std::lock_guard lock(hidden.mtx);
    if (hidden.Current().Get(full, out)) return true;
  }
  out = defaultValue ? defaultValue : "";
  return false;
}
