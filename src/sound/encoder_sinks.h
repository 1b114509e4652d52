#pragma once
#include <string>

#include "sound/sound_sink.h"

// The sinks of the encoder programs (lame, oggenc, flac, mpcenc, speexenc), each
// found as a component (sound/components.h); a missing program gives an error sink.
// The settings come from the caller, who reads them from the user's preferences.
// Each encoder takes the channels and rates it can; the sink states the rate and
// channels it takes, and the copy job converts to them.

// What an exported file may say about itself.
struct LSoundTags {
  std::string szTitle;
  std::string szArtist;
  std::string szAlbum;
  std::string szDate;
  std::string szGenre;
  std::string szTrack;
  std::string szComment;
};

struct LMp3EncodeSettings {
  int iMode = 0;          // 0 constant bit rate, 1 average, 2 variable
  int iBitRate = 128;     // kbit/s: the rate of the first two, the least of the third
  int iVBRQuality = 4;    // -V, 0 best to 9
  int iQuality = 2;       // -q, the encoder's care, 0 best to 9
  char cStereoMode = 'j'; // -m: j(oint), s(imple), f(orce), d(ual); mono is always m
  std::string szExtraFlags;  // given to the program as they stand
};

struct LOggEncodeSettings {
  int iMode = 1;  // 0 nominal bit rate, 1 quality, 2 bit rate range
  int iBitRate = 128;
  int iVBRQuality = 4;
  int iVBRMinBitRate = 96;
  int iVBRMaxBitRate = 128;
  int iChannels = 0;  // 1 asks for a down-mix of stereo; 0 keeps what comes
  bool bStripComments = false;
};

struct LFlacEncodeSettings {
  int iCompression = 4;  // 0 to 8
};

struct LMPCEncodeSettings {
  int iQuality = 5;  // 0 to 10
};

struct LRSSEncodeSettings {
  std::string szRootURL;  // where the MP3 file will be found; the file's name goes behind it
  LMp3EncodeSettings mp3;
};

// The rates the programs take; any other is converted to the one these give.
int LMp3SinkRate(int rate);
int LMPCSinkRate(int rate);
int LSpeexSinkRate(int rate);

// Creates and removes a file named by a number with the extension "__wt" in the
// folder of `targetPath`: true when the folder takes new files.
bool LProbeTargetFolder(std::string const& targetPath);

LSoundSink OpenMp3Sink(std::string const& path, int rate, int channels, LMp3EncodeSettings const& settings);
LSoundSink OpenOggSink(std::string const& path, int rate, int channels, LOggEncodeSettings const& settings,
                       LSoundTags const* tags);
LSoundSink OpenFlacSink(std::string const& path, int rate, int channels, LFlacEncodeSettings const& settings,
                        LSoundTags const* tags);
LSoundSink OpenMPCSink(std::string const& path, int rate, int channels, LMPCEncodeSettings const& settings,
                       LSoundTags const* tags);
LSoundSink OpenSpeexSink(std::string const& path, int rate, int channels, LSoundTags const* tags);
// The MP3 goes beside `feedPath` with the extension ".mp3"; once it is complete the
// feed at `feedPath` gets one item whose enclosure points at it under the root URL.
LSoundSink OpenRSSSink(std::string const& feedPath, int rate, int channels, LRSSEncodeSettings const& settings,
                       LSoundTags const* tags);

// The MP3 file that OpenRSSSink writes for `feedPath`.
std::string LRSSMp3PathFor(std::string const& feedPath);
