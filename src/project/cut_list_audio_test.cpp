#include "project/cut_list_audio.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <random>
#include <set>
#include <tuple>
#include <vector>

#include "project/testing_cut_lists.h"

namespace {

// What one frame of a list plays: a frame of a file with a gain, or silence.
struct Frame {
  LAudioCutRef cut = LAudioCutRefNull;
  int fileFrame = 0;
  float gain = 1.0f;
  bool operator==(Frame const&) const = default;
};
using Frames = std::vector<Frame>;

Frames Flatten(LCutListAudio const& list) {
  Frames out;
  list.ForEachSegment([&](LCutListSegment const& s) {
    for (int i = 0; i < s.iLength; ++i) {
      out.push_back(s.IsSilence() ? Frame{} : Frame{s.GetCut(), s.iStart + i, s.fGain});
    }
  });
  return out;
}

Frames Silent(long n) { return Frames(static_cast<std::size_t>(std::max(0L, n))); }

// The edits as plain operations on frame vectors, written from what each one is
// meant to do, not from how the list does it.
void ModelInsert(Frames& m, long pos, Frames const& l) {
  long const end = static_cast<long>(m.size());
  if (pos < 0) {
    Frames head = l;
    Frames const gap = Silent(-pos);
    head.insert(head.end(), gap.begin(), gap.end());
    m.insert(m.begin(), head.begin(), head.end());
  } else if (pos >= end) {
    Frames const gap = Silent(pos - end);
    m.insert(m.end(), gap.begin(), gap.end());
    m.insert(m.end(), l.begin(), l.end());
  } else {
    m.insert(m.begin() + pos, l.begin(), l.end());
  }
}

void ModelInsertSilence(Frames& m, long pos, long len) {
  if (pos < 0) {
    if (len < -pos) return;
    len += pos;
    pos = 0;
  }
  long const end = static_cast<long>(m.size());
  if (pos > end) {
    len += pos - end;
    pos = end;
  }
  Frames const gap = Silent(len);
  m.insert(m.begin() + pos, gap.begin(), gap.end());
}

void ModelDelete(Frames& m, long s, long e) {
  if (s > e || e < 0) return;
  s = std::max(s, 0L);
  e = std::min(e, static_cast<long>(m.size()));
  if (s >= e) return;
  m.erase(m.begin() + s, m.begin() + e);
}

Frames ModelCopy(Frames const& m, long s, long e) {
  Frames out;
  for (long i = s; i < e; ++i) {
    out.push_back(i >= 0 && i < static_cast<long>(m.size()) ? m[static_cast<std::size_t>(i)] : Frame{});
  }
  return out;
}

std::vector<std::tuple<int, int, int>> Segments(LCutListAudio const& list) {
  std::vector<std::tuple<int, int, int>> out;
  list.ForEachSegment([&](LCutListSegment const& s) { out.emplace_back(s.GetCut(), s.iStart, s.iLength); });
  return out;
}

using CutListAudioTest = CutListTest;

TEST_F(CutListAudioTest, EditsAtTheEdgesOfTheList) {
  LCutListAudio list;
  LAudioCutRef const a = MakeKnownFile(list, 1, 1000, 1);
  using S = std::vector<std::tuple<int, int, int>>;

  list.EfDelete(100, 100);
  EXPECT_EQ(Segments(list), (S{{a, 0, 1000}}));
  list.EfDelete(-50, 100);  // from 0 to 100
  EXPECT_EQ(Segments(list), (S{{a, 100, 900}}));
  list.EfDelete(200, 100);  // reversed: nothing
  EXPECT_EQ(list.GetEndSample(), 900);

  LCutListAudio piece;
  list.EfCopy(0, 10, piece);
  LCutListAudio appended = list;
  appended.EfInsert(900, piece);  // exactly at the end: no silence
  EXPECT_EQ(Segments(appended), (S{{a, 100, 900}, {a, 100, 10}}));
  LCutListAudio beyond = list;
  beyond.EfInsert(910, piece);  // 10 beyond: a silence of 10 first
  EXPECT_EQ(Segments(beyond), (S{{a, 100, 900}, {LAudioCutRefNull, 0, 10}, {a, 100, 10}}));

  LCutListAudio lead;
  list.EfCopy(-10, 5, lead);
  EXPECT_EQ(Segments(lead), (S{{LAudioCutRefNull, 0, 10}, {a, 100, 5}}));
  EXPECT_EQ(lead.GetSampleRate(), list.GetSampleRate());

  list.EfSilence(10, 20);  // a hole in the middle, same length
  EXPECT_EQ(Segments(list), (S{{a, 100, 10}, {LAudioCutRefNull, 0, 10}, {a, 120, 880}}));
  EXPECT_EQ(LAudioCutTank::Instance().GetRefCount(a), 2 + 1 + 2 + 2 + 1);  // list, piece, appended, beyond, lead
}

TEST_F(CutListAudioTest, GainsMultiplyAndOneChangesNothing) {
  LCutListAudio list;
  MakeKnownFile(list, 1, 100, 2);
  list.EfAmplifyAll(50.0f);
  list.EfGainAll(1.0f);
  list.EfGainAll(3.0f);
  list.ForEachSegment([](LCutListSegment const& s) { EXPECT_FLOAT_EQ(s.fGain, 1.5f); });
}

// Thousands of random edits on lists sharing a few real files. After every edit
// each list plays exactly what a plain model of the edit says, the tank counts
// exactly the segments that name each file, and every named file is on disk.
// Dropping all lists at the end leaves exactly the preserved files.
TEST_F(CutListAudioTest, RandomEditsKeepContentsAndReferencesExact) {
  std::mt19937 rng(20261123);
  auto uniform = [&](long lo, long hi) { return std::uniform_int_distribution<long>(lo, hi)(rng); };

  constexpr int kLists = 5;
  std::vector<LCutListAudio> lists(kLists);
  std::vector<Frames> models(kLists);
  std::set<LAudioCutRef> files;
  for (int i = 0; i < kLists; ++i) {
    files.insert(MakeKnownFile(lists[static_cast<std::size_t>(i)], i + 1, static_cast<int>(uniform(20, 150)), 1));
    models[static_cast<std::size_t>(i)] = Flatten(lists[static_cast<std::size_t>(i)]);
  }
  ASSERT_EQ(files.size(), static_cast<std::size_t>(kLists));

  auto check = [&](int step) {
    std::map<LAudioCutRef, int> named;
    for (int i = 0; i < kLists; ++i) {
      ASSERT_EQ(Flatten(lists[static_cast<std::size_t>(i)]), models[static_cast<std::size_t>(i)])
          << "list " << i << " after step " << step;
      lists[static_cast<std::size_t>(i)].ForEachSegment([&](LCutListSegment const& s) {
        if (!s.IsSilence()) ++named[s.GetCut()];
      });
    }
    for (LAudioCutRef f : files) {
      ASSERT_EQ(LAudioCutTank::Instance().GetRefCount(f), named[f]) << "file " << f << " after step " << step;
      if (named[f] > 0) {
        ASSERT_TRUE(HasFiles(f)) << "file " << f << " gone while named, step " << step;
      }
    }
  };

  int mostSegments = 0;
  long framesSeen = 0;
  for (int step = 0; step < 4000; ++step) {
    for (LCutListAudio const& l : lists) mostSegments = std::max(mostSegments, l.GetSegmentCount());
    for (Frames const& m : models) framesSeen += static_cast<long>(m.size());
    std::size_t const a = static_cast<std::size_t>(uniform(0, kLists - 1));
    std::size_t const b = static_cast<std::size_t>(uniform(0, kLists - 1));
    LCutListAudio& list = lists[a];
    Frames& model = models[a];
    long const end = static_cast<long>(model.size());
    long p = uniform(-30, end + 30);
    long q = p + uniform(-10, 60);  // mostly short spans, as a user's edits are
    if (end > 1500) {  // keep the lists small enough to model frame by frame
      list.EfTrimEnd(200);
      ModelDelete(model, 200, end);
      check(step);
      continue;
    }
    int op = static_cast<int>(uniform(0, 60));
    if (op > 10) op %= 10;  // emptying a list (10) stays rare
    switch (op) {
      case 0: {
        Frames const other = models[b];
        list.EfInsert(static_cast<int>(p), lists[b]);
        ModelInsert(model, p, other);
        break;
      }
      case 1: {
        long const len = uniform(0, 40);
        list.EfInsertSilence(static_cast<int>(p), static_cast<int>(len));
        ModelInsertSilence(model, p, len);
        break;
      }
      case 2:
        list.EfDelete(static_cast<int>(p), static_cast<int>(q));
        ModelDelete(model, p, q);
        break;
      case 3:
        list.EfSilence(static_cast<int>(p), static_cast<int>(q));
        ModelDelete(model, p, q);
        ModelInsertSilence(model, p, q - p);
        break;
      case 4: {
        Frames const other = models[b];
        list.EfPasteOver(static_cast<int>(p), static_cast<int>(q), lists[b]);
        ModelDelete(model, p, q);
        ModelInsert(model, p, other);
        break;
      }
      case 5:
        q = p + uniform(-5, end);
        if (p <= q) {
          list.EfCopy(static_cast<int>(p), static_cast<int>(q), lists[b]);
          models[b] = ModelCopy(model, p, q);
        }
        break;
      case 6:
        p = end - uniform(-5, 30);
        list.EfTrimEnd(static_cast<int>(p));
        ModelDelete(model, p, end);
        break;
      case 7:
        p = uniform(-5, 30);
        list.EfTrimStart(static_cast<int>(p));
        if (p > 0) ModelDelete(model, 0, p);
        break;
      case 8: {
        float const g = uniform(0, 1) ? 0.5f : 2.0f;
        list.EfGainAll(g);
        for (Frame& f : model) {
          if (f.cut != LAudioCutRefNull) f.gain *= g;
        }
        break;
      }
      case 9:
        lists[b] = list;
        models[b] = model;
        break;
      default:
        lists[b].Clear();
        models[b].clear();
        break;
    }
    check(step);
    if (HasFailure()) return;
  }

  // The walk must have made long, fragmented lists, or it proved little.
  EXPECT_GT(mostSegments, 100);
  EXPECT_GT(framesSeen / 4000 / kLists, 200);

  // Keep what list 0 names, as a save would, and let everything else go.
  std::set<LAudioCutRef> kept;
  lists[0].ForEachSegment([&](LCutListSegment const& s) {
    if (!s.IsSilence()) kept.insert(s.GetCut());
  });
  lists[0].DisallowCacheDelete();
  lists.clear();
  std::set<LAudioCutRef> onDisk;
  for (auto const& entry : std::filesystem::directory_iterator(folder)) {
    if (entry.path().extension() == ".aud") {
      onDisk.insert(static_cast<LAudioCutRef>(std::stoi(entry.path().stem().string())));
      EXPECT_TRUE(std::filesystem::exists(GrfPath(static_cast<LAudioCutRef>(std::stoi(entry.path().stem().string())))));
    }
  }
  EXPECT_EQ(onDisk, kept);
  for (LAudioCutRef f : files) EXPECT_EQ(LAudioCutTank::Instance().GetRefCount(f), 0);
}

TEST_F(CutListAudioTest, InsertingAListIntoItselfDoublesIt) {
  LCutListAudio list;
  LAudioCutRef const a = MakeKnownFile(list, 1, 50, 1);
  list.EfInsert(20, list);
  Frames const f = Flatten(list);
  ASSERT_EQ(f.size(), 100u);
  EXPECT_EQ(f[19].fileFrame, 19);
  EXPECT_EQ(f[20].fileFrame, 0);
  EXPECT_EQ(f[69].fileFrame, 49);
  EXPECT_EQ(f[70].fileFrame, 20);
  EXPECT_EQ(LAudioCutTank::Instance().GetRefCount(a), list.GetSegmentCount());
  list.EfPasteOver(0, 100, list);
  EXPECT_EQ(Flatten(list), f);
}

}  // namespace
