#include "sound/pipe_sink.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include "foundation/byte_order.h"
#include "sound/sample_formats.h"

std::vector<std::uint8_t> LMakeStreamingWavHead(int rate, int channels) {
  std::vector<std::uint8_t> h(44, 0);
  auto put32 = [&](std::size_t at, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) h[at + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(v >> (8 * i));
  };
  auto put16 = [&](std::size_t at, std::uint32_t v) {
    h[at] = static_cast<std::uint8_t>(v);
    h[at + 1] = static_cast<std::uint8_t>(v >> 8);
  };
  auto tag = [&](std::size_t at, char const* t) {
    for (int i = 0; i < 4; ++i) h[at + static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(t[i]);
  };
  std::uint32_t const block = static_cast<std::uint32_t>(channels) * 2;
  tag(0, "RIFF");
  put32(4, 0xFFFFFFFFu);
  tag(8, "WAVE");
  tag(12, "fmt ");
  put32(16, 16);
  put16(20, 1);
  put16(22, static_cast<std::uint32_t>(channels));
  put32(24, static_cast<std::uint32_t>(rate));
  put32(28, static_cast<std::uint32_t>(rate) * block);
  put16(32, block);
  put16(34, 16);
  tag(36, "data");
  put32(40, 0xFFFFFFFFu);
  return h;
}

// ---------------------------------------------------------------------------

LPipe16Sink::LPipe16Sink(std::string const& commandLine, int rate, int channels,
                         std::vector<std::uint8_t> const& head)
    : LSoundSinkBase(rate, channels), vBuffer(static_cast<std::size_t>(LSoundMaxReadFrames) * nChans) {
  if (IsError()) return;
  if (!pipe._Open(commandLine) || (!head.empty() && !LPipeWriteAll(pipe.InFd(), head.data(), head.size()))) {
    uErrorFlags |= LSoundSinkErrorFailed;
  }
}

LPipe16Sink::~LPipe16Sink() { Finish(); }

void LPipe16Sink::Write(float const* buffer, int frames) {
  if (frames <= 0 || IsError() || bFinished) return;
  sPosition += frames;
  while (frames > 0) {
    int const n = frames < LSoundMaxReadFrames ? frames : LSoundMaxReadFrames;
    int const samples = n * nChans;
    ConvertSamplesOut(vBuffer.data(), buffer, samples);
    if (!LPipeWriteAll(pipe.InFd(), vBuffer.data(), static_cast<std::size_t>(samples) * 2)) {
      uErrorFlags |= LSoundSinkErrorFailed;
      return;
    }
    buffer += samples;
    frames -= n;
  }
}

bool LPipe16Sink::Finish() {
  if (bFinished) return !IsError();
  bFinished = true;
  if (pipe.GetPid() <= 0) return false;
  pipe.CloseIn();
  int code = pipe.Wait(LEncoderFinishTimeoutMs);
  if (code < 0) {
    pipe.Kill();
    code = -1;
  }
  if (code != 0) uErrorFlags |= LSoundSinkErrorFailed;
  return !IsError();
}

// ---------------------------------------------------------------------------

LSoundEncoderPipe::~LSoundEncoderPipe() {
  if (pipe.GetPid() > 0 && !bEnded) {
    // Abandoned: the output is not wanted any more.
    pipe.CloseIn();
    pipe.Kill();
  }
  if (tDrain.joinable()) tDrain.join();
}

bool LSoundEncoderPipe::Open(std::string const& commandLine, std::string const& targetPath) {
  if (pipe.GetPid() > 0) return false;
  if (!lfTarget.OpenCreate(targetPath)) return false;
  if (!pipe._Open(commandLine, 1 << 16, 1 << 16)) {
    lfTarget.Close();
    LFile::Remove(targetPath);
    return false;
  }
  tDrain = std::thread([this] { Drain(); });
  return true;
}

void LSoundEncoderPipe::Drain() {
  pollfd fds[2] = {{pipe.OutFd(), POLLIN, 0}, {pipe.ErrFd(), POLLIN, 0}};
  std::vector<char> buf(1 << 16);
  int open = 2;
  while (open > 0) {
    if (::poll(fds, 2, -1) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    for (int i = 0; i < 2; ++i) {
      if (fds[i].fd < 0 || fds[i].revents == 0) continue;
      ssize_t const n = ::read(fds[i].fd, buf.data(), buf.size());
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) {
        fds[i].fd = -1;
        --open;
        continue;
      }
      if (i == 0) {
        if (!bTargetFailed.load() && lfTarget.Write(buf.data(), static_cast<std::size_t>(n)) != n) {
          bTargetFailed.store(true);
        }
      } else {
        std::lock_guard<std::mutex> lock(mtxInfo);
        // A page of messages is plenty to say what went wrong.
        if (vInfo.size() < 4096) vInfo.insert(vInfo.end(), buf.data(), buf.data() + n);
      }
    }
  }
  bDrained.store(true);
}

bool LSoundEncoderPipe::WriteSound(void const* data, unsigned long bytes) {
  if (bEnded || pipe.GetPid() <= 0) return false;
  return LPipeWriteAll(pipe.InFd(), data, bytes);
}

bool LSoundEncoderPipe::EndOfStream() {
  if (bEnded) return bResult;
  bEnded = true;
  if (pipe.GetPid() <= 0) return false;
  pipe.CloseIn();
  int code = pipe.Wait(LEncoderFinishTimeoutMs);
  if (code < 0) {
    pipe.Kill();
    code = -1;
  }
  // The child's end of the output is closed now, so the drain ends.
  if (tDrain.joinable()) tDrain.join();
  bResult = code == 0 && !bTargetFailed.load();
  lfTarget.Close();
  return bResult;
}

void LSoundEncoderPipe::GetExtraInfo(std::vector<unsigned char>& info) {
  std::lock_guard<std::mutex> lock(mtxInfo);
  info = vInfo;
}

// ---------------------------------------------------------------------------

LSoundEncoderPipeSink::LSoundEncoderPipeSink(std::string const& commandLine, std::string const& targetPath, int rate,
                                             int channels)
    : LSoundSinkBase(rate, channels), vBuffer(static_cast<std::size_t>(LSoundMaxReadFrames) * nChans) {
  if (IsError()) return;
  if (!pipe.Open(commandLine, targetPath)) uErrorFlags |= LSoundSinkErrorFailed;
}

LSoundEncoderPipeSink::~LSoundEncoderPipeSink() { Finish(); }

void LSoundEncoderPipeSink::Write(float const* buffer, int frames) {
  if (frames <= 0 || IsError() || bFinished) return;
  sPosition += frames;
  while (frames > 0) {
    int const n = frames < LSoundMaxReadFrames ? frames : LSoundMaxReadFrames;
    int const samples = n * nChans;
    ConvertSamplesOut(vBuffer.data(), buffer, samples);
    if (!pipe.WriteSound(vBuffer.data(), static_cast<unsigned long>(samples) * 2)) {
      uErrorFlags |= LSoundSinkErrorFailed;
      return;
    }
    buffer += samples;
    frames -= n;
  }
}

bool LSoundEncoderPipeSink::Finish() {
  if (bFinished) return !IsError();
  bFinished = true;
  if (pipe.GetPid() <= 0) return false;
  if (!pipe.EndOfStream()) uErrorFlags |= LSoundSinkErrorFailed;
  return !IsError();
}

// ---------------------------------------------------------------------------

LMp3EncodeSinkPipe::LMp3EncodeSinkPipe(LSoundSink inner, std::string targetPath)
    : LSoundSinkBase(inner->GetSampleRate(), inner->GetChannels()),
      lsnkInner(std::move(inner)),
      szTargetPath(std::move(targetPath)) {
  uErrorFlags = lsnkInner->GetErrorFlags();
}

LMp3EncodeSinkPipe::~LMp3EncodeSinkPipe() {
  // AfterFinish belongs to a derived part that is gone by now; only the encoder is
  // completed here.
  if (!bFinished) lsnkInner->Finish();
}

void LMp3EncodeSinkPipe::Write(float const* buffer, int frames) {
  if (bFinished) return;
  lsnkInner->Write(buffer, frames);
  sPosition = lsnkInner->GetPositionSample();
  uErrorFlags = lsnkInner->GetErrorFlags();
}

bool LMp3EncodeSinkPipe::Finish() {
  if (bFinished) return bResult;
  bFinished = true;
  bResult = lsnkInner->Finish();
  uErrorFlags = lsnkInner->GetErrorFlags();
  if (bResult && !AfterFinish()) {
    uErrorFlags |= LSoundSinkErrorFailed;
    bResult = false;
  }
  return bResult;
}
