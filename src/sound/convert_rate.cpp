#include "sound/convert_rate.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <new>
#include <numbers>
#include <numeric>

#include "sound/audio_buffer.h"

namespace {

constexpr std::size_t kTableAlign = 64;  // a phase's taps start on a cache line

// The modified Bessel function I0 by its power series, cut after seven terms as the
// window needs no more: sum of (x^2 / 4)^k / (k!)^2 for k = 0..6.
double BesselI0(double x) {
  double const u = x * x;
  double term = 1.0;
  double sum = 1.0;
  for (int k = 1; k <= 6; ++k) {
    term *= u / (4.0 * k * k);
    sum += term;
  }
  return sum;
}

// Division rounding down, also for a negative numerator (positions before 0).
std::int64_t FloorDiv(std::int64_t a, std::int64_t b) {
  std::int64_t q = a / b;
  if ((a % b != 0) && ((a < 0) != (b < 0))) --q;
  return q;
}

std::int64_t CeilDiv(std::int64_t a, std::int64_t b) {
  return -FloorDiv(-a, b);
}

int ClampToInt(std::int64_t v) {
  return static_cast<int>(std::clamp<std::int64_t>(v, INT_MIN, INT_MAX));
}

// Spreads `frames` interleaved frames into the channel planes at `at`.
void Deinterleave(float const* in, int frames, int channels, float* planes, std::size_t planeStride, int at) {
  if (channels == 1) {
    std::memcpy(planes + at, in, sizeof(float) * static_cast<std::size_t>(frames));
    return;
  }
  if (channels == 2) {
    float* l = planes + at;
    float* r = planes + planeStride + at;
    for (int f = 0; f < frames; ++f) {
      l[f] = in[2 * f];
      r[f] = in[2 * f + 1];
    }
    return;
  }
  for (int c = 0; c < channels; ++c) {
    float* p = planes + c * planeStride + at;
    for (int f = 0; f < frames; ++f) p[f] = in[static_cast<std::size_t>(f) * channels + c];
  }
}

void ZeroPlanes(float* planes, std::size_t planeStride, int channels, int at, int frames) {
  for (int c = 0; c < channels; ++c) {
    std::memset(planes + c * planeStride + at, 0, sizeof(float) * static_cast<std::size_t>(frames));
  }
}

// Moves frames [from, held) of every plane to the front.
void ShiftPlanes(float* planes, std::size_t planeStride, int channels, int from, int held) {
  if (from <= 0) return;
  for (int c = 0; c < channels; ++c) {
    float* p = planes + c * planeStride;
    std::memmove(p, p + from, sizeof(float) * static_cast<std::size_t>(held - from));
  }
}

// Output frames that the input held can make, from `index` and `phase` on: the
// filter of each must lie within the `held` frames.
std::int64_t OutputsAvailable(int held, int taps, int index, int phase, int up, int down) {
  std::int64_t const spare = static_cast<std::int64_t>(held) - taps - index;
  if (spare < 0) return 0;
  return ((spare + 1) * up - phase - 1) / down + 1;
}

}  // namespace

void LConvertRateBase::AlignedFree::operator()(float* p) const {
  ::operator delete[](p, std::align_val_t(kTableAlign));
}

void LConvertRateBase::ChooseRatio(int in, int out, bool approximate, int& up, int& down) {
  int const g = std::gcd(in, out);
  up = out / g;
  down = in / g;
  // An exact ratio with few phases is better than any approximation.
  if (up <= 255 || (!approximate && up <= MaxExactPhases)) return;
  double const ratio = static_cast<double>(in) / out;
  int best = 1;
  double bestError = HUGE_VAL;
  for (int l = 1; l <= 255; ++l) {
    double const m = std::round(ratio * l);
    double const error = std::fabs(ratio - m / l);
    if (error < bestError) {
      bestError = error;
      best = l;
    }
    if (error < 0.00001) break;
  }
  up = best;
  down = std::max(1, static_cast<int>(std::round(ratio * best)));
}

LConvertRateBase::LConvertRateBase(int in, int out, int taps, bool narrow, bool approximate)
    : iTaps(taps), iStride((taps + 15) / 16 * 16) {
  in = std::max(in, 1);
  out = std::max(out, 1);
  ChooseRatio(in, out, approximate, iUp, iDown);
  // Beyond this a frame's filter would skip more input than it spans.
  if (iDown > 64 * iUp) return;

  // Kaiser-windowed sinc, in units of input frames. Going down, the cut-off sits
  // under the new Nyquist frequency by a guard band that the window's transition
  // fits in; going up, just under the old one, with a stronger window.
  double c;
  double beta;
  if (in >= out) {
    c = static_cast<double>(out) / in - (narrow ? 0.09375 : 0.046875);
    // A first stage of a large step down has a cut-off so low that the guard band
    // would swallow it; the stage after it cuts the band properly.
    c = std::max(c, 0.5 * out / in);
    beta = 4.538;
  } else {
    c = 0.975;
    beta = 5.6;
  }
  double const gain = c;
  double const a = std::numbers::pi * c;
  int const h = taps / 2;
  double const i0Beta = BesselI0(beta);
  double const edge = static_cast<double>(h + 1) * (h + 1);

  std::size_t const count = static_cast<std::size_t>(iUp) * iStride;
  pTable.reset(
      static_cast<float*>(::operator new[](sizeof(float) * count, std::align_val_t(kTableAlign), std::nothrow)));
  if (!pTable) return;
  std::fill_n(pTable.get(), count, 0.0f);
  float bound = 0.0f;
  for (int p = 0; p < iUp; ++p) {
    float* row = pTable.get() + static_cast<std::size_t>(p) * iStride;
    float sum = 0.0f;
    for (int j = 0; j < taps; ++j) {
      double const x = (j - h) - static_cast<double>(p) / iUp;
      double v;
      if (x == 0.0) {
        v = gain;
      } else {
        double const window = BesselI0(beta * std::sqrt(1.0 - x * x / edge)) / i0Beta;
        v = std::sin(a * x) / (a * x) * gain * window;
      }
      row[j] = static_cast<float>(v);
      sum += std::fabs(row[j]);
    }
    bound = std::max(bound, sum);
  }
  fGainBound = bound;
}

// --- LSRCConvertRate -----------------------------------------------------------

LSRCConvertRate::LSRCConvertRate(LSoundSource const& source, int rate, bool approximate)
    : LSoundProcessBase(source),
      LConvertRateBase(source->GetSampleRate(), rate < 1 ? 44100 : rate, Taps, false, approximate) {
  if (rate < 1) {
    sSampleRate = 44100;
    uErrorState = LSoundErrorParameters;
  } else {
    sSampleRate = rate;
  }
  // Ringing of the filter can take a sample past its source's bound; a bound of
  // "unknown" stays as it is.
  if (fPeakBound <= 8.0f) fPeakBound = std::min(fPeakBound * fGainBound, LSoundPeakUnknown);
  if (!HasTable()) {
    if (uErrorState == LSoundErrorNone) uErrorState = LSoundErrorParameters;
    return;
  }
  pKernel = LRateKernelFor(LRateKernelBest(), nChans, iStride);
  // One vector past the buffer, for the zero taps of the last filter's whole vectors.
  iPlaneStride = static_cast<std::size_t>(BufferFrames + iStride + 15) / 16 * 16;
  pInput.reset(new (std::nothrow) float[iPlaneStride * nChans]());
  pScratch.reset(new (std::nothrow) float[static_cast<std::size_t>(LSoundMaxReadFrames) * nChans]);
  if (!pKernel || !pInput || !pScratch) {
    uErrorState = LSoundErrorFailed;
    return;
  }
  // Start where the source stands, without seeking it (a live source may not
  // seek): at the first output frame at or after it, with silence as the history.
  std::int64_t const start = lssSource->GetPositionSample();
  std::int64_t const frame = CeilDiv(start * iUp, iDown);
  std::int64_t const centre = FloorDiv(frame * iDown, iUp);
  iBufferStart = start - Taps / 2;
  iZerosPending = Taps / 2;
  iHeld = 0;
  iIndex = static_cast<int>(centre - start);
  iPhase = static_cast<int>(frame * iDown - centre * iUp);
}

void LSRCConvertRate::Restart(std::int64_t frame, bool seekSource) {
  std::int64_t const q = FloorDiv(frame, iUp);
  std::int64_t const r = frame - q * iUp;
  std::int64_t const centre = q * iDown + (iDown * r) / iUp;
  std::int64_t const first = centre - Taps / 2;
  iPhase = static_cast<int>((iDown * r) % iUp);
  iBufferStart = first;
  iHeld = 0;
  iIndex = 0;
  // Before input frame 0 there is only silence; whatever a source would say about
  // negative positions is not asked.
  iZerosPending = first < 0 ? -first : 0;
  if (seekSource) lssSource->Seek(ClampToInt(std::max<std::int64_t>(first, 0)));
}

void LSRCConvertRate::Fill(std::int64_t upTo) {
  if (upTo > BufferFrames) {
    int const shift = std::min(iIndex, iHeld);
    ShiftPlanes(pInput.get(), iPlaneStride, nChans, shift, iHeld);
    iBufferStart += shift;
    iHeld -= shift;
    iIndex -= shift;
    upTo = std::min<std::int64_t>(upTo - shift, BufferFrames);
  }
  while (iHeld < upTo) {
    int const n = static_cast<int>(std::min<std::int64_t>(upTo - iHeld, LSoundMaxReadFrames));
    if (iZerosPending > 0) {
      int const z = static_cast<int>(std::min<std::int64_t>(n, iZerosPending));
      ZeroPlanes(pInput.get(), iPlaneStride, nChans, iHeld, z);
      iZerosPending -= z;
      iHeld += z;
      continue;
    }
    lssSource->Read(pScratch.get(), n);
    Deinterleave(pScratch.get(), n, nChans, pInput.get(), iPlaneStride, iHeld);
    iHeld += n;
  }
}

void LSRCConvertRate::Read(float* buffer, int frames) {
  if (frames <= 0) return;
  if (IsError()) {
    LZeroFrames(buffer, frames, nChans);
    return;
  }
  LRateKernelArgs const args{pTable.get(), pInput.get(), iPlaneStride, nChans, iUp, iDown / iUp, iDown % iUp};
  int left = frames;
  while (left > 0) {
    std::int64_t const ready = OutputsAvailable(iHeld, Taps, iIndex, iPhase, iUp, iDown);
    if (ready > 0) {
      int const k = static_cast<int>(std::min<std::int64_t>(left, ready));
      pKernel(args, buffer, k, iIndex, iPhase);
      buffer += static_cast<std::size_t>(k) * nChans;
      left -= k;
      continue;
    }
    // Read as far as the rest of this request needs, and no further.
    std::int64_t const lastStart = iIndex + (iPhase + static_cast<std::int64_t>(left - 1) * iDown) / iUp;
    Fill(lastStart + Taps);
  }
}

int LSRCConvertRate::GetPositionSample() const {
  if (!HasTable()) return lssSource->GetPositionSample();
  std::int64_t const centre = iBufferStart + iIndex + Taps / 2;
  return ClampToInt(FloorDiv(centre * iUp + iPhase, iDown));
}

int LSRCConvertRate::GetEndSample() const {
  std::int64_t end = lssSource->GetEndSample();
  // While the source grows, only frames whose filter lies wholly in what is there
  // count: reading further would take silence for input that is still to come.
  if (lssSource->IsStreaming()) end -= Taps / 2;
  return ClampToInt(CeilDiv(end * iUp, iDown));
}

void LSRCConvertRate::Seek(int frame) {
  if (!HasTable()) return;
  Restart(frame, true);
}

int LSRCConvertRate::AdjustRelativeOffset(int offset, int position) {
  if (!HasTable()) return lssSource->AdjustRelativeOffset(offset, position);
  std::int64_t const from = FloorDiv(std::int64_t{position} * iDown, iUp);
  std::int64_t const to = FloorDiv((std::int64_t{position} + offset) * iDown, iUp);
  int const below = lssSource->AdjustRelativeOffset(ClampToInt(to - from), ClampToInt(from));
  // Only what the stages below moved the target by is converted back, so that an
  // offset nothing folds comes back exactly as it went.
  std::int64_t const moved = from + below - to;
  if (moved == 0) return offset;
  std::int64_t const back = moved >= 0 ? (moved * iUp + iDown / 2) / iDown : -((-moved * iUp + iDown / 2) / iDown);
  return ClampToInt(std::int64_t{offset} + back);
}

bool LSRCConvertRate::ControlMessage(int code, long* value) {
  if (value == nullptr) return false;
  return lssSource->ControlMessage(code, value);
}

LSoundSource LSPConvertRate::OpenSource(LSoundSource const& source) const {
  if (source->IsError() || source->GetSampleRate() == iRate) return source;
  LSoundSource s = source;
  // One 63-tap filter has too little length to cut a band far below its input's;
  // halving the last step keeps the final filter's guard band narrow.
  if (iRate >= 1 && (source->GetSampleRate() >> 2) > iRate) {
    s = LSoundSource::Make<LSRCConvertRate>(s, 2 * iRate, bApproximate);
  }
  return LSoundSource::Make<LSRCConvertRate>(s, iRate, bApproximate);
}

// --- LSinkConvertRateBase ------------------------------------------------------

LSinkConvertRateBase::LSinkConvertRateBase(LSoundSink const& sink, int rate, bool narrow, bool approximate)
    : LSoundSinkBase(rate, sink->GetChannels()),
      LConvertRateBase(rate < 1 ? 44100 : rate, sink->GetSampleRate(), Taps, narrow, approximate),
      lsnkSink(sink) {
  if (sink->IsError() || !HasTable()) uErrorFlags |= LSoundSinkErrorFailed;
  if (IsError()) return;
  pKernel = LRateKernelFor(LRateKernelBest(), nChans, iStride);
  iPlaneStride = static_cast<std::size_t>(BufferFrames + iStride + 15) / 16 * 16;
  pInput.reset(new (std::nothrow) float[iPlaneStride * nChans]());
  pOutput.reset(new (std::nothrow) float[static_cast<std::size_t>(LSoundMaxReadFrames) * nChans]);
  if (!pKernel || !pInput || !pOutput) {
    uErrorFlags |= LSoundSinkErrorFailed;
    return;
  }
  Restart();
}

LSinkConvertRateBase::~LSinkConvertRateBase() {
  Flush();
}

void LSinkConvertRateBase::Restart() {
  // Silence as the history of the first frame's filter.
  iHeld = Taps / 2;
  ZeroPlanes(pInput.get(), iPlaneStride, nChans, 0, iHeld);
  iIndex = 0;
  iPhase = 0;
  iOutFrames = 0;
  iInputFrames = 0;
  iOutputFrames = 0;
}

void LSinkConvertRateBase::WriteOut() {
  if (iOutFrames == 0) return;
  lsnkSink->Write(pOutput.get(), iOutFrames);
  iOutFrames = 0;
  if (lsnkSink->IsError()) uErrorFlags |= LSoundSinkErrorFailed;
}

void LSinkConvertRateBase::Produce(std::int64_t maxOutputs) {
  LRateKernelArgs const args{pTable.get(), pInput.get(), iPlaneStride, nChans, iUp, iDown / iUp, iDown % iUp};
  for (;;) {
    std::int64_t const ready =
        std::min(OutputsAvailable(iHeld, Taps, iIndex, iPhase, iUp, iDown), maxOutputs - iOutputFrames);
    if (ready <= 0) return;
    int const k = static_cast<int>(std::min<std::int64_t>(ready, LSoundMaxReadFrames - iOutFrames));
    pKernel(args, pOutput.get() + static_cast<std::size_t>(iOutFrames) * nChans, k, iIndex, iPhase);
    iOutFrames += k;
    iOutputFrames += k;
    if (iOutFrames == LSoundMaxReadFrames) WriteOut();
  }
}

void LSinkConvertRateBase::Write(float const* buffer, int frames) {
  if (frames <= 0 || IsError()) return;
  sPosition += frames;
  iInputFrames += frames;
  while (frames > 0) {
    if (iHeld == BufferFrames) {
      // Everything that could be made has been: only the last filter's frames are
      // still needed.
      int const shift = std::min(iIndex, iHeld);
      ShiftPlanes(pInput.get(), iPlaneStride, nChans, shift, iHeld);
      iHeld -= shift;
      iIndex -= shift;
    }
    int const n = std::min(frames, BufferFrames - iHeld);
    Deinterleave(buffer, n, nChans, pInput.get(), iPlaneStride, iHeld);
    iHeld += n;
    buffer += static_cast<std::size_t>(n) * nChans;
    frames -= n;
    Produce(INT64_MAX);
  }
  WriteOut();
}

void LSinkConvertRateBase::Flush() {
  if (IsError() || iInputFrames == 0) return;
  // The frames whose time lies before the end of the input, their filters reaching
  // into silence past it.
  std::int64_t const total = CeilDiv(iInputFrames * iUp, iDown);
  int const pad = Taps / 2 + 1;
  if (iHeld + pad > BufferFrames) {
    int const shift = std::min(iIndex, iHeld);
    ShiftPlanes(pInput.get(), iPlaneStride, nChans, shift, iHeld);
    iHeld -= shift;
    iIndex -= shift;
  }
  ZeroPlanes(pInput.get(), iPlaneStride, nChans, iHeld, pad);
  iHeld += pad;
  Produce(total);
  WriteOut();
  Restart();
}

void LSinkConvertRateBase::Seek(int frame) {
  if (IsError()) return;
  Flush();
  sPosition = frame;
  lsnkSink->Seek(ClampToInt(CeilDiv(static_cast<std::int64_t>(frame) * iUp, iDown)));
}

LSoundSink LSinkConvertRate::OpenSink(LSoundSink const& sink, bool narrow) const {
  if (sink->IsError() || sink->GetSampleRate() == iRate) return sink;
  return LSoundSink::Make<LSinkConvertRateBase>(sink, iRate, narrow, bApproximate);
}
