#pragma once
#include <pugixml.hpp>
#include <string>
#include <utility>
#include <vector>

// Settings shared by the suite of applications: one XML file, in which each
// section is an element, each key an element within it, and the value the
// key's attribute "value":
//
//   <SharedSettings>
//     <Applications><Tandrel><Version value="0.1.0"/></Tandrel></Applications>
//   </SharedSettings>
//
// A section may be a path "A/B" of nested elements. Section and key names must
// be XML names of ASCII letters, digits, '_', '-' and '.' (not starting with a
// digit, '-' or '.'); anything else is refused, so that no set can make the file
// unreadable for every application. A change loads the whole file, changes it,
// and writes it whole again (temporary file, fsync, rename). A damaged file, or
// one larger than 4 MiB, reads as empty, and the next change replaces it.

// $XDG_DATA_HOME/tandrel/Shared/SharedSettings.xml.
std::string LSharedSettingsFilePath();

// Makes the folder when missing and reads the file into `document`. False, with
// `document` empty, when there is no file or it is unusable.
bool LSharedSettingsLoad(pugi::xml_document& document);
// Writes `document` whole, in UTF-8, over the file.
bool LSharedSettingsSave(const pugi::xml_document& document);

// A key under `parent` in the layout above. True when the key element with its
// attribute "value" was found; otherwise `out` receives the default.
bool LXMLSettingGetString(const pugi::xml_node& parent, const char* section, const char* key, const char* defaultValue,
                          std::string& out);
// Finds or creates the section elements and the key element under `parent` and
// sets its "value". False, with nothing changed, when a name is not acceptable.
bool LXMLSettingSetString(pugi::xml_node parent, const char* section, const char* key, const char* value);

// One load, change and save of the shared file.
void LSharedSettingSetString(const char* section, const char* key, const char* value);
bool LSharedSettingGetString(const char* section, const char* key, const char* defaultValue, std::string& out);

// A handle on one application's keys in the shared file, under a key path such
// as "Applications/Tandrel". Holds no copy: every call reads the file, so what
// another application wrote a moment ago is seen.
class LSharedSettingsRecord {
 public:
  explicit LSharedSettingsRecord(std::string keyPath) : szKeyPath(std::move(keyPath)) {}

  const std::string& KeyPath() const { return szKeyPath; }

  bool GetString(const char* key, const char* defaultValue, std::string& out) const;
  void SetString(const char* key, const char* value);
  void Remove(const char* key);
  // The names of the keys under the path that hold a value, in file order.
  std::vector<std::string> Keys() const;

 private:
  std::string szKeyPath;
};
