// crstlines.cpp - CRstLines: the owning region object, validity, copies,
// offsets, hit tests, the barycentre, and the engine's shared machinery
// (scratch blocks, row cursors, band builder) declared in
// crstlines_internal.h.
//
// Relies on the memory manager for scratch blocks and on g_Error for
// failure texts. Every operation that allocates catches std::bad_alloc at
// its boundary and frees what it made.
#include <algorithm>
#include <cstdlib>
#include <new>

#include "crstlines_internal.h"
#include "tqbase/anxfuns.h"
#include "tqbase/acycle.h"

namespace tqrgn {

#ifdef NDEBUG
bool g_validate = false;
#else
bool g_validate = true;
#endif

int Fail(const char* what) { return g_Error.SetLastError("%s", what); }

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

void* Scratch::Get(size_t bytes) {
  Free();
  if (bytes == 0) bytes = 1;
  if (bytes > 0xFFFFFFF0u) return nullptr;
  if (kUseWorkBuffer) {
    unsigned char* p = g_AGV.LockBuffer((unsigned long)bytes, FALSE);
    if (p) {
      m_p = p;
      m_lent = true;
      return m_p;
    }
  }
  m_p = static_cast<unsigned char*>(AGlobalAllocPtr(GMEM_FIXED, (DWORD)bytes));
  m_lent = false;
  return m_p;
}

void* Scratch::Grow(size_t bytes, size_t keep) {
  if (bytes > 0xFFFFFFF0u) return nullptr;
  unsigned char* p = static_cast<unsigned char*>(AGlobalAllocPtr(GMEM_FIXED, (DWORD)(bytes ? bytes : 1)));
  if (!p) return nullptr;
  if (m_p && keep) std::memcpy(p, m_p, std::min(keep, bytes));
  Free();
  m_p = p;
  m_lent = false;
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

int SortMergeRow(RSRUN* r, int n) {
  if (n <= 1) return n;
  if (n < 32) {
    for (int i = 1; i < n; ++i) {
      RSRUN v = r[i];
      int j = i;
      while (j > 0 && r[j - 1].x1 > v.x1) {
        r[j] = r[j - 1];
        --j;
      }
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

// ---- RowSource ---------------------------------------------------------------

bool RowSource::Init(const RSRLINE* piece) {
  m_pieces.clear();
  m_active.clear();
  m_nextPiece = 0;
  m_total = 0;
  if (!piece || piece->arRun.GetSize() == 0 || piece->arCount.GetSize() == 0) return false;
  Cursor c{piece, piece->rcBox.top, (long long)piece->rcBox.top + piece->arCount.GetSize() - 1, 0, 0};
  m_pieces.push_back(c);
  m_top = c.top;
  m_bottom = c.bottom;
  m_total = piece->arRun.GetSize();
  m_totalRows = piece->arCount.GetSize();
  m_left = piece->rcBox.left;
  m_right = piece->rcBox.right;
  return true;
}

bool RowSource::Init(const CRasterArray* arr) {
  m_pieces.clear();
  m_active.clear();
  m_nextPiece = 0;
  m_total = 0;
  m_totalRows = 0;
  if (!arr) return false;
  for (const RSRLINE* p : *arr) {
    if (!p || p->arRun.GetSize() == 0 || p->arCount.GetSize() == 0) continue;
    Cursor c{p, p->rcBox.top, (long long)p->rcBox.top + p->arCount.GetSize() - 1, 0, 0};
    if (m_pieces.empty()) {
      m_top = c.top;
      m_bottom = c.bottom;
      m_left = p->rcBox.left;
      m_right = p->rcBox.right;
    } else {
      m_top = std::min(m_top, c.top);
      m_bottom = std::max(m_bottom, c.bottom);
      m_left = std::min<long long>(m_left, p->rcBox.left);
      m_right = std::max<long long>(m_right, p->rcBox.right);
    }
    m_pieces.push_back(c);
    m_total += p->arRun.GetSize();
    m_totalRows += p->arCount.GetSize();
  }
  if (m_pieces.empty()) return false;
  std::stable_sort(m_pieces.begin(), m_pieces.end(),
                   [](const Cursor& a, const Cursor& b) { return a.top < b.top; });
  return true;
}

void RowSource::Seek(Cursor& c, long long y) {
  long long k = y - c.top;
  const int* cnt = c.p->arCount.GetData();
  while (c.row < k) c.off += (size_t)std::max(cnt[c.row++], 0);
}

void RowSource::Advance(long long y) {
  while (m_nextPiece < m_pieces.size() && m_pieces[m_nextPiece].top <= y) m_active.push_back(m_nextPiece++);
  size_t w = 0;
  for (size_t i = 0; i < m_active.size(); ++i)
    if (m_pieces[m_active[i]].bottom >= y) m_active[w++] = m_active[i];
  m_active.resize(w);
}

void RowSource::Row(long long y, const RSRUN*& runs, int& n) {
  runs = nullptr;
  n = 0;
  if (m_pieces.size() == 1) {
    Cursor& c = m_pieces[0];
    if (y < c.top || y > c.bottom) return;
    Seek(c, y);
    const RSRUN* r = c.p->arRun.GetData() + c.off;
    int cnt = std::max(c.p->arCount.GetData()[c.row], 0);
    if (RowSorted(r, cnt)) {
      runs = r;
      n = cnt;
      return;
    }
    m_tmp.assign(r, r + cnt);
    n = SortMergeRow(m_tmp.data(), cnt);
    runs = m_tmp.data();
    return;
  }
  // Several pieces: keep the set of pieces covering y.
  Advance(y);
  const RSRUN* single = nullptr;
  int singleN = 0;
  int contributors = 0;
  size_t need = 0;
  for (size_t idx : m_active) {
    Cursor& c = m_pieces[idx];
    Seek(c, y);
    int cnt = std::max(c.p->arCount.GetData()[c.row], 0);
    if (cnt == 0) continue;
    ++contributors;
    single = c.p->arRun.GetData() + c.off;
    singleN = cnt;
    need += (size_t)cnt;
  }
  if (contributors == 0) return;
  if (contributors == 1 && RowSorted(single, singleN)) {
    runs = single;
    n = singleN;
    return;
  }
  m_tmp.clear();
  m_tmp.reserve(need);
  for (size_t idx : m_active) {
    Cursor& c = m_pieces[idx];
    int cnt = std::max(c.p->arCount.GetData()[c.row], 0);
    const RSRUN* r = c.p->arRun.GetData() + c.off;
    m_tmp.insert(m_tmp.end(), r, r + cnt);
  }
  n = SortMergeRow(m_tmp.data(), (int)m_tmp.size());
  runs = m_tmp.data();
}

// ---- BandBuilder ---------------------------------------------------------------

bool BandBuilder::Init(CRasterArray* out, long long maxRuns, long long maxRows) {
  m_out = out;
  m_capRuns = std::max(maxRuns, 16LL);
  if (maxRows < 1) maxRows = 1;
  if (m_capRuns > kMaxItems || maxRows > kMaxRows) return false;
  m_runs = static_cast<RSRUN*>(m_runBuf.Get((size_t)m_capRuns * sizeof(RSRUN)));
  // The counts come from the heap: the work buffer is already lent to runs.
  m_counts = static_cast<int*>(m_cntBuf.Get((size_t)maxRows * sizeof(int)));
  m_capRows = maxRows;
  m_nRuns = m_rowStart = m_nRows = 0;
  return m_runs && m_counts;
}

void BandBuilder::Grow() {
  long long cap = m_capRuns * 2;
  if (cap > kMaxItems) throw std::bad_alloc();
  RSRUN* p = static_cast<RSRUN*>(m_runBuf.Grow((size_t)cap * sizeof(RSRUN), (size_t)m_nRuns * sizeof(RSRUN)));
  if (!p) throw std::bad_alloc();
  m_runs = p;
  m_capRuns = cap;
}

void BandBuilder::EndRow() {
  long long n = m_nRuns - m_rowStart;
  if (n == 0) {
    if (m_nRows > 0) CloseBand();
    return;
  }
  if (m_nRows > 0 && m_y != m_bandTop + m_nRows) {
    // A row was skipped: the band ends before this row's runs.
    long long keep = m_rowStart;
    RSRUN* rowRuns = m_runs + keep;
    std::vector<RSRUN> saved(rowRuns, rowRuns + n);
    m_nRuns = keep;
    CloseBand();
    std::memcpy(m_runs, saved.data(), (size_t)n * sizeof(RSRUN));
    m_nRuns = n;
    m_rowStart = 0;
  }
  if (m_nRows == 0) m_bandTop = m_y;
  if (m_nRows == m_capRows) throw std::bad_alloc();
  m_counts[m_nRows++] = (int)n;
}

void BandBuilder::Finish() {
  if (m_nRows > 0) CloseBand();
}

void BandBuilder::CloseBand() {
  RSRLINE* p = MakePiece(m_runs, m_nRuns, m_counts, m_nRows, m_bandTop);
  try {
    m_out->Add(p);
  } catch (...) {
    delete p;
    throw;
  }
  m_nRuns = m_rowStart = m_nRows = 0;
}

RSRLINE* MakePiece(const RSRUN* runs, long long nRuns, const int* counts, long long nRows, long long top) {
  RSRLINE* p = new RSRLINE;
  try {
    p->arRun.vec().assign(runs, runs + nRuns);
    p->arCount.vec().assign(counts, counts + nRows);
  } catch (...) {
    delete p;
    throw;
  }
  long long left = 0, right = 0;
  bool any = false;
  const RSRUN* r = runs;
  for (long long k = 0; k < nRows; ++k) {
    int c = counts[k];
    if (c > 0) {
      if (!any || r[0].x1 < left) left = r[0].x1;
      if (!any || r[c - 1].x2 > right) right = r[c - 1].x2;
      any = true;
      r += c;
    }
  }
  p->rcBox.left = (LONG)left;
  p->rcBox.right = (LONG)right;
  p->rcBox.top = (LONG)top;
  p->rcBox.bottom = (LONG)(top + nRows - 1);
  if (nRows == 0) p->rcBox.bottom = p->rcBox.top;
  return p;
}

void ReleaseFrom(CRasterArray* arr, int from) {
  if (!arr) return;
  for (int i = from; i < arr->GetSize(); ++i) delete arr->GetData()[i];
  if (from < arr->GetSize()) arr->vec().resize((size_t)from);
}

}  // namespace tqrgn

using namespace tqrgn;

// ---- validity -----------------------------------------------------------------------

BOOL CRstLines::SetValidate(BOOL on) {
  BOOL old = g_validate ? TRUE : FALSE;
  g_validate = on != 0;
  return old;
}

// Counts must not be negative: the sum rule alone would let a negative
// count hide a row that reads past the runs.
//
// The run pass looks only at inverted runs and order breaks (a break:
// r[i].x1 <= r[i - 1].x2 + 1, written as two 32-bit tests because x2 + 1
// wraps only for x2 == INT_MAX, where x1 <= x2 already holds). When every
// break is a row start the rows are sorted, so the least x1 and greatest x2
// are among the rows' first and last runs, which the row pass visits
// anyway; only an unsorted piece needs the full min/max pass. The run pass
// is branch-free and vectorises; where the compiler can, it is also built
// for AVX2 and picked at load time (BM_Bool_Ours in bench_region).
#if defined(__GNUC__) && !defined(__clang__) && defined(__x86_64__) && defined(__linux__) && \
    !defined(__SANITIZE_ADDRESS__)
#define TQ_RUNPASS_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define TQ_RUNPASS_CLONES
#endif

namespace {
TQ_RUNPASS_CLONES
unsigned RunPass(const RSRUN* r, long long R, int* inverted) {
  unsigned breaks = 0;
  int inv = r[0].x1 > r[0].x2;
  for (long long i = 1; i < R; ++i) {
    const int x1 = r[i].x1, prev = r[i - 1].x2;
    inv |= x1 > r[i].x2;
    breaks += (unsigned)((x1 <= prev) | (x1 == (int)((unsigned)prev + 1u)));
  }
  *inverted = inv;
  return breaks;
}
}  // namespace

int tqrgn::CheckPiece(const RSRLINE* p) {
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
  // Row pass: breaks at row starts (allowed), least first x1 and greatest
  // last x2. sum == R with no negative count keeps every non-empty row
  // inside the runs.
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
    least = r[0].x1;
    greatest = r[0].x2;
    for (long long i = 1; i < R; ++i) {
      least = std::min(least, r[i].x1);
      greatest = std::max(greatest, r[i].x2);
    }
  }
  if (least != b.left || greatest > b.right) return 0;
  return sorted ? kPieceValid | kPieceSorted : kPieceValid;
}

BOOL CRstLines::IsValid(const RSRLINE* p) { return (CheckPiece(p) & kPieceValid) ? TRUE : FALSE; }

BOOL CRstLines::IsValid(const CRasterArray* arr) {
  if (!arr) return FALSE;
  for (const RSRLINE* p : *arr)
    if (!IsValid(p)) return FALSE;
  return TRUE;
}

BOOL CRstLines::IsWellFormed(const RSRLINE* p) {
  return CheckPiece(p) == (kPieceValid | kPieceSorted) ? TRUE : FALSE;
}

BOOL CRstLines::IsWellFormed(const CRasterArray* arr) {
  if (!arr) return FALSE;
  for (const RSRLINE* p : *arr)
    if (!IsWellFormed(p)) return FALSE;
  return TRUE;
}

// ---- life of the object -----------------------------------------------------------

CRstLines::CRstLines() : m_pRstArray(nullptr), m_bOwnData(TRUE) { SetRectEmpty(&m_rcBox); }

CRstLines::CRstLines(const CRstLines& other) : m_pRstArray(nullptr), m_bOwnData(TRUE) {
  SetRectEmpty(&m_rcBox);
  Copy(&other);
}

CRstLines& CRstLines::operator=(const CRstLines& other) {
  if (this != &other) Copy(&other);
  return *this;
}

CRstLines::~CRstLines() {
  if (m_bOwnData) Delete(m_pRstArray);
}

void CRstLines::SetEmpty() {
  ASSERT(m_bOwnData);
  if (!m_bOwnData) return;
  Delete(m_pRstArray);
  SetRectEmpty(&m_rcBox);
}

BOOL CRstLines::IsEmpty() const { return IsEmpty(m_pRstArray); }

// Installs arr (owned, may be null) as the region, freeing the old one.
static void Adopt(CRasterArray*& mine, BOOL& own, CRasterArray* arr) {
  if (own && mine != arr) CRstLines::Delete(mine);
  mine = arr;
  own = TRUE;
}

BOOL CRstLines::Create(const POINT* pts, int n, AFillMode mode) {
  ASSERT(m_bOwnData);
  if (!m_bOwnData || !pts || n < 1) return FALSE;
  RSRLINE* p = CreateRaster(pts, n, mode);
  if (!p) return FALSE;
  try {
    if (!m_pRstArray) m_pRstArray = new CRasterArray;
    Release(m_pRstArray);
    m_pRstArray->Add(p);
  } catch (const std::bad_alloc&) {
    delete p;
    Fail("CRstLines::Create: out of memory");
    return FALSE;
  }
  Update();
  RGN_CHECK_ARRAY(m_pRstArray);
  return m_pRstArray != nullptr;
}

BOOL CRstLines::Create(const POINT* pts, const int* counts, int nPolys, AFillMode mode, int nJoin) {
  ASSERT(m_bOwnData);
  if (!m_bOwnData) return FALSE;
  CRasterArray* arr = CreateRasterArray(pts, counts, nPolys, mode, nJoin);
  if (!arr) return FALSE;
  Adopt(m_pRstArray, m_bOwnData, arr);
  Update();
  RGN_CHECK_ARRAY(m_pRstArray);
  return TRUE;
}

BOOL CRstLines::Create(const RECT& rcIn, int nInflate, double dScale) {
  ASSERT(m_bOwnData);
  if (!m_bOwnData) return FALSE;
  long long l = rcIn.left, t = rcIn.top, r = rcIn.right, b = rcIn.bottom;
  if (dScale > 0 && dScale != 1.0) {
    l = AnxFloatToInt(l * dScale, TRUE);
    t = AnxFloatToInt(t * dScale, TRUE);
    r = AnxFloatToInt(r * dScale, TRUE);
    b = AnxFloatToInt(b * dScale, TRUE);
  }
  l -= nInflate;
  t -= nInflate;
  r += nInflate;
  b += nInflate;
  // The last pixel is right - 1 / bottom - 1, and must stay inside int.
  if (r <= l || b <= t || l < INT32_MIN || t < INT32_MIN || r - 1 > INT32_MAX || b - 1 > INT32_MAX ||
      b - t > kMaxRows) {
    SetEmpty();
    return FALSE;
  }
  CRasterArray* arr = nullptr;
  try {
    RSRLINE* p = new RSRLINE;
    try {
      p->arRun.vec().assign((size_t)(b - t), RSRUN{(int)l, (int)(r - 1)});
      p->arCount.vec().assign((size_t)(b - t), 1);
      p->rcBox.left = (LONG)l;
      p->rcBox.top = (LONG)t;
      p->rcBox.right = (LONG)(r - 1);
      p->rcBox.bottom = (LONG)(b - 1);
      arr = new CRasterArray;
      arr->Add(p);
    } catch (...) {
      delete p;
      throw;
    }
  } catch (const std::bad_alloc&) {
    Delete(arr);
    Fail("CRstLines::Create: out of memory");
    return FALSE;
  }
  Adopt(m_pRstArray, m_bOwnData, arr);
  Update();
  RGN_CHECK_ARRAY(m_pRstArray);
  return TRUE;
}

BOOL CRstLines::Create(const ANLOOPGRP* group) {
  ASSERT(m_bOwnData);
  if (!m_bOwnData) return FALSE;
  CRasterArray* arr = CreateRasterArray(group, ALTERNATE_FILL);
  if (!arr) return FALSE;
  Adopt(m_pRstArray, m_bOwnData, arr);
  Update();
  RGN_CHECK_ARRAY(m_pRstArray);
  return TRUE;
}

BOOL CRstLines::Copy(const CRstLines* src) {
  if (!src) return FALSE;
  if (src == this) return TRUE;
  return Copy(src->m_pRstArray);
}

BOOL CRstLines::Copy(const CRasterArray* src) {
  ASSERT(m_bOwnData);
  if (!m_bOwnData) return FALSE;
  if (src == m_pRstArray) return TRUE;
  if (!src) {
    SetEmpty();
    return TRUE;
  }
  CRasterArray* arr = nullptr;
  try {
    arr = new CRasterArray;
  } catch (const std::bad_alloc&) {
    Fail("CRstLines::Copy: out of memory");
    return FALSE;
  }
  if (!CopyRasterArray(arr, src)) {
    Delete(arr);
    return FALSE;
  }
  Adopt(m_pRstArray, m_bOwnData, arr);
  Update();
  return TRUE;
}

void CRstLines::Update() { m_rcBox = GetBox(m_pRstArray); }

BOOL CRstLines::Offset(int dx, int dy) {
  if (dx == 0 && dy == 0) return m_pRstArray == nullptr;
  if (!m_pRstArray) return TRUE;
  ASSERT(m_bOwnData);
  if (!m_bOwnData) return FALSE;
  if (Offset(m_pRstArray, dx, dy)) Update();
  return FALSE;
}

int CRstLines::Add(const RSRLINE* piece, int bAdd, const ACycle* cycle) {
  if (!piece || piece->arRun.GetSize() == 0) return RST_FAILED;
  // A non-owning one-element view of the piece.
  CRasterArray tmp;
  try {
    tmp.Add(const_cast<RSRLINE*>(piece));
  } catch (const std::bad_alloc&) {
    Fail("CRstLines::Add: out of memory");
    return RST_FAILED;
  }
  int rc = Add(&tmp, bAdd, cycle);
  tmp.vec().clear();
  return rc;
}

int CRstLines::Add(const CRasterArray* arr, int bAdd, const ACycle* cycle) {
  ASSERT(m_bOwnData);
  if (!m_bOwnData) return RST_FAILED;
  RGN_CHECK_ARRAY(m_pRstArray);
  CRasterArray* result = nullptr;
  CRasterArray empty;
  const CRasterArray* mine = m_pRstArray ? m_pRstArray : &empty;
  int rc = Combine(mine, arr, bAdd ? RST_OR : RST_DIFF, &result, bAdd ? nullptr : cycle);
  if (rc == RST_FAILED) return rc;
  Adopt(m_pRstArray, m_bOwnData, result);
  Update();
  RGN_CHECK_ARRAY(m_pRstArray);
  return rc;
}

int CRstLines::Combine(const CRstLines* a, const CRstLines* b, int mode, const ACycle* cycle) {
  if (!a || !b) return RST_FAILED;
  ASSERT(m_bOwnData);
  if (!m_bOwnData) return RST_FAILED;
  CRasterArray* arr = nullptr;
  try {
    arr = new CRasterArray;
  } catch (const std::bad_alloc&) {
    Fail("CRstLines::Combine: out of memory");
    return RST_FAILED;
  }
  CRasterArray ea, eb;
  const CRasterArray* pa = a->m_pRstArray ? a->m_pRstArray : &ea;
  const CRasterArray* pb = b->m_pRstArray ? b->m_pRstArray : &eb;
  if (!Create(arr, pa, pb, mode, cycle)) {
    Delete(arr);
    return RST_FAILED;
  }
  bool empty = arr->GetSize() == 0;
  if (empty) Delete(arr);
  Adopt(m_pRstArray, m_bOwnData, arr);
  Update();
  return empty ? RST_EMPTY : RST_NOTEMPTY;
}

BOOL CRstLines::PtInRstLines(const POINT& pt, const ACycle* cycle) const {
  if (!m_pRstArray) return FALSE;
  return PtInRasterArray(m_pRstArray, pt, cycle);
}

void CRstLines::HorMirror() {
  if (!m_pRstArray) return;
  ASSERT(m_bOwnData);
  if (!m_bOwnData) return;
  CRect rc(m_rcBox);
  HorMirror(m_pRstArray, rc);
  Update();
}

void CRstLines::VerMirror() {
  if (!m_pRstArray) return;
  ASSERT(m_bOwnData);
  if (!m_bOwnData) return;
  CRect rc(m_rcBox);
  VerMirror(m_pRstArray, rc);
  Update();
}

BOOL CRstLines::GetBaryCenter(POINTD& pt) {
  if (!m_pRstArray) return FALSE;
  return GetBaryCenter(m_pRstArray, pt);
}

void CRstLines::SetData(CRasterArray** pp) {
  if (!pp) return;
  CRasterArray* arr = *pp;
  *pp = nullptr;
  if (IsEmpty(arr)) {
    Delete(arr);
    if (m_bOwnData) Delete(m_pRstArray);
    m_pRstArray = nullptr;
    m_bOwnData = TRUE;
    SetRectEmpty(&m_rcBox);
    return;
  }
  ASSERT(IsValid(arr));
  Adopt(m_pRstArray, m_bOwnData, arr);
  Update();
}

void CRstLines::SetData(CRasterArray* arr) {
  if (IsEmpty(arr)) {
    if (m_bOwnData) Delete(m_pRstArray);
    m_pRstArray = nullptr;
    m_bOwnData = TRUE;
    SetRectEmpty(&m_rcBox);
    return;
  }
  ASSERT(IsValid(arr));
  if (arr == m_pRstArray) return;
  CRasterArray* copy = nullptr;
  try {
    copy = new CRasterArray;
  } catch (const std::bad_alloc&) {
    Fail("CRstLines::SetData: out of memory");
    return;
  }
  if (!CopyRasterArray(copy, arr)) {
    Delete(copy);
    return;
  }
  Adopt(m_pRstArray, m_bOwnData, copy);
  Update();
}

void CRstLines::MoveData(CRstLines* other) {
  if (!other || other == this) return;
  if (m_bOwnData) Delete(m_pRstArray);
  m_pRstArray = other->m_pRstArray;
  m_rcBox = other->m_rcBox;
  m_bOwnData = other->m_bOwnData;
  other->m_pRstArray = nullptr;
  other->m_bOwnData = TRUE;
  SetRectEmpty(&other->m_rcBox);
}

// ---- static operations on pieces and arrays ----------------------------------------

void CRstLines::SetRasterBox(RSRLINE* p, int nRuns, int nRows, int top) {
  p->arRun.SetSize(nRuns);
  p->arCount.SetSize(nRows);
  const RSRUN* r = p->arRun.GetData();
  bool any = false;
  LONG left = 0, right = 0;
  for (int k = 0; k < nRows; ++k) {
    int c = p->arCount[k];
    if (c <= 0) continue;
    if (!any || r[0].x1 < left) left = r[0].x1;
    if (!any || r[c - 1].x2 > right) right = r[c - 1].x2;
    any = true;
    r += c;
  }
  p->rcBox.left = left;
  p->rcBox.right = right;
  p->rcBox.top = top;
  p->rcBox.bottom = nRows > 0 ? top + nRows - 1 : top;
}

RECT CRstLines::GetBox(const CRasterArray* arr) {
  RECT rc;
  SetRectEmpty(&rc);
  if (!arr || arr->GetSize() == 0) return rc;
  ASSERT(IsValid(arr));
  bool any = false;
  for (const RSRLINE* p : *arr) {
    if (!p) continue;
    const RECT& b = p->rcBox;
    if (!any) {
      rc = b;
      any = true;
      continue;
    }
    rc.left = std::min(rc.left, b.left);
    rc.top = std::min(rc.top, b.top);
    rc.right = std::max(rc.right, b.right);
    rc.bottom = std::max(rc.bottom, b.bottom);
  }
  return rc;
}

// A move that would carry a coordinate out of the int range is refused as
// a whole (FALSE, nothing moved).
BOOL CRstLines::Offset(RSRLINE* p, int dx, int dy) {
  if (!p || (dx == 0 && dy == 0)) return TRUE;
  const RECT& b = p->rcBox;
  if ((long long)b.left + dx < INT32_MIN || (long long)b.right + dx > INT32_MAX ||
      (long long)b.top + dy < INT32_MIN || (long long)b.bottom + dy > INT32_MAX) {
    Fail("CRstLines::Offset: the region would leave the coordinate range");
    return FALSE;
  }
  // Runs lie within [left, right] when the piece is valid; check anyway so
  // that a malformed piece cannot overflow.
  if (dx != 0) {
    for (const RSRUN& r : p->arRun)
      if ((long long)r.x1 + dx < INT32_MIN || (long long)r.x2 + dx > INT32_MAX) {
        Fail("CRstLines::Offset: the region would leave the coordinate range");
        return FALSE;
      }
    for (RSRUN& r : p->arRun) {
      r.x1 += dx;
      r.x2 += dx;
    }
  }
  OffsetRect(&p->rcBox, dx, dy);
  return TRUE;
}

BOOL CRstLines::Offset(CRasterArray* arr, int dx, int dy) {
  if (!arr || (dx == 0 && dy == 0)) return TRUE;
  for (RSRLINE* p : *arr) {
    if (!p) continue;
    const RECT& b = p->rcBox;
    if ((long long)b.left + dx < INT32_MIN || (long long)b.right + dx > INT32_MAX ||
        (long long)b.top + dy < INT32_MIN || (long long)b.bottom + dy > INT32_MAX) {
      Fail("CRstLines::Offset: the region would leave the coordinate range");
      return FALSE;
    }
  }
  BOOL ok = TRUE;
  for (RSRLINE* p : *arr)
    if (!Offset(p, dx, dy)) ok = FALSE;
  return ok;
}

BOOL CRstLines::CopyRaster(RSRLINE* dst, const RSRLINE* src) {
  if (!dst || !src) return FALSE;
  ASSERT(IsValid(src));
  if (dst == src) return TRUE;
  try {
    dst->arRun.Copy(src->arRun);
    dst->arCount.Copy(src->arCount);
  } catch (const std::bad_alloc&) {
    Fail("CRstLines::CopyRaster: out of memory");
    return FALSE;
  }
  dst->rcBox = src->rcBox;
  return TRUE;
}

BOOL CRstLines::CopyRasterArray(CRasterArray* dst, const CRasterArray* src) {
  if (!dst || !src) return FALSE;
  if (dst == src) return TRUE;
  Release(dst);
  try {
    dst->Reserve(src->GetSize());
    for (const RSRLINE* s : *src) {
      if (!s) continue;
      RSRLINE* p = new RSRLINE;
      try {
        p->arRun.Copy(s->arRun);
        p->arCount.Copy(s->arCount);
        p->rcBox = s->rcBox;
        dst->Add(p);
      } catch (...) {
        delete p;
        throw;
      }
    }
  } catch (const std::bad_alloc&) {
    Release(dst);
    Fail("CRstLines::CopyRasterArray: out of memory");
    return FALSE;
  }
  return TRUE;
}

void CRstLines::Delete(RSRLINE*& p) {
  delete p;
  p = nullptr;
}

void CRstLines::Delete(CRasterArray*& arr) {
  if (!arr) return;
  Release(arr);
  delete arr;
  arr = nullptr;
}

void CRstLines::Release(CRasterArray* arr) {
  if (!arr) return;
  for (RSRLINE* p : *arr) delete p;
  arr->RemoveAll();
}

BOOL CRstLines::IsEmpty(const CRasterArray* arr) { return !arr || arr->GetSize() == 0; }

BOOL CRstLines::IsEqual(const RSRLINE* a, const RSRLINE* b) {
  if (!a && !b) return TRUE;
  if (!a || !b) return FALSE;
  if (!EqualRect(&a->rcBox, &b->rcBox)) return FALSE;
  if (a->arCount.GetSize() != b->arCount.GetSize() || a->arRun.GetSize() != b->arRun.GetSize()) return FALSE;
  if (a->arCount.vec() != b->arCount.vec()) return FALSE;
  const RSRUN* ra = a->arRun.GetData();
  const RSRUN* rb = b->arRun.GetData();
  for (int i = 0; i < a->arRun.GetSize(); ++i)
    if (ra[i].x1 != rb[i].x1 || ra[i].x2 != rb[i].x2) return FALSE;
  return TRUE;
}

BOOL CRstLines::IsEqual(const CRasterArray* a, const CRasterArray* b) {
  if (!a && !b) return TRUE;
  if (!a || !b) return FALSE;
  if (a->GetSize() != b->GetSize()) return FALSE;
  for (int i = 0; i < a->GetSize(); ++i)
    if (!IsEqual(a->GetAt(i), b->GetAt(i))) return FALSE;
  return TRUE;
}

BOOL CRstLines::PtInRaster(const RSRLINE* p, const POINT& pt) {
  if (!p) return FALSE;
  const RECT& b = p->rcBox;
  if (pt.y < b.top || pt.y > b.bottom || pt.x < b.left || pt.x > b.right) return FALSE;
  long long k = (long long)pt.y - b.top;
  if (k >= p->arCount.GetSize()) return FALSE;
  const int* cnt = p->arCount.GetData();
  long long off = 0;
  for (long long i = 0; i < k; ++i) off += std::max(cnt[i], 0);
  long long n = std::max(cnt[k], 0);
  if (off + n > p->arRun.GetSize()) return FALSE;
  const RSRUN* r = p->arRun.GetData() + off;
  for (long long i = 0; i < n; ++i)
    if (r[i].x1 <= pt.x && pt.x <= r[i].x2) return TRUE;
  return FALSE;
}

BOOL CRstLines::PtInRasterArray(const CRasterArray* arr, const POINT& ptIn, const ACycle* cycle) {
  if (IsEmpty(arr)) return FALSE;
  POINT pt = ptIn;
  if (cycle && cycle->CycleOnOff()) cycle->CalLocalPoint(pt);
  for (const RSRLINE* p : *arr)
    if (PtInRaster(p, pt)) return TRUE;
  return FALSE;
}

BOOL CRstLines::RectInRaster(const RSRLINE* p, RECT* rc, const ACycle* cycle) {
  (void)cycle;
  if (!p || !rc) return FALSE;
  const RECT& b = p->rcBox;
  if (rc->left < b.left || (long long)rc->right > (long long)b.right + 1 || rc->top < b.top ||
      (long long)rc->bottom > (long long)b.bottom + 1)
    return FALSE;
  const int* cnt = p->arCount.GetData();
  const RSRUN* runs = p->arRun.GetData();
  long long nRows = p->arCount.GetSize();
  long long nRuns = p->arRun.GetSize();
  long long off = 0;
  long long k0 = (long long)rc->top - b.top;
  for (long long i = 0; i < k0 && i < nRows; ++i) off += std::max(cnt[i], 0);
  for (long long y = rc->top; y < rc->bottom; ++y) {
    long long k = y - b.top;
    if (k >= nRows) return FALSE;
    long long n = std::max(cnt[k], 0);
    if (off + n > nRuns) return FALSE;
    bool covered = false;
    for (long long i = 0; i < n; ++i) {
      const RSRUN& r = runs[off + i];
      if (r.x1 <= rc->left && (long long)r.x2 >= (long long)rc->right - 1) {
        covered = true;
        break;
      }
    }
    if (!covered) return FALSE;
    off += n;
  }
  return TRUE;
}

BOOL CRstLines::RectInRasterArray(const CRasterArray* arr, RECT* rc, const ACycle* cycle) {
  if (IsEmpty(arr) || !rc) return FALSE;
  if (cycle && cycle->CycleOnOff()) cycle->BoundLeftLower(*rc);
  for (const RSRLINE* p : *arr)
    if (RectInRaster(p, rc, cycle)) return TRUE;
  return FALSE;
}

// The per-run x term ((x1 + x2) * len) / 2 is 32-bit signed arithmetic in
// the stored data's convention: the product wraps to 32 bits before the
// halving. It is formed in 64 bits and wrapped explicitly, so that huge
// coordinates stay defined behaviour.
BOOL CRstLines::GetBaryCenter(CRasterArray* arr, POINTD& pt) {
  if (IsEmpty(arr)) return FALSE;
  long long A = 0, Sx = 0, Sy = 0;
  for (const RSRLINE* p : *arr) {
    if (!p || p->arRun.GetSize() == 0) return FALSE;
    const RSRUN* r = p->arRun.GetData();
    const RSRUN* end = r + p->arRun.GetSize();
    long long y = p->rcBox.top;
    for (int c : p->arCount) {
      long long rowPixels = 0;
      for (int i = 0; i < c && r < end; ++i, ++r) {
        long long len = (long long)r->x2 - r->x1 + 1;
        if (len < 1) return FALSE;
        A += len;
        rowPixels += len;
        Sx += (int32_t)(uint32_t)((uint64_t)((long long)r->x1 + r->x2) * (uint64_t)len) / 2;
      }
      ++y;  // advanced before use: every row counts one row low (kept bias)
      Sy += y * rowPixels;
    }
  }
  if (A == 0) return FALSE;
  pt.x = (double)Sx / (double)A;
  pt.y = (double)Sy / (double)A;
  return TRUE;
}
