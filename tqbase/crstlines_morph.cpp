// crstlines_morph.cpp - growing and shrinking regions by a Euclidean disc
// (ExpandRaster, ContractRaster), on the plane and on a repeat.
//
// The disc of radius d holds the offsets (dx, dy) with dx² + dy² <= d²;
// its row dy spans |dx| <= W[|dy|], W[k] = floor(sqrt(d² - k²)).
//  - Growing: output row y is the union, over the input rows y + dy within
//    d, of their runs widened by W[|dy|] on both sides.
//  - Shrinking: output row y is the intersection, over every dy within d,
//    of input row y + dy with its runs narrowed by W[|dy|] (a run narrower
//    than 2 W + 1 vanishes); an empty input row in the window empties the
//    output row.
// Both work on runs, never on pixels: one output row costs the window's
// rows times the runs involved. Consecutive identical input rows are
// handled as one group, of which only the row nearest to the output row
// matters (it has the widest disc row), so straight-sided regions cost
// their distinct rows only.
#include <algorithm>
#include <climits>
#include <cmath>

#include "crstlines_core.h"
#include "crstlines_fold.h"
#include "tqbase/acycle.h"

using namespace tqrgn;

namespace {

// A run in 64-bit coordinates: widened and narrowed runs of pixels near
// the ends of the int range never overflow here.
struct Span {
  long long a, b;
};

// W[k] for k = 0..d: the half-widths of the disc's rows.
std::vector<long long> DiscRows(long long d) {
  std::vector<long long> w;
  SizeTo(w, d + 1);
  for (long long k = 0; k <= d; ++k) {
    const long long r = d * d - k * k;
    long long s = (long long)std::sqrt((double)r);
    while (s * s > r) --s;
    while ((s + 1) * (s + 1) <= r) ++s;
    w[(size_t)k] = s;
  }
  return w;
}

// Rows top..bottom of a prepared operand whose slabs s0..s1-1 follow each
// other with gaps of at most the stretch's allowance.
struct Stretch {
  long long top, bottom;
  size_t s0, s1;
};

// The operand's slabs cut into stretches wherever more than gap empty rows
// separate two of them.
std::vector<Stretch> Stretches(const Operand& op, long long gap) {
  std::vector<Stretch> out;
  for (size_t i = 0; i < op.Count(); ++i) {
    const Slab& s = op[i];
    if (!out.empty() && s.top - out.back().bottom - 1 <= gap) {
      out.back().bottom = std::max(out.back().bottom, s.bottom);
      out.back().s1 = i + 1;
    } else {
      out.push_back(Stretch{s.top, s.bottom, i, i + 1});
    }
  }
  return out;
}

// Direct access to the rows of one stretch, with the groups of identical
// consecutive rows: last[i] is the index of the last row of row i's group.
class RowIndex {
public:
  void Build(const Operand& op, const Stretch& st) {
    m_top = st.top;
    const long long n = st.bottom - st.top + 1;
    SizeTo(m_runs, n);
    SizeTo(m_cnt, n);
    SizeTo(m_last, n);
    std::fill(m_cnt.begin(), m_cnt.end(), 0);
    for (size_t i = st.s0; i < st.s1; ++i) {
      const Slab& s = op[i];
      const RSRUN* r = s.runs;
      for (long long y = s.top; y <= s.bottom; ++y) {
        const size_t k = (size_t)(y - m_top);
        m_runs[k] = r;
        m_cnt[k] = s.cnt[y - s.top];
        r += m_cnt[k];
      }
    }
    for (long long k = n - 1; k >= 0; --k) {
      const size_t i = (size_t)k;
      m_last[i] = (k + 1 < n && Same(i, i + 1)) ? m_last[i + 1] : k;
    }
  }
  const RSRUN* Runs(long long y) const { return m_runs[(size_t)(y - m_top)]; }
  int Count(long long y) const { return m_cnt[(size_t)(y - m_top)]; }
  // The last row of y's group of identical rows.
  long long GroupEnd(long long y) const { return m_top + m_last[(size_t)(y - m_top)]; }

private:
  bool Same(size_t i, size_t j) const {
    if (m_cnt[i] != m_cnt[j]) return false;
    const RSRUN* a = m_runs[i];
    const RSRUN* b = m_runs[j];
    for (int k = 0; k < m_cnt[i]; ++k)
      if (a[k].x1 != b[k].x1 || a[k].x2 != b[k].x2) return false;
    return true;
  }
  long long m_top = 0;
  std::vector<const RSRUN*> m_runs;
  std::vector<int> m_cnt;
  std::vector<long long> m_last;
};

// out = acc united with the runs r[0..n) widened by k; touching spans
// merge. Both inputs ascend; out has room for na + n spans.
size_t UniteWidened(const Span* acc, size_t na, const RSRUN* r, int n, long long k, Span* out) {
  size_t i = 0, m = 0;
  int j = 0;
  auto push = [&](long long a, long long b) {
    if (m > 0 && a <= out[m - 1].b + 1) {
      if (b > out[m - 1].b) out[m - 1].b = b;
    } else {
      out[m++] = Span{a, b};
    }
  };
  while (i < na || j < n) {
    if (j == n || (i < na && acc[i].a <= (long long)r[j].x1 - k)) {
      push(acc[i].a, acc[i].b);
      ++i;
    } else {
      push((long long)r[j].x1 - k, (long long)r[j].x2 + k);
      ++j;
    }
  }
  return m;
}

// out = acc intersected with the runs r[0..n) narrowed by k. Both inputs
// ascend without touching, so the result does too.
size_t IntersectNarrowed(const Span* acc, size_t na, const RSRUN* r, int n, long long k, Span* out) {
  size_t i = 0, m = 0;
  int j = 0;
  while (i < na && j < n) {
    const long long a = (long long)r[j].x1 + k, b = (long long)r[j].x2 - k;
    if (a > b) {
      ++j;
      continue;
    }
    const long long lo = std::max(acc[i].a, a), hi = std::min(acc[i].b, b);
    if (lo <= hi) out[m++] = Span{lo, hi};
    if (acc[i].b < b)
      ++i;
    else
      ++j;
  }
  return m;
}

// Where the result may lie: rows and columns, inclusive.
struct Clip {
  long long top, bottom, left, right;
};

const Clip kNoClip = {LLONG_MIN, LLONG_MAX, LLONG_MIN, LLONG_MAX};

// Writes output row y (spans ascending, not touching) clipped to clip.
void WriteRow(RowWriter& w, long long y, const Span* s, size_t n, const Clip& clip) {
  if (y < clip.top || y > clip.bottom) return;
  w.Room((long long)n);
  RSRUN* o = w.Out();
  for (size_t i = 0; i < n; ++i) {
    const long long a = std::max(s[i].a, clip.left), b = std::min(s[i].b, clip.right);
    if (a <= b) *o++ = RSRUN{(int)a, (int)b};
  }
  w.EndRow(y, o);
}

// Two span buffers that trade places after every merge.
struct SpanBuffers {
  std::vector<Span> acc, tmp;
  void Fit(size_t n) {
    if (acc.size() < n) SizeTo(acc, (long long)n);
    if (tmp.size() < n) SizeTo(tmp, (long long)n);
  }
};

// The disc's rows relevant to output row y among the rows lo..hi of the
// index: fn(row, k) once per group of identical rows, with the row of the
// group nearest to y and k = |row - y|.
template <class Fn>
void ForGroups(const RowIndex& idx, long long y, long long lo, long long hi, Fn fn) {
  for (long long r = lo; r <= hi;) {
    const long long end = std::min(idx.GroupEnd(r), hi);
    const long long nearest = std::min(std::max(y, r), end);
    if (!fn(nearest, nearest > y ? nearest - y : y - nearest)) return;
    r = end + 1;
  }
}

// The operand grown by the disc with half-widths w, rows into out.
void Grow(const Operand& op, const std::vector<long long>& w, const Clip& clip, RowWriter& out) {
  const long long d = (long long)w.size() - 1;
  SpanBuffers buf;
  RowIndex idx;
  for (const Stretch& st : Stretches(op, 2 * d)) {
    idx.Build(op, st);
    const long long y0 = std::max(st.top - d, clip.top), y1 = std::min(st.bottom + d, clip.bottom);
    for (long long y = y0; y <= y1; ++y) {
      size_t n = 0;
      ForGroups(idx, y, std::max(y - d, st.top), std::min(y + d, st.bottom), [&](long long r, long long k) {
        const int c = idx.Count(r);
        if (c > 0) {
          buf.Fit(n + (size_t)c);
          n = UniteWidened(buf.acc.data(), n, idx.Runs(r), c, w[(size_t)k], buf.tmp.data());
          buf.acc.swap(buf.tmp);
        }
        return true;
      });
      if (n > 0)
        WriteRow(out, y, buf.acc.data(), n, clip);
      else
        out.Gap();
    }
    out.Gap();
  }
}

// The operand shrunk by the disc with half-widths w, rows into out.
void Shrink(const Operand& op, const std::vector<long long>& w, const Clip& clip, RowWriter& out) {
  const long long d = (long long)w.size() - 1;
  SpanBuffers buf;
  RowIndex idx;
  for (const Stretch& st : Stretches(op, 0)) {
    idx.Build(op, st);
    const long long y0 = std::max(st.top + d, clip.top), y1 = std::min(st.bottom - d, clip.bottom);
    for (long long y = y0; y <= y1; ++y) {
      // The row itself first: it has the widest disc row, so it cuts most.
      const int c0 = idx.Count(y);
      buf.Fit((size_t)c0);
      const RSRUN* r0 = idx.Runs(y);
      size_t n = 0;
      for (int j = 0; j < c0; ++j) {
        const long long a = (long long)r0[j].x1 + w[0], b = (long long)r0[j].x2 - w[0];
        if (a <= b) buf.acc[n++] = Span{a, b};
      }
      ForGroups(idx, y, y - d, y + d, [&](long long r, long long k) {
        if (n == 0) return false;
        if (k > 0) {
          buf.Fit(n + (size_t)idx.Count(r));
          n = IntersectNarrowed(buf.acc.data(), n, idx.Runs(r), idx.Count(r), w[(size_t)k], buf.tmp.data());
          buf.acc.swap(buf.tmp);
        }
        return true;
      });
      if (n > 0)
        WriteRow(out, y, buf.acc.data(), n, clip);
      else
        out.Gap();
    }
    out.Gap();
  }
}

// Rows the grown operand may hold: every stretch widened by d both ways.
long long GrownRows(const Operand& op, long long d) {
  long long rows = 0;
  for (const Stretch& st : Stretches(op, 2 * d)) rows += st.bottom - st.top + 1 + 2 * d;
  return rows;
}

// grow: the operand grown (true) or shrunk (false) by d >= 1, into pieces.
void Morph(const Operand& op, long long d, bool grow, const Clip& clip, PieceList& out) {
  if (op.Empty()) return;
  if (!grow) {
    // Shrinking by more than half the tallest stretch of rows leaves nothing.
    long long tallest = 0;
    for (const Stretch& st : Stretches(op, 0)) tallest = std::max(tallest, st.bottom - st.top + 1);
    if (2 * d + 1 > tallest) return;
  }
  const std::vector<long long> w = DiscRows(d);
  RowWriter wr;
  long long rows = grow ? GrownRows(op, d) : op.Rows();
  if (clip.top != kNoClip.top) rows = std::min(rows, clip.bottom - clip.top + 1);
  wr.Init(op.Runs() + 16, std::max(rows, 1LL));
  if (grow)
    Grow(op, w, clip, wr);
  else
    Shrink(op, w, clip, wr);
  wr.Flush(out);
}

// The pieces as a new raster array (an empty one for no pieces).
CRasterArray* Hand(PieceList& pieces) {
  OwnedArray result = NewArray();
  pieces.MoveTo(result.get());
  return result.release();
}

// The shared body of ExpandRaster and ContractRaster: grow when grow is
// true, shrink otherwise, by distance >= 0 (negative distances are turned
// into the other operation by the callers). On a usable cycle the region's
// repeat is changed and the base-cell copy returned.
CRasterArray* Change(const CRasterArray* arr, long long distance, bool grow, const ACycle* cycle, const char* op) {
  if (!arr) {
    Fail(op, kInvalidRegion);
    return nullptr;
  }
  if (grow && distance > kMaxRows) {
    Fail(op, kTooLarge);
    return nullptr;
  }
  CRasterArray* result = nullptr;
  Guarded(op, [&] {
    PieceList pieces;
    Operand src;
    if (CycleUsable(cycle)) {
      if (!CRstLines::IsValid(arr)) return Fail(op, kInvalidRegion);
      // Every base-cell pixel's disc lies in the cell widened by the
      // distance: the repeat laid out there decides the result exactly.
      const CYCLEINFO* ci = cycle->CycleInfoPtr();
      const long long d = distance;
      if ((long long)ci->width + 2 * d > INT_MAX || (long long)ci->height + 2 * d > kMaxRows)
        return Fail(op, kTooLarge);
      const RECT window = {(LONG)-d, (LONG)-d, (LONG)(ci->width + d), (LONG)(ci->height + d)};
      PieceList repeat;
      RepeatOver(arr, ci, window, repeat);
      if (!src.Prepare(&repeat.Get())) return Fail(op, kInvalidRegion);
      const Clip cell = {0, (long long)ci->height - 1, 0, (long long)ci->width - 1};
      Morph(src, d, grow, cell, pieces);
      result = Hand(pieces);
      return true;
    }
    if (!src.Prepare(arr)) return Fail(op, kInvalidRegion);
    if (distance == 0) {
      // The pixels as they are: the pieces copied when they are already
      // well-formed, else their union as bands.
      if (src.Normalised().Size() == 0 && CRstLines::IsWellFormed(arr)) {
        pieces.Reserve(arr->GetSize());
        for (const RSRLINE* p : *arr) pieces.Add(CopyPiece(p));
      } else {
        Morph(src, 0, true, kNoClip, pieces);
      }
      result = Hand(pieces);
      return true;
    }
    if (grow && !src.Empty()) {
      const RECT box = CRstLines::GetBox(arr);
      if ((long long)box.left - distance < INT_MIN || (long long)box.right + distance > INT_MAX ||
          (long long)box.top - distance < INT_MIN || (long long)box.bottom + distance > INT_MAX)
        return Fail(op, kOutOfRange);
    }
    Morph(src, distance, grow, kNoClip, pieces);
    result = Hand(pieces);
    return true;
  });
  return result;
}

}  // namespace

CRasterArray* CRstLines::ExpandRaster(CRasterArray* const arr, int distance) {
  return ExpandRaster(arr, distance, nullptr);
}

CRasterArray* CRstLines::ContractRaster(CRasterArray* const arr, int distance) {
  return ContractRaster(arr, distance, nullptr);
}

CRasterArray* CRstLines::ExpandRaster(const CRasterArray* arr, int distance, const ACycle* cycle) {
  const long long d = distance;
  return Change(arr, d < 0 ? -d : d, d >= 0, cycle, "CRstLines::ExpandRaster");
}

CRasterArray* CRstLines::ContractRaster(const CRasterArray* arr, int distance, const ACycle* cycle) {
  const long long d = distance;
  return Change(arr, d < 0 ? -d : d, d < 0, cycle, "CRstLines::ContractRaster");
}
