// cmd_region.cpp - the "region" subcommand: builds regions from polygons,
// rectangles, circles and ellipses, combines them in order with AND, OR,
// DIFF and XOR, optionally folds them into a repeat, and writes a mask
// image (PNG with libpng, else PGM) and a summary of the result.
//
// Shapes come from the command line (--poly, --rect, --ellipse, --circle,
// --line, --arc, --plg, with --op setting the operator and --rotate and
// --transform the placement of the shapes that follow) or from a small
// text file (--file; the format is described in FileHelp below), and
// --sample runs the built-in textile motif (the same text as
// tools/samples/shapes.txt) into region-demo.png.
//
// Relies on CRstLines (regions and their algebra), CEllipse (circles,
// ellipses, rectangles, lines, chords and parallelograms, turned or
// transformed) and ACycle (the repeat).
#include "command.h"
#include "args.h"
#include "image_io.h"

#include <tqbase/tqbase.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <vector>


namespace {

const double kPi = 3.141592653589793;
// Shapes larger than this in either direction are refused: the command is a
// tool for motifs, and a stray digit should not ask for gigabytes.
const long long kMaxExtent = 1000000;
// The largest mask image written, in bytes (one byte per pixel).
const size_t kMaxImageBytes = (size_t)256 << 20;

// The built-in motif; tools/samples/shapes.txt holds the same text.
const char kSampleText[] =
    "# A textile motif on a half-drop repeat: a ring opened by four petals,\n"
    "# a pierced diamond at its heart, and a bud that crosses the cell's edge.\n"
    "# Each line: [operator] shape numbers...   operators: or and diff xor\n"
    "cycle 200x200+100 way 1\n"
    "repeat 3x2\n"
    "\n"
    "ellipse 36,36,164,164          # a disc\n"
    "diff ellipse 50,50,150,150     # hollowed into a ring\n"
    "xor ellipse 78,14,122,100      # petals cross the ring and open it where they meet\n"
    "xor ellipse 78,100,122,186\n"
    "xor ellipse 14,78,100,122\n"
    "xor ellipse 100,78,186,122\n"
    "or rect 84,84,116,116 45       # a diamond at the heart\n"
    "diff circle 100,100,7          # pierced\n"
    "or poly 180,170 200,190 180,210 160,190   # a bud across the cell's edge\n";

const char kFileHelp[] =
    "Shapes file: one item per line, '#' starts a comment.\n"
    "  [op] rect l,t,r,b [deg]     rectangle (right and bottom outside), turned by deg\n"
    "  [op] ellipse l,t,r,b [deg]  ellipse inscribed in the rectangle, turned by deg\n"
    "  [op] circle cx,cy,r         circle of radius r about (cx, cy)\n"
    "  [op] poly x,y x,y x,y ...   polygon\n"
    "  [op] line x1,y1,x2,y2       one-pixel line between two pixels\n"
    "  [op] arc l,t,r,b,from,to    chord of the inscribed ellipse from angle from to angle to\n"
    "  [op] plg x0,y0,x1,y1,x2,y2  parallelogram: upper-left, upper-right, lower-left corners\n"
    "  fill alternate|winding      fill rule of the polygons that follow\n"
    "  rotate deg                  turn the shapes that follow about their centres\n"
    "  transform m11,m12,m21,m22,dx,dy|none  map the shapes that follow (after the turn)\n"
    "  cycle WxH[+P] [way 1|2]     repeat cell W x H, displacement P\n"
    "  repeat CxR                  image of C x R cells of the repeat\n"
    "op is or, and, diff or xor (default or); the first shape starts the region.";

enum ShapeKind { kPoly, kRect, kEllipse, kCircle, kLine, kArc, kPlg };

// Where the shapes that follow are placed: turned by rotate degrees about
// each shape's own centre, then mapped through the matrix when there is one.
struct Placement {
  double rotate = 0.0;
  bool haveMatrix = false;
  double m[6] = {1, 0, 0, 1, 0, 0};
};

struct Shape {
  ShapeKind kind = kRect;
  int op = RST_OR;
  int fill = ALTERNATE_FILL;
  std::vector<POINT> pts;
  RECT rc{0, 0, 0, 0};
  double degrees = 0.0;        // rect and ellipse: their own turn; arc: the start angle
  double endDegrees = 0.0;     // arc: the end angle
  Placement place;
  std::string text;  // as given, for messages
};

struct Job {
  std::vector<Shape> shapes;
  bool haveCycle = false;
  int cycleW = 0, cycleH = 0, cycleP = 0, way = 1;
  int repeatC = 0, repeatR = 0;
};

// ---- parsing ------------------------------------------------------------------

std::string Trim(const std::string& s) {
  size_t a = s.find_first_not_of(" \t\r\n");
  if (a == std::string::npos) return "";
  size_t b = s.find_last_not_of(" \t\r\n");
  return s.substr(a, b - a + 1);
}


// Numbers separated by commas, semicolons or blanks.
bool ParseNumbers(const std::string& text, std::vector<double>* out, std::string* err) {
  out->clear();
  std::string tok;
  auto flush = [&]() -> bool {
    if (tok.empty()) return true;
    errno = 0;
    char* end = nullptr;
    double v = std::strtod(tok.c_str(), &end);
    if (end == tok.c_str() || *end != '\0' || errno == ERANGE || !std::isfinite(v)) {
      *err = "'" + tok + "' is not a number";
      return false;
    }
    out->push_back(v);
    tok.clear();
    return true;
  };
  for (char c : text) {
    if (c == ',' || c == ';' || c == ' ' || c == '\t') {
      if (!flush()) return false;
    } else {
      tok += c;
    }
  }
  return flush();
}

bool ToCoord(double v, LONG* out, std::string* err) {
  if (v != std::floor(v) || v < -2147483648.0 || v > 2147483647.0) {
    char buf[80];
    std::snprintf(buf, sizeof buf, "%g is not a 32-bit integer coordinate", v);
    *err = buf;
    return false;
  }
  *out = (LONG)v;
  return true;
}

bool ExtentOk(long long a, long long b, std::string* err) {
  if (b - a > kMaxExtent || a - b > kMaxExtent) {
    *err = "the shape is larger than " + std::to_string(kMaxExtent) + " pixels";
    return false;
  }
  return true;
}

bool ParseOp(const std::string& word, int* op) {
  std::string w = tqtool::Lower(word);
  if (w == "or" || w == "union" || w == "+") *op = RST_OR;
  else if (w == "and" || w == "intersect" || w == "&") *op = RST_AND;
  else if (w == "diff" || w == "minus" || w == "-") *op = RST_DIFF;
  else if (w == "xor" || w == "^") *op = RST_XOR;
  else return false;
  return true;
}

bool ParseFill(const std::string& word, int* fill) {
  std::string w = tqtool::Lower(word);
  if (w == "alternate" || w == "evenodd" || w == "1") *fill = ALTERNATE_FILL;
  else if (w == "winding" || w == "nonzero" || w == "2") *fill = WINDING_FILL;
  else return false;
  return true;
}

// A shape of the given kind from its numbers.
bool ParseShape(ShapeKind kind, const std::string& args, Shape* s, std::string* err) {
  std::vector<double> v;
  if (!ParseNumbers(args, &v, err)) return false;
  s->kind = kind;
  switch (kind) {
    case kRect:
    case kEllipse: {
      if (v.size() != 4 && v.size() != 5) {
        *err = "expects l,t,r,b and an optional angle in degrees";
        return false;
      }
      if (!ToCoord(v[0], &s->rc.left, err) || !ToCoord(v[1], &s->rc.top, err) ||
          !ToCoord(v[2], &s->rc.right, err) || !ToCoord(v[3], &s->rc.bottom, err))
        return false;
      if (!ExtentOk(s->rc.left, s->rc.right, err) || !ExtentOk(s->rc.top, s->rc.bottom, err)) return false;
      s->degrees = v.size() == 5 ? v[4] : 0.0;
      return true;
    }
    case kCircle: {
      if (v.size() != 3) {
        *err = "expects cx,cy,r";
        return false;
      }
      LONG cx, cy, r;
      if (!ToCoord(v[0], &cx, err) || !ToCoord(v[1], &cy, err) || !ToCoord(v[2], &r, err)) return false;
      if (r < 0 || r > kMaxExtent / 2) {
        *err = "the radius must lie between 0 and " + std::to_string(kMaxExtent / 2);
        return false;
      }
      long long l = (long long)cx - r, t = (long long)cy - r, rr = (long long)cx + r + 1,
                b = (long long)cy + r + 1;
      if (l < INT32_MIN || t < INT32_MIN || rr > INT32_MAX || b > INT32_MAX) {
        *err = "the circle leaves the 32-bit plane";
        return false;
      }
      s->kind = kEllipse;  // the odd square 2r + 1 about the centre pixel
      s->rc = RECT{(LONG)l, (LONG)t, (LONG)rr, (LONG)b};
      return true;
    }
    case kLine:
    case kPlg: {
      const size_t n = kind == kLine ? 4 : 6;
      if (v.size() != n) {
        *err = kind == kLine ? "expects x1,y1,x2,y2" : "expects x0,y0,x1,y1,x2,y2 (upper-left, upper-right, lower-left)";
        return false;
      }
      s->pts.resize(n / 2);
      for (size_t i = 0; i < s->pts.size(); ++i)
        if (!ToCoord(v[2 * i], &s->pts[i].x, err) || !ToCoord(v[2 * i + 1], &s->pts[i].y, err)) return false;
      // A parallelogram reaches its fourth corner p1 + p2 - p0.
      long long x0 = s->pts[0].x, x1 = x0, y0 = s->pts[0].y, y1 = y0;
      for (const POINT& p : s->pts) {
        x0 = std::min<long long>(x0, p.x);
        x1 = std::max<long long>(x1, p.x);
        y0 = std::min<long long>(y0, p.y);
        y1 = std::max<long long>(y1, p.y);
      }
      if (kind == kPlg) {
        const long long fx = (long long)s->pts[1].x + s->pts[2].x - s->pts[0].x;
        const long long fy = (long long)s->pts[1].y + s->pts[2].y - s->pts[0].y;
        x0 = std::min(x0, fx);
        x1 = std::max(x1, fx);
        y0 = std::min(y0, fy);
        y1 = std::max(y1, fy);
      }
      return ExtentOk(x0, x1, err) && ExtentOk(y0, y1, err);
    }
    case kArc: {
      if (v.size() != 6) {
        *err = "expects l,t,r,b and the start and end angles in degrees";
        return false;
      }
      if (!ToCoord(v[0], &s->rc.left, err) || !ToCoord(v[1], &s->rc.top, err) ||
          !ToCoord(v[2], &s->rc.right, err) || !ToCoord(v[3], &s->rc.bottom, err))
        return false;
      if (!ExtentOk(s->rc.left, s->rc.right, err) || !ExtentOk(s->rc.top, s->rc.bottom, err)) return false;
      s->degrees = v[4];
      s->endDegrees = v[5];
      return true;
    }
    case kPoly: {
      if (v.size() < 2 || v.size() % 2 != 0) {
        *err = "expects x,y pairs";
        return false;
      }
      s->pts.resize(v.size() / 2);
      for (size_t i = 0; i < s->pts.size(); ++i)
        if (!ToCoord(v[2 * i], &s->pts[i].x, err) || !ToCoord(v[2 * i + 1], &s->pts[i].y, err)) return false;
      long long x0 = s->pts[0].x, x1 = x0, y0 = s->pts[0].y, y1 = y0;
      for (const POINT& p : s->pts) {
        x0 = std::min<long long>(x0, p.x);
        x1 = std::max<long long>(x1, p.x);
        y0 = std::min<long long>(y0, p.y);
        y1 = std::max<long long>(y1, p.y);
      }
      return ExtentOk(x0, x1, err) && ExtentOk(y0, y1, err);
    }
  }
  return false;
}

bool ParseKind(const std::string& word, ShapeKind* kind) {
  std::string w = tqtool::Lower(word);
  if (w == "poly" || w == "polygon") *kind = kPoly;
  else if (w == "rect" || w == "rectangle") *kind = kRect;
  else if (w == "ellipse") *kind = kEllipse;
  else if (w == "circle") *kind = kCircle;
  else if (w == "line") *kind = kLine;
  else if (w == "arc" || w == "chord") *kind = kArc;
  else if (w == "plg" || w == "parallelogram") *kind = kPlg;
  else return false;
  return true;
}

// "deg" into place->rotate.
bool ParseRotate(const std::string& text, Placement* place, std::string* err) {
  std::vector<double> v;
  if (!ParseNumbers(text, &v, err)) return false;
  if (v.size() != 1) {
    *err = "a turn is one angle in degrees";
    return false;
  }
  place->rotate = v[0];
  return true;
}

// "m11,m12,m21,m22,dx,dy" (x' = x m11 + y m21 + dx, y' = x m12 + y m22 +
// dy), or "none", into place.
bool ParseTransform(const std::string& text, Placement* place, std::string* err) {
  if (tqtool::Lower(Trim(text)) == "none") {
    place->haveMatrix = false;
    return true;
  }
  std::vector<double> v;
  if (!ParseNumbers(text, &v, err)) return false;
  if (v.size() != 6) {
    *err = "a transform is m11,m12,m21,m22,dx,dy or none";
    return false;
  }
  place->haveMatrix = true;
  std::copy(v.begin(), v.end(), place->m);
  return true;
}

// A decimal integer at *p (optional sign), advancing p; false when there is
// none or it leaves the range [-kMaxExtent, kMaxExtent].
bool ReadInt(const char** p, long long* out) {
  errno = 0;
  char* end = nullptr;
  long long v = std::strtoll(*p, &end, 10);
  if (end == *p || errno == ERANGE || v < -kMaxExtent || v > kMaxExtent) return false;
  *p = end;
  *out = v;
  return true;
}

// "AxB" followed by what *rest points at.
bool ReadPair(const std::string& text, long long* a, long long* b, const char** rest) {
  const char* p = text.c_str();
  if (!ReadInt(&p, a) || (*p != 'x' && *p != 'X')) return false;
  ++p;
  if (*p == '+' || *p == '-' || !ReadInt(&p, b)) return false;
  *rest = p;
  return true;
}

// "WxH", "WxH+P" or "WxH-P".
bool ParseCycle(const std::string& text, Job* job, std::string* err) {
  if (!tqtool::ParseCycle(Trim(text), &job->cycleW, &job->cycleH, &job->cycleP, err, kMaxExtent)) return false;
  job->haveCycle = true;
  return true;
}

bool ParseRepeat(const std::string& text, Job* job, std::string* err) {
  const std::string t = Trim(text);
  long long c = 0, r = 0;
  const char* rest = nullptr;
  if (!ReadPair(t, &c, &r, &rest) || *rest || c < 1 || r < 1 || c > 64 || r > 64) {
    *err = "the repeat image is given as CxR cells, 1 to 64 each way, such as 3x2";
    return false;
  }
  job->repeatC = (int)c;
  job->repeatR = (int)r;
  return true;
}

bool ParseWay(const std::string& text, int* way, std::string* err) {
  std::string t = Trim(text);
  if (t == "1" || t == "2") {
    *way = t[0] - '0';
    return true;
  }
  *err = "the repeat way is 1 (tiles along x) or 2 (tiles along y)";
  return false;
}

// Reads a shapes file's text into job. lineNo reports the place of an error.
bool ParseShapesText(std::istream& in, const std::string& name, Job* job, std::string* err) {
  std::string line;
  int lineNo = 0;
  int fill = ALTERNATE_FILL;
  Placement place;
  while (std::getline(in, line)) {
    ++lineNo;
    size_t hash = line.find('#');
    if (hash != std::string::npos) line.erase(hash);
    line = Trim(line);
    if (line.empty()) continue;
    std::istringstream words(line);
    std::string first;
    words >> first;
    std::string rest;
    std::getline(words, rest);
    rest = Trim(rest);
    std::string where = name + ":" + std::to_string(lineNo) + ": ";
    std::string e;
    std::string key = tqtool::Lower(first);
    if (key == "fill") {
      if (!ParseFill(rest, &fill)) {
        *err = where + "the fill rule is alternate or winding";
        return false;
      }
      continue;
    }
    if (key == "rotate" || key == "transform") {
      if (!(key == "rotate" ? ParseRotate(rest, &place, &e) : ParseTransform(rest, &place, &e))) {
        *err = where + e;
        return false;
      }
      continue;
    }
    if (key == "cycle") {
      std::istringstream cw(rest);
      std::string size, wayWord, wayValue;
      cw >> size >> wayWord >> wayValue;
      if (!ParseCycle(size, job, &e) ||
          (!wayWord.empty() && (tqtool::Lower(wayWord) != "way" || !ParseWay(wayValue, &job->way, &e)))) {
        *err = where + (e.empty() ? "expected: cycle WxH[+P] [way 1|2]" : e);
        return false;
      }
      continue;
    }
    if (key == "repeat") {
      if (!ParseRepeat(rest, job, &e)) {
        *err = where + e;
        return false;
      }
      continue;
    }
    Shape s;
    s.fill = fill;
    s.place = place;
    ShapeKind kind;
    std::string kindWord = first;
    if (ParseOp(first, &s.op)) {
      std::istringstream more(rest);
      more >> kindWord;
      std::getline(more, rest);
      rest = Trim(rest);
    }
    if (!ParseKind(kindWord, &kind)) {
      *err = where + "'" + kindWord + "' is not a shape (rect, ellipse, circle, poly, line, arc, plg) or a directive";
      return false;
    }
    if (!ParseShape(kind, rest, &s, &e)) {
      *err = where + kindWord + " " + e;
      return false;
    }
    s.text = line;
    job->shapes.push_back(s);
  }
  return true;
}

// ---- building -------------------------------------------------------------------

// The centre a shape turns about: its rectangle's, its line's or
// parallelogram's middle, its polygon's box centre.
POINTD ShapeCentre(const Shape& s) {
  switch (s.kind) {
    case kRect:
    case kEllipse:
    case kCircle:
    case kArc:
      return POINTD(((double)s.rc.left + s.rc.right) / 2, ((double)s.rc.top + s.rc.bottom) / 2);
    case kLine:  // the pixel centres' middle
      return POINTD(((double)s.pts[0].x + s.pts[1].x) / 2 + 0.5, ((double)s.pts[0].y + s.pts[1].y) / 2 + 0.5);
    case kPlg:
      return POINTD(((double)s.pts[1].x + s.pts[2].x) / 2, ((double)s.pts[1].y + s.pts[2].y) / 2);
    case kPoly: {
      RECTD box;
      std::vector<POINTD> p(s.pts.begin(), s.pts.end());
      box.GetBorderRect(p.data(), (long)p.size());
      return box.CenterPoint();
    }
  }
  return POINTD();
}

// The placement of s as one transform: the turn about its centre (plus a
// rectangle's or ellipse's own turn), then the matrix.
ATransform PlacementOf(const Shape& s, double ownDegrees) {
  ATransform t;
  const double deg = s.place.rotate + ownDegrees;
  if (deg != 0.0) {
    const POINTD c = ShapeCentre(s);
    t.Rotate(deg * kPi / 180.0, c.x, c.y);
  }
  if (s.place.haveMatrix) {
    TransMatrix m;
    m.m11 = s.place.m[0];
    m.m12 = s.place.m[1];
    m.m21 = s.place.m[2];
    m.m22 = s.place.m[3];
    m.dx = s.place.m[4];
    m.dy = s.place.m[5];
    t.MultMatrix(ATransform(m));
  }
  return t;
}

// The region of one shape into out (empty shapes give an empty region).
bool BuildShape(const Shape& s, CRstLines& out, std::string* err) {
  g_Error.ClearError();
  out.SetEmpty();
  const bool placed = s.place.rotate != 0.0 || s.place.haveMatrix;
  const double angle = (s.degrees + s.place.rotate) * kPi / 180.0;
  std::unique_ptr<RSRLINE> piece(new RSRLINE);
  BOOL made = FALSE;
  switch (s.kind) {
    case kPoly: {
      std::vector<POINT> pts = s.pts;
      if (placed) PlacementOf(s, 0.0).CalcPoints(pts.data(), (int)pts.size(), 0.5);
      if (!out.Create(pts.data(), (int)pts.size(), (AFillMode)s.fill)) {
        *err = tqtool::LastErrorText("the polygon could not be scan converted");
        return false;
      }
      return true;
    }
    case kRect:
    case kEllipse:
    case kCircle: {
      if (s.kind == kRect && s.degrees == 0.0 && !placed) {
        if (!out.Create(s.rc) && g_Error.IsError()) {
          *err = tqtool::LastErrorText("the rectangle could not be made");
          return false;
        }
        return true;
      }
      // A turn alone keeps the angle forms (quarter turns snap to them);
      // a matrix takes the transform forms.
      if (s.place.haveMatrix) {
        const ATransform t = PlacementOf(s, s.degrees);
        made = s.kind == kRect ? CEllipse::RectRasterLine(s.rc, t, *piece)
                               : CEllipse::EllipseRasterLine(s.rc, t, *piece);
      } else {
        made = s.kind == kRect ? CEllipse::RectRasterLine(s.rc, angle, *piece)
                               : CEllipse::EllipseRasterLine(s.rc, angle, *piece);
      }
      break;
    }
    case kLine: {
      POINT a = s.pts[0], b = s.pts[1];
      if (placed) {
        // The pixel centres are mapped; the line joins the pixels they land in.
        const ATransform t = PlacementOf(s, 0.0);
        POINTD pa(a.x + 0.5, a.y + 0.5), pb(b.x + 0.5, b.y + 0.5);
        t.CalcPoint(pa);
        t.CalcPoint(pb);
        if (!(std::fabs(pa.x) < 2e9 && std::fabs(pa.y) < 2e9 && std::fabs(pb.x) < 2e9 && std::fabs(pb.y) < 2e9)) {
          *err = "the placed line leaves the 32-bit plane";
          return false;
        }
        a = POINT{(LONG)std::floor(pa.x), (LONG)std::floor(pa.y)};
        b = POINT{(LONG)std::floor(pb.x), (LONG)std::floor(pb.y)};
      }
      made = CEllipse::MidPointLine(a, b, *piece);
      break;
    }
    case kArc:
      if (placed) {
        *err = "a chord is drawn upright: --rotate and --transform do not apply to arc";
        return false;
      }
      made = CEllipse::MidPointArc(s.rc, s.degrees * kPi / 180.0, s.endDegrees * kPi / 180.0, *piece);
      break;
    case kPlg: {
      POINTD p[3] = {POINTD(s.pts[0]), POINTD(s.pts[1]), POINTD(s.pts[2])};
      if (placed) PlacementOf(s, 0.0).CalcPoints(p, 3);
      made = CEllipse::MidPointParalgram(p, *piece);
      break;
    }
  }
  if (!made) {
    if (g_Error.IsError()) {
      *err = tqtool::LastErrorText("the shape could not be made");
      return false;
    }
    return true;  // an empty shape: an empty region
  }
  CRasterArray* arr = new CRasterArray;
  arr->Add(piece.release());
  out.SetData(&arr);
  return true;
}

struct Summary {
  int pieces = 0;
  long long rows = 0, runs = 0, area = 0, loops = 0, points = 0;
  RECT box{0, 0, 0, 0};
};

// The region's outlines: every piece traced (CLoopGrpOpt), as one group.
ANLOOPGRP* Trace(const CRstLines& region) { return CLoopGrpOpt::CreateAnloopGrp(region.GetData()); }

Summary Summarize(const CRstLines& region) {
  Summary s;
  const CRasterArray* arr = region.GetData();
  if (!arr) return s;
  s.pieces = arr->GetSize();
  for (const RSRLINE* p : *arr) {
    if (!p) continue;
    s.rows += p->arCount.GetSize();
    s.runs += p->arRun.GetSize();
    for (const RSRUN& r : p->arRun) s.area += (long long)r.x2 - r.x1 + 1;
  }
  s.box = region.GetBox();
  if (ANLOOPGRP* g = Trace(region)) {
    CArray<POINT, POINT> pts;
    CArray<int, int> sizes;
    if (CLoopGrpOpt::GetPolyPolygon(g, pts, sizes)) {
      s.loops = sizes.GetSize();
      s.points = pts.GetSize();
    }
    CLoopGrpOpt::DeleteAnloopGrp(g);
  }
  return s;
}

void PrintSummary(const char* label, const Summary& s) {
  if (s.pieces == 0) {
    std::printf("%s: empty\n", label);
    return;
  }
  std::printf("%s: %d piece%s, %lld rows, %lld runs, area %lld px\n", label, s.pieces,
              s.pieces == 1 ? "" : "s", s.rows, s.runs, s.area);
  std::printf("  box: (%d, %d) - (%d, %d) inclusive, %lld x %lld\n", (int)s.box.left, (int)s.box.top,
              (int)s.box.right, (int)s.box.bottom, (long long)s.box.right - s.box.left + 1,
              (long long)s.box.bottom - s.box.top + 1);
  std::printf("  outlines: %lld loop%s, %lld points\n", s.loops, s.loops == 1 ? "" : "s", s.points);
}

// The traced outlines of region over the mask picture imagePath (covering
// rc), as SVG: the picture as the background, the loops as one path
// through the pixel centres.
bool WriteSvg(const CRstLines& region, const RECT& rc, const std::string& path, const std::string& imagePath,
              std::string* err) {
  ANLOOPGRP* g = Trace(region);
  if (!g || !CLoopGrpOpt::MoveAnloopGrp(g, -rc.left, -rc.top)) {
    CLoopGrpOpt::DeleteAnloopGrp(g);
    *err = tqtool::LastErrorText("the region could not be traced");
    return false;
  }
  CSvgDC dc;
  CLoopGrpOpt::DrawAnloopGrp(&dc, g);
  CLoopGrpOpt::DeleteAnloopGrp(g);
  const long long w = (long long)rc.right - rc.left, h = (long long)rc.bottom - rc.top;
  // The picture is referred to by its name when it lies beside the SVG,
  // otherwise by its absolute path.
  const std::filesystem::path svgDir = std::filesystem::absolute(path).parent_path();
  const std::filesystem::path image = std::filesystem::absolute(imagePath);
  const std::string href = image.parent_path() == svgDir ? image.filename().string() : image.string();
  std::string doc = "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + std::to_string(w) + "\" height=\"" +
                    std::to_string(h) + "\" viewBox=\"0 0 " + std::to_string(w) + " " + std::to_string(h) + "\">\n";
  doc += "  <image href=\"" + href + "\" x=\"0\" y=\"0\" width=\"" + std::to_string(w) + "\" height=\"" +
         std::to_string(h) + "\" style=\"image-rendering:pixelated\"/>\n";
  doc += "  <path fill=\"none\" stroke=\"#e4002b\" stroke-width=\"0.4\" d=\"";
  doc += dc.GetPathData().GetString();
  doc += "\"/>\n</svg>\n";
  return tqtool::WriteFile(path, doc, *err);
}

// ---- images ---------------------------------------------------------------------

// A colour per piece: well apart in hue, repeating after twelve.
void PieceColour(int k, unsigned char rgb[3]) {
  static const unsigned char kPalette[12][3] = {
      {230, 25, 75},  {60, 180, 75},  {0, 130, 200},  {245, 130, 48}, {145, 30, 180}, {70, 200, 200},
      {240, 50, 230}, {170, 200, 40}, {250, 190, 190}, {0, 128, 128}, {170, 110, 40}, {128, 0, 0}};
  const unsigned char* c = kPalette[k % 12];
  rgb[0] = c[0];
  rgb[1] = c[1];
  rgb[2] = c[2];
}

// Writes the region's pixels inside rc as a mask (255 inside, 0 outside; the
// other way round with invert), or, given pieces, each piece in the colour
// of its index in colour over that background. Returns the path written.
bool WriteMask(const CRstLines& region, const RECT& rc, std::string path, bool invert, std::string* written,
               std::string* err, const CRasterArray* pieces = nullptr, const std::vector<int>* colour = nullptr) {
  const long long w = (long long)rc.right - rc.left, h = (long long)rc.bottom - rc.top;
  const int bytes = pieces ? 3 : 1;
  // Both sides are below 2^32, so their product cannot overflow.
  if (w < 1 || h < 1 || w * h * bytes > (long long)kMaxImageBytes) {
    *err = "the image would be " + std::to_string(w) + " x " + std::to_string(h) +
           " pixels; the limit is " + std::to_string(kMaxImageBytes >> 20) + " MiB";
    return false;
  }
  std::vector<unsigned char> px((size_t)(w * h * bytes), 0);
  if (pieces) {
    std::fill(px.begin(), px.end(), (unsigned char)(invert ? 255 : 0));
    for (int i = 0; i < pieces->GetSize(); ++i) {
      const RSRLINE* p = (*pieces)[i];
      unsigned char rgb[3];
      PieceColour((*colour)[(size_t)i], rgb);
      const RSRUN* r = p->arRun.GetData();
      for (int k = 0; k < p->arCount.GetSize(); ++k) {
        const long long y = (long long)p->rcBox.top + k - rc.top;
        for (int j = 0; j < p->arCount[k]; ++j, ++r) {
          const long long a = std::max<long long>(r->x1, rc.left), b = std::min<long long>(r->x2, (long long)rc.right - 1);
          if (y < 0 || y >= h) continue;
          for (long long x = a; x <= b; ++x) std::memcpy(&px[(size_t)((y * w + x - rc.left) * 3)], rgb, 3);
        }
      }
    }
  } else if (const CRasterArray* arr = region.GetData()) {
    for (RSRLINE* p : *arr) {
      if (p && p->arRun.GetSize() > 0 && !CRstLines::SetRasterMaskInBuf(px.data(), rc, p, 255)) {
        *err = tqtool::LastErrorText("a piece of the region does not fit the image");
        return false;
      }
    }
    if (invert)
      for (unsigned char& b : px) b = (unsigned char)(255 - b);
  }
  tqtool::Image im;
  im.width = (uint32_t)w;
  im.height = (uint32_t)h;
  im.depth = pieces ? 24 : 8;
  im.pixels.swap(px);
  if (tqtool::HavePng() && !tqtool::HasSuffix(path, ".pgm")) {
    *written = path;
    return tqtool::WritePng(path, im, *err);
  }
  if (pieces) {
    *err = "coloured pieces need PNG: cannot write " + path;
    return false;
  }
  if (tqtool::HasSuffix(path, ".png")) {
    path = path.substr(0, path.size() - 4) + ".pgm";
    std::fprintf(stderr, "tqbase region: built without libpng; writing %s instead\n", path.c_str());
  }
  *written = path;
  return tqtool::WritePgm(path, im, *err);
}

// ---- the command -----------------------------------------------------------------

struct Options {
  std::vector<std::string> polys, rects, ellipses, circles, lines, arcs, plgs, ops, rotates, transforms;
  std::string fill = "alternate", file, image, cycle, repeat, svg;
  int way = 1;
  int margin = 2;
  bool sample = false, invert = false;
  // Reshaping after the shapes are combined, in this order.
  int grow = 0, shrink = 0;
  std::string resample;
  bool split = false, layers = false;
};

// The reshaping options applied to region: --grow, then --shrink (on the
// repeat when there is one), then --resample (of the region's frame from
// the origin, or of the repeat cell, whose size and displacement scale
// with it). On failure err says why.
bool Reshape(CRstLines& region, const Options& o, Job& job, ACycle* cycle, std::string* err) {
  const int steps[2] = {o.grow, -o.shrink};
  for (int d : steps) {
    if (d == 0 || region.IsEmpty()) continue;
    g_Error.ClearError();
    CRasterArray* arr = CRstLines::ExpandRaster(region.GetData(), d, cycle);
    if (!arr) {
      *err = tqtool::LastErrorText(d > 0 ? "the region could not be grown" : "the region could not be shrunk");
      return false;
    }
    region.SetData(&arr);
    std::printf("  %s by %d pixel%s\n", d > 0 ? "grown" : "shrunk", std::abs(d), std::abs(d) == 1 ? "" : "s");
  }
  if (o.resample.empty()) return true;
  long long w = 0, h = 0;
  char x = 0, extra = 0;
  if (std::sscanf(o.resample.c_str(), "%lld%c%lld%c", &w, &x, &h, &extra) != 3 || (x != 'x' && x != 'X') ||
      w < 1 || h < 1 || w > kMaxExtent || h > kMaxExtent) {
    *err = "--resample is WxH with sides from 1 to " + std::to_string(kMaxExtent) + ", not '" + o.resample + "'";
    return false;
  }
  const SIZE to = {(LONG)w, (LONG)h};
  SIZE from = {0, 0};
  if (cycle) from = SIZE{job.cycleW, job.cycleH};
  g_Error.ClearError();
  if (!CRstLines::Resample(&region, &region, &to, nullptr, nullptr, cycle ? &from : nullptr)) {
    *err = tqtool::LastErrorText("the region could not be resampled");
    return false;
  }
  if (cycle) {
    // The repeat scales with its cell: the displacement in proportion.
    const long long along = job.way == 1 ? job.cycleH : job.cycleW, to1 = job.way == 1 ? h : w;
    job.cycleP = (int)std::llround((double)job.cycleP * (double)to1 / (double)along);
    job.cycleW = (int)w;
    job.cycleH = (int)h;
    cycle->SetCycleParams(job.cycleW, job.cycleH, job.cycleP);
  }
  std::printf("  resampled to %lld x %lld%s\n", w, h, cycle ? " (the repeat cell with it)" : "");
  return true;
}

// --split and --layers: lists the connected pieces of the shown region
// (with their nesting depth for --layers) and returns them, with the
// colour index of each (piece number, or depth), for the picture.
bool ListPieces(const CRstLines& shown, const RECT& rc, bool layers, CRasterArray* pieces, std::vector<int>* colour,
                std::string* err) {
  g_Error.ClearError();
  CArray<int, int> depth;
  bool ok;
  if (layers) {
    ok = CRstLines::DividebyLayer(shown.GetData(), rc, pieces, &depth) != FALSE;
  } else {
    CRasterArray* parts = CRstLines::DivideUp(shown.GetData());
    ok = parts != nullptr;
    if (ok) {
      pieces->vec().swap(parts->vec());
      CRstLines::Delete(parts);
    }
  }
  if (!ok) {
    *err = tqtool::LastErrorText("the region could not be split");
    return false;
  }
  std::printf("  %s: %d connected piece%s\n", layers ? "layers" : "pieces", (int)pieces->GetSize(),
              pieces->GetSize() == 1 ? "" : "s");
  const int listed = std::min(pieces->GetSize(), 20);
  for (int i = 0; i < pieces->GetSize(); ++i) {
    const RSRLINE* p = (*pieces)[i];
    long long area = 0;
    for (const RSRUN& r : p->arRun) area += (long long)r.x2 - r.x1 + 1;
    colour->push_back(layers ? depth[i] : i);
    if (i < listed)
      std::printf("    %3d: box (%d, %d) - (%d, %d), area %lld px%s\n", i, (int)p->rcBox.left, (int)p->rcBox.top,
                  (int)p->rcBox.right, (int)p->rcBox.bottom, area,
                  layers ? (", depth " + std::to_string(depth[i])).c_str() : "");
  }
  if (pieces->GetSize() > listed) std::printf("    ... and %d more\n", pieces->GetSize() - listed);
  return true;
}

int RunJob(Job& job, const Options& o, const std::string& imagePath) {
  ACycle cycle;
  const ACycle* pc = nullptr;
  if (job.haveCycle) {
    cycle.SetCycleParams(job.cycleW, job.cycleH, job.cycleP);
    cycle.SetCycleWay(job.way);
    cycle.SetCycleOnOff(1);
    pc = &cycle;
  }
  if (job.shapes.empty()) {
    std::fprintf(stderr, "tqbase region: no shapes given (try --sample, or see --help)\n");
    return 1;
  }
  static const char* kOpName[] = {"and", "or", "diff", "xor"};
  CRstLines region;
  std::string err;
  for (size_t i = 0; i < job.shapes.size(); ++i) {
    const Shape& s = job.shapes[i];
    CRstLines shape;
    if (!BuildShape(s, shape, &err)) {
      std::fprintf(stderr, "tqbase region: %s: %s\n", s.text.c_str(), err.c_str());
      return 1;
    }
    if (i == 0) {
      region.MoveData(&shape);
      continue;
    }
    g_Error.ClearError();
    int code = region.Combine(&region, &shape, s.op, pc);
    if (code == RST_FAILED) {
      std::fprintf(stderr, "tqbase region: %s %s failed: %s\n", kOpName[s.op - RST_AND], s.text.c_str(),
                   tqtool::LastErrorText("the regions could not be combined").c_str());
      return 1;
    }
  }
  if (pc && !region.CalLocal(pc)) {
    std::fprintf(stderr, "tqbase region: the region could not be folded into the repeat\n");
    return 1;
  }
  if (!Reshape(region, o, job, pc ? &cycle : nullptr, &err)) {
    std::fprintf(stderr, "tqbase region: %s\n", err.c_str());
    return 1;
  }

  Summary sum = Summarize(region);
  PrintSummary("region", sum);
  if (pc)
    std::printf("  repeat: cell %d x %d, displacement %d, way %d (region folded into the base cell)\n",
                job.cycleW, job.cycleH, job.cycleP, job.way);

  if (imagePath.empty()) return 0;
  if (sum.pieces == 0) {
    std::printf("  no image written: the region is empty\n");
    return 0;
  }
  RECT rc;
  CRstLines shown;
  const CRstLines* out = &region;
  if (pc) {
    // The repeat over C x R cells from the origin.
    int c = job.repeatC > 0 ? job.repeatC : 2, r = job.repeatR > 0 ? job.repeatR : 2;
    rc = RECT{0, 0, (LONG)((long long)job.cycleW * c), (LONG)((long long)job.cycleH * r)};
    if ((long long)job.cycleW * c > kMaxExtent || (long long)job.cycleH * r > kMaxExtent) {
      std::fprintf(stderr, "tqbase region: the repeat image is too large\n");
      return 1;
    }
    shown = region;
    g_Error.ClearError();
    if (!shown.Cycle(pc, &rc)) {
      std::fprintf(stderr, "tqbase region: %s\n", tqtool::LastErrorText("the repeat could not be drawn").c_str());
      return 1;
    }
    out = &shown;
    std::printf("  image: %d x %d cells of the repeat\n", c, r);
  } else {
    const int m = o.margin;
    rc = RECT{(LONG)std::max<long long>(INT32_MIN, (long long)sum.box.left - m),
              (LONG)std::max<long long>(INT32_MIN, (long long)sum.box.top - m),
              (LONG)std::min<long long>(INT32_MAX, (long long)sum.box.right + 1 + m),
              (LONG)std::min<long long>(INT32_MAX, (long long)sum.box.bottom + 1 + m)};
  }
  CRasterArray pieces;
  std::vector<int> colour;
  struct Free {
    CRasterArray* a;
    ~Free() { CRstLines::Release(a); }
  } freePieces{&pieces};
  const bool coloured = o.split || o.layers;
  if (coloured && !ListPieces(*out, rc, o.layers, &pieces, &colour, &err)) {
    std::fprintf(stderr, "tqbase region: %s\n", err.c_str());
    return 1;
  }
  std::string written;
  if (!WriteMask(*out, rc, imagePath, o.invert, &written, &err, coloured ? &pieces : nullptr, &colour)) {
    std::fprintf(stderr, "tqbase region: %s\n", err.c_str());
    return 1;
  }
  std::printf("  wrote %s: %d x %d, origin (%d, %d)\n", written.c_str(), (int)(rc.right - rc.left),
              (int)(rc.bottom - rc.top), (int)rc.left, (int)rc.top);
  if (!o.svg.empty()) {
    if (!WriteSvg(*out, rc, o.svg, written, &err)) {
      std::fprintf(stderr, "tqbase region: %s\n", err.c_str());
      return 1;
    }
    std::printf("  wrote %s: the traced outlines over %s\n", o.svg.c_str(), written.c_str());
  }
  return 0;
}

void Setup(CLI::App& app) {
  auto opts = std::make_shared<Options>();
  CLI::App* cmd = app.add_subcommand(
      "region",
      "Build a region from polygons, rectangles, circles, ellipses, lines, chords and parallelograms, "
      "combine them in order, optionally fold it into a repeat, and write a mask image and a summary");
  cmd->footer(std::string("Shapes are combined in the order given; --op sets the operator for the "
                          "shapes after it (default or), --rotate and --transform their placement.\n"
                          "Angles are in degrees.\n\n") +
              kFileHelp);
  tqtool::Examples(cmd, {"tqbase region --sample --svg motif.svg", "tqbase region --poly \"0,0 100,0 50,80\" --op xor --rect 10,10,200,120 --png out.png", "tqbase region --sample --grow 4 --split --png pieces.png"});
  // One value per occurrence, so that the order of occurrences is the order
  // of the shapes (parse_order below); a polygon's points are one quoted word.
  auto shapeOption = [cmd](const char* name, std::vector<std::string>& into, const char* help) {
    cmd->add_option(name, into, help)->expected(1)->allow_extra_args(false)->take_all();
  };
  shapeOption("--poly", opts->polys, "polygon \"x,y x,y x,y ...\"");
  shapeOption("--rect", opts->rects, "rectangle l,t,r,b[,deg] (right and bottom outside)");
  shapeOption("--ellipse", opts->ellipses, "ellipse inscribed in l,t,r,b[,deg]");
  shapeOption("--circle", opts->circles, "circle cx,cy,r");
  shapeOption("--line", opts->lines, "one-pixel line x1,y1,x2,y2 between two pixels");
  shapeOption("--arc", opts->arcs, "chord l,t,r,b,from,to of the inscribed ellipse, angles in degrees");
  shapeOption("--plg", opts->plgs, "parallelogram x0,y0,x1,y1,x2,y2: upper-left, upper-right, lower-left corners");
  shapeOption("--op", opts->ops, "operator for the shapes that follow: and|or|diff|xor");
  shapeOption("--rotate", opts->rotates, "turn the shapes that follow by DEG about their centres");
  shapeOption("--transform", opts->transforms,
              "map the shapes that follow through m11,m12,m21,m22,dx,dy (after --rotate); none to stop");
  cmd->add_option("--fill", opts->fill, "polygon fill rule: alternate|winding")->capture_default_str();
  cmd->add_option("--file", opts->file, "read shapes from a text file (format below)");
  cmd->add_option("--cycle", opts->cycle, "fold into a repeat cell WxH[+P], such as 100x50+25");
  cmd->add_option("--way", opts->way, "repeat way: 1 tiles along x, 2 along y")->capture_default_str();
  cmd->add_option("--repeat", opts->repeat, "with a repeat, the image shows CxR cells (default 2x2)");
  cmd->add_option("--png", opts->image, "write the mask to this image (PGM when the name ends in .pgm "
                                        "or libpng is missing)");
  cmd->add_option("--margin", opts->margin, "blank pixels around the region in the image")
      ->capture_default_str()->check(CLI::Range(0, 4096));
  cmd->add_option("--svg", opts->svg, "write the traced outlines as SVG over the mask image (the mask "
                                      "goes beside it, named after it, unless --png names one)");
  cmd->add_option("--grow", opts->grow, "grow the result by N pixels (a disc; on the repeat when there is one)")
      ->check(CLI::Range(0, 10000));
  cmd->add_option("--shrink", opts->shrink, "shrink the result by N pixels (after --grow)")->check(CLI::Range(0, 10000));
  cmd->add_option("--resample", opts->resample,
                  "resample the result to WxH (its frame from the origin, or the repeat cell)");
  cmd->add_flag("--split", opts->split, "list the connected pieces and colour them one by one in the image");
  cmd->add_flag("--layers", opts->layers,
                "list the pieces by nesting depth (outer, islands in holes, ...) and colour them by depth");
  cmd->add_flag("--invert", opts->invert, "draw the region black on white");
  cmd->add_flag("--sample", opts->sample,
                "run the built-in textile motif (drawn black on white) and write region-demo.png");

  cmd->callback([cmd, opts]() {
    const Options& o = *opts;
    Job job;
    std::string err;
    std::string image = o.image;
    bool sampleInvert = false;
    if (o.sample) {
      std::istringstream in(kSampleText);
      if (!ParseShapesText(in, "sample", &job, &err)) {
        std::fprintf(stderr, "tqbase region: %s\n", err.c_str());
        tqtool::ToolExit(1);
        return;
      }
      if (image.empty()) image = "region-demo.png";
      sampleInvert = true;  // the demo reads better dark on light
      std::printf("sample motif (tools/samples/shapes.txt): %zu shapes\n", job.shapes.size());
    }
    if (!o.file.empty()) {
      std::ifstream in(o.file);
      if (!in) {
        std::fprintf(stderr, "tqbase region: cannot open %s\n", o.file.c_str());
        tqtool::ToolExit(1);
        return;
      }
      if (!ParseShapesText(in, o.file, &job, &err)) {
        std::fprintf(stderr, "tqbase region: %s\n", err.c_str());
        tqtool::ToolExit(1);
        return;
      }
    }
    int fill = ALTERNATE_FILL;
    if (!ParseFill(o.fill, &fill)) {
      std::fprintf(stderr, "tqbase region: --fill is alternate or winding, not '%s'\n", o.fill.c_str());
      tqtool::ToolExit(1);
      return;
    }
    // Command-line shapes, in the order they were given, after the file's.
    size_t iPoly = 0, iRect = 0, iEllipse = 0, iCircle = 0, iLine = 0, iArc = 0, iPlg = 0, iOp = 0;
    size_t iRotate = 0, iTransform = 0;
    int op = RST_OR;
    Placement place;
    for (const CLI::Option* opt : cmd->parse_order()) {
      const std::string name = opt->get_name();
      Shape s;
      s.op = op;
      s.fill = fill;
      s.place = place;
      ShapeKind kind;
      std::string args;
      if ((name == "--rotate" && iRotate < o.rotates.size()) ||
          (name == "--transform" && iTransform < o.transforms.size())) {
        const bool rot = name == "--rotate";
        const std::string& text = rot ? o.rotates[iRotate++] : o.transforms[iTransform++];
        if (!(rot ? ParseRotate(text, &place, &err) : ParseTransform(text, &place, &err))) {
          std::fprintf(stderr, "tqbase region: %s \"%s\": %s\n", name.c_str(), text.c_str(), err.c_str());
          tqtool::ToolExit(1);
          return;
        }
        continue;
      }
      if (name == "--op") {
        if (iOp >= o.ops.size() || !ParseOp(o.ops[iOp], &op)) {
          std::fprintf(stderr, "tqbase region: --op is and, or, diff or xor, not '%s'\n",
                       iOp < o.ops.size() ? o.ops[iOp].c_str() : "");
          tqtool::ToolExit(1);
          return;
        }
        ++iOp;
        continue;
      } else if (name == "--poly" && iPoly < o.polys.size()) {
        kind = kPoly;
        args = o.polys[iPoly++];
      } else if (name == "--rect" && iRect < o.rects.size()) {
        kind = kRect;
        args = o.rects[iRect++];
      } else if (name == "--ellipse" && iEllipse < o.ellipses.size()) {
        kind = kEllipse;
        args = o.ellipses[iEllipse++];
      } else if (name == "--circle" && iCircle < o.circles.size()) {
        kind = kCircle;
        args = o.circles[iCircle++];
      } else if (name == "--line" && iLine < o.lines.size()) {
        kind = kLine;
        args = o.lines[iLine++];
      } else if (name == "--arc" && iArc < o.arcs.size()) {
        kind = kArc;
        args = o.arcs[iArc++];
      } else if (name == "--plg" && iPlg < o.plgs.size()) {
        kind = kPlg;
        args = o.plgs[iPlg++];
      } else {
        continue;
      }
      if (!ParseShape(kind, args, &s, &err)) {
        std::fprintf(stderr, "tqbase region: %s \"%s\": %s\n", name.c_str(), args.c_str(), err.c_str());
        tqtool::ToolExit(1);
        return;
      }
      s.text = name + " " + args;
      job.shapes.push_back(s);
    }
    if (!o.cycle.empty() && !ParseCycle(o.cycle, &job, &err)) {
      std::fprintf(stderr, "tqbase region: --cycle: %s\n", err.c_str());
      tqtool::ToolExit(1);
      return;
    }
    if (cmd->count("--way") > 0 && !ParseWay(std::to_string(o.way), &job.way, &err)) {
      std::fprintf(stderr, "tqbase region: --way: %s\n", err.c_str());
      tqtool::ToolExit(1);
      return;
    }
    if (!o.repeat.empty() && !ParseRepeat(o.repeat, &job, &err)) {
      std::fprintf(stderr, "tqbase region: --repeat: %s\n", err.c_str());
      tqtool::ToolExit(1);
      return;
    }
    if (!o.svg.empty() && image.empty()) {
      image = o.svg;
      if (tqtool::HasSuffix(image, ".svg")) image.resize(image.size() - 4);
      image += ".png";
    }
    Options run = o;
    run.invert = o.invert != sampleInvert;
    tqtool::ToolExit(RunJob(job, run, image));
  });
}

}  // namespace

TQ_REGISTER_COMMAND("40-region", Setup);
