#include "foundation/sdf.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <new>
#include <string>
#include <vector>

namespace fs = std::filesystem;

// The largest single allocation while a test watches, to show that no size read
// from a file is ever handed to the allocator unchecked.
namespace {
std::atomic<bool> gWatchAllocations{false};
std::atomic<std::size_t> gLargestAllocation{0};
}  // namespace

// The replaced pair is malloc and free on both sides, which GCC can't see.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif
void* operator new(std::size_t size) {
  if (gWatchAllocations.load(std::memory_order_relaxed)) {
    std::size_t seen = gLargestAllocation.load(std::memory_order_relaxed);
    while (size > seen && !gLargestAllocation.compare_exchange_weak(seen, size)) {
    }
  }
  if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
  std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
  std::free(p);
}

namespace {

using Bytes = std::vector<unsigned char>;
using Writer = LSDFWriter<LOutputStreamMemory>;
using Reader = LSDFReader<LInputStreamMemory>;
using Iterator = LSDFReaderChunkIterator<LInputStreamMemory>;

constexpr std::uint32_t kType = 4;
constexpr std::uint16_t kVersion = 21;

void PutLE(Bytes& out, std::uint64_t value, int bytes) {
  for (int i = 0; i < bytes; ++i) out.push_back(static_cast<unsigned char>(value >> (8 * i)));
}
void PutHeader(Bytes& out, std::uint16_t id, std::uint16_t type, std::uint64_t size) {
  PutLE(out, id, 2);
  PutLE(out, type, 2);
  PutLE(out, size, 8);
}
// A file around `body`, the root's children given as raw bytes.
Bytes FileAround(Bytes const& body, std::uint64_t rootSize) {
  Bytes out = {'l', 's', 'd', 'f'};
  PutLE(out, 1, 2);
  PutLE(out, kType, 4);
  PutLE(out, kVersion, 2);
  PutHeader(out, 0, LSDFTypeContainer, rootSize);
  out.insert(out.end(), body.begin(), body.end());
  out.insert(out.end(), {'l', 's', 'd', 'f'});
  return out;
}
Bytes FileAround(Bytes const& body) {
  return FileAround(body, body.size());
}

// Reads every chunk as its type says, descending into containers, and writes
// down what it read, as "id:value" with a letter for the type. A failed read
// shows as "?". The reader's state tells whether the walk met damage.
std::string Describe(Reader& reader, Iterator it, int& chunks) {
  std::string out;
  for (; it.IsValid(); it.Next()) {
    ++chunks;
    out += (out.empty() ? "" : " ") + std::to_string(it->GetChunkID()) + ":";
    bool b;
    std::int32_t i;
    std::int64_t l;
    float f;
    std::string s;
    Bytes data;
    switch (it->GetChunkType()) {
      case LSDFTypeContainer: out += "{" + Describe(reader, Iterator(reader, *it), chunks) + "}"; break;
      case LSDFTypeBool: out += it->ReadBool(b) ? "b" + std::to_string(b) : "?"; break;
      case LSDFTypeInt: out += it->ReadInt(i) ? "i" + std::to_string(i) : "?"; break;
      case LSDFTypeInt64: out += it->ReadInt64(l) ? "l" + std::to_string(l) : "?"; break;
      case LSDFTypeFloat: out += it->ReadFloat(f) ? "f" + std::to_string(f) : "?"; break;
      case LSDFTypeString: out += it->ReadString(s) ? "s'" + s + "'" : "?"; break;
      default:
        if (!it->ReadData(data)) {
          out += "?";
          break;
        }
        out += "x";
        for (unsigned char c : data) out += std::to_string(c) + ".";
    }
  }
  return out;
}
std::string Describe(Reader& reader) {
  int chunks = 0;
  return Describe(reader, Iterator(reader), chunks);
}

// A tree of every value type, two containers deep.
void WriteSample(Writer& w) {
  unsigned char const blob[] = {0, 1, 2, 0xFF, 0x80};
  w.WriteBool(1, true);
  w.WriteInt(2, -123456789);
  w.WriteInt64(3, -(std::int64_t{1} << 40) - 7);
  w.WriteFloat(4, -0.375f);
  w.WriteString(5, "");
  w.WriteString(6, "Drums & Bass");
  w.WriteBlob(7, blob, sizeof blob);
  w.StartContainer(8);
  w.WriteInt(1, 11);
  w.StartContainer(2);
  w.WriteString(1, "deep");
  w.EndContainer(2);
  w.StartContainer(3);  // empty
  w.EndContainer(3);
  w.EndContainer(8);
  w.WriteBlob(9, nullptr, 0);
}

std::string const kSample =
    "1:b1 2:i-123456789 3:l-1099511627783 4:f-0.375000 5:s'' 6:s'Drums & Bass' 7:x0.1.2.255.128. "
    "8:{1:i11 2:{1:s'deep'} 3:{}} 9:x";

Bytes SampleFile() {
  LOutputStreamMemory out;
  Writer w;
  EXPECT_TRUE(w.Open(out, kType, kVersion));
  WriteSample(w);
  EXPECT_TRUE(w.Close());
  return out.TakeData();
}

TEST(SdfTest, TheBytesAreTheContainerLayout) {
  LOutputStreamMemory out;
  Writer w;
  ASSERT_TRUE(w.Open(out, kType, kVersion));
  w.WriteInt(0x1234, -2);
  w.WriteString(7, "");
  w.StartContainer(9);
  w.WriteBool(1, true);
  w.EndContainer(9);
  ASSERT_TRUE(w.Close());

  Bytes body;
  PutHeader(body, 0x1234, LSDFTypeInt, 4);
  PutLE(body, 0xFFFFFFFE, 4);
  PutHeader(body, 7, LSDFTypeString, 1);  // an empty string is its terminating zero
  body.push_back(0);
  PutHeader(body, 9, LSDFTypeContainer, 13);
  PutHeader(body, 1, LSDFTypeBool, 1);
  body.push_back(1);
  EXPECT_EQ(out.GetData(), FileAround(body));
}

TEST(SdfTest, NestedChunksOfEveryTypeReadBackAsWritten) {
  Bytes const file = SampleFile();
  LInputStreamMemory in(file);
  Reader r;
  ASSERT_TRUE(r.Open(in, kType));
  EXPECT_EQ(r.GetFormatVersion(), kVersion);
  EXPECT_EQ(Describe(r), kSample);
  EXPECT_TRUE(r.IsValid());
  EXPECT_TRUE(r.Close());

  // Reading part of a container, or of a chunk, loses no place.
  ASSERT_TRUE(r.Open(in, kType));
  Iterator it(r);
  while (it.IsValid() && it->GetChunkID() != 8) it.Next();
  ASSERT_TRUE(it.IsValid());
  EXPECT_EQ(it->GetPosition(), 7);
  Iterator inner(r, *it);
  ASSERT_TRUE(inner.Next());
  EXPECT_FALSE(Iterator(r, *inner).Next());  // one string deep: nothing after it
  EXPECT_TRUE(inner.Next());
  ASSERT_TRUE(it.Next());
  EXPECT_EQ(it->GetChunkID(), 9);
  EXPECT_FALSE(Iterator(r, *it).IsValid());  // iterating a leaf yields nothing
  EXPECT_FALSE(it.Next());
  EXPECT_TRUE(r.Close());
}

TEST(SdfTest, ReadsThatDoNotFitTheChunkFailAndChangeNothing) {
  Bytes body;
  PutHeader(body, 1, LSDFTypeBool, 1);
  body.push_back(2);  // any non-zero byte is true
  PutHeader(body, 2, LSDFTypeInt, 2);
  body.insert(body.end(), {0xAA, 0xBB});
  PutHeader(body, 3, LSDFTypeString, 3);
  body.insert(body.end(), {'a', 'b', 'c'});  // no terminating zero
  Bytes const file = FileAround(body);
  LInputStreamMemory in(file);
  Reader r;
  ASSERT_TRUE(r.Open(in, kType));
  EXPECT_EQ(Describe(r), "1:b1 2:? 3:s'abc'");
  EXPECT_TRUE(r.IsValid());  // a value that does not fit its chunk is no damage to the file

  ASSERT_TRUE(r.Open(in, kType));
  Iterator it(r);
  ASSERT_TRUE(it.Next());
  std::int32_t i = 77;
  unsigned char blob[3] = {9, 9, 9};
  EXPECT_FALSE(it->ReadInt(i) || it->ReadBlob(blob, 3));
  EXPECT_EQ(i, 77);
  EXPECT_EQ(blob[0], 9);
  EXPECT_TRUE(it->ReadBlob(blob, 2));
  EXPECT_EQ(blob[1], 0xBB);
  ASSERT_TRUE(it.Next());
  char cut[3] = {'x', 'x', 'x'};
  EXPECT_TRUE(it->ReadString(cut, sizeof cut));
  EXPECT_STREQ(cut, "ab");
  EXPECT_TRUE(r.Close());
}

TEST(SdfTest, FilesThatAreNotOfTheRightKindDoNotOpen) {
  Bytes const good = SampleFile();
  auto opens = [](Bytes const& file, std::uint32_t type = kType) {
    LInputStreamMemory in(file);
    Reader r;
    return r.Open(in, type);
  };
  EXPECT_TRUE(opens(good));
  EXPECT_FALSE(opens(good, 11));
  EXPECT_FALSE(opens(Bytes(good.begin(), good.begin() + 23)));
  // Magic, container version, root id, root type.
  for (auto [at, value] : {std::pair{0, 'L'}, {4, 2}, {12, 1}, {14, LSDFTypeBlob}}) {
    Bytes bad = good;
    bad[at] = static_cast<unsigned char>(value);
    EXPECT_FALSE(opens(bad)) << at;
  }

  // No trailer: it opens and walks, and fails on close.
  Bytes bad = good;
  bad.back() = 'X';
  LInputStreamMemory in(bad);
  Reader r;
  ASSERT_TRUE(r.Open(in, kType));
  EXPECT_EQ(Describe(r), kSample);
  EXPECT_TRUE(r.IsValid());
  EXPECT_FALSE(r.Close());
}

TEST(SdfTest, EveryPrefixOfAFileFailsCleanly) {
  // Nested containers and a foreign chunk, so a cut falls in every kind of place.
  LSDFUnknownChunkList foreign(1);
  foreign[0].wID = 0x7000;
  foreign[0].wType = LSDFTypeBlob;
  foreign[0].vData = {1, 2, 3};
  foreign[0].iPosition = 0;
  LOutputStreamMemory out;
  Writer w;
  ASSERT_TRUE(w.Open(out, kType, kVersion, foreign));
  WriteSample(w);
  ASSERT_TRUE(w.Close());
  Bytes const file = out.TakeData();
  std::size_t const rootEnd = file.size() - LSDFTrailerSize;

  for (std::size_t n = 0; n <= file.size(); ++n) {
    SCOPED_TRACE(n);
    Bytes const prefix(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(n));  // exact size for ASan
    LInputStreamMemory in(prefix);
    Reader r;
    if (!r.Open(in, kType)) {
      EXPECT_LT(n, LSDFFileHeaderSize + LSDFChunkHeaderSize);
      continue;
    }
    std::string const read = Describe(r);
    // Cut in the tree: the walk itself finds it; cut in the trailer: only Close.
    EXPECT_EQ(r.IsValid(), n >= rootEnd);
    if (n >= rootEnd) {
      EXPECT_EQ(read, "28672:x1.2.3. " + kSample);
    }
    EXPECT_EQ(r.Close(), n == file.size());
  }
}

TEST(SdfTest, HostileSizesEndTheWalkWithoutLargeAllocations) {
  auto walk = [](Bytes const& file, int& chunks) {
    LInputStreamMemory in(file);
    Reader r;
    EXPECT_TRUE(r.Open(in, kType));
    gLargestAllocation = 0;
    gWatchAllocations = true;
    chunks = 0;
    Describe(r, Iterator(r), chunks);
    gWatchAllocations = false;
    EXPECT_LT(gLargestAllocation.load(), 4096u);
    bool const valid = r.IsValid();
    EXPECT_FALSE(r.Close());
    return valid;
  };
  Bytes good;
  PutHeader(good, 1, LSDFTypeInt, 4);
  PutLE(good, 5, 4);
  for (std::uint64_t size : {std::uint64_t{1} << 62, ~std::uint64_t{0}, std::uint64_t{1} << 63,
                             std::uint64_t{0xFFFFFFF0}, std::uint64_t{100}}) {
    SCOPED_TRACE(size);
    Bytes body = good;
    PutHeader(body, 2, LSDFTypeBlob, size);
    body.insert(body.end(), 60, 0);
    int chunks = 0;
    EXPECT_FALSE(walk(FileAround(body), chunks));
    EXPECT_EQ(chunks, 1);  // the good chunk before it was read
    // With a root that claims as much, only the length of the file stands in the way.
    EXPECT_FALSE(walk(FileAround(body, std::uint64_t{1} << 62), chunks));
    EXPECT_EQ(chunks, 1);
  }

  // A child bigger than its parent, though the file holds its bytes.
  Bytes body;
  PutHeader(body, 1, LSDFTypeContainer, 12 + 4);
  PutHeader(body, 2, LSDFTypeBlob, 40);
  body.insert(body.end(), 40, 0);
  int chunks = 0;
  EXPECT_FALSE(walk(FileAround(body), chunks));
  EXPECT_EQ(chunks, 1);

  // A header that crosses the end of its container.
  body.clear();
  PutHeader(body, 1, LSDFTypeContainer, 6);
  PutHeader(body, 2, LSDFTypeBlob, 0);
  EXPECT_FALSE(walk(FileAround(body), chunks));

  // A root that claims far more than the file: its children are held to the file.
  EXPECT_FALSE(walk(FileAround(good, std::uint64_t{1} << 62), chunks));
  EXPECT_EQ(chunks, 1);
}

// What a newer writer made: foreign chunks at ordinals 0, 3 and the end, around
// the three chunks this program knows (ids 1 to 3).
void WriteNewer(Writer& w) {
  w.StartContainer(0x50);
  w.WriteInt(0x60, 1);
  w.EndContainer(0x50);
  w.WriteInt(1, 100);
  w.WriteString(2, "known");
  w.WriteBlob(0x51, "\x01\x02", 2);
  w.WriteFloat(3, 0.25f);
  w.WriteInt64(0x52, 99);
}

struct OldModel {
  std::int32_t iValue = 0;
  std::string szName;
  float fGain = 0;
  LSDFUnknownChunkList Unknown;

  void Load(Reader& r, Iterator it) {
    for (; it.IsValid(); it.Next()) {
      switch (it->GetChunkID()) {
        case 1: it->ReadInt(iValue); break;
        case 2: it->ReadString(szName); break;
        case 3: it->ReadFloat(fGain); break;
        default: EXPECT_TRUE(it->ReadUnknownChunk(Unknown));
      }
    }
    EXPECT_TRUE(r.IsValid());
  }
  void Save(Writer& w, std::vector<int> const& positions) const {
    w.WriteInt(1, iValue, positions[0]);
    w.WriteString(2, szName, positions[1]);
    w.WriteFloat(3, fGain, positions[2]);
  }
};

TEST(SdfTest, ForeignChunksGoBackToTheirPlaceInRootAndContainers) {
  LOutputStreamMemory newer;
  Writer w;
  ASSERT_TRUE(w.Open(newer, kType, kVersion));
  WriteNewer(w);
  w.StartContainer(9);
  WriteNewer(w);
  w.EndContainer(9);
  ASSERT_TRUE(w.Close());

  OldModel root, inner;
  LInputStreamMemory in(newer.GetData());
  Reader r;
  ASSERT_TRUE(r.Open(in, kType));
  Iterator it(r);
  root.Load(r, it);
  for (; it.IsValid() && it->GetChunkID() != 9; it.Next()) {
  }
  ASSERT_TRUE(it.IsValid());
  inner.Load(r, Iterator(r, *it));
  ASSERT_TRUE(r.Close());
  EXPECT_EQ(root.iValue, 100);
  EXPECT_EQ(root.szName, "known");
  ASSERT_EQ(root.Unknown.size(), 4u);  // 0x50, 0x51, 0x52 and the container 9
  EXPECT_EQ(root.Unknown[1].iPosition, 3);
  ASSERT_EQ(inner.Unknown.size(), 3u);

  // The nested container went through as the root's foreign chunk; save it by
  // hand here to try the placing inside a container too. Positions counted among
  // the known chunks only, or as the chunks stood in the file read, both give
  // back the file as it was.
  root.Unknown.pop_back();
  for (auto const& positions : {std::vector<int>{0, 1, 2, 3}, std::vector<int>{1, 2, 4, 6}}) {
    SCOPED_TRACE(positions[0]);
    LOutputStreamMemory again;
    Writer w2;
    ASSERT_TRUE(w2.Open(again, kType, kVersion, root.Unknown));
    root.Save(w2, positions);
    w2.StartContainer(9, inner.Unknown, positions[3]);
    inner.Save(w2, positions);
    w2.EndContainer(9);
    ASSERT_TRUE(w2.Close());
    EXPECT_EQ(again.GetData(), newer.GetData());
  }

  // Without positions the foreign chunks after the leading run wait for the end.
  LOutputStreamMemory loose;
  Writer w3;
  ASSERT_TRUE(w3.Open(loose, kType, kVersion, root.Unknown));
  w3.WriteInt(1, 100);
  w3.WriteString(2, "known");
  w3.WriteFloat(3, 0.25f);
  ASSERT_TRUE(w3.Close());
  LInputStreamMemory in3(loose.GetData());
  Reader r3;
  ASSERT_TRUE(r3.Open(in3, kType));
  EXPECT_EQ(Describe(r3), "80:{96:i1} 1:i100 2:s'known' 3:f0.250000 81:x1.2. 82:l99");
}

TEST(SdfTest, AWriterFailsOnceAndSaysSoAtClose) {
  Writer never;
  EXPECT_TRUE(never.Close());  // nothing was open, nothing lost

  LOutputStreamMemory out;
  Writer w;
  ASSERT_TRUE(w.Open(out, kType, kVersion));
  w.StartContainer(1);
  EXPECT_FALSE(w.EndContainer(2));  // not the chunk that is open
  std::size_t const size = out.GetData().size();
  EXPECT_FALSE(w.WriteInt(3, 3));
  EXPECT_EQ(out.GetData().size(), size);  // nothing more written after the failure
  EXPECT_FALSE(w.Close());

  LOutputStreamMemory unbalanced;
  ASSERT_TRUE(w.Open(unbalanced, kType, kVersion));
  w.StartChunk(1, LSDFTypeBlob);
  EXPECT_FALSE(w.Close());
  EXPECT_FALSE(w.WriteInt(1, 1));  // closed
}

class SdfFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    folder =
        fs::path(TANDREL_BINARY_DIR) / "sdf-scratch" / ::testing::UnitTest::GetInstance()->current_test_info()->name();
    fs::remove_all(folder);
    fs::create_directories(folder);
  }
  fs::path folder;
};

TEST_F(SdfFileTest, FileStreamsWriteTheSameBytesAsMemoryAndReadThemBack) {
  // A blob longer than the write buffer, so some sizes are patched in the file
  // and some in the buffer, and the reader crosses its buffer too.
  Bytes big(200000);
  for (std::size_t i = 0; i < big.size(); ++i) big[i] = static_cast<unsigned char>(i * 7);
  auto write = [&](auto& writer) {
    writer.StartContainer(1);
    for (int i = 0; i < 3000; ++i) writer.WriteInt(2, i);
    writer.WriteBlob(3, big.data(), big.size());
    writer.WriteString(4, "after");
    writer.EndContainer(1);
  };
  std::string const path = (folder / "a.tdpj").string();
  LOutputStreamFile file;
  ASSERT_TRUE(file.Open(path));
  LSDFWriter<LOutputStreamFile> fw;
  ASSERT_TRUE(fw.Open(file, kType, kVersion));
  write(fw);
  ASSERT_TRUE(fw.Close());
  ASSERT_TRUE(file.Close());

  LOutputStreamMemory memory;
  Writer mw;
  ASSERT_TRUE(mw.Open(memory, kType, kVersion));
  write(mw);
  ASSERT_TRUE(mw.Close());
  std::ifstream disk(path, std::ios::binary);
  EXPECT_EQ(Bytes(std::istreambuf_iterator<char>(disk), {}), memory.GetData());

  LInputStreamFile in;
  ASSERT_TRUE(in.Open(path));
  LSDFReader<LInputStreamFile> r;
  ASSERT_TRUE(r.Open(in, kType));
  LSDFReaderChunkIterator<LInputStreamFile> outer(r);
  ASSERT_TRUE(outer.IsValid());
  int ints = 0;
  for (LSDFReaderChunkIterator<LInputStreamFile> it(r, *outer); it.IsValid(); it.Next()) {
    if (it->GetChunkID() == 2) {
      std::int32_t v = -1;
      EXPECT_TRUE(it->ReadInt(v));
      EXPECT_EQ(v, ints++);
    } else if (it->GetChunkID() == 3) {
      Bytes data;
      EXPECT_TRUE(it->ReadData(data));
      EXPECT_TRUE(data == big);
    }
  }
  EXPECT_EQ(ints, 3000);
  EXPECT_FALSE(outer.Next());
  EXPECT_TRUE(r.Close());
}

// Stops at the poll after `stopAfter` polls, and keeps the progress reported.
class StopAfter : public LProcessInterfaceVoid {
 public:
  explicit StopAfter(int stopAfter) : iStopAfter(stopAfter) {}
  bool IsToStop() override { return iPolls++ >= iStopAfter; }
  void SetProgress(double done) override { vProgress.push_back(done); }
  int iStopAfter;
  int iPolls = 0;
  std::vector<double> vProgress;
};

TEST_F(SdfFileTest, AFileCopiedIntoABlobReportsProgressAndCanBeStopped) {
  Bytes content(10000);
  for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<unsigned char>(i % 251);
  std::string const path = (folder / "song.mid").string();
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<char const*>(content.data()), static_cast<std::streamsize>(content.size()));

  LOutputStreamMemory out;
  Writer w;
  ASSERT_TRUE(w.Open(out, kType, kVersion));
  w.WriteInt(1, 5);
  StopAfter never(1000);
  EXPECT_EQ(w.WriteBlob(never, 2, path, 3000), LProcessFinished);
  EXPECT_EQ(never.vProgress, (std::vector<double>{0.3, 0.6, 0.9, 1.0}));
  w.WriteString(3, "after");
  ASSERT_TRUE(w.Close());
  LInputStreamMemory in(out.GetData());
  Reader r;
  ASSERT_TRUE(r.Open(in, kType));
  Iterator it(r);
  ASSERT_TRUE(it.Next());
  Bytes data;
  EXPECT_TRUE(it->ReadData(data));
  EXPECT_TRUE(data == content);
  ASSERT_TRUE(it.Next());
  EXPECT_EQ(it->GetChunkID(), 3);
  EXPECT_TRUE(r.Close());

  // A stop or a missing file ends the writer.
  StopAfter soon(2);
  LOutputStreamMemory stopped;
  ASSERT_TRUE(w.Open(stopped, kType, kVersion));
  EXPECT_EQ(w.WriteBlob(soon, 2, path, 3000), LProcessStopped);
  EXPECT_EQ(soon.vProgress.size(), 2u);
  EXPECT_FALSE(w.Close());
  LOutputStreamMemory missing;
  ASSERT_TRUE(w.Open(missing, kType, kVersion));
  EXPECT_EQ(w.WriteBlob(never, 2, (folder / "none.mid").string(), 3000), LProcessFailed);
  EXPECT_FALSE(w.Close());
}

TEST_F(SdfFileTest, AFullDiskFailsTheClose) {
  if (!fs::exists("/dev/full")) GTEST_SKIP() << "no /dev/full";
  LOutputStreamFile file;
  ASSERT_TRUE(file.Open("/dev/full"));
  LSDFWriter<LOutputStreamFile> w;
  ASSERT_TRUE(w.Open(file, kType, kVersion));
  w.WriteString(1, "small enough to sit in the buffer until the end");
  EXPECT_FALSE(w.Close());

  LOutputStreamFile nowhere;
  EXPECT_FALSE(nowhere.Open((folder / "missing" / "x.tdpj").string()));
}

}  // namespace
