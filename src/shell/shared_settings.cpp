#include "shell/shared_settings.h"

#include <mutex>
#include <string_view>

#include "foundation/app_paths.h"
#include "foundation/atomic_file.h"

namespace {

// Far beyond any real settings file; reading a larger one would cost more
// memory than it could be worth, so it is ignored.
constexpr std::size_t kMaxFileBytes = 4u << 20;
constexpr char kRootName[] = "SharedSettings";

// Load, change and save run as one step within this process; the lock file
// keeps other processes out of that step.
std::mutex& StoreMutex() {
  static std::mutex m;
  return m;
}

std::string FolderOf(const std::string& path) {
  return path.substr(0, path.rfind('/'));
}

bool IsXmlName(std::string_view name) {
  if (name.empty()) return false;
  for (std::size_t i = 0; i < name.size(); ++i) {
    const char c = name[i];
    const bool letter = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
    const bool other = (c >= '0' && c <= '9') || c == '-' || c == '.';
    if (!(letter || (i > 0 && other))) return false;
  }
  return true;
}

// The element names of a section path; empty parts (a trailing '/') are skipped.
bool SplitSection(const char* section, std::vector<std::string>& parts) {
  parts.clear();
  std::string_view rest = section ? section : "";
  while (!rest.empty()) {
    const std::size_t slash = rest.find('/');
    const std::string_view part = rest.substr(0, slash);
    if (!part.empty()) {
      if (!IsXmlName(part)) return false;
      parts.emplace_back(part);
    }
    rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash + 1);
  }
  return !parts.empty();
}

pugi::xml_node FindSection(pugi::xml_node parent, const char* section) {
  std::vector<std::string> parts;
  if (!SplitSection(section, parts)) return {};
  for (const std::string& part : parts) parent = parent.child(part.c_str());
  return parent;  // a null node stays null through child()
}

// The root element of the shared file, whatever another application named it.
pugi::xml_node Root(pugi::xml_document& document) {
  pugi::xml_node root = document.document_element();
  return root ? root : document.append_child(kRootName);
}

struct StringWriter : pugi::xml_writer {
  std::string text;
  void write(const void* data, std::size_t size) override { text.append(static_cast<const char*>(data), size); }
};

}  // namespace

std::string LSharedSettingsFilePath() {
  // The file belongs to the suite rather than to Tandrel, but on this platform
  // the suite's shared data folder is our data folder: the other applications
  // find it at this fixed place. It has a folder of its own so that it never
  // mixes with the recordings, kits and libraries at the top of that folder.
  return LAppPaths::UserDataFolder() + "/Shared/SharedSettings.xml";
}

bool LSharedSettingsLoad(pugi::xml_document& document) {
  document.reset();
  const std::string path = LSharedSettingsFilePath();
  LAppPaths::MakeFolders(FolderOf(path), 0700);
  std::string text;
  if (LReadSmallFile(path, kMaxFileBytes, text) != LReadResult::Read) return false;
  // encoding_auto: other applications may write UTF-16 or another encoding with a declaration.
  const pugi::xml_parse_result result =
      document.load_buffer(text.data(), text.size(), pugi::parse_default, pugi::encoding_auto);
  if (!result) {
    document.reset();
    return false;
  }
  return true;
}

bool LSharedSettingsSave(const pugi::xml_document& document) {
  const std::string path = LSharedSettingsFilePath();
  if (!LAppPaths::MakeFolders(FolderOf(path), 0700)) return false;
  StringWriter writer;
  document.save(writer, "  ", pugi::format_default, pugi::encoding_utf8);
  return LWriteFileAtomically(path, writer.text, 0600);
}

bool LXMLSettingGetString(const pugi::xml_node& parent, const char* section, const char* key, const char* defaultValue,
                          std::string& out) {
  if (key && IsXmlName(key)) {
    if (const pugi::xml_attribute value = FindSection(parent, section).child(key).attribute("value")) {
      out = value.value();
      return true;
    }
  }
  out = defaultValue ? defaultValue : "";
  return false;
}

bool LXMLSettingSetString(pugi::xml_node parent, const char* section, const char* key, const char* value) {
  std::vector<std::string> parts;
  if (!parent || !SplitSection(section, parts) || !key || !IsXmlName(key)) return false;
  pugi::xml_node node = parent;
  for (const std::string& part : parts) {
    pugi::xml_node child = node.child(part.c_str());
    node = child ? child : node.append_child(part.c_str());
  }
  pugi::xml_node item = node.child(key);
  if (!item) item = node.append_child(key);
  pugi::xml_attribute attribute = item.attribute("value");
  if (!attribute) attribute = item.append_attribute("value");
  return attribute.set_value(value ? value : "");
}

void LSharedSettingSetString(const char* section, const char* key, const char* value) {
  std::lock_guard lock(StoreMutex());
  const std::string path = LSharedSettingsFilePath();
  LAppPaths::MakeFolders(FolderOf(path), 0700);
  LFileLock fileLock(path + ".lock");
  pugi::xml_document document;
  LSharedSettingsLoad(document);
  if (LXMLSettingSetString(Root(document), section, key, value)) LSharedSettingsSave(document);
}

bool LSharedSettingGetString(const char* section, const char* key, const char* defaultValue, std::string& out) {
  pugi::xml_document document;
  LSharedSettingsLoad(document);
  return LXMLSettingGetString(document.document_element(), section, key, defaultValue, out);
}

bool LSharedSettingsRecord::GetString(const char* key, const char* defaultValue, std::string& out) const {
  return LSharedSettingGetString(szKeyPath.c_str(), key, defaultValue, out);
}

void LSharedSettingsRecord::SetString(const char* key, const char* value) {
  LSharedSettingSetString(szKeyPath.c_str(), key, value);
}

void LSharedSettingsRecord::Remove(const char* key) {
  if (!key || !IsXmlName(key)) return;
  std::lock_guard lock(StoreMutex());
  const std::string path = LSharedSettingsFilePath();
  LAppPaths::MakeFolders(FolderOf(path), 0700);
  LFileLock fileLock(path + ".lock");
  pugi::xml_document document;
  LSharedSettingsLoad(document);
  pugi::xml_node section = FindSection(document.document_element(), szKeyPath.c_str());
  bool removed = false;
  while (section && section.remove_child(key)) removed = true;  // another writer may have doubled it
  if (removed) LSharedSettingsSave(document);
}

std::vector<std::string> LSharedSettingsRecord::Keys() const {
  std::vector<std::string> keys;
  pugi::xml_document document;
  LSharedSettingsLoad(document);
  for (const pugi::xml_node& item : FindSection(document.document_element(), szKeyPath.c_str()).children()) {
    if (item.type() == pugi::node_element && item.attribute("value")) keys.emplace_back(item.name());
  }
  return keys;
}
