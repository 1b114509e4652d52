#pragma once
#include <optional>
#include <string>

// What the user chooses before a project is exported: where, in which format, and
// how much of the project. The form that shows these lives in the window; the
// rules for filling and checking them live here.
struct TDExportOptions {
  std::string szPath;       // the target, its extension the chosen format's
  std::string szExtension;  // the chosen format, lower case with the dot
  bool bRenderMidi = true;
  bool bExportTags = true;
  bool bSelectionOnly = false;
  // What the form offers: the selection choice only when there is one, the MIDI
  // box only when the project has MIDI clips, the tags box only when the project
  // has tags to write.
  bool bHasSelection = false;
  bool bHasMidi = false;
  bool bHasTags = false;
};

// The form's starting values: the last format and choices from the settings, the
// target named after the project in `folder`.
TDExportOptions TDExportOptionsDefaults(std::string const& folder, std::string const& projectName);

// The path with its extension changed to `extension` (the user picked another
// format in the list). A name without an extension gets it added.
std::string TDExportOptionsChangeType(std::string const& path, std::string const& extension);

// The path as it will be written: when its extension is another format of the
// list, that format is taken; otherwise the chosen format's extension is added.
void TDExportOptionsNormalise(TDExportOptions& options);

// Remembers the choices for the next export.
void TDExportOptionsStore(TDExportOptions const& options);

// "The file name is invalid...": said beside the name when the folder cannot take
// the file.
extern char const* const TDExportInvalidNameText;
