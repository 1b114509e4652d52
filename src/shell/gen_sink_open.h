#pragma once
#include <string>
#include <vector>

#include "foundation/process_interface.h"
#include "sound/encoder_sinks.h"
#include "sound/sound_sink.h"

// The mirror of the opener: the sink for a file of any format the program writes,
// chosen by the extension and set up from the user's settings of that format.

// The export formats in the order of the export dialog's list, then the playlist
// types (".m3u", ".pls", ".wpl"), which are accepted but hold no sound.
std::vector<std::string> LGenSinkGetExtensions(bool withPlaylists);
bool LGenSinkIsPlaylist(std::string const& extension);

// The extension (with its dot, any case) is one of the table's.
bool LGenSinkIsSupported(std::string const& extension);
// The same, and the encoder it needs is at hand; a missing one is said through
// `pi`'s SetError ("... could not locate a plugin ...").
bool LGenSinkIsSupported(std::string const& extension, LProcessInterface& pi);

// The component the format's encoder is, or null when the program writes it itself.
// ".m4a" and ".m4r" depend on the codec chosen in "M4AEncoder".
char const* LGenSinkGetComponentName(std::string const& extension);

// Opens the sink for `path` by its extension, case-insensitive; an error sink for an
// unknown extension, a playlist, a missing encoder or a file that cannot be made.
// `rate` and `channels` are what the caller has; the format's settings may choose
// others, and the sink's own rate and channels are what it takes (the copy job
// converts). `tags` may be null.
LSoundSink LGenSinkOpenSink(std::string const& path, int rate, int channels, LSoundTags const* tags);
