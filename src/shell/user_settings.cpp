#include "shell/user_settings.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <unistd.h>

#include "foundation/app_paths.h"

namespace {

constexpr std::size_t kMaxFullKey = 520;

// One line per key: key=value, with backslash escapes so that any text, even
// one holding '=' or a line break, comes back as it went in.
std::string Escape(const std::string& s, bool isKey) {
  std::string out;
  out.reserve(s.size());
  for (char c : s) {
    switch (c) {
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '=':
        if (isKey) { out += "\\="; break; }
        out += c;
        break;
      default: out += c;
    }
  }
  return out;
}

// Splits an escaped line at its first unescaped '='. False for a line without one.
bool ParseLine(const std::string& line, std::string& key, std::string& value) {
  key.clear();
  value.clear();
  std::string* cur = &key;
  bool inValue = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    char c = line[i];
    if (c == '\\' && i + 1 < line.size()) {
      char n = line[++i];
      *cur += n == 'n' ? '\n' : n == 'r' ? '\r' : n;
    } else if (c == '=' && !inValue) {
      inValue = true;
      cur = &value;
    } else {
      *cur += c;
    }
  }
  return inValue && !key.empty();
}

bool FullKey(const char* section, const char* key, std::string& out) {
  return _LSettingGetFullKeyName(section, key, out);
}

}  // namespace

bool _LSettingGetFullKeyName(const char* section, const char* key, std::string& out) {
  std::string s = section ? section : "";
  std::string k = key ? key : "";
  out = (!s.empty() && s.back() == '/') ? s + k : s + "/" + k;
  if (out.size() > kMaxFullKey) {
    out.clear();
    return false;
  }
  return true;
}

LUserSettingsStore& LUserSettingsStore::Global() {
  static LUserSettingsStore store(LAppPaths::UserConfigFolder() + "/settings.conf");
  return store;
}

LUserSettingsStore::LUserSettingsStore(std::string filePath) : szFilePath(std::move(filePath)) {}

void LUserSettingsStore::UseFile(std::string filePath) {
  std::lock_guard lock(mtx);
  szFilePath = std::move(filePath);
  values.clear();
  bLoaded = false;
}

void LUserSettingsStore::LoadIfNeeded() {
  if (bLoaded) return;
  bLoaded = true;
  std::ifstream in(szFilePath);
  std::string line, key, value;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == '#') continue;
    if (ParseLine(line, key, value)) values[key] = value;
  }
}

bool LUserSettingsStore::Store() {
  std::size_t slash = szFilePath.rfind('/');
  if (slash != std::string::npos && slash > 0) LAppPaths::MakeFolders(szFilePath.substr(0, slash), 0700);

  std::string text = "# Tandrel preferences. Rewritten by Tandrel whenever a preference changes.\n";
  for (const auto& [k, v] : values) text += Escape(k, true) + "=" + Escape(v, false) + "\n";

  std::string tmp = szFilePath + ".tmp";
  int fd = ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) return false;
  const char* p = text.data();
  std::size_t left = text.size();
  bool ok = true;
  while (left > 0) {
    ssize_t n = ::write(fd, p, left);
    if (n < 0) {
      if (errno == EINTR) continue;
      ok = false;
      break;
    }
    p += n;
    left -= static_cast<std::size_t>(n);
  }
  ok = ok && ::fsync(fd) == 0;
  ok = (::close(fd) == 0) && ok;
  if (!ok || std::rename(tmp.c_str(), szFilePath.c_str()) != 0) {
    ::unlink(tmp.c_str());
    return false;
  }
  return true;
}

bool LUserSettingsStore::Get(const std::string& fullKey, std::string& value) {
  std::lock_guard lock(mtx);
  LoadIfNeeded();
  auto it = values.find(fullKey);
  if (it == values.end()) return false;
  value = it->second;
  return true;
}

void LUserSettingsStore::Set(const std::string& fullKey, const std::string& value) {
  std::lock_guard lock(mtx);
  LoadIfNeeded();
  auto it = values.find(fullKey);
  if (it != values.end() && it->second == value) return;
  values[fullKey] = value;
  Store();  // a failed set is lost silently; the value stays for this run
}

void LUserSettingsStore::Erase(const std::string& fullKey) {
  std::lock_guard lock(mtx);
  LoadIfNeeded();
  if (values.erase(fullKey) > 0) Store();
}

void LUserSettingsStore::ErasePrefix(const std::string& prefix) {
  std::lock_guard lock(mtx);
  LoadIfNeeded();
  bool any = false;
  for (auto it = values.lower_bound(prefix); it != values.end() && it->first.compare(0, prefix.size(), prefix) == 0;) {
    it = values.erase(it);
    any = true;
  }
  if (any) Store();
}

int LUserSettingGet(const char* section, const char* key, int defaultValue) {
  std::string full, text;
  if (!FullKey(section, key, full) || !LUserSettingsStore::Global().Get(full, text)) return defaultValue;
  char* end = nullptr;
  long v = std::strtol(text.c_str(), &end, 10);
  if (end == text.c_str()) return defaultValue;
  return static_cast<int>(v);
}

bool LUserSettingGet(const char* section, const char* key, bool defaultValue) {
  return LUserSettingGet(section, key, defaultValue ? 1 : 0) != 0;
}

void LUserSettingSet(const char* section, const char* key, int value) {
  LUserSettingSetString(section, key, std::to_string(value).c_str());
}

void LUserSettingSet(const char* section, const char* key, bool value) {
  LUserSettingSet(section, key, value ? 1 : 0);
}

bool LUserSettingGetString(const char* section, const char* key, const char* defaultValue, std::string& out) {
  std::string full;
  if (FullKey(section, key, full) && LUserSettingsStore::Global().Get(full, out)) return true;
  out = defaultValue ? defaultValue : "";
  return false;
}

void LUserSettingSetString(const char* section, const char* key, const char* value) {
  std::string full;
  if (FullKey(section, key, full)) LUserSettingsStore::Global().Set(full, value ? value : "");
}

void LUserSettingDeleteItem(const char* section, const char* key) {
  std::string full, twin;
  if (FullKey(section, key, full)) LUserSettingsStore::Global().Erase(full);
  std::string hidden = std::string("__") + (key ? key : "");
  if (FullKey(section, hidden.c_str(), twin)) LUserSettingsStore::Global().Erase(twin);
}

void LUserSettingDeleteSection(const char* section) {
  std::string prefix;
  if (FullKey(section, "", prefix)) LUserSettingsStore::Global().ErasePrefix(prefix);
}
