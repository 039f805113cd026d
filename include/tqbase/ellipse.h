// ellipse.h - CEllipse, the midpoint shape rasterizers: circles, ellipses,
// rectangles, parallelograms, lines and arcs, upright, turned or under an
// affine transform, turned into raster lines.
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
// The pixel rule, one for every shape:
//  1. Upright shapes are exact. A circle or an ellipse inscribed in an
//     upright rectangle comes from the integer midpoint cores (which decide
//     on integer semi-axes, so on flat ellipses a pixel up to three quarters
//     of a pixel from the continuous outline may go the other way than rule
//     2 would send it); a rectangle is its pixels. A turned or transformed
//     shape whose outline is again an upright rectangle with integer
//     corners (the identity, integer translations, quarter turns, mirrors,
//     integer scalings of an integer rectangle) is that upright form of the
//     image rectangle.
//  2. Any other shape covers the pixels whose centres (x + 0.5, y + 0.5) lie
//     inside it. A centre exactly on the outline is inside on a left or top
//     edge and outside on a right or bottom edge, so shapes that share an
//     edge never share a pixel.
//  3. A row whose centre line crosses the shape without meeting a pixel
//     centre inside it (a sliver at a pointed end, or a shape thinner than a
//     pixel) keeps the one pixel under the middle of that crossing, so a thin
//     shape never breaks into pieces. A shape that lies between two centre
//     lines altogether is the row under its middle, with the pixels rule 2
//     gives on its edge nearest to that row's centre line (or rule 3's one
//     pixel).
//  4. A shape squashed onto a line or a point (a singular transform,
//     collinear corners) is the one-pixel line (MidPointLine) between the
//     pixels that hold its two ends, each taken from just inside the
//     segment (an end on a pixel edge belongs to the pixel the segment
//     enters, so a w x h rectangle squashed flat is a line of w or h
//     pixels), or the pixel that holds the point.
//
// Angles are in radians and turn a shape with the library's rotation sense:
// a point (u, v) goes to (u cos a - v sin a, u sin a + v cos a), from +x
// towards +y. For the angle forms (a shape turned about the centre of its
// rectangle), angles within 0.005 of a quarter turn snap to it; transforms
// map points by the row-vector convention of ATransform.
//
// Relies on tqbasexp.h (RSRLINE, CArray, CRect), transform.h (ATransform,
// POINTD, RECTD) and g_Error for the text of failures (an angle or a
// transform that is not finite, coordinates beyond 32 bits, a shape of more
// rows than a region holds, no memory).
#ifndef TQBASE_ELLIPSE_H
#define TQBASE_ELLIPSE_H

#include "tqbase/tqbasexp.h"
#include "tqbase/transform.h"

// Carries a point (u, v) of octant 0 (u >= v >= 0) to octant k.
typedef void (*ELLSEPPROC)(double u, double v, double& x, double& y);

class TQBASE_API CEllipse {
public:
  // ---- ellipses ----------------------------------------------------------

  // The ellipse (a circle when the rectangle is square) inscribed in rect,
  // turned by angle about the rectangle's centre. A rectangle narrower or
  // lower than 3 pixels is a rectangle (RectRasterLine); a 1 x 1 rectangle
  // is its single pixel; an empty one (width or height below 1) gives no
  // runs and returns rect.top.
  static int EllipseRasterLine(const CRect& rect, double angle, CArray<POINT, POINT>& runs,
                               RECT* box);
  // The same shape as one region piece; FALSE when it is empty or failed.
  static BOOL EllipseRasterLine(const RECT& rect, double angle, RSRLINE& rst);

  // The ellipse inscribed in rect, mapped through trans. A rectangle
  // without area (width or height not above 0) gives the empty shape; the
  // first row of an empty or failed shape is the rectangle's top, rounded
  // down.
  static BOOL EllipseRasterLine(const RECT& rect, const ATransform& trans, RSRLINE& rst);
  static BOOL EllipseRasterLine(const RECTD& rect, const ATransform& trans, RSRLINE& rst);
  static int EllipseRasterLine(const RECTD& rect, const ATransform& trans,
                               CArray<POINT, POINT>& runs, RECT* box);

  // ---- rectangles and parallelograms ---------------------------------------

  // The rectangle rect (half-open) turned by angle about its centre.
  static int RectRasterLine(const RECT& rect, double angle, CArray<POINT, POINT>& runs,
                            RECT* box);
  static BOOL RectRasterLine(const RECT& rect, double angle, RSRLINE& rst);
  // The rectangle rect mapped through trans: the parallelogram of its four
  // mapped corners.
  static int RectRasterLine(const RECT& rect, const ATransform& trans, CArray<POINT, POINT>& runs,
                            RECT* box);
  static BOOL RectRasterLine(const RECT& rect, const ATransform& trans, RSRLINE& rst);

  // The four corners of rect (as a continuous rectangle: right and bottom
  // are its edges) turned by angle about its centre, in the order top-left,
  // top-right, bottom-right, bottom-left of the unturned rectangle.
  static void RotateRect(const RECT& rect, double angle, POINTD* corners);

  // The convex quadrilateral of four corners in outline order (either
  // direction), as RotateRect or a transform gives them. Corners that do
  // not make a convex outline are filled as their convex hull; a triangle
  // may be given by repeating a corner.
  static int MidPointRect(const POINTD* corners, CArray<POINT, POINT>& runs, RECT* box);
  static BOOL MidPointRect(const POINTD* corners, RSRLINE& rst);

  // The parallelogram of three corners, as a platform's parallelogram blit
  // takes them: points[0] the upper-left, points[1] the upper-right and
  // points[2] the lower-left corner; the fourth is points[1] + points[2] -
  // points[0]. Corners lie on pixel edges: {(l, t), (r, t), (l, b)} covers
  // exactly the pixels of the rectangle (l, t, r, b).
  static int MidPointParalgram(const POINTD* points, CArray<POINT, POINT>& runs, RECT* box);
  static BOOL MidPointParalgram(const POINTD* points, RSRLINE& rst);
  static int PlgRasterLine(const POINT* points, CArray<POINT, POINT>& runs, RECT* box);
  static BOOL PlgRasterLine(const POINT* points, RSRLINE& rst);

  // ---- lines and arcs ---------------------------------------------------------

  // The one-pixel line from pixel p1 to pixel p2, both ends included, one
  // run per row. A line steeper than 45 degrees has one pixel in each row; a
  // flatter one has one pixel in each column, that of the row whose centre
  // is nearest to the line through the two pixel centres, a tie going to
  // the upper row (to the left column on a steep line). The pixels do not
  // depend on which end comes first.
  static int MidPointLine(const POINT& p1, const POINT& p2, CArray<POINT, POINT>& runs, RECT* box);
  static BOOL MidPointLine(const POINT& p1, const POINT& p2, RSRLINE& rst);

  // The chord of the ellipse inscribed in rect from the polar angle start to
  // the polar angle end: the pixels of the upright ellipse
  // (EllipseRasterLine(rect, 0.0, ...)) on the arc's side of the straight
  // line through the arc's two ends. The arc runs from start with growing
  // angle (from +x towards +y) to end; ends within 1e-10 of each other
  // (modulo a full turn) give the whole ellipse. A chord is convex, so one
  // run per row always holds it; a pie of more than half a turn is the
  // union of its chord and the triangle of the centre and the two ends.
  // On the chord line itself, a pixel centre belongs to the chord whose
  // line runs downwards (or leftwards, when horizontal) from start to end,
  // so the chords from start to end and from end to start share no pixel
  // except a sliver row's. A row between others left without pixels keeps
  // the ellipse's pixel nearest to the chord (rule 3 above).
  static int MidPointArc(const RECT& rect, double start, double end, CArray<POINT, POINT>& runs,
                         RECT* box);
  static BOOL MidPointArc(const RECT& rect, double start, double end, RSRLINE& rst);

  // ---- ellipse geometry ---------------------------------------------------------

  // The ellipse inscribed in rect (the rectangle's sign is ignored) mapped
  // through trans, as its centre, its semi-axes a >= b >= 0 and the
  // direction angle in [0, pi) of the a axis. b is 0 exactly when the
  // transform is singular (CanInverseCalc fails). FALSE, with a text, when
  // a value is not finite.
  static BOOL GetEllipseParam(const RECTD& rect, const ATransform& trans, POINTD& centre,
                              double& a, double& b, double& angle);
  // The half-open pixel box that holds every pixel of the ellipse with
  // semi-axes a and b (a along the direction angle) about centre:
  // [floor(left), floor(right) + 1) x [floor(top), floor(bottom) + 1) of its
  // exact bounds. FALSE, with a text, when it is not finite or leaves the
  // 32-bit plane.
  static BOOL GetEllipseBorder(const POINTD& centre, double a, double b, double angle,
                               RECT& border);
  // The same box for the convex hull of count corners (1 to 4).
  static BOOL GetRectBorder(const POINTD* corners, int count, RECT& border);
  // Where the ray from centre at the polar angle theta leaves the ellipse
  // with semi-axes a and b (a along the direction angle).
  static POINTD EllipsePoint(const POINTD& centre, double a, double b, double angle, double theta);
  // The ellipse's cross-section [x1, x2] with the horizontal line at y;
  // FALSE when the line misses it.
  static BOOL GetEllBoundary(const POINTD& centre, double a, double b, double angle, double y,
                             double& x1, double& x2);

  // The eight symmetries of a circle about its centre. Octant k holds the
  // directions from k pi/4 up to (k + 1) pi/4, measured from +x towards +y;
  // EllSepK carries a point (u, v) of octant 0 (u >= v >= 0) to the point
  // of octant k that mirrors it, and m_EllSepProc[k] is EllSepK. Every
  // direction the rasterizers take from an angle is found in octant 0 and
  // carried out by this table, so quarter turns and diagonals come out
  // exact and mirrored angles give exactly mirrored points.
  static void EllSep0(double u, double v, double& x, double& y);
  static void EllSep1(double u, double v, double& x, double& y);
  static void EllSep2(double u, double v, double& x, double& y);
  static void EllSep3(double u, double v, double& x, double& y);
  static void EllSep4(double u, double v, double& x, double& y);
  static void EllSep5(double u, double v, double& x, double& y);
  static void EllSep6(double u, double v, double& x, double& y);
  static void EllSep7(double u, double v, double& x, double& y);
  static const ELLSEPPROC m_EllSepProc[8];

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
