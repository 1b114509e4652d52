#pragma once
// A data folder of its own for each cut list test, and files of known content.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "project/audio_cut_tank.h"
#include "project/cut_list_audio.h"

// Empties <build>/project-test-scratch/<Suite>.<Test>, makes it the tank's working
// folder with every count at zero, and leaves the tank empty again at the end.
class CutListTest : public ::testing::Test {
 protected:
  void SetUp() override {
    auto const* info = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string name = std::string(info->test_suite_name()) + "." + info->name();
    for (char& c : name) {
      if (c == '/') c = '_';
    }
    folder = (std::filesystem::path(TANDREL_BINARY_DIR) / "project-test-scratch" / name).string();
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    LAudioCutTank::Instance().Reset();
    LAudioCutTank::Instance().SetWorkingFolder(folder);
  }
  void TearDown() override { LAudioCutTank::Instance().Reset(); }

  std::string AudPath(LAudioCutRef n) const { return folder + "/" + std::to_string(n) + ".aud"; }
  std::string GrfPath(LAudioCutRef n) const { return folder + "/" + std::to_string(n) + ".grf"; }
  bool HasFiles(LAudioCutRef n) const {
    return std::filesystem::exists(AudPath(n)) && std::filesystem::exists(GrfPath(n));
  }

  std::string folder;
};

// The sample a test file holds at `frame` of `channel`: distinct for every file,
// frame and channel, and exact in float.
inline float KnownSample(int fileTag, int frame, int channel) {
  return static_cast<float>(fileTag * 100000 + frame * 4 + channel) / 16777216.0f;
}

// Writes a new file pair of `frames` known samples through the list's own sink;
// the list becomes one segment over it. Returns the file's number.
inline LAudioCutRef MakeKnownFile(LCutListAudio& list, int fileTag, int frames, int channels, int rate = 44100) {
  LSoundSink sink = list.OpenSink(rate, channels);
  EXPECT_FALSE(sink->IsError());
  std::vector<float> block(static_cast<std::size_t>(frames) * channels);
  for (int f = 0; f < frames; ++f) {
    for (int c = 0; c < channels; ++c) block[static_cast<std::size_t>(f) * channels + c] = KnownSample(fileTag, f, c);
  }
  sink->Write(block.data(), frames);
  sink.Close();
  LAudioCutRef cut = LAudioCutRefNull;
  list.ForEachSegment([&](LCutListSegment const& s) { cut = s.GetCut(); });
  return cut;
}
