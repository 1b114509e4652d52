#pragma once
// Helpers of this folder's tests: the shared MP3 material, scratch files, the
// reference programs, and whole-file decoding.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "codecs/mp3_file.h"

inline std::string Mp3TestData(std::string const& name) {
  return std::string(TANDREL_TESTDATA_DIR) + "/mp3/" + name;
}

// A folder of its own for the running test, emptied when the test starts.
inline std::string Mp3ScratchFolder() {
  auto const* info = ::testing::UnitTest::GetInstance()->current_test_info();
  std::string name = std::string(info->test_suite_name()) + "." + info->name();
  for (char& c : name) {
    if (c == '/') c = '_';
  }
  std::filesystem::path const dir = std::filesystem::path(TANDREL_BINARY_DIR) / "codecs-test-scratch" / name;
  std::filesystem::remove_all(dir);
  std::filesystem::create_directories(dir);
  return dir.string();
}

inline std::vector<std::uint8_t> Mp3ReadBytes(std::string const& path) {
  std::ifstream in(path, std::ios::binary);
  return std::vector<std::uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

inline void Mp3WriteBytes(std::string const& path, std::uint8_t const* data, std::size_t size) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<char const*>(data), static_cast<std::streamsize>(size));
}

// Runs a shell command; true when it exits with 0.
inline bool Mp3Run(std::string const& command) { return std::system(command.c_str()) == 0; }

inline bool Mp3HaveProgram(char const* name) {
  return Mp3Run(std::string("command -v ") + name + " >/dev/null 2>&1");
}

// Reads `frames` frames from the source's present position as integers.
inline std::vector<std::int32_t> Mp3ReadInts(LMP3Source& source, int frames) {
  std::vector<std::int32_t> out(static_cast<std::size_t>(frames) * source.GetChannels());
  std::size_t at = 0;
  while (frames > 0) {
    int const n = frames < 3000 ? frames : 3000;  // not a multiple of any frame size
    source.Read(out.data() + at, n);
    at += static_cast<std::size_t>(n) * source.GetChannels();
    frames -= n;
  }
  return out;
}

// An integer sample rounded to 16 bits, as a 16-bit decoder would give it.
inline int Mp3To16(std::int32_t v) {
  long const r = std::lround(static_cast<double>(v) / 4096.0);
  return static_cast<int>(r < -32768 ? -32768 : (r > 32767 ? 32767 : r));
}
