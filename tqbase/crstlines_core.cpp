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

void PieceList::SortByTop() {
  std::stable_sort(m_arr.begin(), m_arr.end(),
                   [](const RSRLINE* a, const RSRLINE* b) { return a->rcBox.top < b->rcBox.top; });
}

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

// The run pass over r[0..R): whether some run is inverted (x1 > x2), the
// number of order breaks between runs i - 1 and i, the least x1 and the
// greatest x2. A break is r[i].x1 <= r[i - 1].x2 + 1, written as two
// 32-bit tests because x2 + 1 wraps only for x2 == INT_MAX, where
// x1 <= x2 already holds.
struct RunFacts {
  long long breaks = 0;
  bool inverted = false;
  int least = INT_MAX, greatest = INT_MIN;
};

void RunPassScalar(const RSRUN* r, long long from, long long R, RunFacts& f) {
  long long breaks = 0;
  int inv = 0, least = f.least, greatest = f.greatest;
  for (long long i = from; i < R; ++i) {
    const int x1 = r[i].x1, x2 = r[i].x2, prev = r[i - 1].x2;
    inv |= x1 > x2;
    breaks += (x1 <= prev) | (x1 == (int)((unsigned)prev + 1u));
    least = std::min(least, x1);
    greatest = std::max(greatest, x2);
  }
  f.breaks += breaks;
  f.inverted |= inv != 0;
  f.least = least;
  f.greatest = greatest;
}

#ifdef TQ_RGN_SSE2
// The fast form of the run pass. With t the run array read as ints and 1
// added to every x2, a row is sorted and merged, and its runs are not
// inverted, exactly when t rises strictly along the row: x1 < x2 + 1 and
// x2 + 1 < next x1. The pass compares t with itself one int back (A and
// B below) and counts, per lane, the places where it rises: even lanes
// are order tests between runs, odd lanes inversion tests. An x2 of
// INT_MAX wraps, so any inversion seen here sends the piece to the exact
// pass, which also decides the wrapped cases.
__attribute__((target("avx2"))) bool RunPassAvx2(const RSRUN* r, long long R, RunFacts& f) {
  const int* s = reinterpret_cast<const int*>(r);
  const __m256i oddOne = _mm256_set_epi32(1, 0, 1, 0, 1, 0, 1, 0);
  const __m256i evenOne = _mm256_set_epi32(0, 1, 0, 1, 0, 1, 0, 1);
  if (r[0].x2 == INT_MAX) return false;  // seen only as an earlier x2 below
  __m256i rises = _mm256_setzero_si256();
  __m256i lo = _mm256_set1_epi32(INT_MAX), hi = _mm256_set1_epi32(INT_MIN);
  long long i = 1;
  for (; i + 4 <= R; i += 4) {
    const __m256i X = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + 2 * i));
    const __m256i A = _mm256_add_epi32(X, oddOne);
    const __m256i B = _mm256_add_epi32(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + 2 * i - 1)), evenOne);
    rises = _mm256_sub_epi32(rises, _mm256_cmpgt_epi32(A, B));
    lo = _mm256_min_epi32(lo, X);
    hi = _mm256_max_epi32(hi, X);
  }
  alignas(32) int v[8], l[8], h[8];
  _mm256_store_si256(reinterpret_cast<__m256i*>(v), rises);
  _mm256_store_si256(reinterpret_cast<__m256i*>(l), lo);
  _mm256_store_si256(reinterpret_cast<__m256i*>(h), hi);
  long long order = 0, upright = 0;
  for (int k = 0; k < 8; k += 2) {
    order += (unsigned)v[k];
    upright += (unsigned)v[k + 1];
    f.least = std::min(f.least, l[k]);
    f.greatest = std::max(f.greatest, h[k + 1]);
  }
  const long long steps = i - 1;
  if (upright != steps) return false;
  f.breaks = steps - order;
  // The tail, and run 0 (its own inversion test and its ends).
  for (long long k = i; k < R; ++k) {
    const int x1 = r[k].x1, prev = r[k - 1].x2;
    if (x1 > r[k].x2) return false;
    f.breaks += (x1 <= prev) | (x1 == (int)((unsigned)prev + 1u));
    f.least = std::min(f.least, x1);
    f.greatest = std::max(f.greatest, r[k].x2);
  }
  f.least = std::min(f.least, r[0].x1);
  f.greatest = std::max(f.greatest, r[0].x2);
  return r[0].x1 <= r[0].x2;
}

// The extent pass: inversions, the least x1 and the greatest x2, for a
// validity check that leaves order aside.
__attribute__((target("avx2"))) void ExtentAvx2(const RSRUN* r, long long R, RunFacts& f) {
  const int* s = reinterpret_cast<const int*>(r);
  __m256i lo = _mm256_set1_epi32(INT_MAX), hi = _mm256_set1_epi32(INT_MIN), inv = _mm256_setzero_si256();
  long long i = 0;
  for (; i + 4 <= R; i += 4) {
    const __m256i A = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(s + 2 * i));
    const __m256i S = _mm256_shuffle_epi32(A, _MM_SHUFFLE(2, 3, 0, 1));  // x1 and x2 swapped
    inv = _mm256_or_si256(inv, _mm256_cmpgt_epi32(A, S));               // even lanes: x1 > x2
    lo = _mm256_min_epi32(lo, A);
    hi = _mm256_max_epi32(hi, A);
  }
  alignas(32) int l[8], h[8], v[8];
  _mm256_store_si256(reinterpret_cast<__m256i*>(l), lo);
  _mm256_store_si256(reinterpret_cast<__m256i*>(h), hi);
  _mm256_store_si256(reinterpret_cast<__m256i*>(v), inv);
  for (int k = 0; k < 8; k += 2) {
    f.least = std::min(f.least, l[k]);
    f.greatest = std::max(f.greatest, h[k + 1]);
    f.inverted |= v[k] != 0;
  }
  for (; i < R; ++i) {
    f.inverted |= r[i].x1 > r[i].x2;
    f.least = std::min(f.least, r[i].x1);
    f.greatest = std::max(f.greatest, r[i].x2);
  }
}

// The breaks at row starts, eight rows a step: the rows' start offsets by
// a prefix sum of their counts, and at each start the last x2 before it and
// the row's first x1, which lie side by side, fetched by one gather of
// their 8 bytes. Rows without runs, and the first run of the piece, are
// masked off.
__attribute__((target("avx2"))) long long RowBreaksAvx2(const RSRUN* r, const int* cnt, long long N) {
  const long long* base = reinterpret_cast<const long long*>(reinterpret_cast<const char*>(r) - 4);
  long long breaks = 0, off = 0, k = 0;
  const __m256i one = _mm256_set1_epi32(1), zero = _mm256_setzero_si256();
  for (; k + 8 <= N; k += 8) {
    const __m256i c = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(cnt + k));
    // Inclusive prefix sum within each half, then the low half's total
    // carried into the high half, then the offset of the block.
    __m256i p = _mm256_add_epi32(c, _mm256_slli_si256(c, 4));
    p = _mm256_add_epi32(p, _mm256_slli_si256(p, 8));
    const __m256i lowTotal = _mm256_permutevar8x32_epi32(p, _mm256_set_epi32(3, 3, 3, 3, 7, 7, 7, 7));
    p = _mm256_add_epi32(p, _mm256_blend_epi32(zero, lowTotal, 0xF0));
    // Offsets stay below 2^31 (counts sum to the run count, an int).
    const __m256i start = _mm256_add_epi32(_mm256_sub_epi32(p, c), _mm256_set1_epi32((int)off));
    const __m256i live = _mm256_andnot_si256(_mm256_cmpeq_epi32(c, zero), _mm256_cmpgt_epi32(start, zero));
    const __m256i lo = _mm256_mask_i64gather_epi64(zero, base, _mm256_cvtepi32_epi64(_mm256_castsi256_si128(start)),
                                                   _mm256_cvtepi32_epi64(_mm256_castsi256_si128(live)), 8);
    const __m256i hi = _mm256_mask_i64gather_epi64(zero, base, _mm256_cvtepi32_epi64(_mm256_extracti128_si256(start, 1)),
                                                   _mm256_cvtepi32_epi64(_mm256_extracti128_si256(live, 1)), 8);
    // Even ints of each gathered pair: the x2 before; odd: the first x1.
    const __m256 lf = _mm256_castsi256_ps(lo), hf = _mm256_castsi256_ps(hi);
    const __m256i prev = _mm256_permute4x64_epi64(_mm256_castps_si256(_mm256_shuffle_ps(lf, hf, _MM_SHUFFLE(2, 0, 2, 0))),
                                                  _MM_SHUFFLE(3, 1, 2, 0));
    const __m256i x1 = _mm256_permute4x64_epi64(_mm256_castps_si256(_mm256_shuffle_ps(lf, hf, _MM_SHUFFLE(3, 1, 3, 1))),
                                                _MM_SHUFFLE(3, 1, 2, 0));
    const __m256i rises =
        _mm256_andnot_si256(_mm256_cmpeq_epi32(x1, _mm256_add_epi32(prev, one)), _mm256_cmpgt_epi32(x1, prev));
    const __m256i brk = _mm256_andnot_si256(rises, live);
    breaks += __builtin_popcount((unsigned)_mm256_movemask_ps(_mm256_castsi256_ps(brk)));
    off += (unsigned)_mm256_extract_epi32(p, 7);
  }
  for (; k < N; ++k) {
    const int c = cnt[k];
    if (c > 0 && off > 0) {
      const int x1 = r[off].x1, prev = r[off - 1].x2;
      breaks += (x1 <= prev) | (x1 == (int)((unsigned)prev + 1u));
    }
    off += c;
  }
  return breaks;
}

bool HaveAvx2() {
  static const bool have = __builtin_cpu_supports("avx2");
  return have;
}
#endif

// The inversion flag, break count, least x1 and greatest x2 of the run
// pass.
// Speed measured by bench_region (BM_Combine_Ours, whose operands are
// checked on every call).
RunFacts RunPass(const RSRUN* r, long long R) {
  RunFacts f;
#ifdef TQ_RGN_SSE2
  if (HaveAvx2() && RunPassAvx2(r, R, f)) return f;
  f = RunFacts();
#endif
  f.inverted = r[0].x1 > r[0].x2;
  f.least = r[0].x1;
  f.greatest = r[0].x2;
  RunPassScalar(r, 1, R, f);
  return f;
}

}  // namespace

RunFacts Extent(const RSRUN* r, long long R) {
  RunFacts f;
#ifdef TQ_RGN_SSE2
  if (HaveAvx2()) {
    ExtentAvx2(r, R, f);
    return f;
  }
#endif
  for (long long i = 0; i < R; ++i) {
    f.inverted |= r[i].x1 > r[i].x2;
    f.least = std::min(f.least, r[i].x1);
    f.greatest = std::max(f.greatest, r[i].x2);
  }
  return f;
}

// Counts must not be negative: the sum rule alone would let a negative
// count hide a row that reads past the runs. The rows are sorted when
// every order break of the run pass is a row start; the row pass counts
// the breaks at row starts.
int CheckPiece(const RSRLINE* p, bool order) {
  if (!p) return 0;
  const long long R = p->arRun.GetSize();
  long long N = p->arCount.GetSize();
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
  if (!order) {
    const RunFacts e = Extent(r, R);
    return !e.inverted && e.least == b.left && e.greatest <= b.right ? kPieceValid : 0;
  }
  const RunFacts f = RunPass(r, R);
  if (f.inverted || f.least != b.left || f.greatest > b.right) return 0;
  // The breaks at row starts: there the last x2 before the row and the
  // row's first x1 lie side by side, one 8-byte load.
  long long rowBreaks = 0;
  long long off = 0;
#ifdef TQ_RGN_SSE2
  if (HaveAvx2()) {
    rowBreaks = RowBreaksAvx2(r, cnt, N);
    N = 0;  // done
  }
#endif
  for (long long k = 0; k < N; ++k) {
    const int c = cnt[k];
    if (c > 0 && off > 0) {
      unsigned long long pair;
      std::memcpy(&pair, &r[off - 1].x2, sizeof pair);
      const int prev = (int)(unsigned)pair, x1 = (int)(unsigned)(pair >> 32);
      rowBreaks += (x1 <= prev) | (x1 == (int)((unsigned)prev + 1u));
    }
    off += c;
  }
  const bool sorted = f.breaks == rowBreaks;
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

void RowWriter::Grow(long long n, long long keep) {
  const long long used = m_end - m_runs;
  const long long cap = std::max(used + n, std::min(2 * m_cap, kMaxItems));
  m_runs = static_cast<RSRUN*>(m_runBuf.Grow(cap, sizeof(RSRUN), (size_t)(used + keep) * sizeof(RSRUN)));
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
    // Every row of a band has runs; its first and last give the box.
    int left = INT_MAX, right = INT_MIN;
    const RSRUN* r = m_runs + b.run0;
    for (long long k = b.row0; k < b.row1; ++k) {
      left = std::min(left, r[0].x1);
      r += m_cnt[k];
      right = std::max(right, r[-1].x2);
    }
    p->rcBox.left = left;
    p->rcBox.right = right;
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
  int widest;      // most runs of any row of the source
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

// Sorted runs g[0..n) merged where they overlap or touch, written at o.
inline RSRUN* Coalesce(const RSRUN* g, int n, RSRUN* o) {
  RSRUN* const row0 = o;
  for (int i = 0; i < n; ++i) {
    if (o > row0 && (long long)g[i].x1 <= (long long)o[-1].x2 + 1) {
      if (g[i].x2 > o[-1].x2) o[-1].x2 = g[i].x2;
    } else {
      *o++ = g[i];
    }
  }
  return o;
}

}  // namespace

// Sources are gathered row by row in the order of their first runs, which
// changes little between rows, so the gathered runs are nearly sorted and
// the insertion sort below is close to one pass; when every active source
// is a constant run and none came or went, a row repeats the one above.
// Speed measured by bench_region (BM_PolySet_Ours).
void MergeSources(std::vector<RowSource>& src, RowWriter& w) {
  if (src.empty()) return;
  std::stable_sort(src.begin(), src.end(),
                   [](const RowSource& a, const RowSource& b) { return a.slab.top < b.slab.top; });
  std::vector<Active> act;
  std::vector<RSRUN> tmp;
  long long room = 0;       // runs the active sources can give a row
  long long varying = 0;    // active sources that are not constant runs
  bool changed = true;      // the active set changed since the last row
  const RSRUN* last = nullptr;  // the last row written, when it was the row above
  long long lastN = 0;
  size_t next = 0;
  long long y = src[0].slab.top;
  while (next < src.size() || !act.empty()) {
    if (act.empty()) {
      // The row writer starts a new band itself when rows are skipped.
      last = nullptr;
      y = std::max(y, src[next].slab.top);
    }
    for (; next < src.size() && src[next].slab.top <= y; ++next) {
      RowSource& rs = src[next];
      Active a{&rs, rs.slab.runs, 0, 0, 1};
      if (!rs.constant) {
        for (long long k = 0; k <= rs.slab.bottom - rs.slab.top; ++k) a.widest = std::max(a.widest, rs.slab.cnt[k]);
        ++varying;
      }
      a.key = KeyOf(a);
      room += a.widest;
      act.push_back(a);
      changed = true;
    }
    RSRUN* o = w.Out();
    if (!changed && varying == 0 && last) {
      std::memcpy(o, last, (size_t)lastN * sizeof(RSRUN));
      o += lastN;
    } else {
      if (changed) SortActive(act);
      if ((long long)tmp.size() < room) SizeTo(tmp, std::max(room, 2 * (long long)tmp.size()));
      RSRUN* t = tmp.data();
      bool sorted = true;
      int prevX1 = INT_MIN;
      for (const Active& a : act) {
        const int n = RowCount(a);
        const RSRUN* r = RowRuns(a);
        for (int i = 0; i < n; ++i) {
          sorted &= r[i].x1 >= prevX1;
          prevX1 = r[i].x1;
          *t++ = r[i];
        }
      }
      const int n = (int)(t - tmp.data());
      if (!sorted) {
        RSRUN* g = tmp.data();
        for (int i = 1; i < n; ++i) {
          const RSRUN v = g[i];
          int j = i;
          for (; j > 0 && g[j - 1].x1 > v.x1; --j) g[j] = g[j - 1];
          g[j] = v;
        }
      }
      o = Coalesce(tmp.data(), n, o);
    }
    last = w.Out();
    lastN = o - last;
    w.EndRow(y, o);
    if (lastN == 0) last = nullptr;
    // Next row: advance, drop finished sources, refresh the keys.
    changed = false;
    size_t keep = 0;
    for (Active& a : act) {
      if (y >= a.s->slab.bottom) {
        room -= a.widest;
        varying -= !a.s->constant;
        changed = true;
        continue;
      }
      if (!a.s->constant) {
        a.r += a.s->slab.cnt[a.k];
        ++a.k;
        a.key = KeyOf(a);
      } else {
        ++a.k;
      }
      act[keep++] = a;
    }
    act.resize(keep);
    if (varying) SortActive(act);
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
