// crstlines.h - CRstLines, the scanline region engine: raster arrays of
// RSRLINE pieces, scan conversion of polygons, the boolean algebra of
// regions (AND, OR, DIFF, XOR), repeat-cycle folding, mirroring and masks.
//
// A raster array (CRasterArray, CArray<RSRLINE*, RSRLINE*>) is a set of
// pieces whose pixel set is the union of theirs, kept in order from top to
// bottom. Pieces and arrays handed out by the static creators are heap
// objects the caller owns and frees with Delete or Release. CRstLines owns
// one raster array and keeps the united box.
//
// The piece invariant. A piece with R runs and N rows is valid (IsValid)
// when:
//  - N <= R, and N == 0 only with R == 0 and a degenerate box
//    (right == left, bottom == top);
//  - otherwise rcBox.bottom - rcBox.top + 1 == N: row k lies at
//    y = rcBox.top + k;
//  - no count is negative and the counts add up to R; row k's runs start
//    at the sum of the counts of rows 0..k-1;
//  - every run has x1 <= x2;
//  - rcBox.left is the least x1 and the greatest x2 is at most rcBox.right
//    (the box may be wider than the runs on the right, never on the left).
// A valid piece is well-formed (IsWellFormed) when moreover within every
// row the runs ascend and no two overlap or touch (x2 + 1 < next x1).
//
// What operations accept and give. Every operation accepts valid pieces,
// well-formed or not (unsorted rows are sorted and merged on the fly), and
// refuses invalid ones (FALSE, null or RST_FAILED, with a text in g_Error).
// Every piece an operation makes is well-formed. A raster array is valid
// when all its pieces are; a CRstLines object keeps m_rcBox equal to
// GetBox of its array (the empty RECT when it has none). Every operation
// that changes a region checks these invariants on entry and exit when
// validation is on (always in debug builds; SetValidate turns it on in
// release builds), raising an assertion on a breach.
//
// Conventions: boxes inside pieces are inclusive, RECT arguments are
// half-open unless stated. Nothing throws. A failure gives a
// null/FALSE/RST_FAILED result, frees everything made, leaves the caller's
// objects as they were, and leaves a text in g_Error: "... is too large"
// for a size beyond the engine's limits (2^26 rows, 2^27 runs), "out of
// memory" when an allocation fails.
#ifndef TQBASE_CRSTLINES_H
#define TQBASE_CRSTLINES_H

#include "tqbase/tqbasexp.h"
#include "tqbase/geometry.h"
#include "tqbase/cloopgrpopt.h"

class ACycle;

class TQBASE_API CRstLines {
public:
  CRstLines();
  CRstLines(const CRstLines& other);             // deep copy
  CRstLines& operator=(const CRstLines& other);  // deep copy
  virtual ~CRstLines();

  // ---- the owned region ---------------------------------------------------

  // Frees the array (assertion and nothing done when not owning), empties
  // the box.
  void SetEmpty();
  // One polygon. FALSE for null points, n < 1, or a bad fill mode.
  BOOL Create(const POINT* pts, int n, AFillMode mode);
  // A polygon set: counts[i] points for polygon i, nPolys polygons.
  // nJoin == 0: each polygon is filled on its own and the region is their
  // union (polygons never cut holes into each other). nJoin != 0: the
  // polygons form one outline set under the fill mode, as a platform
  // poly-polygon does (under alternate fill a polygon inside another cuts a
  // hole).
  BOOL Create(const POINT* pts, const int* counts, int nPolys, AFillMode mode, int nJoin);
  // A rectangle (half-open RECT). nInflate grows it by that many pixels on
  // every side (negative shrinks); dScale, when > 0 and not 1, scales all
  // four edges about the origin first (edges converted with AnxFloatToInt,
  // rounded). An empty result leaves the region empty and returns FALSE.
  BOOL Create(const RECT& rc, int nInflate = 0, double dScale = 1.0);
  // The region enclosed by a contour loop group (loops filled together,
  // alternate fill, so inner loops cut holes).
  BOOL Create(const ANLOOPGRP* group);
  BOOL Copy(const CRstLines* src);
  BOOL Copy(const CRasterArray* src);
  // Recomputes the box from the array.
  void Update();
  RECT GetBox() const { return m_rcBox; }
  CRasterArray* GetData() const { return m_pRstArray; }
  BOOL IsOwnData() const { return m_bOwnData; }
  BOOL IsEmpty() const;
  // Moves the region. dx = dy = 0 does nothing. TRUE when there is no
  // array ("nothing left to move"), FALSE otherwise.
  BOOL Offset(int dx, int dy);
  // Unites (bAdd != 0) or subtracts (bAdd == 0, cycle-aware) a region.
  // Returns RST_NOTEMPTY, RST_EMPTY or RST_FAILED; the piece form gives
  // RST_FAILED for a null piece or one without runs. The union and the
  // difference without a switched-on cycle change the region in place:
  // the pieces that meet the operand (share a pixel with it, or for the
  // union also touch it side by side) are replaced by new ones, the others
  // are kept, so a region built one shape at a time costs what each shape
  // touches.
  int Add(const RSRLINE* piece, int bAdd, const ACycle* cycle = nullptr);
  int Add(const CRasterArray* arr, int bAdd, const ACycle* cycle = nullptr);
  // This region becomes a `mode` b (RST_AND..RST_XOR); this object may be
  // one of the operands (as the first operand of OR or DIFF, or either
  // operand of OR, it is changed in place as by Add). Returns
  // RST_NOTEMPTY, RST_EMPTY or RST_FAILED.
  int Combine(const CRstLines* a, const CRstLines* b, int mode, const ACycle* cycle = nullptr);
  BOOL PtInRstLines(const POINT& pt, const ACycle* cycle = nullptr) const;
  // Moves the region so that its box's top-left corner lies in the base
  // repeat cell (no-op when the cycle is null or off).
  BOOL CalLocal(const ACycle* cycle);
  // Replaces the region by its repeat over *rc (half-open): every pixel p of
  // rc whose folded position lies in the folded region. A null or off cycle
  // clips the region to rc. FALSE on bad arguments or failure (region kept).
  BOOL Cycle(const ACycle* cycle, const RECT* rc);
  void HorMirror();
  void VerMirror();
  // Barycentre, biased half a row to one row down (see the static form).
  BOOL GetBaryCenter(POINTD& pt);
  // Takes ownership of *ppArr and nulls the caller's pointer.
  void SetData(CRasterArray** ppArr);
  // Copying form: the caller keeps arr.
  void SetData(CRasterArray* arr);
  // Takes other's array, box and flag; other is left empty and owning.
  void MoveData(CRstLines* other);

  // ---- pieces and arrays ---------------------------------------------------

  static BOOL IsValid(const RSRLINE* piece);
  static BOOL IsValid(const CRasterArray* arr);
  // IsValid plus sorted, non-touching runs in every row.
  static BOOL IsWellFormed(const RSRLINE* piece);
  static BOOL IsWellFormed(const CRasterArray* arr);
  // Turns the entry/exit invariant checks on or off; returns the previous
  // setting. On by default in debug builds, off in release builds.
  static BOOL SetValidate(BOOL on);

  // Scan conversion of one polygon (mode 1 alternate, 2 winding). The
  // outline's pixels belong to the region. Null on bad arguments or
  // allocation failure.
  static RSRLINE* CreateRaster(const POINT* pts, int n, int mode);
  static CRasterArray* CreateRasterArray(const POINT* pts, int n, int mode);
  // Polygon set; nJoin as in Create. One piece per band of non-empty rows.
  static CRasterArray* CreateRasterArray(const POINT* pts, const int* counts, int nPolys,
                                         int mode, int nJoin);
  static CRasterArray* CreateRasterArray(const ANLOOPGRP* group, int mode);
  // Two pieces combined by mode (RST_AND..RST_XOR); null when a is null or
  // on failure; an empty array for any other mode.
  static CRasterArray* CreateRasterArray(const RSRLINE* a, const RSRLINE* b, int mode);

  static RECT GetBox(const CRasterArray* arr);
  static BOOL Offset(RSRLINE* piece, int dx, int dy);
  static BOOL Offset(CRasterArray* arr, int dx, int dy);
  static BOOL CalLocal(CRasterArray* arr, const ACycle* cycle);
  static BOOL CopyRaster(RSRLINE* dst, const RSRLINE* src);
  static BOOL CopyRasterArray(CRasterArray* dst, const CRasterArray* src);
  static void Delete(RSRLINE*& piece);
  static void Delete(CRasterArray*& arr);
  static void Release(CRasterArray* arr);
  static BOOL IsEmpty(const CRasterArray* arr);
  static BOOL IsEqual(const RSRLINE* a, const RSRLINE* b);
  static BOOL IsEqual(const CRasterArray* a, const CRasterArray* b);
  static BOOL PtInRaster(const RSRLINE* piece, const POINT& pt);
  // With a cycle switched on, the point is folded into the base cell first.
  static BOOL PtInRasterArray(const CRasterArray* arr, const POINT& pt, const ACycle* cycle = nullptr);
  // rc is half-open; TRUE when one run of every row covers its span.
  static BOOL RectInRaster(const RSRLINE* piece, RECT* rc, const ACycle* cycle = nullptr);
  // TRUE when some piece covers rc. With a cycle switched on, *rc is first
  // moved so that its top-left corner lies in the base cell (the caller's
  // rectangle is updated).
  static BOOL RectInRasterArray(const CRasterArray* arr, RECT* rc, const ACycle* cycle = nullptr);
  // Barycentre: (sum x, sum y) / area with each row counted one row below
  // its place (the first row as top + 1): a deliberate bias, so the y is
  // half a row to one row below the geometric centre.
  static BOOL GetBaryCenter(CRasterArray* arr, POINTD& pt);

  // ---- boolean algebra ------------------------------------------------------

  // Two pieces into out (released, then filled; untouched on failure). The
  // result holds one piece per band of consecutive non-empty rows (a piece
  // spanning empty rows could hold more rows than runs, which no valid
  // piece may); OR gives copies of a and b instead when a starts two or
  // more rows below b's last row.
  static BOOL ANDPolylines(const RSRLINE* a, const RSRLINE* b, CRasterArray* out);
  static BOOL ORPolylines(const RSRLINE* a, const RSRLINE* b, CRasterArray* out);
  static BOOL DIFFPolylines(const RSRLINE* a, const RSRLINE* b, CRasterArray* out);
  static BOOL XORPolylines(const RSRLINE* a, const RSRLINE* b, CRasterArray* out);
  // Two arrays into out (its old pieces are released on success; kept on
  // failure). Refuses out == a or out == b. AND, DIFF and XOR give one
  // piece per band of consecutive non-empty rows, top to bottom; OR gives
  // copies of the pieces of one operand that do not meet the other and
  // the union of the rest, pieces in order of their top rows. With a cycle
  // switched on and a mode other than OR, the result is the repeat of a
  // combined with the repeat of b, restricted to the base cell (0, 0,
  // width, height).
  static BOOL Create(CRasterArray* out, const CRasterArray* a, const CRasterArray* b, int mode,
                     const ACycle* cycle = nullptr);
  // Allocates *result and fills it with Create. RST_NOTEMPTY (array made),
  // RST_EMPTY (*result null) or RST_FAILED (*result null).
  static int Combine(const CRasterArray* a, const CRasterArray* b, int mode, CRasterArray** result,
                     const ACycle* cycle = nullptr);
  // dst becomes dst united with src folded into the base cell (dst is meant
  // to live in the cell). Plain union with a null or off cycle.
  static int CombineCycleRst(CRstLines* dst, const CRstLines* src, const ACycle* cycle);
  // Intersection tests. Boxes are intersected half-open and runs compared
  // with strict inequalities: pieces that share only an edge pixel, column
  // or row do not intersect (a deliberate rule; the combinations give the
  // exact overlap).
  static BOOL IsIntersect(const RSRLINE* a, const RSRLINE* b);
  static BOOL IsIntersect(const CRasterArray* a, const CRasterArray* b);
  // Containment is not decided by this engine: InSide always asserts and
  // returns TRUE, and callers must not rely on it.
  static BOOL InSide(const CRasterArray* a, const CRasterArray* b);
  // Orientation of a closed outline in screen coordinates (y down):
  // 1 clockwise as seen on screen (positive shoelace area sum
  // x[i]*y[i+1] - x[i+1]*y[i]), -1 counter-clockwise, 0 degenerate (zero
  // area, null points or fewer than 3). JudgeDirectionFromX decides from the
  // vertex of least x (least y among ties) by the turn there, 0 when that
  // turn is straight; it agrees with JudgeDirection on simple polygons.
  static int JudgeDirection(const POINT* pts, int n);
  static int JudgeDirectionFromX(const POINT* pts, int n);

  // ---- mirroring and masks -------------------------------------------------

  // x becomes rc.left + rc.right - x (rc inclusive, as the boxes).
  static void HorMirror(RSRLINE* piece, const CRect& rc);
  static void HorMirror(CRasterArray* arr, const CRect& rc);
  // y becomes rc.top + rc.bottom - y; the array form reverses piece order.
  static void VerMirror(RSRLINE* piece, const CRect& rc);
  static void VerMirror(CRasterArray* arr, const CRect& rc);
  // Sets the piece's pixels in a byte mask covering rc (half-open, stride
  // rc.right - rc.left, no padding) to the low byte of value. Refuses (FALSE,
  // nothing written) a piece whose box is not inside rc.
  static BOOL SetRasterMaskInBuf(unsigned char* buf, const RECT& rc, RSRLINE* piece, int value);

  // ---- morphology, resampling, pieces and layers -------------------------------
  //
  // Every result is a new raster array the caller owns (Delete frees it),
  // valid and well-formed, one piece per band of consecutive non-empty rows
  // unless stated; a result without pixels is a new empty array. Null only
  // for a null argument or a failure, with a text in g_Error.

  // The region grown by a Euclidean disc: pixel p is in the result iff
  // some pixel q of the region has (px - qx)² + (py - qy)² <= distance².
  // Distance 0 gives a copy (the pieces themselves when well-formed); a
  // negative distance shrinks by -distance. Refuses a result that would
  // leave the int range.
  static CRasterArray* ExpandRaster(CRasterArray* const arr, int distance);
  // The region shrunk by the same disc: p is in the result iff every q
  // with (px - qx)² + (py - qy)² <= distance² is a pixel of the region
  // (shrinking is growing the complement). A negative distance grows.
  static CRasterArray* ContractRaster(CRasterArray* const arr, int distance);
  // The same on a repeat: with a usable cycle, the region stands for its
  // tiled design; the result is the base-cell copy (inside (0, 0, width,
  // height)) of the tiled design grown or shrunk, so that tiling the result
  // gives the grown or shrunk design without seams. Without a cycle (null,
  // off, or an empty tile) these are the plane forms.
  static CRasterArray* ExpandRaster(const CRasterArray* arr, int distance, const ACycle* cycle);
  static CRasterArray* ContractRaster(const CRasterArray* arr, int distance, const ACycle* cycle);

  // The connected pieces of a region: runs on adjacent rows connect when
  // they share a column (a diagonal touch does not connect, as in
  // tracing). One piece per component, ordered by top row, then by the
  // left end of the component's first run. The array form splits the
  // union of all pieces; the piece form appends the components of one
  // piece to out (FALSE, out unchanged, on failure or an invalid piece).
  static CRasterArray* DivideUp(const CRasterArray* arr);
  static BOOL DivideUp(const RSRLINE* piece, CRasterArray& out);

  // Resamples src's region to another size with the nearest-neighbour rule
  // of ACompress::ZoomBits: the source frame is (0, 0, srcSize) (by default
  // (0, 0, box right + 1, box bottom + 1): the least frame from the origin
  // that holds the region), the destination frame (0, 0, *dstSize), and
  // destination pixel (i, j) is set iff source pixel (mapX[i], mapY[j]) is
  // in the region and inside the source frame. mapX holds dstSize->cx
  // entries, mapY dstSize->cy; a null map is built with
  // AMathOpt::ResampleLineMap, so the result equals ZoomBits of the
  // region's mask over the frame. Pixels outside the source frame are not
  // resampled. Computed on runs. dst may be src. FALSE (dst unchanged) for
  // null arguments, sizes below 1, a non-owning dst or a failure.
  static BOOL Resample(CRstLines* dst, const CRstLines* src, const SIZE* dstSize, const unsigned long* mapX = nullptr,
                       const unsigned long* mapY = nullptr, const SIZE* srcSize = nullptr);

  // Layers by nesting depth inside rc (half-open): the connected pieces
  // (DivideUp's connectivity) of the region's part inside rc, those
  // reachable from rc's border through unset pixels at depth 0, those
  // inside a hole of a depth-0 piece at depth 1, islands inside their
  // holes at depth 2, and so on (unset pixels connect diagonally as well,
  // as they must when set pixels do not). out receives the pieces layer by
  // layer from the outside in, in DivideUp's order within a layer; depths,
  // when given, receives each piece's depth. A cutter cuts the deepest
  // layer first. FALSE (out and depths unchanged) on failure.
  static BOOL DividebyLayer(const CRasterArray* arr, const RECT& rc, CRasterArray* out,
                            CArray<int, int>* depths = nullptr);
  // TRUE when every pixel of outline lies inside filled's outer outline:
  // on a pixel of filled or in one of its holes. FALSE for null or
  // invalid pieces and for an outline without pixels.
  static BOOL OutLineInsideRstline(RSRLINE* const outline, RSRLINE* const filled);

protected:
  // Installs arr (owned, may be null) as the region: frees the present
  // array when owning and different, sets the box. Cannot fail.
  void Adopt(CRasterArray* arr);
  // Sizes the piece's arrays to nRuns and nRows and sets its box from the
  // (sorted) rows: least first x1, greatest last x2, rows from top.
  static void SetRasterBox(RSRLINE* piece, int nRuns, int nRows, int top);

  CRasterArray* m_pRstArray;  // the pieces; null for an empty region
  RECT m_rcBox;               // union of the pieces' boxes (Update)
  BOOL m_bOwnData;            // this object owns and may change m_pRstArray
};

#endif  // TQBASE_CRSTLINES_H
