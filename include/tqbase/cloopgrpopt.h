// cloopgrpopt.h - contour loop groups: ANLOOP (the closed outlines of one
// region piece) and ANLOOPGRP (one ANLOOP per piece of a raster array), and
// CLoopGrpOpt, which traces regions into loops, builds, copies, moves,
// combines, flattens and draws them. CSvgDC draws loops as SVG path data.
//
// Every block here (ANLOOP and ANLOOPGRP records, point and size blocks, a
// group's loop block) comes from the memory manager (memorymanage.h) and
// is freed by the matching Release/Delete operation.
//
// The loop-group invariant (IsValid, checked on entry and exit of every
// operation that changes a group when region validation is on):
//  - ANLOOP: nLoops >= 0 and nPoints >= 0; both pointers are null exactly
//    when the counts are 0; every loop has at least two points and is
//    closed (its last point repeats its first); the sizes add up to
//    nPoints; rcBox is either empty (all zero) or bounds the points
//    (inclusive: left = least x, right = greatest x, likewise y).
//  - ANLOOPGRP: nCount >= 0; hLoops is a movable block holding at least
//    nCount ANLOOP records, null when nCount is 0; every record is valid.
//    The group is empty when nCount < 1 or hLoops is null. The block is
//    locked while an operation uses it and unlocked after.
//
// Traced loops. A loop runs through the centres of boundary pixels: the
// ends of the piece's runs, in the order the tracing links them, plus the
// points that keep every step inside the piece (see RasterToPts). Filled
// together by the even-odd rule with the outline pixels inside (the
// region scan conversion, CRstLines::CreateRasterArray(group, mode)),
// the loops of a piece give back exactly its pixels, holes included.
#ifndef TQBASE_CLOOPGRPOPT_H
#define TQBASE_CLOOPGRPOPT_H

#include "tqbase/tqbasexp.h"

// The closed outlines of one region piece, as integer points.
struct ANLOOP {
  int nLoops;          // number of loops
  int nPoints;         // total points of all loops
  int* pnLoopSizes;    // points of each loop, in loop order
  POINT* pPoints;      // all points, loop after loop
  RECT rcBox;          // bounding rectangle of the points (inclusive), or empty
};

// One ANLOOP per piece of a raster array.
struct ANLOOPGRP {
  int nCount;          // number of ANLOOP records; empty when below 1
  HGLOBAL hLoops;      // movable block of nCount ANLOOP records
  RECT rcBox;          // the source region's box (inclusive)
};

class TQBASE_API CLoopGrpOpt {
public:
  // ---- the loops of one piece -------------------------------------------------------

  // A new empty ANLOOP (counts 0, null pointers, empty box).
  static ANLOOP* CreateAnloop();
  // The traced loops of a piece; its box is left empty. Null for a null
  // piece, one without runs, or a failure (everything made is freed).
  static ANLOOP* CreateAnloop(const RSRLINE* piece);
  // A deep copy.
  static ANLOOP* CreateAnloop(ANLOOP* src);
  // From a polygon set: sizes[i] points for loop i, nLoops loops. A loop
  // whose last point differs from its first is closed by repeating it; a
  // loop of fewer than two points after that is refused. The box bounds
  // the points.
  static ANLOOP* CreateAnloop(const POINT* pts, const int* sizes, int nLoops);
  // The traced loop of the rectangle region CRstLines::Create(rc, nInflate,
  // dScale) makes (half-open rc; inflated by nInflate pixels on every side,
  // edges scaled about the origin by dScale when > 0 and not 1); the box
  // bounds the points. Null when that region is empty.
  static ANLOOP* CreateAnloop(const RECT& rc, int nInflate = 0, double dScale = 1.0);
  // Copies src's points and sizes into dst's existing blocks, then the
  // counts and the box; only when src has points and sizes and dst has
  // both blocks. The blocks must be large enough (the caller's duty): too
  // small a block is refused (FALSE, assertion) rather than overrun.
  static BOOL CopyAnloop(ANLOOP* dst, const ANLOOP* src);
  // Frees both blocks, zeroes the counts, empties the box.
  static void ReleaseAnloop(ANLOOP* loop);
  // ReleaseAnloop, then frees the record and nulls the pointer.
  static void DeleteAnloop(ANLOOP*& loop);

  // ---- groups ------------------------------------------------------------------------

  // A new group with count 0 and no block.
  static ANLOOPGRP* CreateAnloopGrp();
  // One ANLOOP per piece, traced, each with the box of its points; the
  // group's box is CRstLines::GetBox(arr). Null for a null or empty array,
  // or when any piece cannot be traced.
  static ANLOOPGRP* CreateAnloopGrp(const CRasterArray* arr);
  // A deep copy.
  static ANLOOPGRP* CreateAnloopGrp(const ANLOOPGRP* src);
  // The traced combination (mode RST_AND..RST_XOR) of the regions the two
  // groups enclose. Null on bad arguments, failure or an empty result.
  static ANLOOPGRP* CreateAnloopGrp(const ANLOOPGRP* a, const ANLOOPGRP* b, int mode);
  // The traced combination of two polygons (each filled by the even-odd
  // rule). Null on bad arguments, failure or an empty result.
  static ANLOOPGRP* CreateAnloopGrp(const POINT* a, int na, const POINT* b, int nb, int mode);
  // dst becomes a deep copy of src (dst's old loops are freed on success;
  // dst is unchanged on failure).
  static BOOL CopyAnloopGrp(ANLOOPGRP* dst, const ANLOOPGRP* src);
  // Moves every point and box by (dx, dy); refuses (FALSE, nothing moved)
  // a move that would leave the int range.
  static BOOL MoveAnloopGrp(ANLOOPGRP* grp, int dx, int dy);
  // Frees every ANLOOP's blocks and the loop block; count 0, empty box.
  static void ReleaseAnloopGrp(ANLOOPGRP* grp);
  // ReleaseAnloopGrp, then frees the record and nulls the pointer.
  static void DeleteAnloopGrp(ANLOOPGRP*& grp);
  // TRUE for null, for a null loops handle, or for a count below 1.
  static BOOL IsEmpty(const ANLOOPGRP* grp);
  // Equal counts, boxes, and loops (sizes and points) record by record.
  static BOOL IsEqual(const ANLOOPGRP* a, const ANLOOPGRP* b);
  // The invariants stated above.
  static BOOL IsValid(const ANLOOP* loop);
  static BOOL IsValid(const ANLOOPGRP* grp);

  // All loops of all records as one point list and one list of loop sizes.
  // The pointer form hands out two memory-manager blocks, which the caller
  // frees with AGlobalFreePtr (null and 0 for an empty group).
  static BOOL GetPolyPolygon(const ANLOOPGRP* grp, POINT*& pts, int*& sizes, int& nLoops);
  static BOOL GetPolyPolygon(const ANLOOPGRP* grp, CArray<POINT, POINT>& pts, CArray<int, int>& sizes);

  // Traces one piece into closed loops: points (nPts of them) and loop sizes
  // (nLoops), two new memory-manager blocks the caller frees with
  // AGlobalFreePtr. All four outputs are reset first; FALSE for a piece
  // without runs, an invalid piece, or a failure (outputs stay null, 0).
  //
  // Run k gives node 2k, its left end (x1, y), and node 2k + 1, its right
  // end (x2, y). Each row is matched with the row above, runs connecting
  // when they share a column; a cluster of connected runs (upper U1..Up,
  // lower L1..Lq, left to right) links U1's left end down to L1's, Lq's
  // right end up to Up's, each Li's right end to Li+1's left end, and each
  // Uj+1's left end back to Uj's right end. A run of the first row, or one
  // with nothing above, starts a loop (right end to left end); one of the
  // last row, or with nothing below, closes underneath (left end to right
  // end). Loops are emitted in the order they were started, then every
  // cycle not yet passed (holes, islands, parts joined further down) in the
  // order of its first node. Two rules keep every step on the piece's
  // pixels, so that the loops enclose exactly its pixels:
  //  - a step between rows whose x differs by more than 1 turns at a
  //    corner: (x of the end, y of the start) when x and y move the same
  //    way, else (x of the start, y of the end);
  //  - a link between two runs of one row across a gap (Li to Li+1, Uj+1
  //    to Uj) goes round through the row that spans the gap: up to the
  //    row above and back for lower runs, down to the row below for upper
  //    runs.
  // A loop is closed by repeating its first point when its last differs.
  static BOOL RasterToPts(const RSRLINE* piece, POINT*& pts, int& nPts, int*& sizes, int& nLoops);

  // Draws every loop of the group (CDC::PolyPolygon per record); nothing
  // for a null target, a null group or a count of 0.
  static void DrawAnloopGrp(CDC* dc, const ANLOOPGRP* grp);
};

// A drawing target that writes SVG path data ("M x y L x y ... Z"), with
// every coordinate shifted by offset (0.5 puts a loop through the centres
// of the pixels of an image whose pixel (x, y) covers [x, x + 1)).
class TQBASE_API CSvgDC : public CDC {
public:
  explicit CSvgDC(double offset = 0.5) : m_offset(offset) {}
  CPoint MoveTo(int x, int y) override;
  BOOL LineTo(int x, int y) override;
  BOOL Polygon(const POINT* pts, int count) override;
  // The path data written so far.
  const CString& GetPathData() const { return m_path; }
  void Clear() { m_path.Empty(); }

private:
  void Add(char op, int x, int y);
  double m_offset;
  CString m_path;
  CPoint m_pos;
};

#endif  // TQBASE_CLOOPGRPOPT_H
