// ellipse.h - CEllipse, the midpoint shape rasterizers: circles, ellipses
// and rectangles given by a bounding rectangle, turned into raster lines.
//
// Every shape comes out in one of two forms:
//  - a run list CArray<POINT, POINT>: entry k describes row first + k, its
//    x is the run's left end and its y the run's right end, both inclusive;
//    the functions return first (the y of the first run's row) and, when a
//    box is wanted, set it to the runs' bounds in half-open form (right and
//    bottom outside); an empty shape gives an empty list and an all-zero box;
//  - one RSRLINE piece: the same runs, one per row, with the inclusive box
//    of a region piece. An empty shape gives the valid empty piece (no rows,
//    no runs, all-zero box) and FALSE.
// Both forms hold exactly one run per row, from the top row down.
//
// Angles are in radians and turn the shape about the centre of its
// rectangle with the library's rotation sense: a point (u, v) relative to
// the centre goes to (u cos a - v sin a, u sin a + v cos a). Angles within
// 0.005 of a multiple of a quarter turn snap to it; at those angles the
// integer midpoint cores are used and the shape is exact.
//
// Relies on tqbasexp.h (RSRLINE, CArray, CRect) and on g_Error for the text
// of failures (an invalid angle, coordinates beyond 32 bits, no memory).
#ifndef TQBASE_ELLIPSE_H
#define TQBASE_ELLIPSE_H

#include "tqbase/tqbasexp.h"

class TQBASE_API CEllipse {
public:
  // The ellipse (a circle when the rectangle is square) inscribed in rect,
  // turned by angle about the rectangle's centre. A rectangle narrower or
  // lower than 3 pixels is a rectangle (RectRasterLine); a 1 x 1 rectangle
  // is its single pixel; an empty one (width or height below 1) gives no
  // runs and returns rect.top.
  static int EllipseRasterLine(const CRect& rect, double angle, CArray<POINT, POINT>& runs,
                               RECT* box);
  // The same shape as one region piece; FALSE when it is empty or failed.
  static BOOL EllipseRasterLine(const RECT& rect, double angle, RSRLINE& rst);

  // The rectangle rect (half-open) turned by angle about its centre.
  static int RectRasterLine(const RECT& rect, double angle, CArray<POINT, POINT>& runs,
                            RECT* box);
  static BOOL RectRasterLine(const RECT& rect, double angle, RSRLINE& rst);

private:
  // Widths of the upper half of a circle of radius r, top row first: r + 1
  // entries (none for r <= 0). widths[k] is the distance from the centre
  // column to the right end of row k; widths[r] is the centre row.
  static void MidPointCircle(int r, CArray<int, int>& widths);
  // Widths of the upper half of the ellipse with x semi-axis a and y
  // semi-axis b, top row first: at most b + 1 entries, trimmed to the rows
  // the two-region walk produces.
  static void MidPointEllipse(int a, int b, CArray<int, int>& widths);
  // The ellipse at an angle the midpoint cores do not handle: every pixel
  // whose centre lies inside the turned ellipse, one run per row.
  static int MidPointEllipseLine(const CRect& rect, double angle, CArray<POINT, POINT>& runs,
                                 RECT* box);

  friend struct CEllipseAccess;  // the library's own tests reach the cores through it
};

#endif  // TQBASE_ELLIPSE_H
