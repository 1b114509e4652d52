// Encoder programs behind pipes: missing ones, dying ones, stops, and what comes back.
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <thread>

#include "foundation/testing_process.h"
#include "sound/components.h"
#include "sound/encoder_sinks.h"
#include "sound/pipe_sink.h"
#include "sound/source_to_sink.h"
#include "sound/testing_files.h"
#include "sound/testing_programs.h"
#include "sound/testing_sources.h"
#include "sound/wave_file.h"
#include "sound/pcm_file.h"

namespace {

LSoundSource Constant(int rate, int channels, int frames) {
  return LSoundSource::Make<LTestFunctionSource>(rate, channels, frames, [](int, int) { return 0.25f; });
}

LPRSourceToSink CopyJob(LSoundSource const& source, LSoundSink const& sink) {
  LPRSourceToSink copy;
  copy.lssSource = source;
  copy.lsnkSink = sink;
  return copy;
}

TEST(EncoderComponents, AMissingProgramSaysWhichPackageBringsIt) {
  std::string const dir = ScratchFolder();
  LTestFakePrograms none(dir);  // PATH holds only an empty folder

  struct Case {
    char const* component;
    char const* extension;
    char const* package;
  };
  for (Case const& c : {Case{"mp3el2", ".mp3", "lame"}, Case{"oggenc2", ".ogg", "vorbis-tools"},
                        Case{"flaccodec", ".flac", "flac"}, Case{"mpcenc2", ".mpc", "musepack-tools"},
                        Case{"speexenc2", ".spx", "speex"}}) {
    std::string path = "stale";
    LTestProcessRecorder pi;
    EXPECT_FALSE(LComponentGetPathDownload(pi, c.component, path, c.extension)) << c.component;
    EXPECT_TRUE(path.empty());
    ASSERT_EQ(pi.Errors().size(), 1u);
    EXPECT_EQ(pi.Errors()[0], std::string("Tandrel Multitrack Recorder could not locate a plugin for the file with "
                                          "extension \"") +
                                  c.extension + "\". Install the Debian package \"" + c.package + "\" and try again.");
  }
  // Each sink of a missing program is an error sink, and no file is begun.
  EXPECT_TRUE(OpenMp3Sink(dir + "/a.mp3", 44100, 2, {})->IsError());
  EXPECT_TRUE(OpenOggSink(dir + "/a.ogg", 44100, 2, {}, nullptr)->IsError());
  EXPECT_TRUE(OpenFlacSink(dir + "/a.flac", 44100, 2, {}, nullptr)->IsError());
  EXPECT_TRUE(OpenMPCSink(dir + "/a.mpc", 44100, 2, {}, nullptr)->IsError());
  EXPECT_TRUE(OpenSpeexSink(dir + "/a.spx", 44100, 2, nullptr)->IsError());
  EXPECT_TRUE(OpenRSSSink(dir + "/a.rss", 44100, 2, {}, nullptr)->IsError());
  for (char const* name : {"a.mp3", "a.ogg", "a.flac", "a.mpc", "a.spx", "a.rss"}) {
    EXPECT_FALSE(LFile::Exists(dir + "/" + name)) << name;
  }

  // The encoders of the linked FFmpeg need no program.
  std::string path;
  EXPECT_TRUE(LComponentGetPath("aacenc4", path));
  EXPECT_TRUE(LComponentGetPath("ffmpeg3", path));
  EXPECT_FALSE(LComponentGetPath("no-such-component", path));
}

TEST(EncoderComponents, ProgramsAreFoundOnPathAndOnlyThere) {
  std::string const dir = ScratchFolder();
  LTestFakePrograms fake(dir);
  fake.Add("flac", "exit 0");
  std::string path;
  ASSERT_TRUE(LComponentGetPath("flaccodec", path));
  EXPECT_EQ(path, dir + "/flac");
  // A file that may not be run is no program.
  std::ofstream(dir + "/lame") << "#!/bin/sh\n";
  EXPECT_FALSE(LComponentGetPath("mp3el2", path));
  ::setenv("PATH", "", 1);
  EXPECT_FALSE(LComponentGetPath("flaccodec", path));
}

// An encoder that dies early makes the copy fail at its next write: nothing waits
// for a reader that is gone, however much is left to copy.
TEST(EncoderPipes, AnEncoderThatDiesFailsTheJobWithoutHanging) {
  std::string const dir = ScratchFolder();
  LTestFakePrograms fake(dir);
  fake.Add("lame", "head -c 20000 >/dev/null\nexit 1");
  LSoundSink sink = OpenMp3Sink(dir + "/out.mp3", 44100, 2, {});
  ASSERT_FALSE(sink->IsError());

  // Ten minutes: far more than the pipe holds.
  LPRSourceToSink copy = CopyJob(Constant(44100, 2, 44100 * 600), sink);
  LTestProcessRecorder pi;
  auto const start = std::chrono::steady_clock::now();
  EXPECT_EQ(Process(pi, copy), LProcessFailed);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
  EXPECT_TRUE(sink->IsError());
  EXPECT_LT(sink->GetPositionSample(), 44100 * 60);
  EXPECT_FALSE(sink->Finish());
}

TEST(EncoderPipes, AnEncoderThatFailsAtTheEndFailsTheFinish) {
  std::string const dir = ScratchFolder();
  LTestFakePrograms fake(dir);
  fake.Add("flac", "cat >/dev/null\nexit 3");
  LSoundSink sink = OpenFlacSink(dir + "/out.flac", 44100, 2, {}, nullptr);
  LPRSourceToSink copy = CopyJob(Constant(44100, 2, 44100), sink);
  LTestProcessRecorder pi;
  EXPECT_EQ(Process(pi, copy), LProcessFinished);  // every write went through
  EXPECT_FALSE(sink->Finish());
  EXPECT_TRUE(sink->IsError());
}

TEST(EncoderPipes, AStoppedCopyLeavesNoEncoderRunning) {
  std::string const dir = ScratchFolder();
  LTestFakePrograms fake(dir);
  fake.Add("oggenc", "cat >/dev/null");
  auto* pipe = new LPipe16Sink("oggenc", 44100, 2);
  LSoundSink sink(pipe);
  pid_t const pid = pipe->GetPid();
  ASSERT_GT(pid, 0);
  LPRSourceToSink copy = CopyJob(Constant(44100, 2, 44100 * 60), sink);
  LTestProcessRecorder pi;
  int polls = 0;
  pi.onIsToStop = [&] {
    if (++polls == 3) pi.soStop.Set();
  };
  EXPECT_EQ(Process(pi, copy), LProcessStopped);
  copy.lsnkSink.Close();
  sink.Close();  // the last handle: the pipe closes and the program is waited for or killed
  EXPECT_NE(::kill(pid, 0), 0);
}

// An encoder that writes to its standard output: what it writes lands in the target
// byte for byte, and what it says on its standard error comes back for a message.
TEST(EncoderPipes, WhatAnEncoderGivesBackIsTheFile) {
  std::string const dir = ScratchFolder();
  std::string const target = dir + "/out.bin";
  LSoundEncoderPipeSink* pipeSink = new LSoundEncoderPipeSink("sh -c \"echo working >&2; cat\"", target, 8000, 1);
  LSoundSink sink(pipeSink);
  ASSERT_FALSE(sink->IsError());
  std::vector<float> samples = {0.0f, 0.5f, -0.5f, 1.0f, -1.0f};
  // Many blocks, so that the program's output must be drained while we write.
  for (int i = 0; i < 4000; ++i) sink->Write(samples.data(), 5);
  EXPECT_TRUE(sink->Finish());
  std::vector<std::uint8_t> const bytes = ReadFileBytes(target);
  ASSERT_EQ(bytes.size(), 4000u * 5 * 2);
  auto at = [&](std::size_t i) { return static_cast<std::int16_t>(bytes[2 * i] | (bytes[2 * i + 1] << 8)); };
  EXPECT_EQ(at(0), 0);
  EXPECT_EQ(at(1), 16384);
  EXPECT_EQ(at(2), -16384);
  EXPECT_EQ(at(3), 32767);
  EXPECT_EQ(at(19999), -32767);
  std::vector<unsigned char> info;
  pipeSink->GetPipe().GetExtraInfo(info);
  EXPECT_EQ(std::string(info.begin(), info.end()), "working\n");

  LSoundEncoderPipe failing;
  ASSERT_TRUE(failing.Open("sh -c \"cat >/dev/null; echo broken >&2; exit 2\"", dir + "/none.bin"));
  EXPECT_TRUE(failing.WriteSound("abcd", 4));
  EXPECT_FALSE(failing.EndOfStream());
  EXPECT_TRUE(failing.IsFinished());
}

TEST(EncoderPipes, MusepackGetsAWaveHeadOfUnknownLength) {
  std::vector<std::uint8_t> const head = LMakeStreamingWavHead(48000, 2);
  ASSERT_EQ(head.size(), 44u);
  std::string const dir = ScratchFolder();
  WriteFileBytes(dir + "/h.wav", head);
  LFile file;
  ASSERT_TRUE(file.OpenRead(dir + "/h.wav"));
  LWavHeader header;
  // Our own reader takes it as a file whose length is not known yet.
  ASSERT_EQ(LWavReadHeader(file, header), 0);
  EXPECT_EQ(header.iTag, 1);
  EXPECT_EQ(header.iChannels, 2);
  EXPECT_EQ(header.uSampleRate, 48000u);
  EXPECT_EQ(header.iBits, 16);
  EXPECT_GE(header.uDataSize, LPCMUnknownSizeFrom);
}

}  // namespace
