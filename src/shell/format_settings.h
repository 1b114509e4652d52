#pragma once
#include <string>
#include <utility>
#include <vector>

// The settings of each export format as plain data: the fields a format's
// settings form shows, with the values stored now, so that one generic form can
// edit any format and the sink opener reads back exactly what was stored.

struct LFormatSetting {
  enum Kind { Choice, Number, Check, Text };
  Kind eKind = Choice;
  std::string szSection;  // where the value is stored
  std::string szKey;
  std::string szLabel;
  // Choice: the labels and the values stored for them, in the order shown.
  std::vector<std::pair<std::string, int>> Choices;
  int iMin = 0, iMax = 0;  // Number
  int iValue = 0;           // Choice, Number, Check
  std::string szText;       // Text
};

struct LFormatSettingsModel {
  std::string szExtension;  // lower case, with the dot
  std::string szTitle;      // "MP3 Settings"
  std::vector<LFormatSetting> Fields;

  LFormatSetting* Find(std::string const& key);
};

// True when the format has settings the user can change.
bool LGenSinkHasSettings(std::string const& extension);

// The format's fields filled with what is stored (or the defaults the opener uses
// when nothing is). An empty model for a format without settings.
LFormatSettingsModel LGenSinkGetSettingsModel(std::string const& extension);

// Stores the fields where the sink opener reads them. A value outside a field's
// range or choices is brought to the nearest allowed one first.
void LGenSinkStoreSettings(LFormatSettingsModel const& model);

// What shows a settings model to the user: true when the user accepted the edits.
class LFormatSettingsEditor {
 public:
  virtual ~LFormatSettingsEditor() = default;
  virtual bool EditFormatSettings(LFormatSettingsModel& model) = 0;
};

// Runs the format's settings form and stores what the user accepted. False when
// the format has none or the user cancelled.
bool LGenSinkCheckSettings(std::string const& extension, LFormatSettingsEditor& editor);

// The name the export form's type list shows for an extension ("Ogg Vorbis").
std::string LGenSinkTypeName(std::string const& extension);
