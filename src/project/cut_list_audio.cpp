#include "project/cut_list_audio.h"

#include <algorithm>
#include <climits>

// ---- LCutListSegment ----

LCutListSegment::LCutListSegment(LAudioCutRef number, int start, int length, float gain)
    : iStart(start), iLength(length), fGain(gain), cut(number) {
  LAudioCutTank::Instance().IncRef(cut);
}

LCutListSegment LCutListSegment::Adopt(LAudioCutRef number, int start, int length, float gain) {
  LCutListSegment s;
  s.cut = number;
  s.iStart = start;
  s.iLength = length;
  s.fGain = gain;
  return s;
}

LCutListSegment::LCutListSegment(LCutListSegment const& other)
    : iStart(other.iStart), iLength(other.iLength), fGain(other.fGain), lUnknown(other.lUnknown), cut(other.cut) {
  LAudioCutTank::Instance().IncRef(cut);
}

LCutListSegment::LCutListSegment(LCutListSegment&& other) noexcept
    : iStart(other.iStart),
      iLength(other.iLength),
      fGain(other.fGain),
      lUnknown(std::move(other.lUnknown)),
      cut(std::exchange(other.cut, LAudioCutRefNull)) {}

LCutListSegment& LCutListSegment::operator=(LCutListSegment const& other) {
  if (this != &other) {
    SetCut(other.cut);
    iStart = other.iStart;
    iLength = other.iLength;
    fGain = other.fGain;
    lUnknown = other.lUnknown;
  }
  return *this;
}

LCutListSegment& LCutListSegment::operator=(LCutListSegment&& other) noexcept {
  if (this != &other) {
    LAudioCutTank::Instance().DecRef(cut);
    cut = std::exchange(other.cut, LAudioCutRefNull);
    iStart = other.iStart;
    iLength = other.iLength;
    fGain = other.fGain;
    lUnknown = std::move(other.lUnknown);
  }
  return *this;
}

LCutListSegment::~LCutListSegment() { LAudioCutTank::Instance().DecRef(cut); }

void LCutListSegment::SetCut(LAudioCutRef number) {
  LAudioCutTank::Instance().IncRef(number);
  LAudioCutTank::Instance().DecRef(std::exchange(cut, number));
}

// ---- the tree ----
//
// A treap: a binary tree in list order whose nodes also form a heap on random
// priorities, which keeps it balanced in expectation. Every edit is made of two
// operations: Split cuts a tree at a frame position (cutting the one segment that
// straddles it in two), and Merge joins two trees end to end.

using Node = LCutListAudio::Node;

namespace {

std::uint32_t NextPriority() {
  thread_local std::uint64_t state = 0x9E3779B97F4A7C15ull ^ reinterpret_cast<std::uintptr_t>(&state);
  state ^= state << 13;
  state ^= state >> 7;
  state ^= state << 17;
  return static_cast<std::uint32_t>(state >> 16);
}

std::int64_t Total(Node const* n) { return n != nullptr ? n->iTotal : 0; }
int Count(Node const* n) { return n != nullptr ? n->iCount : 0; }

void Update(Node* n) {
  n->iTotal = Total(n->pLeft) + n->seg.iLength + Total(n->pRight);
  n->iCount = Count(n->pLeft) + 1 + Count(n->pRight);
}

Node* NewNode(LCutListSegment seg) {
  Node* n = new Node{std::move(seg)};
  n->uPriority = NextPriority();
  Update(n);
  return n;
}

void Destroy(Node* n) {
  if (n == nullptr) return;
  Destroy(n->pLeft);
  Destroy(n->pRight);
  delete n;
}

Node* Clone(Node const* n) {
  if (n == nullptr) return nullptr;
  Node* c = new Node{n->seg, nullptr, nullptr, n->uPriority, n->iTotal, n->iCount};
  c->pLeft = Clone(n->pLeft);
  c->pRight = Clone(n->pRight);
  return c;
}

Node* Merge(Node* a, Node* b) {
  if (a == nullptr) return b;
  if (b == nullptr) return a;
  if (a->uPriority >= b->uPriority) {
    a->pRight = Merge(a->pRight, b);
    Update(a);
    return a;
  }
  b->pLeft = Merge(a, b->pLeft);
  Update(b);
  return b;
}

// Cuts `t` into the first `position` frames and the rest.
void Split(Node* t, std::int64_t position, Node*& left, Node*& right) {
  if (t == nullptr) {
    left = right = nullptr;
    return;
  }
  std::int64_t const leftTotal = Total(t->pLeft);
  std::int64_t const segEnd = leftTotal + t->seg.iLength;
  if (position <= leftTotal) {
    Split(t->pLeft, position, left, t->pLeft);
    Update(t);
    right = t;
  } else if (position >= segEnd) {
    Split(t->pRight, position - segEnd, t->pRight, right);
    Update(t);
    left = t;
  } else {
    // The cut falls inside this segment: its tail becomes a segment of its own,
    // with its own reference on the same file.
    int const offset = static_cast<int>(position - leftTotal);
    LCutListSegment tail = t->seg;
    tail.iStart += offset;
    tail.iLength -= offset;
    t->seg.iLength = offset;
    Node* tailTree = Merge(NewNode(std::move(tail)), t->pRight);
    t->pRight = nullptr;
    Update(t);
    left = t;
    right = tailTree;
  }
}

Node* Silence(std::int64_t frames) {
  Node* result = nullptr;
  // A segment's length is an int; a longer gap takes several.
  while (frames > 0) {
    int const piece = static_cast<int>(std::min<std::int64_t>(frames, INT_MAX));
    result = Merge(result, NewNode(LCutListSegment(LAudioCutRefNull, 0, piece)));
    frames -= piece;
  }
  return result;
}

// The segments that cover frames [from, to) of `n`, cut to fit, appended to `out`.
void CopyRange(Node const* n, std::int64_t from, std::int64_t to, std::vector<LCutListSegment>& out) {
  if (n == nullptr || from >= to || to <= 0 || from >= n->iTotal) return;
  std::int64_t const leftTotal = Total(n->pLeft);
  std::int64_t const segEnd = leftTotal + n->seg.iLength;
  if (from < leftTotal) CopyRange(n->pLeft, from, to, out);
  std::int64_t const a = std::max(from, leftTotal);
  std::int64_t const b = std::min(to, segEnd);
  if (a < b) {
    LCutListSegment piece = n->seg;
    piece.iStart += static_cast<int>(a - leftTotal);
    piece.iLength = static_cast<int>(b - a);
    out.push_back(std::move(piece));
  }
  if (to > segEnd) CopyRange(n->pRight, from - segEnd, to - segEnd, out);
}

// A balanced tree of `segs` in order, in linear time: the right spine of the tree
// built so far is kept on a stack and each new node finds its place on it.
Node* Build(std::vector<LCutListSegment>& segs) {
  std::vector<Node*> spine;
  for (LCutListSegment& s : segs) {
    Node* n = NewNode(std::move(s));
    Node* last = nullptr;
    while (!spine.empty() && spine.back()->uPriority < n->uPriority) {
      last = spine.back();
      spine.pop_back();
      Update(last);
    }
    n->pLeft = last;
    if (!spine.empty()) spine.back()->pRight = n;
    spine.push_back(n);
  }
  for (std::size_t i = spine.size(); i-- > 0;) Update(spine[i]);
  return spine.empty() ? nullptr : spine.front();
}

void ScaleGains(Node* n, float gain) {
  if (n == nullptr) return;
  n->seg.fGain *= gain;
  ScaleGains(n->pLeft, gain);
  ScaleGains(n->pRight, gain);
}

}  // namespace

// ---- LCutListAudio ----

LCutListAudio::~LCutListAudio() { Destroy(pRoot); }

LCutListAudio::LCutListAudio(LCutListAudio const& other) : pRoot(Clone(other.pRoot)) { CopyAttributesFrom(other); }

LCutListAudio& LCutListAudio::operator=(LCutListAudio const& other) {
  if (this != &other) {
    Node* copy = Clone(other.pRoot);
    Destroy(pRoot);
    pRoot = copy;
    CopyAttributesFrom(other);
  }
  return *this;
}

LCutListAudio::LCutListAudio(LCutListAudio&& other) noexcept
    : lUnknown(std::move(other.lUnknown)),
      iSampleRate(other.iSampleRate),
      nChannels(other.nChannels),
      bFlag(other.bFlag),
      szErrorText(std::move(other.szErrorText)),
      pRoot(std::exchange(other.pRoot, nullptr)) {}

LCutListAudio& LCutListAudio::operator=(LCutListAudio&& other) noexcept {
  if (this != &other) {
    Destroy(std::exchange(pRoot, std::exchange(other.pRoot, nullptr)));
    lUnknown = std::move(other.lUnknown);
    iSampleRate = other.iSampleRate;
    nChannels = other.nChannels;
    bFlag = other.bFlag;
    szErrorText = std::move(other.szErrorText);
  }
  return *this;
}

void LCutListAudio::CopyAttributesFrom(LCutListAudio const& other) {
  lUnknown = other.lUnknown;
  iSampleRate = other.iSampleRate;
  nChannels = other.nChannels;
  bFlag = other.bFlag;
  szErrorText = other.szErrorText;
}

int LCutListAudio::GetEndSample() const {
  return static_cast<int>(std::min<std::int64_t>(Total(pRoot), INT_MAX));
}

int LCutListAudio::GetSegmentCount() const { return Count(pRoot); }

std::vector<LCutListSegment> LCutListAudio::GetSegments() const {
  std::vector<LCutListSegment> out;
  out.reserve(static_cast<std::size_t>(Count(pRoot)));
  ForEachSegment([&](LCutListSegment const& s) { out.push_back(s); });
  return out;
}

void LCutListAudio::Clear() {
  Destroy(pRoot);
  pRoot = nullptr;
}

void LCutListAudio::AppendSegment(LCutListSegment segment) { pRoot = Merge(pRoot, NewNode(std::move(segment))); }

void LCutListAudio::SetSingleCutListSegment(LCutListSegment const& segment, int rate, int channels) {
  // The copy is taken first: `segment` may be one of this list's own.
  Node* n = NewNode(segment);
  Destroy(pRoot);
  pRoot = n;
  iSampleRate = rate;
  SetChannels(channels);
}

void LCutListAudio::EfInsert(int position, LCutListAudio const& list) {
  Node* copy = Clone(list.pRoot);  // first, for a list inserted into itself
  std::int64_t const end = Total(pRoot);
  if (position < 0) {
    pRoot = Merge(Merge(copy, Silence(-static_cast<std::int64_t>(position))), pRoot);
  } else if (position >= end) {
    pRoot = Merge(Merge(pRoot, Silence(position - end)), copy);
  } else {
    Node* left = nullptr;
    Node* right = nullptr;
    Split(pRoot, position, left, right);
    pRoot = Merge(Merge(left, copy), right);
  }
}

void LCutListAudio::EfInsertSilence(int position, int length) {
  std::int64_t pos = position;
  std::int64_t len = length;
  if (pos < 0) {
    if (len < -pos) return;
    len += pos;
    pos = 0;
  }
  std::int64_t const end = Total(pRoot);
  if (pos > end) {
    len += pos - end;
    pos = end;
  }
  if (len <= 0) return;
  Node* left = nullptr;
  Node* right = nullptr;
  Split(pRoot, pos, left, right);
  pRoot = Merge(Merge(left, Silence(len)), right);
}

void LCutListAudio::EfDelete(int start, int end) {
  if (start > end || end < 0) return;
  std::int64_t const from = std::max(start, 0);
  std::int64_t const to = std::min<std::int64_t>(end, Total(pRoot));
  if (from >= to) return;
  Node* left = nullptr;
  Node* rest = nullptr;
  Node* middle = nullptr;
  Node* right = nullptr;
  Split(pRoot, from, left, rest);
  Split(rest, to - from, middle, right);
  Destroy(middle);
  pRoot = Merge(left, right);
}

void LCutListAudio::EfSilence(int start, int end) {
  EfDelete(start, end);
  EfInsertSilence(start, end - start);
}

void LCutListAudio::EfPasteOver(int start, int end, LCutListAudio const& list) {
  if (&list == this) {
    LCutListAudio const copy(list);
    EfPasteOver(start, end, copy);
    return;
  }
  EfDelete(start, end);
  EfInsert(start, list);
}

void LCutListAudio::EfCopy(int start, int end, LCutListAudio& out) const {
  if (start > end) return;
  std::vector<LCutListSegment> segs;
  std::int64_t const want = static_cast<std::int64_t>(end) - start;
  if (start < 0) {
    std::int64_t const lead = std::min<std::int64_t>(-static_cast<std::int64_t>(start), want);
    if (lead > 0) segs.emplace_back(LAudioCutRefNull, 0, static_cast<int>(lead));
  }
  CopyRange(pRoot, std::max(start, 0), end, segs);
  Node* tree = Build(segs);
  if (Total(tree) < want) tree = Merge(tree, Silence(want - Total(tree)));
  if (&out != this) out.CopyAttributesFrom(*this);
  Destroy(out.pRoot);
  out.pRoot = tree;
}

void LCutListAudio::EfTrimEnd(int position) { EfDelete(position, GetEndSample()); }

void LCutListAudio::EfTrimStart(int position) {
  if (position > 0) EfDelete(0, position);
}

void LCutListAudio::EfGainAll(float gain) {
  if (gain == 1.0f) return;
  ScaleGains(pRoot, gain);
}

void LCutListAudio::EfAmplifyAll(float percent) { EfGainAll(percent * 0.01f); }

void LCutListAudio::DisallowCacheDelete() const {
  LAudioCutTank& tank = LAudioCutTank::Instance();
  ForEachSegment([&](LCutListSegment const& s) { tank.DisallowCacheDelete(s.GetCut()); });
}
