// crstlines_internal.h - the region engine's shared machinery, private to
// the crstlines_*.cpp files: the invariant check switch, scratch blocks from
// the memory manager, the row cursor over a raster array and the band
// builder that turns rows of runs into exactly sized pieces.
//
// Rows are addressed with 64-bit y throughout, so that boxes near the ends
// of the int range never overflow; every produced piece fits in int again.
#ifndef TQBASE_CRSTLINES_INTERNAL_H
#define TQBASE_CRSTLINES_INTERNAL_H

#include <vector>

#include "tqbase/checked.h"
#include "tqbase/crstlines.h"
#include "tqbase/errorinfo.h"
#include "tqbase/memorymanage.h"

namespace tqrgn {

// Limits that keep every internal size far from overflow and refuse
// requests no printer canvas needs (a region of 2^26 rows, or 2^27 boundary
// points or runs, is ~1 GB of bookkeeping).
const long long kMaxRows = 1LL << 26;
const long long kMaxItems = 1LL << 27;

extern bool g_validate;

// Entry/exit check of the piece invariant stated in tqbasexp.h.
#define RGN_CHECK_PIECE(p) \
  do { if (tqrgn::g_validate && (p)) ASSERT(CRstLines::IsWellFormed(p)); } while (0)
#define RGN_CHECK_ARRAY(a) \
  do { if (tqrgn::g_validate && (a)) ASSERT(CRstLines::IsWellFormed(a)); } while (0)

// Records the failure text of an operation and returns 1.
int Fail(const char* what);

// A scratch block: the memory manager's lendable work buffer when it is free
// and large enough, else a tracked block of its own. Freed on destruction.
class Scratch {
public:
  Scratch() = default;
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  ~Scratch() { Free(); }
  // bytes of storage (at least 1); null when too large or out of memory.
  void* Get(size_t bytes);
  // A larger block keeping the first `keep` bytes; null (old block kept)
  // on failure.
  void* Grow(size_t bytes, size_t keep);
  void Free();

private:
  unsigned char* m_p = nullptr;
  bool m_lent = false;
};

// True when the runs ascend and no two overlap or touch.
inline bool RowSorted(const RSRUN* r, int n) {
  int bad = 0;
  for (int i = 1; i < n; ++i) bad |= (long long)r[i].x1 <= (long long)r[i - 1].x2 + 1;
  return !bad;
}

// One check of a piece: bit kPieceValid when IsValid holds, bit
// kPieceSorted as well when moreover every row's runs ascend without
// overlapping or touching (IsWellFormed). A pass over the counts, one
// branch-free pass over the runs (inverted runs; adjacent pairs out of
// order over the whole run array), and one over the rows (breaks at row
// starts, the box's edges): the piece is sorted when every break is a row
// start.
enum { kPieceValid = 1, kPieceSorted = 2 };
int CheckPiece(const RSRLINE* p);

// Sorts runs by x1 and merges overlapping and touching ones in place;
// returns the new count.
int SortMergeRow(RSRUN* r, int n);

// Sequential access to the rows of a raster array's pixel set (the union of
// its pieces), y increasing. Rows that are not sorted and merged, and rows
// covered by several pieces, are normalised into a private buffer.
class RowSource {
public:
  // FALSE when arr holds no runs at all (empty pixel set).
  bool Init(const CRasterArray* arr);
  bool Init(const RSRLINE* piece);
  long long Top() const { return m_top; }
  long long Bottom() const { return m_bottom; }
  long long TotalRuns() const { return m_total; }
  long long TotalRows() const { return m_totalRows; }
  long long Left() const { return m_left; }
  long long Right() const { return m_right; }
  // The runs of row y; y must not decrease between calls.
  void Row(long long y, const RSRUN*& runs, int& n);
  // The least row >= y that some piece covers (INT64_MAX when none); y
  // must not decrease between calls.
  long long NextCovered(long long y);

private:
  void Advance(long long y);
  struct Cursor {
    const RSRLINE* p;
    long long top;
    long long bottom;
    long long row;   // current row index
    size_t off;      // run offset of that row
  };
  void Seek(Cursor& c, long long y);
  std::vector<Cursor> m_pieces;  // sorted by top
  size_t m_nextPiece = 0;
  std::vector<size_t> m_active;  // indices into m_pieces
  std::vector<RSRUN> m_tmp;
  long long m_top = 0, m_bottom = -1, m_total = 0, m_totalRows = 0, m_left = 0, m_right = 0;
};

// Collects rows of runs (y increasing by one per row) and closes a piece at
// every empty row, so that each piece is one band of non-empty rows. Runs
// emitted for a row must ascend by x1; overlapping or touching ones merge.
class BandBuilder {
public:
  // out receives the pieces; maxRuns bounds the runs of any one band.
  bool Init(CRasterArray* out, long long maxRuns, long long maxRows);
  void BeginRow(long long y) { m_y = y; m_rowStart = m_nRuns; }
  void Emit(long long x1, long long x2) {
    if (m_nRuns > m_rowStart && x1 <= (long long)m_runs[m_nRuns - 1].x2 + 1) {
      if (x2 > m_runs[m_nRuns - 1].x2) m_runs[m_nRuns - 1].x2 = (int)x2;
      return;
    }
    if (m_nRuns == m_capRuns) Grow();
    m_runs[m_nRuns].x1 = (int)x1;
    m_runs[m_nRuns].x2 = (int)x2;
    ++m_nRuns;
  }
  // Ends the row begun by BeginRow; may throw std::bad_alloc.
  void EndRow();
  // Closes the open band; may throw std::bad_alloc.
  void Finish();

private:
  void Grow();
  void CloseBand();
  CRasterArray* m_out = nullptr;
  Scratch m_runBuf;
  Scratch m_cntBuf;
  RSRUN* m_runs = nullptr;
  int* m_counts = nullptr;
  long long m_capRuns = 0;
  long long m_nRuns = 0;
  long long m_rowStart = 0;
  long long m_nRows = 0;
  long long m_capRows = 0;
  long long m_y = 0;
  long long m_bandTop = 0;
};

// Makes a piece from rows of runs (counts[k] runs for row top + k); the
// runs must be sorted per row. May throw std::bad_alloc.
RSRLINE* MakePiece(const RSRUN* runs, long long nRuns, const int* counts, long long nRows, long long top);

// Frees the pieces of arr from index `from` on and cuts it there.
void ReleaseFrom(CRasterArray* arr, int from);

}  // namespace tqrgn

#endif  // TQBASE_CRSTLINES_INTERNAL_H
