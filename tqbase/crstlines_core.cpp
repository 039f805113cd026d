// crstlines_core.cpp - the region engine's shared machinery declared in
// crstlines_core.h: failure texts, owned pieces, scratch blocks, the piece
// check, operands as slabs, the row writer and the merger of many sources.
//
// Relies on the memory manager for scratch blocks and on g_Error for
// failure texts; calls no operation of CRstLines, so that every other file
// of the engine can stand on this one.
#include "crstlines_core.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "tqbase/memorymanage.h"

#if (defined(__GNUC__) || defined(__clang__)) && (defined(__x86_64__) || defined(__i386__)) && \
    defined(__SSE2__)
#include <immintrin.h>
#define TQ_RGN_SSE2 1
#endif

namespace tqrgn {

bool Fail(const char* op, Failure why) {
  static const char* const kText[] = {
      "out of memory",
      "the region is too large",
      "invalid region",
      "the result array is one of the operands",
      "unknown combination mode",
      "the region would leave the coordinate range",
  };
  g_Error.SetLastError("%s: %s", op, kText[why]);
  return false;
}

// ---- owned pieces ------------------------------------------------------------------

OwnedPiece NewPiece(long long nRuns, long long nRows) {
  OwnedPiece p(new RSRLINE);
  SizeTo(p->arRun.vec(), nRuns);
  SizeTo(p->arCount.vec(), nRows);
  return p;
}

OwnedArray NewArray() { return OwnedArray(new CRasterArray); }

OwnedPiece CopyPiece(const RSRLINE* src) {
  OwnedPiece p(new RSRLINE);
  p->arRun.vec().assign(src->arRun.begin(), src->arRun.end());
  p->arCount.vec().assign(src->arCount.begin(), src->arCount.end());
  p->rcBox = src->rcBox;
  return p;
}

// ---- scratch blocks ------------------------------------------------------------------

// The lendable work buffer is mapped pages the address sanitizer cannot
// police; sanitized builds take tracked heap blocks only, so that every
// scratch overrun is caught.
#if defined(__SANITIZE_ADDRESS__)
static const bool kUseWorkBuffer = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
static const bool kUseWorkBuffer = false;
#else
static const bool kUseWorkBuffer = true;
#endif
#else
static const bool kUseWorkBuffer = true;
#endif

void* Scratch::Get(long long count, size_t elem) {
  Free();
  size_t bytes = (size_t)CheckedCount(count) * elem;
  if (bytes == 0) bytes = 1;
  if (bytes > 0xFFFFFFF0u) throw TooLarge();
  if (kUseWorkBuffer) {
    if (unsigned char* p = g_AGV.LockBuffer((unsigned long)bytes, FALSE)) {
      m_p = p;
      m_lent = true;
      return m_p;
    }
  }
  m_p = static_cast<unsigned char*>(AGlobalAllocPtr(GMEM_FIXED, (DWORD)bytes));
  if (!m_p) throw std::bad_alloc();
  m_lent = false;
  return m_p;
}

void* Scratch::Grow(long long count, size_t elem, size_t keep) {
  const size_t bytes = (size_t)CheckedCount(count) * elem;
  if (bytes > 0xFFFFFFF0u) throw TooLarge();
  unsigned char* p = static_cast<unsigned char*>(AGlobalAllocPtr(GMEM_FIXED, (DWORD)(bytes ? bytes : 1)));
  if (!p) throw std::bad_alloc();
  if (m_p && keep) std::memcpy(p, m_p, std::min(keep, bytes));
  Free();
  m_p = p;
  return m_p;
}

void Scratch::Free() {
  if (!m_p) return;
  if (m_lent)
    g_AGV.UnlockBuffer(m_p);
  else
    AGlobalFreePtr(m_p);
  m_p = nullptr;
  m_lent = false;
}

// ---- the piece check -------------------------------------------------------------------

#ifdef NDEBUG
bool g_validate = false;
#else
bool g_validate = true;
#endif

namespace {

// The run pass: inverted runs (x1 > x2) and order breaks between runs i-1
// and i for i in [from, R). A break is r[i].x1 <= r[i-1].x2 + 1, written
// as two 32-bit tests because x2 + 1 wraps only for x2 == INT_MAX, where
// x1 <= x2 already holds.
unsigned RunPassScalar(const RSRUN* r, long long from, long long R, int* inverted) {
  unsigned breaks = 0;
  int inv = 0;
  for (long long i = from; i < R; ++i) {
    const int x1 = r[i].x1, prev = r[i - 1].x2;
    inv |= x1 > r[i].x2;
    breaks += (unsigned)((x1 <= prev) | (x1 == (int)((unsigned)prev + 1u)));
  }
  *inverted |= inv;
  return breaks;
}

#ifdef TQ_RGN_SSE2
// The run array read as ints, twice: A from run i on, B one int earlier.
// Even lanes compare x1 of run i with x2 of run i - 1 (the break test),
// odd lanes x2 of run i with its own x1 (the inversion test).
unsigned RunPassSse2(const RSRUN* r, long long R, int* inverted) {
  const int* s = reinterpret_cast<const int*>(r);
  const __m128i one = _mm_set1_epi32(1);
  const __m128i odd = _mm_set_epi32(-1, 0, -1, 0);
  __m128i inv = _mm_setzero_si128();
  unsigned breaks = 0;
  long long i = 1;
  for (; i + 2 <= R; i += 2) {
    const __m128i A = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 2 * i));
    const __m128i B = _mm_loadu_si128(reinterpret_cast<const __m128i*>(s + 2 * i - 1));
    const __m128i ok = _mm_andnot_si128(_mm_cmpeq_epi32(A, _mm_add_epi32(B, one)), _mm_cmpgt_epi32(A, B));
    breaks += (unsigned)__builtin_popcount(~_mm_movemask_ps(_mm_castsi128_ps(ok)) & 0x5);
    inv = _mm_or_si128(inv, _mm_and_si128(_mm_cmpgt_epi32(B, A), odd));
  }
  *inverted = _mm_movemask_epi8(inv) != 0;
  return breaks + RunPassScalar(r, i, R, inverted);
}

__attribute__((target("avx2"))) unsigned RunPassAvx2(const RSRUN* r, long long R, int* inverted) {
  const int* s = reinterpret_cast<const int*>(r);
  const __m256i one = _mm256_set1_epi32(1);
  const __m256i odd = _mm256_set_epi32(-1, 0, -1, 0, -1, 0, -1, 0);
  __m256i inv = _mm256_setzero_si256();
  unsigned breaks = 0;
  long long i = 1;
  for (; i + 4 <= R; i += 4) {
    const __m256i A = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + 2 * i));
    const __m256i B = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + 2 * i - 1));
    const __m256i ok =
        _mm256_andnot_si256(_mm256_cmpeq_epi32(A, _mm256_add_epi32(B, one)), _mm256_cmpgt_epi32(A, B));
    breaks += (unsigned)__builtin_popcount(~_mm256_movemask_ps(_mm256_castsi256_ps(ok)) & 0x55);
    inv = _mm256_or_si256(inv, _mm256_and_si256(_mm256_cmpgt_epi32(B, A), odd));
  }
  *inverted = !_mm256_testz_si256(inv, inv);
  return breaks + RunPassScalar(r, i, R, inverted);
}

bool HaveAvx2() {
  static const bool have = __builtin_cpu_supports("avx2");
  return have;
}
#endif

// Speed of this pass is measured by bench_region (BM_Combine_Ours, whose
// operands are checked on every call).
unsigned RunPass(const RSRUN* r, long long R, int* inverted) {
  *inverted = r[0].x1 > r[0].x2;
#ifdef TQ_RGN_SSE2
  int inv = 0;
  const unsigned b = HaveAvx2() ? RunPassAvx2(r, R, &inv) : RunPassSse2(r, R, &inv);
  *inverted |= inv;
  return b;
#else
  return RunPassScalar(r, 1, R, inverted);
#endif
}

}  // namespace

// Counts must not be negative: the sum rule alone would let a negative
// count hide a row that reads past the runs. When every order break of the
// run pass is a row start, the rows are sorted, so the least x1 and the
// greatest x2 are among the rows' first and last runs, which the row pass
// visits anyway; only an unsorted piece needs the full min/max pass.
int CheckPiece(const RSRLINE* p) {
  if (!p) return 0;
  const long long R = p->arRun.GetSize();
  const long long N = p->arCount.GetSize();
  const RECT& b = p->rcBox;
  if (N > R) return 0;
  if (R == 0 && N == 0) return b.right == b.left && b.bottom == b.top ? kPieceValid | kPieceSorted : 0;
  if ((long long)b.bottom - b.top + 1 != N) return 0;
  long long sum = 0;
  int neg = 0;
  const int* cnt = p->arCount.GetData();
  for (long long k = 0; k < N; ++k) {
    neg |= cnt[k];
    sum += cnt[k];
  }
  if (neg < 0 || sum != R) return 0;
  const RSRUN* r = p->arRun.GetData();
  int inverted = 0;
  const unsigned breaks = RunPass(r, R, &inverted);
  if (inverted) return 0;
  unsigned rowBreaks = 0;
  int least = r[0].x1, greatest = r[0].x2;
  long long off = 0;
  for (long long k = 0; k < N; ++k) {
    const int c = cnt[k];
    if (c > 0) {
      if (off > 0) {
        const int x1 = r[off].x1, prev = r[off - 1].x2;
        rowBreaks += (unsigned)((x1 <= prev) | (x1 == (int)((unsigned)prev + 1u)));
      }
      least = std::min(least, r[off].x1);
      greatest = std::max(greatest, r[off + c - 1].x2);
    }
    off += c;
  }
  const bool sorted = breaks == rowBreaks;
  if (!sorted) {
    for (long long i = 1; i < R; ++i) {
      least = std::min(least, r[i].x1);
      greatest = std::max(greatest, r[i].x2);
    }
  }
  if (least != b.left || greatest > b.right) return 0;
  return sorted ? kPieceValid | kPieceSorted : kPieceValid;
}

int SortMergeRow(RSRUN* r, int n) {
  if (n <= 1) return n;
  if (n < 32) {
    for (int i = 1; i < n; ++i) {
      const RSRUN v = r[i];
      int j = i;
      for (; j > 0 && r[j - 1].x1 > v.x1; --j) r[j] = r[j - 1];
      r[j] = v;
    }
  } else {
    std::sort(r, r + n, [](const RSRUN& a, const RSRUN& b) { return a.x1 < b.x1; });
  }
  int m = 0;
  for (int i = 1; i < n; ++i) {
    if ((long long)r[i].x1 <= (long long)r[m].x2 + 1) {
      if (r[i].x2 > r[m].x2) r[m].x2 = r[i].x2;
    } else {
      r[++m] = r[i];
    }
  }
  return m + 1;
}

// ---- operands ------------------------------------------------------------------------

void Operand::Reset() {
  m_many.clear();
  m_s = &m_one;
  m_n = 0;
  m_top = 0;
  m_bottom = -1;
  m_runs = m_rows = 0;
  m_clean = m_ordered = true;
}

bool Operand::Add(const RSRLINE* p) {
  const int f = CheckPiece(p);
  if (!(f & kPieceValid)) return false;
  AddChecked(p, f);
  return true;
}

void Operand::AddChecked(const RSRLINE* p, int f) {
  if (!(f & kPieceSorted)) m_clean = false;
  if (p->arRun.GetSize() == 0) return;
  const Slab sl = SlabOf(p);
  if (m_n == 0) {
    m_top = sl.top;
    m_bottom = sl.bottom;
    m_one = sl;
  } else {
    if (sl.top <= m_bottom) m_ordered = false;
    m_top = std::min(m_top, sl.top);
    m_bottom = std::max(m_bottom, sl.bottom);
    if (m_n == 1) m_many.push_back(m_one);
    m_many.push_back(sl);
  }
  ++m_n;
  m_runs += p->arRun.GetSize();
  m_rows += p->arCount.GetSize();
}

// Orders the slabs by top and, when the operand is not clean, unites its
// pieces into new bands and views those instead.
void Operand::Finish() {
  m_s = m_n > 1 ? m_many.data() : &m_one;
  if (m_clean && !m_ordered) {
    std::sort(m_many.begin(), m_many.end(), [](const Slab& a, const Slab& b) { return a.top < b.top; });
    for (size_t i = 1; i < m_n; ++i)
      if (m_many[i].top <= m_many[i - 1].bottom) m_clean = false;
  }
  if (m_clean) return;
  std::vector<Slab> slabs(m_s, m_s + m_n);
  UniteSlabs(slabs, m_norm);
  Reset();
  for (const RSRLINE* p : m_norm.Get()) AddChecked(p, kPieceValid | kPieceSorted);
  m_s = m_n > 1 ? m_many.data() : &m_one;
}

bool Operand::Prepare(const CRasterArray* arr) {
  Reset();
  for (const RSRLINE* p : *arr)
    if (!Add(p)) return false;
  Finish();
  return true;
}

bool Operand::Prepare(const RSRLINE* piece) {
  Reset();
  if (!Add(piece)) return false;
  Finish();
  return true;
}

void Operand::PrepareChecked(const RSRLINE* piece) {
  Reset();
  AddChecked(piece, kPieceValid | kPieceSorted);
  Finish();
}

// ---- the row writer ------------------------------------------------------------------

void RowWriter::Init(long long maxRuns, long long maxRows) {
  maxRuns = std::max(maxRuns, 1LL);
  maxRows = std::max(maxRows, 1LL);
  if (maxRows > kMaxRows) throw TooLarge();
  // Two blocks, each ending where its bound ends, so that an overrun of
  // either meets the end of a block (and the address sanitizer) rather
  // than the other's data. The counts come from the heap: the work buffer
  // is lent to the runs.
  m_runs = m_runBuf.Get<RSRUN>(maxRuns);
  m_cnt = m_cntBuf.Get<int>(maxRows);
  m_cap = maxRuns;
  m_capRows = maxRows;
  m_end = m_runs;
  m_nRows = 0;
  m_open = false;
  m_bands.clear();
}

void RowWriter::Grow(long long n) {
  const long long used = m_end - m_runs;
  const long long cap = std::max(used + n, std::min(2 * m_cap, kMaxItems));
  m_runs = static_cast<RSRUN*>(m_runBuf.Grow(cap, sizeof(RSRUN), (size_t)used * sizeof(RSRUN)));
  m_end = m_runs + used;
  m_cap = cap;
}

void RowWriter::CopyRows(long long y, const int* cnt, const RSRUN*& r, long long rows) {
  for (long long k = 0; k < rows; ++k, ++y) {
    const int n = cnt[k];
    std::memcpy(m_end, r, (size_t)n * sizeof(RSRUN));
    EndRow(y, m_end + n);
    r += n;
  }
}

void RowWriter::Open(long long y) {
  Gap();
  m_band.top = y;
  m_band.row0 = m_nRows;
  m_band.run0 = m_end - m_runs;
  m_band.left = INT_MAX;
  m_band.right = INT_MIN;
  m_open = true;
}

void RowWriter::Close() {
  m_band.row1 = m_nRows;
  m_band.run1 = m_end - m_runs;
  m_bands.push_back(m_band);
  m_open = false;
}

void RowWriter::Flush(PieceList& out) {
  Gap();
  out.Reserve(out.Size() + (long long)m_bands.size());
  for (const Band& b : m_bands) {
    OwnedPiece p(new RSRLINE);
    p->arRun.vec().assign(m_runs + b.run0, m_runs + b.run1);
    p->arCount.vec().assign(m_cnt + b.row0, m_cnt + b.row1);
    p->rcBox.left = b.left;
    p->rcBox.right = b.right;
    p->rcBox.top = (LONG)b.top;
    p->rcBox.bottom = (LONG)(b.top + (b.row1 - b.row0) - 1);
    out.Add(std::move(p));
  }
  m_bands.clear();
}

// ---- the merger ------------------------------------------------------------------------

namespace {

struct Active {
  RowSource* s;
  const RSRUN* r;  // runs of the current row
  long long k;     // row index in the source
  int key;         // x1 of the current row's first run (order of gathering)
};

inline int RowCount(const Active& a) { return a.s->constant ? 1 : a.s->slab.cnt[a.k]; }
inline const RSRUN* RowRuns(const Active& a) { return a.s->constant ? &a.s->run : a.r; }
inline int KeyOf(const Active& a) {
  const int n = RowCount(a);
  return n > 0 ? RowRuns(a)[0].x1 : INT_MAX;
}

// Insertion sort: the keys change little from row to row, so the list
// stays nearly sorted and one pass costs little more than a scan.
void SortActive(std::vector<Active>& act) {
  for (size_t i = 1; i < act.size(); ++i) {
    const Active v = act[i];
    size_t j = i;
    for (; j > 0 && act[j - 1].key > v.key; --j) act[j] = act[j - 1];
    act[j] = v;
  }
}

}  // namespace

// Sources are gathered row by row in the order of their first runs, which
// changes little between rows, so the gathered runs are nearly sorted and
// the insertion sort below is close to one pass. Speed measured by
// bench_region (BM_PolySet_Ours).
void MergeSources(std::vector<RowSource>& src, RowWriter& w) {
  if (src.empty()) return;
  std::stable_sort(src.begin(), src.end(),
                   [](const RowSource& a, const RowSource& b) { return a.slab.top < b.slab.top; });
  std::vector<Active> act;
  std::vector<RSRUN> tmp;
  size_t next = 0;
  long long y = src[0].slab.top;
  while (next < src.size() || !act.empty()) {
    if (act.empty()) {
      w.Gap();
      y = std::max(y, src[next].slab.top);
    }
    bool added = false;
    for (; next < src.size() && src[next].slab.top <= y; ++next) {
      Active a{&src[next], src[next].slab.runs, 0, 0};
      a.key = KeyOf(a);
      act.push_back(a);
      added = true;
    }
    if (added) SortActive(act);
    long long total = 0;
    for (const Active& a : act) total += RowCount(a);
    if ((long long)tmp.size() < total) SizeTo(tmp, std::max<long long>(total, 2 * (long long)tmp.size()));
    RSRUN* t = tmp.data();
    for (const Active& a : act) {
      const int n = RowCount(a);
      std::memcpy(t, RowRuns(a), (size_t)n * sizeof(RSRUN));
      t += n;
    }
    const int n = (int)(t - tmp.data());
    RSRUN* g = tmp.data();
    for (int i = 1; i < n; ++i) {
      const RSRUN v = g[i];
      int j = i;
      for (; j > 0 && g[j - 1].x1 > v.x1; --j) g[j] = g[j - 1];
      g[j] = v;
    }
    RSRUN* o = w.Out();
    RSRUN* const row0 = o;
    for (int i = 0; i < n; ++i) {
      if (o > row0 && (long long)g[i].x1 <= (long long)o[-1].x2 + 1) {
        if (g[i].x2 > o[-1].x2) o[-1].x2 = g[i].x2;
      } else {
        *o++ = g[i];
      }
    }
    w.EndRow(y, o);
    // Next row: advance, drop finished sources, refresh the keys.
    size_t keep = 0;
    for (Active& a : act) {
      if (y >= a.s->slab.bottom) continue;
      if (!a.s->constant) a.r += a.s->slab.cnt[a.k];
      ++a.k;
      a.key = KeyOf(a);
      act[keep++] = a;
    }
    act.resize(keep);
    SortActive(act);
    ++y;
  }
  w.Gap();
}

void UniteSlabs(const std::vector<Slab>& slabs, PieceList& out) {
  std::vector<RowSource> src;
  src.reserve(slabs.size());
  long long runs = 0, rows = 0, top = 0, bottom = -1;
  for (const Slab& s : slabs) {
    src.push_back(RowSource{s, false, RSRUN{0, 0}});
    long long r = 0;
    for (long long k = 0; k <= s.bottom - s.top; ++k) r += s.cnt[k];
    runs += r;
    rows += s.bottom - s.top + 1;
    top = src.size() == 1 ? s.top : std::min(top, s.top);
    bottom = src.size() == 1 ? s.bottom : std::max(bottom, s.bottom);
  }
  if (src.empty()) return;
  RowWriter w;
  w.Init(CheckedCount(runs), std::min(rows, bottom - top + 1));
  MergeSources(src, w);
  w.Flush(out);
}

}  // namespace tqrgn
