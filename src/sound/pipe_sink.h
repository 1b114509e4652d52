#pragma once
#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "foundation/external_process.h"
#include "foundation/file.h"
#include "sound/sample_formats.h"
#include "sound/sound_sink.h"
#include "sound/sound_source.h"

// Sinks that hand their sound to an encoder program through a pipe, as signed 16-bit
// little-endian samples.
//
// A program that dies makes the next write fail with EPIPE (SIGPIPE is ignored), the
// sink sets its error bit and the copy job stops with result 2; nothing waits on a
// dead reader. Finish (or the destructor) closes the pipe, which is the program's
// end of stream, and waits for it to finish the file; a non-zero exit status is a
// failure too.

// The 44-byte head of a WAV stream whose length is not known: sizes 0xFFFFFFFF. For
// encoders that read only WAV from their standard input.
std::vector<std::uint8_t> LMakeStreamingWavHead(int rate, int channels);

// How long an encoder may take to finish after its input has ended before it is
// killed as hung.
inline constexpr int LEncoderFinishTimeoutMs = 60000;

// The encoder writes the target file itself.
class LPipe16Sink : public LSoundSinkBase {
 public:
  // Starts `commandLine` with a pipe to its standard input and writes `head` there
  // first. A program that cannot be started gives the error bit at once.
  LPipe16Sink(std::string const& commandLine, int rate, int channels, std::vector<std::uint8_t> const& head = {});
  ~LPipe16Sink() override;

  void Write(float const* buffer, int frames) override;
  bool Finish() override;

  pid_t GetPid() const { return pipe.GetPid(); }

 private:
  LPipeOut pipe;
  std::vector<LSF16> vBuffer;  // LSoundMaxReadFrames frames
  bool bFinished = false;
};

// A two-way pipe to an encoder that gives its result back on its standard output:
// a thread of its own drains that output into the target file (and the program's
// standard error into a note), so the encoder never blocks on a full pipe while we
// write to it. Writing the target ourselves means a full disk is seen here, not
// guessed from an exit status.
class LSoundEncoderPipe {
 public:
  LSoundEncoderPipe() = default;
  ~LSoundEncoderPipe();
  LSoundEncoderPipe(LSoundEncoderPipe const&) = delete;
  LSoundEncoderPipe& operator=(LSoundEncoderPipe const&) = delete;

  // Creates (or truncates) `targetPath` and starts the encoder.
  bool Open(std::string const& commandLine, std::string const& targetPath);
  // False once the encoder has gone or the target cannot take more.
  bool WriteSound(void const* data, unsigned long bytes);
  // Closes the encoder's input and waits until it has ended and all it wrote is in
  // the target. True when it exited with status 0 and every byte was written.
  bool EndOfStream();
  // The encoder has ended and its output has been drained.
  bool IsFinished() const { return bDrained.load(); }
  // What the encoder said on its standard error, for a failure message.
  void GetExtraInfo(std::vector<unsigned char>& info);
  pid_t GetPid() const { return pipe.GetPid(); }

 private:
  void Drain();

  LPipeInOut pipe;
  LFile lfTarget;
  std::thread tDrain;
  std::atomic<bool> bDrained{false};
  std::atomic<bool> bTargetFailed{false};
  std::mutex mtxInfo;
  std::vector<unsigned char> vInfo;
  bool bEnded = false;
  bool bResult = false;
};

// A sink over an LSoundEncoderPipe, for encoders that write to their standard output.
class LSoundEncoderPipeSink : public LSoundSinkBase {
 public:
  LSoundEncoderPipeSink(std::string const& commandLine, std::string const& targetPath, int rate, int channels);
  ~LSoundEncoderPipeSink() override;

  void Write(float const* buffer, int frames) override;
  bool Finish() override;

  LSoundEncoderPipe& GetPipe() { return pipe; }

 private:
  LSoundEncoderPipe pipe;
  std::vector<LSF16> vBuffer;
  bool bFinished = false;
};

// The MP3 sink: an LPipe16Sink that also keeps the target's path, for what is done
// to the file once it is complete (tags, a feed). Write goes through; position and
// error bit are copied from the inner sink after each write.
class LMp3EncodeSinkPipe : public LSoundSinkBase {
 public:
  LMp3EncodeSinkPipe(LSoundSink inner, std::string targetPath);
  ~LMp3EncodeSinkPipe() override;

  void Write(float const* buffer, int frames) override;
  bool Finish() override;

  std::string const& GetTargetPath() const { return szTargetPath; }

 protected:
  // Runs once the encoder has finished the file successfully.
  virtual bool AfterFinish() { return true; }

 private:
  LSoundSink lsnkInner;
  std::string szTargetPath;
  bool bFinished = false;
  bool bResult = false;
};
