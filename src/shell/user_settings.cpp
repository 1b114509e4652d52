#include "shell/user_settings.h"

#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "foundation/app_paths.h"
#include "foundation/base64.h"
#include "foundation/blowfish.h"

namespace {

constexpr std::size_t kMaxFullKey = 520;
// Far beyond any real preference file; a larger one is not ours and is ignored.
constexpr std::size_t kMaxFileBytes = 16u << 20;

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
        if (isKey) {
          out += "\\=";
          break;
        }
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

void LUserSettingsStore::Read() {
  values.clear();
  bLoaded = true;
  std::string text;
  if (LReadSmallFile(szFilePath, kMaxFileBytes, text, &stamp) != LReadResult::Read) {
    // Missing, unreadable or too large all read as empty; remember what is there
    // now so that a file appearing later is noticed.
    stamp = LFileStampOf(szFilePath);
    return;
  }
  std::string key, value;
  std::size_t at = 0;
  while (at < text.size()) {
    std::size_t end = text.find('\n', at);
    if (end == std::string::npos) end = text.size();
    const std::string line = text.substr(at, end - at);
    at = end + 1;
    if (line.empty() || line[0] == '#') continue;
    if (ParseLine(line, key, value)) values[key] = value;
  }
}

void LUserSettingsStore::Sync() {
  if (bLoaded && LFileStampOf(szFilePath) == stamp) return;
  Read();
}

void LUserSettingsStore::Change(const std::function<bool(Values&)>& change) {
  std::size_t slash = szFilePath.rfind('/');
  if (slash != std::string::npos && slash > 0) LAppPaths::MakeFolders(szFilePath.substr(0, slash), 0700);
  // Without the lock (a file system that has none) a change still goes through,
  // only unguarded against a second process.
  LFileLock fileLock(szFilePath + ".lock");
  Sync();
  if (change(values)) Store();  // a failed store is lost silently; the value stays for this run
}

bool LUserSettingsStore::Store() {
  std::string text = "# Tandrel preferences. Rewritten by Tandrel whenever a preference changes.\n";
  for (const auto& [k, v] : values) text += Escape(k, true) + "=" + Escape(v, false) + "\n";
  return LWriteFileAtomically(szFilePath, text, 0600, &stamp);
}

bool LUserSettingsStore::Get(const std::string& fullKey, std::string& value) {
  std::lock_guard lock(mtx);
  Sync();
  auto it = values.find(fullKey);
  if (it == values.end()) return false;
  value = it->second;
  return true;
}

void LUserSettingsStore::Set(const std::string& fullKey, const std::string& value) {
  std::lock_guard lock(mtx);
  Change([&](Values& v) {
    auto it = v.find(fullKey);
    if (it != v.end() && it->second == value) return false;
    v[fullKey] = value;
    return true;
  });
}

void LUserSettingsStore::Erase(const std::string& fullKey) {
  std::lock_guard lock(mtx);
  Change([&](Values& v) { return v.erase(fullKey) > 0; });
}

void LUserSettingsStore::ErasePrefix(const std::string& prefix) {
  std::lock_guard lock(mtx);
  Change([&](Values& v) {
    bool any = false;
    for (auto it = v.lower_bound(prefix); it != v.end() && it->first.compare(0, prefix.size(), prefix) == 0;) {
      it = v.erase(it);
      any = true;
    }
    return any;
  });
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

namespace {

// The fixed key of LSettingEncrypt. Changing it makes every stored password unreadable.
constexpr char kPasswordKey[] = "Tdl/pref#k3y-2q7Z";
static_assert(sizeof kPasswordKey - 1 == 17);

const LBlowfish& PasswordCipher() {
  static const LBlowfish cipher(kPasswordKey, sizeof kPasswordKey - 1);
  return cipher;
}

std::string TwinKey(const char* key) {
  return std::string("__") + (key ? key : "");
}

bool ParseComponent(const char*& p, char stop, unsigned& out) {
  if (*p < '0' || *p > '9') return false;
  unsigned long v = 0;
  while (*p >= '0' && *p <= '9') {
    v = v * 10 + static_cast<unsigned long>(*p++ - '0');
    if (v > 0xFFFF) return false;
  }
  if (*p != stop) return false;
  if (stop) ++p;
  out = static_cast<unsigned>(v);
  return true;
}

}  // namespace

void LSettingEncrypt(std::string& out, const char* text) {
  out.clear();
  const std::size_t length = text ? std::strlen(text) : 0;
  if (length == 0) return;
  // At least one zero byte always follows the text, which is how
  // LSettingDecrypt finds its end again.
  std::string buffer((length + 8) & ~std::size_t{7}, '\0');
  std::memcpy(buffer.data(), text, length);
  PasswordCipher().EncryptECB(reinterpret_cast<std::uint8_t*>(buffer.data()), buffer.size());
  out = LBase64Encode(buffer.data(), buffer.size());
}

bool LSettingDecrypt(std::string& text) {
  if (text.empty()) return true;
  std::string buffer;
  bool ok = LBase64Decode(text, buffer) && !buffer.empty() &&
            PasswordCipher().DecryptECB(reinterpret_cast<std::uint8_t*>(buffer.data()), buffer.size());
  text.clear();
  if (!ok) return false;
  // Exactly what LSettingEncrypt writes: the text, then zeros to the size that
  // its length gives. Anything else is a damaged or foreign value.
  const std::size_t length = buffer.find('\0');
  if (length == std::string::npos || buffer.size() != ((length + 8) & ~std::size_t{7})) return false;
  if (buffer.find_first_not_of('\0', length) != std::string::npos) return false;
  text.assign(buffer, 0, length);
  return true;
}

void LUserSettingSetPassword(const char* section, const char* key, const char* text) {
  std::string enciphered;
  LSettingEncrypt(enciphered, text);
  LUserSettingSetString(section, TwinKey(key).c_str(), enciphered.c_str());
}

bool LUserSettingGetPassword(const char* section, const char* key, const char* defaultValue, std::string& out) {
  std::string text;
  if (LUserSettingGetString(section, TwinKey(key).c_str(), "", text) && LSettingDecrypt(text)) {
    out = text;
    return true;
  }
  out = defaultValue ? defaultValue : "";
  return false;
}

void LSettingSetColor(const char* section, const char* key, const TDRGB16& colour) {
  const std::string text =
      std::to_string(colour.uRed) + "," + std::to_string(colour.uGreen) + "," + std::to_string(colour.uBlue);
  LUserSettingSetString(section, key, text.c_str());
}

bool LSettingGetColor(const char* section, const char* key, const TDRGB16& defaultValue, TDRGB16& out) {
  std::string text;
  unsigned r = 0, g = 0, b = 0;
  if (LUserSettingGetString(section, key, "", text)) {
    const char* p = text.c_str();
    if (ParseComponent(p, ',', r) && ParseComponent(p, ',', g) && ParseComponent(p, '\0', b)) {
      out = TDRGB16{static_cast<std::uint16_t>(r), static_cast<std::uint16_t>(g), static_cast<std::uint16_t>(b)};
      return true;
    }
  }
  out = defaultValue;
  return false;
}

void LSettingForApplicationSetBool(const char* applicationId, const char* section, const char* key, bool value) {
  std::string name = applicationId ? applicationId : "";
  static const std::string kVendorPrefix = "com.orvanesoftware.";
  if (name.compare(0, kVendorPrefix.size(), kVendorPrefix) == 0) name.erase(0, kVendorPrefix.size());
  for (char& c : name) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));  // folders are lower case
  // The name becomes a folder name: nothing that could climb out of the config folder.
  if (name.empty() ||
      name.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_") != std::string::npos) {
    return;
  }
  std::string full;
  if (!_LSettingGetFullKeyName(section, key, full)) return;
  const std::string text = value ? "1" : "0";
  if (name == "tandrel") {
    LUserSettingsStore::Global().Set(full, text);
    return;
  }
  const std::string ownFolder = LAppPaths::UserConfigFolder();  // <config>/tandrel
  LUserSettingsStore other(ownFolder.substr(0, ownFolder.rfind('/')) + "/" + name + "/settings.conf");
  other.Set(full, text);
}
