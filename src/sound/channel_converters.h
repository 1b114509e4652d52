#pragma once
#include <memory>

#include "sound/sound_source.h"

// Channel order throughout the program: 0 front left, 1 front right, 2 centre,
// 3 low-frequency effects, 4 and 5 the surround pair, 6 and 7 the rear pair of 7.1.
// None of the converters clips; a down-mix raises the peak bound by its largest sum
// of factors so that the player knows to limit.

// Base of the channel converters: reads the source into its own block of
// LSoundMaxReadFrames frames and lets the derived class write the converted frames.
class LSRCConvChannels : public LSoundProcessBase {
 public:
  void Read(float* buffer, int frames) final;

 protected:
  // `inputChannels` is what the formula needs (0: any). A source of another count
  // gives error state 3, and reads give silence rather than a read past the frame.
  LSRCConvChannels(LSoundSource const& source, int channels, int inputChannels, float gain);
  virtual void Convert(float const* in, float* out, int frames) const = 0;

  int nInChans;

 private:
  std::unique_ptr<float[]> pBuffer;
};

// 1 -> 2: the sample on both sides.
class LSRCConvMonoStereo : public LSRCConvChannels {
 public:
  explicit LSRCConvMonoStereo(LSoundSource const& source);
  void Convert(float const* in, float* out, int frames) const override;
};

// 4 -> 2: L = (s0+s2)/2, R = (s1+s3)/2.
class LSRCConvChannelsQuadStereo : public LSRCConvChannels {
 public:
  explicit LSRCConvChannelsQuadStereo(LSoundSource const& source);
  void Convert(float const* in, float* out, int frames) const override;
};

// 6 -> 2: L = s0 + (s2+s4)*0.7071 + s3*0.5, R = s1 + (s2+s5)*0.7071 + s3*0.5.
class LSRCConvChannels51Stereo : public LSRCConvChannels {
 public:
  explicit LSRCConvChannels51Stereo(LSoundSource const& source);
  void Convert(float const* in, float* out, int frames) const override;
};

// 8 -> 2: L = s0 + (s2+s4)*0.7071 + (s3+s6)*0.5, R = s1 + (s2+s5)*0.7071 + (s3+s7)*0.5.
class LSRCConvChannels71Stereo : public LSRCConvChannels {
 public:
  explicit LSRCConvChannels71Stereo(LSoundSource const& source);
  void Convert(float const* in, float* out, int frames) const override;
};

// 8 -> 6: s0..s3 as they are, o4 = (s4+s6)*0.7071, o5 = (s5+s7)*0.7071.
class LSRCConvChannels71To51 : public LSRCConvChannels {
 public:
  explicit LSRCConvChannels71To51(LSoundSource const& source);
  void Convert(float const* in, float* out, int frames) const override;
};

// 2 -> 1: (s0+s1)/2.
class LSRCConvStereoMono : public LSRCConvChannels {
 public:
  explicit LSRCConvStereoMono(LSoundSource const& source);
  void Convert(float const* in, float* out, int frames) const override;
};

// 6 -> 1: (s0+s1+s3+(s4+s5)*0.7071)/2 + s2*0.7071.
class LSRCConvChannels51Mono : public LSRCConvChannels {
 public:
  explicit LSRCConvChannels51Mono(LSoundSource const& source);
  void Convert(float const* in, float* out, int frames) const override;
};

// 8 -> 1: (s0+s1+s3+(s6+s7)*0.5+(s4+s5)*0.7071)/2 + s2*0.7071.
class LSRCConvChannels71Mono : public LSRCConvChannels {
 public:
  explicit LSRCConvChannels71Mono(LSoundSource const& source);
  void Convert(float const* in, float* out, int frames) const override;
};

// Any -> 1: the mean of all channels.
class LSRCConvChannelsNMono : public LSRCConvChannels {
 public:
  explicit LSRCConvChannelsNMono(LSoundSource const& source);
  void Convert(float const* in, float* out, int frames) const override;
};

// Any -> any: output channel c takes input channel c modulo the input count, so a
// widening repeats the input's channels from the first on.
class LSRCConvChannelsN : public LSRCConvChannels {
 public:
  LSRCConvChannelsN(LSoundSource const& source, int channels);
  void Convert(float const* in, float* out, int frames) const override;
};

// Brings a source to a channel count by the converter that fits the pair of counts.
class LSPConvChannels {
 public:
  explicit LSPConvChannels(int channels) : nChans(channels) {}
  int GetChannels() const { return nChans; }

  // A source in error, a source or target of 0 channels, or equal counts: the
  // source comes back as it is.
  LSoundSource OpenSource(LSoundSource const& source) const;

 private:
  int nChans;
};
