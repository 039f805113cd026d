// crstlines_resample.cpp - a region resampled to another size by the
// nearest-neighbour maps of the image scaler (Resample), on runs.
//
// Destination row j takes source row mapY[j]; along a row, destination
// column i takes source column mapX[i]. With a non-decreasing column map
// (every map ResampleLineMap builds), a source run [a, b] becomes the
// destination columns whose map values lie in [a, b], found by two binary
// searches, so a row costs its runs times log(width). Any other map is
// sampled column by column. Rows that take the same source row as the row
// before copy its result.
#include <algorithm>
#include <climits>

#include "crstlines_core.h"
#include "tqbase/amathopt.h"

using namespace tqrgn;

namespace {

// The source rows, found by y among the prepared operand's slabs: the
// slab by binary search, the row by its run offset.
class RowLookup {
public:
  explicit RowLookup(const Operand& op) : m_op(op) {
    SizeTo(m_base, (long long)op.Count());
    SizeTo(m_start, op.Rows() + 1);
    size_t at = 0;
    for (size_t i = 0; i < op.Count(); ++i) {
      const Slab& s = op[i];
      m_base[i] = at;
      long long off = 0;
      for (long long y = s.top; y <= s.bottom; ++y) {
        m_start[at++] = off;
        off += s.cnt[y - s.top];
      }
    }
  }
  // Row y's runs (ascending, not touching) or null with n = 0.
  const RSRUN* Row(long long y, int& n) const {
    n = 0;
    size_t lo = 0, hi = m_op.Count();
    while (lo < hi) {  // the first slab whose bottom is at or below y
      const size_t mid = (lo + hi) / 2;
      if (m_op[mid].bottom < y)
        lo = mid + 1;
      else
        hi = mid;
    }
    if (lo == m_op.Count() || m_op[lo].top > y) return nullptr;
    const Slab& s = m_op[lo];
    n = s.cnt[y - s.top];
    return s.runs + m_start[m_base[lo] + (size_t)(y - s.top)];
  }

private:
  const Operand& m_op;
  std::vector<size_t> m_base;    // index of each slab's first row in m_start
  std::vector<long long> m_start; // run offset of every row within its slab
};

// Runs of row r[0..n) in destination columns: into o, returns the end.
RSRUN* MapRow(const RSRUN* r, int n, const unsigned long* mapX, long long dstW, long long srcW, bool monotone,
              RSRUN* o) {
  RSRUN* const begin = o;
  auto push = [&](long long lo, long long hi) {
    if (o > begin && lo <= (long long)o[-1].x2 + 1)
      o[-1].x2 = (int)std::max<long long>(o[-1].x2, hi);
    else
      *o++ = RSRUN{(int)lo, (int)hi};
  };
  if (monotone) {
    for (int j = 0; j < n; ++j) {
      const long long a = std::max<long long>(r[j].x1, 0), b = std::min<long long>(r[j].x2, srcW - 1);
      if (a > b) continue;
      const unsigned long* lo = std::lower_bound(mapX, mapX + dstW, (unsigned long)a);
      const unsigned long* hi = std::upper_bound(lo, mapX + dstW, (unsigned long)b);
      if (lo < hi) push(lo - mapX, (hi - mapX) - 1);
    }
    return o;
  }
  for (long long i = 0; i < dstW; ++i) {
    const unsigned long s = mapX[i];
    if (s >= (unsigned long)srcW) continue;
    const RSRUN* it = std::lower_bound(r, r + n, (long long)s, [](const RSRUN& run, long long v) { return run.x2 < v; });
    if (it != r + n && (long long)it->x1 <= (long long)s) push(i, i);
  }
  return o;
}

}  // namespace

BOOL CRstLines::Resample(CRstLines* dst, const CRstLines* src, const SIZE* dstSize, const unsigned long* mapX,
                         const unsigned long* mapY, const SIZE* srcSize) {
  static const char op[] = "CRstLines::Resample";
  if (!dst || !src || !dstSize || dstSize->cx < 1 || dstSize->cy < 1 || (srcSize && (srcSize->cx < 1 || srcSize->cy < 1))) {
    g_Error.SetLastError("%s: %s", op, "null argument or a size below 1");
    return FALSE;
  }
  if (!dst->m_bOwnData) {
    ASSERT(dst->m_bOwnData);
    return FALSE;
  }
  RGN_VALIDATE(Invariant(*src) && Invariant(*dst));
  const long long dstW = dstSize->cx, dstH = dstSize->cy;
  if (dstH > kMaxRows || dstW > kMaxItems) return Fail(op, kTooLarge);
  OwnedArray result;
  const bool ok = Guarded(op, [&] {
    PieceList pieces;
    const CRasterArray* arr = src->m_pRstArray;
    if (!IsEmpty(arr)) {
      Operand from;
      if (!from.Prepare(arr)) return Fail(op, kInvalidRegion);
      long long srcW, srcH;
      if (srcSize) {
        srcW = srcSize->cx;
        srcH = srcSize->cy;
      } else {
        const RECT box = GetBox(arr);
        srcW = (long long)box.right + 1;
        srcH = (long long)box.bottom + 1;
      }
      if (srcW >= 1 && srcH >= 1) {
        std::vector<unsigned long> mx, my;
        if (!mapX) {
          SizeTo(mx, dstW);
          AMathOpt::ResampleLineMap((int)std::min<long long>(srcW, INT_MAX), (int)dstW, mx.data());
          mapX = mx.data();
        }
        if (!mapY) {
          SizeTo(my, dstH);
          AMathOpt::ResampleLineMap((int)std::min<long long>(srcH, INT_MAX), (int)dstH, my.data());
          mapY = my.data();
        }
        const bool monotone = std::is_sorted(mapX, mapX + dstW);
        const RowLookup rows(from);
        RowWriter w;
        w.Init(from.Runs() + 16, dstH);
        long long lastSrc = -1;
        long long lastCount = 0;
        for (long long j = 0; j < dstH; ++j) {
          const unsigned long sy = mapY[j];
          if ((long long)sy == lastSrc && j > 0 && lastCount > 0) {
            // The same source row as the row before: copy its runs.
            w.Room(lastCount);
            RSRUN* o = w.Out();
            std::copy(o - lastCount, o, o);
            w.EndRow(j, o + lastCount);
            continue;
          }
          lastSrc = (long long)sy;
          int n = 0;
          const RSRUN* r = sy < (unsigned long)srcH ? rows.Row((long long)sy, n) : nullptr;
          // Runs of a row never touch: at most (dstW + 1) / 2 of them.
          const long long room = monotone ? n : (dstW + 1) / 2;
          w.Room(room);
          RSRUN* e = r ? MapRow(r, n, mapX, dstW, srcW, monotone, w.Out()) : w.Out();
          lastCount = e - w.Out();
          w.EndRow(j, e);
        }
        w.Flush(pieces);
      }
    }
    if (pieces.Size() > 0) {
      result = NewArray();
      pieces.MoveTo(result.get());
    }
    return true;
  });
  if (!ok) return FALSE;
  dst->Adopt(result.release());
  RGN_VALIDATE(Invariant(*dst) && Invariant(dst->m_pRstArray, true));
  return TRUE;
}
