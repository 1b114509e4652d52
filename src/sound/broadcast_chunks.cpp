#include "sound/broadcast_chunks.h"

#include <fcntl.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "foundation/byte_order.h"
#include "foundation/file.h"
#include "sound/wave_file.h"

namespace {

constexpr std::size_t kMaxText = 1 << 20;

// Sequential writer and reader of the fixed parts, field by field in file order.
struct Out {
  std::uint8_t* p;
  void Text(char const* s, std::size_t n) {
    std::memcpy(p, s, n);
    p += n;
  }
  void U16(std::uint32_t v) {
    LWriteLE16(p, v);
    p += 2;
  }
  void U32(std::uint32_t v) {
    LWriteLE32(p, v);
    p += 4;
  }
};

struct In {
  std::uint8_t const* p;
  void Text(char* s, std::size_t n) {
    std::memcpy(s, p, n);
    p += n;
  }
  std::uint16_t U16() {
    std::uint16_t const v = LReadLE16(p);
    p += 2;
    return v;
  }
  std::uint32_t U32() {
    std::uint32_t const v = LReadLE32(p);
    p += 4;
    return v;
  }
};

// A fixed text field as a string: up to its first NUL.
template <std::size_t N>
std::string Field(char const (&f)[N]) {
  return std::string(f, strnlen(f, N));
}

// A string into a fixed field: cut to fit, the rest zero.
template <std::size_t N>
void SetField(char (&f)[N], std::string const& s) {
  std::memset(f, 0, N);
  std::memcpy(f, s.data(), std::min(N, s.size()));
}

// Appends `id` with `fixed` and `text` behind everything in the WAV, keeping chunks
// on even offsets, and patches the RIFF size.
bool AppendChunk(std::string const& path, char const id[4], std::uint8_t const* fixed, std::size_t fixedBytes,
                 std::string const& text) {
  LFile file;
  if (!file.Open(path, O_RDWR)) return false;
  LWavHeader h;
  if (LWavReadHeader(file, h, false) != 0) return false;
  std::int64_t const riff = h.iRiffBody - 12;
  std::int64_t end = file.Size();
  std::uint64_t const body = fixedBytes + text.size();
  std::int64_t const newEnd = end + (end & 1) + 8 + static_cast<std::int64_t>(body + (body & 1));
  if (end < 0 || body > 0xFFFFFFF0u || newEnd - riff - 8 > 0xFFFFFFFFll) return false;

  std::vector<std::uint8_t> chunk;
  chunk.reserve(static_cast<std::size_t>(newEnd - end));
  if (end & 1) chunk.push_back(0);
  chunk.insert(chunk.end(), id, id + 4);
  chunk.resize(chunk.size() + 4);
  LWriteLE32(chunk.data() + chunk.size() - 4, static_cast<std::uint32_t>(body));
  chunk.insert(chunk.end(), fixed, fixed + fixedBytes);
  chunk.insert(chunk.end(), text.begin(), text.end());
  if (body & 1) chunk.push_back(0);
  if (file.WriteAt(chunk.data(), chunk.size(), end) != static_cast<std::int64_t>(chunk.size())) {
    file.Truncate(end);
    return false;
  }
  std::uint8_t size[4];
  LWriteLE32(size, static_cast<std::uint32_t>(newEnd - riff - 8));
  return file.WriteAt(size, 4, riff + 4) == 4;
}

// Finds chunk `id` of at least `fixedBytes`; reads the fixed part and the text behind.
bool ReadChunk(std::string const& path, char const id[4], std::uint8_t* fixed, std::size_t fixedBytes,
               std::string& text) {
  LFile file;
  if (!file.OpenRead(path)) return false;
  LWavHeader h;
  std::int64_t body = 0;
  std::uint32_t size = 0;
  if (LWavReadHeader(file, h, false) != 0 || !LWavFindChunk(file, h.iRiffBody, id, body, size) || size < fixedBytes ||
      !file.ReadExactAt(fixed, fixedBytes, body)) {
    return false;
  }
  std::int64_t const there = std::max<std::int64_t>(file.Size() - body - static_cast<std::int64_t>(fixedBytes), 0);
  std::size_t const n = static_cast<std::size_t>(std::min<std::int64_t>(
      {static_cast<std::int64_t>(size - fixedBytes), there, static_cast<std::int64_t>(kMaxText)}));
  text.assign(n, '\0');
  std::int64_t const got = file.ReadAt(text.data(), n, body + static_cast<std::int64_t>(fixedBytes));
  text.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
  text.resize(strnlen(text.c_str(), text.size()));
  return true;
}

}  // namespace

void BWFBaseStructure::ToBytes(std::uint8_t out[kBytes]) const {
  Out o{out};
  o.Text(Description, sizeof Description);
  o.Text(Originator, sizeof Originator);
  o.Text(OriginatorReference, sizeof OriginatorReference);
  o.Text(OriginationDate, sizeof OriginationDate);
  o.Text(OriginationTime, sizeof OriginationTime);
  o.U32(TimeReferenceLow);
  o.U32(TimeReferenceHigh);
  o.U16(Version);
  o.Text(reinterpret_cast<char const*>(UMID), sizeof UMID);
  for (std::int16_t v : {LoudnessValue, LoudnessRange, MaxTruePeakLevel, MaxMomentaryLoudness, MaxShortTermLoudness}) {
    o.U16(static_cast<std::uint16_t>(v));
  }
  o.Text(reinterpret_cast<char const*>(Reserved), sizeof Reserved);
}

void BWFBaseStructure::FromBytes(std::uint8_t const in[kBytes]) {
  In i{in};
  i.Text(Description, sizeof Description);
  i.Text(Originator, sizeof Originator);
  i.Text(OriginatorReference, sizeof OriginatorReference);
  i.Text(OriginationDate, sizeof OriginationDate);
  i.Text(OriginationTime, sizeof OriginationTime);
  TimeReferenceLow = i.U32();
  TimeReferenceHigh = i.U32();
  Version = i.U16();
  i.Text(reinterpret_cast<char*>(UMID), sizeof UMID);
  for (std::int16_t* v :
       {&LoudnessValue, &LoudnessRange, &MaxTruePeakLevel, &MaxMomentaryLoudness, &MaxShortTermLoudness}) {
    *v = static_cast<std::int16_t>(i.U16());
  }
  i.Text(reinterpret_cast<char*>(Reserved), sizeof Reserved);
}

void BWF::AddHistoryLine(char const* line) {
  slHistory += line;
  slHistory += "\r\n";
}

void BWF::ToHashTable(LTagHashTable& table) const {
  table["COMMENT"] = Field(bbs.Description);
  table["ORIGINATOR"] = Field(bbs.Originator);
  table["REFERENCE"] = Field(bbs.OriginatorReference);
  table["DATE"] = Field(bbs.OriginationDate);
  table["TIME"] = Field(bbs.OriginationTime);
  table["TIMEREFLOW"] = std::to_string(bbs.TimeReferenceLow);
  table["TIMEREFHIGH"] = std::to_string(bbs.TimeReferenceHigh);
  char hex[8];
  std::snprintf(hex, sizeof hex, "%x", static_cast<unsigned>(bbs.Version));
  table["BWFVERSION"] = hex;
  std::string umid;
  for (std::size_t i = 0; i < sizeof bbs.UMID; ++i) {
    if (i > 0) umid += ',';
    umid += std::to_string(bbs.UMID[i]);
  }
  table["UMID"] = umid;
  table["CODINGHISTORY"] = slHistory;
}

void BWF::FromHashTable(LTagHashTable const& table) {
  auto get = [&](char const* key, auto&& apply) {
    if (auto it = table.find(key); it != table.end()) apply(it->second);
  };
  get("COMMENT", [&](std::string const& v) { SetField(bbs.Description, v); });
  get("ORIGINATOR", [&](std::string const& v) { SetField(bbs.Originator, v); });
  get("REFERENCE", [&](std::string const& v) { SetField(bbs.OriginatorReference, v); });
  get("DATE", [&](std::string const& v) { SetField(bbs.OriginationDate, v); });
  get("TIME", [&](std::string const& v) { SetField(bbs.OriginationTime, v); });
  get("TIMEREFLOW", [&](std::string const& v) { bbs.TimeReferenceLow = std::strtoul(v.c_str(), nullptr, 10); });
  get("TIMEREFHIGH", [&](std::string const& v) { bbs.TimeReferenceHigh = std::strtoul(v.c_str(), nullptr, 10); });
  get("BWFVERSION",
      [&](std::string const& v) { bbs.Version = static_cast<std::uint16_t>(std::strtoul(v.c_str(), nullptr, 16)); });
  get("UMID", [&](std::string const& v) {
    std::memset(bbs.UMID, 0, sizeof bbs.UMID);
    char const* p = v.c_str();
    for (std::size_t i = 0; i < sizeof bbs.UMID && *p != '\0'; ++i) {
      char* next = nullptr;
      bbs.UMID[i] = static_cast<std::uint8_t>(std::strtoul(p, &next, 10));
      if (next == p) break;
      p = *next == ',' ? next + 1 : next;
    }
  });
  get("CODINGHISTORY", [&](std::string const& v) { slHistory = v; });
}

void CARTBaseStructure::ToBytes(std::uint8_t out[kBytes]) const {
  Out o{out};
  o.Text(Version, sizeof Version);
  o.Text(Title, 64);
  o.Text(Artist, 64);
  o.Text(CutID, 64);
  o.Text(ClientID, 64);
  o.Text(Category, 64);
  o.Text(Classification, 64);
  o.Text(OutCue, 64);
  o.Text(StartDate, sizeof StartDate);
  o.Text(StartTime, sizeof StartTime);
  o.Text(EndDate, sizeof EndDate);
  o.Text(EndTime, sizeof EndTime);
  o.Text(ProducerAppID, 64);
  o.Text(ProducerAppVersion, 64);
  o.Text(UserDef, 64);
  o.U32(static_cast<std::uint32_t>(LevelReference));
  for (PostTimer const& t : PostTimers) {
    o.Text(t.Usage, 4);
    o.U32(t.Value);
  }
  o.Text(Reserved, sizeof Reserved);
  o.Text(URL, sizeof URL);
}

void CARTBaseStructure::FromBytes(std::uint8_t const in[kBytes]) {
  In i{in};
  i.Text(Version, sizeof Version);
  i.Text(Title, 64);
  i.Text(Artist, 64);
  i.Text(CutID, 64);
  i.Text(ClientID, 64);
  i.Text(Category, 64);
  i.Text(Classification, 64);
  i.Text(OutCue, 64);
  i.Text(StartDate, sizeof StartDate);
  i.Text(StartTime, sizeof StartTime);
  i.Text(EndDate, sizeof EndDate);
  i.Text(EndTime, sizeof EndTime);
  i.Text(ProducerAppID, 64);
  i.Text(ProducerAppVersion, 64);
  i.Text(UserDef, 64);
  LevelReference = static_cast<std::int32_t>(i.U32());
  for (PostTimer& t : PostTimers) {
    i.Text(t.Usage, 4);
    t.Value = i.U32();
  }
  i.Text(Reserved, sizeof Reserved);
  i.Text(URL, sizeof URL);
}

bool WriteBWFChunk(std::string const& path, BWF const& bwf) {
  std::uint8_t fixed[BWFBaseStructure::kBytes];
  bwf.bbs.ToBytes(fixed);
  return AppendChunk(path, "bext", fixed, sizeof fixed, bwf.slHistory);
}

bool WriteCARTTag(std::string const& path, CART const& cart) {
  std::uint8_t fixed[CARTBaseStructure::kBytes];
  cart.cbs.ToBytes(fixed);
  return AppendChunk(path, "cart", fixed, sizeof fixed, cart.slTagTextCart);
}

bool ReadBWFChunk(std::string const& path, BWF& bwf) {
  std::uint8_t fixed[BWFBaseStructure::kBytes];
  std::string text;
  if (!ReadChunk(path, "bext", fixed, sizeof fixed, text)) return false;
  bwf.bbs.FromBytes(fixed);
  bwf.slHistory = std::move(text);
  return true;
}

bool ReadCARTChunk(std::string const& path, CART& cart) {
  std::uint8_t fixed[CARTBaseStructure::kBytes];
  std::string text;
  if (!ReadChunk(path, "cart", fixed, sizeof fixed, text)) return false;
  cart.cbs.FromBytes(fixed);
  cart.slTagTextCart = std::move(text);
  return true;
}
