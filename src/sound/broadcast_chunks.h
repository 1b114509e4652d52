#pragma once
#include <cstdint>
#include <map>
#include <string>

// The two broadcast chunks of WAV files in their published layouts: "bext" of the
// Broadcast Wave Format (EBU Tech 3285) and "cart" (AES46). Both are appended to a
// finished file, behind the data, and the RIFF size is patched to take them in.

// Named tag values, as the tag editor keeps them.
using LTagHashTable = std::map<std::string, std::string>;

// The fixed part of "bext": 602 bytes, then the coding history as text.
struct BWFBaseStructure {
  static constexpr std::size_t kBytes = 602;

  char Description[256];
  char Originator[32];
  char OriginatorReference[32];
  char OriginationDate[10];  // yyyy-mm-dd
  char OriginationTime[8];   // hh-mm-ss
  std::uint32_t TimeReferenceLow;
  std::uint32_t TimeReferenceHigh;
  std::uint16_t Version;
  std::uint8_t UMID[64];
  std::int16_t LoudnessValue;
  std::int16_t LoudnessRange;
  std::int16_t MaxTruePeakLevel;
  std::int16_t MaxMomentaryLoudness;
  std::int16_t MaxShortTermLoudness;
  std::uint8_t Reserved[180];

  void ToBytes(std::uint8_t out[kBytes]) const;
  void FromBytes(std::uint8_t const in[kBytes]);
};

struct BWF {
  BWFBaseStructure bbs{};
  std::string slHistory;

  // Each line of the coding history ends with CR LF.
  void AddHistoryLine(char const* line);
  // "COMMENT", "ORIGINATOR", "REFERENCE", "DATE", "TIME", "TIMEREFLOW", "TIMEREFHIGH"
  // (decimal), "BWFVERSION" (hexadecimal), "UMID" (64 comma-separated decimal bytes),
  // "CODINGHISTORY". Text longer than its field is cut.
  void ToHashTable(LTagHashTable& table) const;
  void FromHashTable(LTagHashTable const& table);
};

// The fixed part of "cart": 2048 bytes, then the tag text.
struct CARTBaseStructure {
  static constexpr std::size_t kBytes = 2048;

  struct PostTimer {
    char Usage[4];
    std::uint32_t Value;
  };

  char Version[4];
  char Title[64];
  char Artist[64];
  char CutID[64];
  char ClientID[64];
  char Category[64];
  char Classification[64];
  char OutCue[64];
  char StartDate[10];
  char StartTime[8];
  char EndDate[10];
  char EndTime[8];
  char ProducerAppID[64];
  char ProducerAppVersion[64];
  char UserDef[64];
  std::int32_t LevelReference;
  PostTimer PostTimers[8];
  char Reserved[276];
  char URL[1024];

  void ToBytes(std::uint8_t out[kBytes]) const;
  void FromBytes(std::uint8_t const in[kBytes]);
};

struct CART {
  CARTBaseStructure cbs{};
  std::string slTagTextCart;
};

// Append the chunk to the finished WAV at `path` and patch its RIFF size. False,
// with the file as it was, if it is not a WAV or cannot be written.
bool WriteBWFChunk(std::string const& path, BWF const& bwf);
bool WriteCARTTag(std::string const& path, CART const& cart);

// Read the file's chunk, if it has one. The text behind the fixed part is cut at its
// first NUL and at 1 MB.
bool ReadBWFChunk(std::string const& path, BWF& bwf);
bool ReadCARTChunk(std::string const& path, CART& cart);
