// crstlines_core.h - the region engine's shared machinery, private to the
// crstlines_*.cpp files: failure texts, the one sizing path, owned pieces
// and arrays, scratch blocks, the piece check, operands seen as slabs of
// rows, the row writer that turns rows of runs into exactly sized pieces,
// and the merger that unites rows of many sources.
//
// Inside an operation, allocation failures travel as std::bad_alloc and
// size limits as TooLarge; Guarded catches both once at the operation's
// boundary and records the text, so that nothing throws across the
// interface and every partial result is freed by its owner.
//
// Rows are addressed with 64-bit y throughout, so that boxes near the ends
// of the int range never overflow; every produced piece fits in int again.
#ifndef TQBASE_CRSTLINES_CORE_H
#define TQBASE_CRSTLINES_CORE_H

#include <memory>
#include <new>
#include <vector>

#include "tqbase/crstlines.h"
#include "tqbase/errorinfo.h"

namespace tqrgn {

// ---- failures --------------------------------------------------------------------

// Limits that keep every internal size far from overflow and refuse
// requests no printer canvas needs (a region of 2^26 rows, or 2^27 runs or
// boundary points, is about a gigabyte of bookkeeping).
const long long kMaxRows = 1LL << 26;
const long long kMaxItems = 1LL << 27;

// A size beyond the engine's limits, thrown by the sizing helpers.
struct TooLarge {};

// What went wrong, as recorded in g_Error: "<op>: <text>".
enum Failure { kNoMemory, kTooLarge, kInvalidRegion, kAliased, kBadMode, kOutOfRange };

// Records the failure of op in g_Error; returns false.
bool Fail(const char* op, Failure why);

// Runs body (returning bool) and turns the failures it throws into a
// recorded text and false.
template <class Body>
bool Guarded(const char* op, Body&& body) {
  try {
    return body();
  } catch (const TooLarge&) {
    return Fail(op, kTooLarge);
  } catch (const std::bad_alloc&) {
    return Fail(op, kNoMemory);
  }
}

// ---- sizes -----------------------------------------------------------------------

// The one sizing path: every count the engine sizes a block or an array
// from passes here (the lists of pieces, slabs and bands that grow one
// entry at a time are bounded by counts that passed already). Throws
// TooLarge for a negative count or one beyond kMaxItems, so that a request
// that is too large is reported as such, never as a lack of memory.
inline long long CheckedCount(long long n) {
  if (n < 0 || n > kMaxItems) throw TooLarge();
  return n;
}
// v resized to n elements (new ones value-initialised).
template <class V>
void SizeTo(V& v, long long n) {
  v.resize((size_t)CheckedCount(n));
}
template <class V>
void ReserveFor(V& v, long long n) {
  v.reserve((size_t)CheckedCount(n));
}

// ---- owned pieces and arrays --------------------------------------------------------

// Frees every piece of arr and empties it (the array object stays).
inline void FreePieces(CRasterArray* arr) {
  if (!arr) return;
  for (RSRLINE* p : *arr) delete p;
  arr->RemoveAll();
}

struct ArrayDeleter {
  void operator()(CRasterArray* a) const {
    FreePieces(a);
    delete a;
  }
};
typedef std::unique_ptr<RSRLINE> OwnedPiece;
typedef std::unique_ptr<CRasterArray, ArrayDeleter> OwnedArray;

// A new piece whose arrays hold nRuns runs and nRows counts.
OwnedPiece NewPiece(long long nRuns, long long nRows);
// A new, empty raster array.
OwnedArray NewArray();

// Pieces being gathered into a result: owned until handed out.
class PieceList {
public:
  PieceList() = default;
  PieceList(const PieceList&) = delete;
  PieceList& operator=(const PieceList&) = delete;
  ~PieceList() { FreePieces(&m_arr); }
  void Reserve(long long n) { ReserveFor(m_arr.vec(), n); }
  void Add(OwnedPiece p) {
    m_arr.Add(p.get());  // may throw: p still owns the piece
    p.release();
  }
  int Size() const { return m_arr.GetSize(); }
  const CRasterArray& Get() const { return m_arr; }
  // Hands the pieces to out (its own pieces are freed first). No throw.
  void MoveTo(CRasterArray* out) {
    FreePieces(out);
    out->vec().swap(m_arr.vec());
  }
  // Hands the pieces out by pointer: the caller owns them now.
  void Disown() { m_arr.vec().clear(); }
  // Moves every piece to the end of out; nothing moves when this throws.
  void AppendTo(PieceList& out) {
    out.Reserve((long long)out.Size() + Size());
    for (RSRLINE* p : m_arr) out.m_arr.Add(p);  // within the reserved room
    m_arr.vec().clear();
  }
  // Orders the pieces by top row, keeping the order of equal tops.
  void SortByTop();

private:
  CRasterArray m_arr;
};

// a becomes the least box (inclusive bounds) holding a and b.
inline void UnionRectInclusive(RECT& a, const RECT& b) {
  if (b.left < a.left) a.left = b.left;
  if (b.top < a.top) a.top = b.top;
  if (b.right > a.right) a.right = b.right;
  if (b.bottom > a.bottom) a.bottom = b.bottom;
}

// A copy of a piece, exactly sized.
OwnedPiece CopyPiece(const RSRLINE* src);

// ---- scratch blocks ------------------------------------------------------------------

// A scratch block from the memory manager: its lendable work buffer when
// free and large enough, else a tracked block. Freed on destruction.
class Scratch {
public:
  Scratch() = default;
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  ~Scratch() { Free(); }
  // Room for count elements of elem bytes (at least one byte); throws
  // TooLarge or std::bad_alloc.
  void* Get(long long count, size_t elem);
  // A larger block keeping the first keep bytes; the old block is kept
  // when this throws.
  void* Grow(long long count, size_t elem, size_t keep);
  template <class T>
  T* Get(long long count) {
    return static_cast<T*>(Get(count, sizeof(T)));
  }
  void Free();

private:
  unsigned char* m_p = nullptr;
  bool m_lent = false;
};

// ---- the piece check -------------------------------------------------------------------

extern bool g_validate;

// One pass over a piece: bit kPieceValid when IsValid holds, bit
// kPieceSorted as well when every row's runs also ascend without
// overlapping or touching (IsWellFormed). Without order, only validity is
// decided (a cheaper pass; kPieceSorted is never set).
enum { kPieceValid = 1, kPieceSorted = 2 };
int CheckPiece(const RSRLINE* p, bool order = true);

// The invariants stated in crstlines.h, checked as one (defined with the
// piece operations, crstlines_pieces.cpp): a valid piece (well-formed when
// asked); an array of such pieces (null counts as empty); an object whose
// box is GetBox of its array and whose pieces are valid.
bool Invariant(const RSRLINE* p, bool wellFormed);
bool Invariant(const CRasterArray* arr, bool wellFormed);
bool Invariant(const CRstLines& r);

// Entry and exit checks of those invariants, made when validation is on
// (CRstLines::SetValidate): every operation that changes a region runs
// them on what it is given and on what it leaves.
#define RGN_VALIDATE(cond)                  \
  do {                                      \
    if (tqrgn::g_validate) ASSERT(cond);    \
  } while (0)

// Sorts runs by x1 and merges overlapping and touching ones in place;
// returns the new count.
int SortMergeRow(RSRUN* r, int n);

// ---- operands as slabs of rows ---------------------------------------------------------

// The rows of one piece: counts, runs of the first row, the rows' y range.
struct Slab {
  const int* cnt;
  const RSRUN* runs;
  long long top, bottom;
  int left, right;         // the piece's box columns
  const RSRLINE* piece;    // the piece itself (null for generated rows)
};

// The slab of a piece with at least one row.
inline Slab SlabOf(const RSRLINE* p) {
  return Slab{p->arCount.GetData(), p->arRun.GetData(), p->rcBox.top,
              (long long)p->rcBox.top + p->arCount.GetSize() - 1, p->rcBox.left, p->rcBox.right, p};
}

// The slabs of an operand, ordered by top. The engine's sweeps need
// "clean" operands: every piece well-formed and no two pieces sharing a
// row. Prepare gives that view, uniting the pieces into new bands when the
// operand is not clean.
class Operand {
public:
  Operand() = default;
  Operand(const Operand&) = delete;
  Operand& operator=(const Operand&) = delete;
  // False for an invalid piece; may throw.
  bool Prepare(const CRasterArray* arr);
  bool Prepare(const RSRLINE* piece);
  // A piece the caller has checked to be well-formed.
  void PrepareChecked(const RSRLINE* piece);
  size_t Count() const { return m_n; }
  const Slab& operator[](size_t i) const { return m_s[i]; }
  bool Empty() const { return m_n == 0; }
  long long Top() const { return m_top; }
  long long Bottom() const { return m_bottom; }
  long long Runs() const { return m_runs; }
  long long Rows() const { return m_rows; }
  // The operand's pieces when they were united into new ones, else empty.
  const PieceList& Normalised() const { return m_norm; }

private:
  // Adds one piece; false when invalid. Sets m_clean false when it is not
  // well-formed or shares rows with an earlier piece.
  bool Add(const RSRLINE* p);
  void AddChecked(const RSRLINE* p, int flags);
  void Finish();
  void Reset();
  Slab m_one{};
  std::vector<Slab> m_many;
  const Slab* m_s = &m_one;
  size_t m_n = 0;
  long long m_top = 0, m_bottom = -1, m_runs = 0, m_rows = 0;
  bool m_clean = true, m_ordered = true;
  PieceList m_norm;
};

// ---- the row writer --------------------------------------------------------------------

// Rows of runs (y increasing) written in place into scratch blocks sized
// once from upper bounds; every band of consecutive non-empty rows becomes
// one exactly sized piece at Flush. A row's runs must ascend and must not
// overlap or touch.
class RowWriter {
public:
  // Room for maxRuns runs and maxRows rows in all; throws when too large.
  void Init(long long maxRuns, long long maxRows);
  RSRUN* Out() const { return m_end; }
  // Makes room for n more runs after Out(), moving the blocks when needed
  // (Out() may change). For writers whose bound is not known up front. The
  // first `keep` of the n are runs of the open row already written after
  // Out(); they move with the blocks.
  void Room(long long n, long long keep = 0) {
    if (n > m_cap - (m_end - m_runs)) Grow(n, keep);
  }
  // Ends row y, whose runs run from Out() to e.
  void EndRow(long long y, RSRUN* e) {
    const long long n = e - m_end;
    if (n == 0) {
      Gap();
      return;
    }
    if (!m_open || y != m_band.top + (m_nRows - m_band.row0)) Open(y);
    m_cnt[m_nRows++] = (int)n;
    m_end = e;
  }
  void Gap() {
    if (m_open) Close();
  }
  // Copies `rows` rows of a slab (counts from cnt, runs from r, which is
  // left after them), starting at row y.
  void CopyRows(long long y, const int* cnt, const RSRUN*& r, long long rows);
  // Appends the bands as pieces to out; may throw.
  void Flush(PieceList& out);
  long long Bands() const { return (long long)m_bands.size() + (m_open ? 1 : 0); }

private:
  struct Band {
    long long top, row0, row1, run0, run1;
  };
  void Open(long long y);
  void Close();
  void Grow(long long n, long long keep);
  Scratch m_runBuf;
  Scratch m_cntBuf;
  RSRUN* m_runs = nullptr;
  RSRUN* m_end = nullptr;
  long long m_cap = 0;  // runs the run block holds
  int* m_cnt = nullptr;
  long long m_capRows = 0;
  long long m_nRows = 0;
  bool m_open = false;
  Band m_band{};
  std::vector<Band> m_bands;
};

// ---- uniting rows of many sources --------------------------------------------------------

// A source of rows for the merger: either a slab (rows of runs, each row
// sorted or not) or one constant run repeated over rows top..bottom.
struct RowSource {
  Slab slab;
  bool constant;
  RSRUN run;  // the constant run
};

// The union of the sources' pixels into w, rows top..bottom of all of them;
// one pass over the rows with the set of sources that cover each. The
// sources may overlap in any way; rows need not be sorted.
void MergeSources(std::vector<RowSource>& src, RowWriter& w);

// The union of the given slabs as bands appended to out.
void UniteSlabs(const std::vector<Slab>& slabs, PieceList& out);

}  // namespace tqrgn

#endif  // TQBASE_CRSTLINES_CORE_H
