#include "project/cut_list_load_save.h"

#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "foundation/byte_order.h"
#include "sound/source_to_sink.h"

std::int64_t LFreeSpaceOfVolume(char const* path) {
  struct statvfs info {};
  if (::statvfs(path, &info) != 0) return -1;
  return static_cast<std::int64_t>(info.f_bavail) * static_cast<std::int64_t>(info.f_frsize);
}

LProcessResult Process(LProcessInterface& pi, LCutListAudioLoadSource& job) {
  if (job.pList == nullptr) return LProcessFailed;
  LCutListAudio& list = *job.pList;
  list.SetErrorText(std::string());
  LSoundSource const& source = job.lssSource;
  if (source->IsError()) return LProcessFailed;

  std::string folder = LAudioCutTank::Instance().GetWorkingFolder();
  struct stat st {};
  if (folder.empty() || ::stat(folder.c_str(), &st) != 0) folder.assign(1, '/');
  std::int64_t const frames =
      std::max<std::int64_t>(0, static_cast<std::int64_t>(source->GetEndSample()) - source->GetPositionSample());
  // Twice the float data: room for the file and for what the program writes next.
  std::int64_t const needed = frames * source->GetChannels() * 8;
  std::int64_t const free = LFreeSpaceOfVolume(folder.c_str());
  if (free >= 0 && free < needed) {
    list.SetErrorText(LCutListNoSpaceText);
    return LProcessFailed;
  }

  LSoundSink sink = list.OpenSink(source->GetSampleRate(), source->GetChannels());
  if (sink->IsError()) {
    sink.Close();
    list.SetErrorText(LCutListNoAccessText);
    return LProcessFailed;
  }
  LPRSourceToSink copy;
  copy.szTitle = job.szTitle;
  copy.lssSource = source;
  copy.lsnkSink = sink;
  LProcessResult const result = Process(pi, copy);
  // The list is set when the sink's last handle goes.
  copy.lsnkSink.Close();
  sink.Close();
  return result;
}

// ---- the chunk forms ----

namespace {

constexpr int kPollEverySegments = 256;

template <class Stream>
bool ReadIntChunk(LSDFReaderChunk<Stream>& chunk, int& value) {
  std::int32_t v = 0;
  if (!chunk.ReadInt(v)) return false;
  value = v;
  return true;
}

template <class Stream>
LProcessResult LoadSegment(LSDFReader<Stream>& reader, LSDFReaderChunk<Stream> const& container,
                           LCutListSegment& seg) {
  float gain = 1.0f;
  std::int32_t fixed = 0;
  for (LSDFReaderChunkIterator<Stream> it(reader, container); it.IsValid(); it.Next()) {
    bool ok = true;
    switch (it->GetChunkID()) {
      case LCutListChunk::Cut: {
        std::int32_t cut = 0;
        ok = it->ReadInt(cut);
        if (ok) seg.SetCut(static_cast<LAudioCutRef>(cut));
        break;
      }
      case LCutListChunk::Start:
        ok = ReadIntChunk(*it, seg.iStart);
        break;
      case LCutListChunk::Length:
        ok = ReadIntChunk(*it, seg.iLength);
        break;
      case LCutListChunk::GainFixed:
        ok = it->ReadInt(fixed);
        break;
      case LCutListChunk::Gain:
        ok = it->ReadFloat(gain);
        break;
      default:
        ok = it->ReadUnknownChunk(seg.lUnknown);
        break;
    }
    if (!ok) return LProcessFailed;
  }
  if (!reader.IsValid()) return LProcessFailed;
  // Files from before the float gain carry only the fixed one.
  seg.fGain = (gain == 1.0f && fixed != 0) ? static_cast<float>(fixed) * 5.9604645e-8f : gain;
  if (seg.iLength < 0) seg.iLength = 0;
  return LProcessFinished;
}

}  // namespace

template <class Stream>
LProcessResult ProcessSaveCutListAudioLink(LProcessInterface& pi, LSDFWriter<Stream>& writer, std::uint16_t id,
                                           LCutListAudio const& list) {
  writer.StartContainer(id, list.GetUnknownChunks());
  int position = 0;
  writer.WriteInt(LCutListChunk::SampleRate, list.GetSampleRate(), position++);
  writer.WriteInt(LCutListChunk::Channels, list.GetChannels(), position++);
  bool stopped = false;
  int n = 0;
  list.ForEachSegment([&](LCutListSegment const& s) {
    if (stopped || !writer.IsOk()) return;
    if (++n % kPollEverySegments == 0 && pi.IsToStop()) {
      stopped = true;
      return;
    }
    writer.StartContainer(LCutListChunk::Segment, s.lUnknown, position++);
    writer.WriteInt(LCutListChunk::Cut, s.GetCut(), 0);
    writer.WriteInt(LCutListChunk::Start, s.iStart, 1);
    writer.WriteInt(LCutListChunk::Length, s.iLength, 2);
    writer.WriteFloat(LCutListChunk::Gain, s.fGain, 3);
    writer.WriteInt(LCutListChunk::GainFixed, static_cast<std::int32_t>(static_cast<double>(s.fGain) * 16777216.0),
                    4);
    writer.EndContainer(LCutListChunk::Segment);
  });
  if (stopped) return LProcessStopped;
  writer.EndContainer(id);
  return writer.IsOk() ? LProcessFinished : LProcessFailed;
}

template <class Stream>
LProcessResult ProcessLoadCutListAudioLink(LProcessInterface& pi, LSDFReader<Stream>& reader,
                                           LSDFReaderChunk<Stream> const& container, LCutListAudio& list) {
  list = LCutListAudio();
  int n = 0;
  for (LSDFReaderChunkIterator<Stream> it(reader, container); it.IsValid(); it.Next()) {
    if (++n % kPollEverySegments == 0 && pi.IsToStop()) return LProcessStopped;
    bool ok = true;
    switch (it->GetChunkID()) {
      case LCutListChunk::SampleRate: {
        int rate = 0;
        ok = ReadIntChunk(*it, rate);
        if (ok) list.SetSampleRate(rate);
        break;
      }
      case LCutListChunk::Channels: {
        int channels = 0;
        ok = ReadIntChunk(*it, channels);
        if (ok) list.SetChannels(channels);
        break;
      }
      case LCutListChunk::Segment: {
        if (it->GetChunkType() != LSDFTypeContainer) {
          ok = it->ReadUnknownChunk(list.GetUnknownChunks());
          break;
        }
        LCutListSegment seg;
        if (LoadSegment(reader, *it, seg) != LProcessFinished) return LProcessFailed;
        list.AppendSegment(std::move(seg));
        break;
      }
      default:
        ok = it->ReadUnknownChunk(list.GetUnknownChunks());
        break;
    }
    if (!ok) return LProcessFailed;
  }
  return reader.IsValid() ? LProcessFinished : LProcessFailed;
}

template <class Stream>
LProcessResult ProcessLoadCutListAudioLink(LProcessInterface& pi, LSDFReaderChunkIterator<Stream>& it,
                                           LCutListAudio& list) {
  list = LCutListAudio();
  auto next = [&](int& value) {
    if (!it.IsValid() || !ReadIntChunk(*it, value)) return false;
    it.Next();
    return true;
  };
  int rate = 0;
  int channels = 0;
  int count = 0;
  if (!next(rate) || !next(channels) || !next(count) || count < 0) return LProcessFailed;
  list.SetSampleRate(rate);
  list.SetChannels(channels);
  // The count is only believed as far as chunks follow, so a hostile number can
  // cost no more than the file itself.
  for (int i = 0; i < count; ++i) {
    if ((i + 1) % kPollEverySegments == 0 && pi.IsToStop()) return LProcessStopped;
    int cut = 0;
    int start = 0;
    int length = 0;
    int fixed = 0;
    if (!next(cut) || !next(start) || !next(length) || !next(fixed)) return LProcessFailed;
    LCutListSegment seg(static_cast<LAudioCutRef>(cut), start, std::max(length, 0),
                        static_cast<float>(fixed) * 5.9604645e-8f);
    list.AppendSegment(std::move(seg));
  }
  return LProcessFinished;
}

namespace {

template <class Stream>
LProcessResult LoadStoredAudio(LProcessInterface& pi, Stream& stream, LCutListAudio& list, bool integers) {
  unsigned char head[9];
  if (!stream.Read(head, sizeof head)) return LProcessFailed;
  std::int32_t const rate = static_cast<std::int32_t>(LReadLE32(head));
  int const channels = head[4];
  std::int32_t const frames = static_cast<std::int32_t>(LReadLE32(head + 5));
  if (rate < 1 || channels < 1 || frames < 0) return LProcessFailed;
  std::int64_t const bytes = static_cast<std::int64_t>(frames) * channels * 4;
  // A count beyond what the file holds is damage, found before anything is made.
  if (bytes > stream.Size() - stream.Tell()) return LProcessFailed;

  LSoundSink sink = list.OpenSink(rate, channels);
  if (sink->IsError()) {
    list.SetErrorText(LCutListNoAccessText);
    return LProcessFailed;
  }
  constexpr int kBlock = 8192;
  std::vector<float> block(static_cast<std::size_t>(kBlock) * channels);
  std::vector<std::uint8_t> raw(block.size() * 4);
  LProcessResult result = LProcessFinished;
  for (std::int32_t done = 0; done < frames;) {
    if (pi.IsToStop()) {
      result = LProcessStopped;
      break;
    }
    int const n = std::min<std::int32_t>(kBlock, frames - done);
    std::size_t const count = static_cast<std::size_t>(n) * channels;
    bool const ok = stream.Read(raw.data(), count * 4);
    for (std::size_t i = 0; ok && i < count; ++i) {
      std::uint32_t const word = LReadLE32(&raw[i * 4]);
      if (integers) {
        block[i] = static_cast<float>(static_cast<std::int32_t>(word) * (1.0 / 2147483648.0));
      } else {
        std::memcpy(&block[i], &word, 4);
      }
    }
    if (!ok) {
      result = LProcessFailed;
      break;
    }
    sink->Write(block.data(), n);
    if (sink->IsError()) {
      result = LProcessFailed;
      break;
    }
    done += n;
    pi.SetProgress(static_cast<double>(done) / frames);
  }
  sink.Close();
  return result;
}

}  // namespace

template <class Stream>
LProcessResult ProcessLoadCutListAudio(LProcessInterface& pi, Stream& stream, LCutListAudio& list) {
  return LoadStoredAudio(pi, stream, list, false);
}

template <class Stream>
LProcessResult ProcessLoadCutListAudioFromLegacyInt(LProcessInterface& pi, Stream& stream, LCutListAudio& list) {
  return LoadStoredAudio(pi, stream, list, true);
}

#define TANDREL_CUT_LIST_STREAMS(In, Out)                                                                         \
  template LProcessResult ProcessSaveCutListAudioLink<Out>(LProcessInterface&, LSDFWriter<Out>&, std::uint16_t, \
                                                           LCutListAudio const&);                               \
  template LProcessResult ProcessLoadCutListAudioLink<In>(LProcessInterface&, LSDFReader<In>&,                  \
                                                          LSDFReaderChunk<In> const&, LCutListAudio&);          \
  template LProcessResult ProcessLoadCutListAudioLink<In>(LProcessInterface&, LSDFReaderChunkIterator<In>&,     \
                                                          LCutListAudio&);                                      \
  template LProcessResult ProcessLoadCutListAudio<In>(LProcessInterface&, In&, LCutListAudio&);                 \
  template LProcessResult ProcessLoadCutListAudioFromLegacyInt<In>(LProcessInterface&, In&, LCutListAudio&);

TANDREL_CUT_LIST_STREAMS(LInputStreamFile, LOutputStreamFile)
TANDREL_CUT_LIST_STREAMS(LInputStreamMemory, LOutputStreamMemory)
