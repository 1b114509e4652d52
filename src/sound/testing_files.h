#pragma once
// Scratch files, crafted headers and the shared test material, for this folder's
// tests of file sources and sinks only.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <string>
#include <vector>

// A folder of its own for the running test, emptied when the test starts:
// <build>/sound-test-scratch/<Suite>.<Test>.
inline std::string ScratchFolder() {
  auto const* info = ::testing::UnitTest::GetInstance()->current_test_info();
  std::string name = std::string(info->test_suite_name()) + "." + info->name();
  for (char& c : name) {
    if (c == '/') c = '_';
  }
  std::filesystem::path const dir = std::filesystem::path(TANDREL_BINARY_DIR) / "sound-test-scratch" / name;
  std::filesystem::remove_all(dir);
  std::filesystem::create_directories(dir);
  return dir.string();
}

inline std::string TestDataPcm(std::string const& relative) {
  return std::string(TANDREL_TESTDATA_DIR) + "/pcm/" + relative;
}

inline void WriteFileBytes(std::string const& path, std::vector<std::uint8_t> const& bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<char const*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

inline std::vector<std::uint8_t> ReadFileBytes(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<std::uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Builds a file image field by field.
struct ByteImage {
  std::vector<std::uint8_t> b;

  ByteImage& Tag(char const* fourcc) {
    for (int i = 0; i < 4; ++i) b.push_back(static_cast<std::uint8_t>(fourcc[i]));
    return *this;
  }
  ByteImage& LE16(std::uint32_t v) {
    for (int i = 0; i < 2; ++i) b.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
    return *this;
  }
  ByteImage& LE32(std::uint32_t v) {
    for (int i = 0; i < 4; ++i) b.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
    return *this;
  }
  ByteImage& BE16(std::uint32_t v) {
    b.push_back(static_cast<std::uint8_t>(v >> 8));
    b.push_back(static_cast<std::uint8_t>(v));
    return *this;
  }
  ByteImage& BE32(std::uint32_t v) {
    for (int i = 3; i >= 0; --i) b.push_back(static_cast<std::uint8_t>(v >> (8 * i)));
    return *this;
  }
  ByteImage& Bytes(std::initializer_list<std::uint8_t> v) {
    b.insert(b.end(), v.begin(), v.end());
    return *this;
  }
  ByteImage& Fill(std::size_t n, std::uint8_t v) {
    b.insert(b.end(), n, v);
    return *this;
  }
  std::size_t Size() const { return b.size(); }
  void SaveTo(std::string const& path) const { WriteFileBytes(path, b); }
};

// A canonical WAV image: "RIFF", a 16-byte "fmt " and a data chunk holding `body`.
inline ByteImage PlainWav(int tag, int channels, std::uint32_t rate, int blockAlign, int bits,
                          std::vector<std::uint8_t> const& body) {
  ByteImage w;
  w.Tag("RIFF").LE32(static_cast<std::uint32_t>(36 + body.size())).Tag("WAVE");
  w.Tag("fmt ").LE32(16).LE16(static_cast<std::uint32_t>(tag)).LE16(static_cast<std::uint32_t>(channels)).LE32(rate);
  w.LE32(rate * static_cast<std::uint32_t>(blockAlign)).LE16(static_cast<std::uint32_t>(blockAlign));
  w.LE16(static_cast<std::uint32_t>(bits));
  w.Tag("data").LE32(static_cast<std::uint32_t>(body.size()));
  w.b.insert(w.b.end(), body.begin(), body.end());
  return w;
}
