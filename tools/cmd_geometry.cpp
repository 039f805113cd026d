// cmd_geometry.cpp - the "transform" and "cycle" subcommands: apply a chain
// of affine operations to points, and fold points and cut runs or
// rectangles for a repeat, so that a design's geometry can be checked by
// hand.
//
// Relies on the library's ATransform (transform.h) and ACycle (acycle.h).
#include "command.h"
#include "args.h"

#include <tqbase/tqbase.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

namespace {

const double kPi = 3.141592653589793;

// ---- number parsing with clear messages ----

bool ParseDouble(const std::string& text, double* out) {
  if (text.empty()) return false;
  errno = 0;
  char* end = nullptr;
  double v = std::strtod(text.c_str(), &end);
  if (end == text.c_str() || *end != '\0' || errno == ERANGE || !std::isfinite(v)) return false;
  *out = v;
  return true;
}

bool ParseInt(const std::string& text, int* out) {
  if (text.empty()) return false;
  errno = 0;
  char* end = nullptr;
  long long v = std::strtoll(text.c_str(), &end, 10);
  if (end == text.c_str() || *end != '\0' || errno == ERANGE || v < INT32_MIN || v > INT32_MAX) return false;
  *out = (int)v;
  return true;
}

std::vector<std::string> Split(const std::string& text, char sep) {
  std::vector<std::string> parts;
  std::string cur;
  for (char c : text) {
    if (c == sep) {
      parts.push_back(cur);
      cur.clear();
    } else {
      cur += c;
    }
  }
  parts.push_back(cur);
  return parts;
}

// "a,b,c" with exactly n integers.
bool ParseInts(const std::string& text, size_t n, int* out) {
  std::vector<std::string> parts = Split(text, ',');
  if (parts.size() != n) return false;
  for (size_t i = 0; i < n; ++i)
    if (!ParseInt(parts[i], &out[i])) return false;
  return true;
}

// An angle: "90", "90deg" or "90°" in degrees, "1.5rad" in radians.
bool ParseAngle(const std::string& text, double* radians) {
  std::string t = text;
  double scale = kPi / 180.0;
  auto strip = [&t](const std::string& suffix) {
    if (t.size() > suffix.size() && t.compare(t.size() - suffix.size(), suffix.size(), suffix) == 0) {
      t.erase(t.size() - suffix.size());
      return true;
    }
    return false;
  };
  if (strip("rad")) scale = 1.0;
  else if (!strip("deg")) strip("\xC2\xB0");
  double v;
  if (!ParseDouble(t, &v)) return false;
  *radians = v * scale;
  return true;
}

bool StdinIsTerminal() {
#ifdef _WIN32
  return _isatty(_fileno(stdin)) != 0;
#else
  return isatty(0) != 0;
#endif
}

// message starts with the command's name ("cycle: ...").
int Fail(const std::string& message) {
  std::cerr << "tqbase " << message << "\n";
  tqtool::ToolExit(1);
  return 1;
}

// ---- transform ----

struct TransformOptions {
  std::vector<std::string> tokens;
  std::vector<std::string> points;
  double precision = 0.5;
  bool inverse = false;
};

// Reads "x y" or "x,y" per line; blank lines and '#' comments are skipped.
bool ReadPointLines(std::istream& in, std::vector<std::string>* out, std::string* error) {
  std::string line;
  int lineNo = 0;
  while (std::getline(in, line)) {
    ++lineNo;
    size_t hash = line.find('#');
    if (hash != std::string::npos) line.erase(hash);
    for (char& c : line)
      if (c == ',' || c == '\t') c = ' ';
    std::istringstream ls(line);
    std::string a, b, extra;
    if (!(ls >> a)) continue;
    if (!(ls >> b) || (ls >> extra)) {
      *error = "stdin line " + std::to_string(lineNo) + ": expected two numbers \"x y\"";
      return false;
    }
    out->push_back(a + "," + b);
  }
  return true;
}

void PrintMatrix(const char* title, const TransMatrix& m) {
  std::printf("%s\n", title);
  std::printf("  [ %14.9g %14.9g  0 ]\n", m.m11 + 0.0, m.m12 + 0.0);
  std::printf("  [ %14.9g %14.9g  0 ]\n", m.m21 + 0.0, m.m22 + 0.0);
  std::printf("  [ %14.9g %14.9g  1 ]\n", m.dx + 0.0, m.dy + 0.0);
}

// Applies the chain tokens to t; false with a message for a malformed one.
bool BuildChain(const std::vector<std::string>& tokens, ATransform& t, std::string* error) {
  size_t i = 0;
  auto need = [&](size_t n, const std::string& op, const char* usage) {
    if (i + n >= tokens.size()) {
      *error = "'" + op + "' needs " + usage;
      return false;
    }
    return true;
  };
  while (i < tokens.size()) {
    const std::string op = tokens[i];
    // An optional "about CX CY" after the operation's own numbers.
    auto about = [&](size_t at, double* cx, double* cy) {
      *cx = 0;
      *cy = 0;
      if (at < tokens.size() && tokens[at] == "about") {
        if (at + 2 >= tokens.size()) {
          *error = "'about' needs two numbers CX CY";
          return (size_t)0;
        }
        if (!ParseDouble(tokens[at + 1], cx) || !ParseDouble(tokens[at + 2], cy)) {
          *error = "'about' needs two numbers CX CY, got '" + tokens[at + 1] + " " + tokens[at + 2] + "'";
          return (size_t)0;
        }
        return at + 3;
      }
      return at;
    };
    double a = 0, b = 0, cx = 0, cy = 0;
    if (op == "translate" || op == "scale" || op == "shear") {
      const char* usage = op == "translate" ? "two numbers DX DY" : op == "scale" ? "two numbers SX SY" : "two numbers SHX SHY";
      if (!need(2, op, usage)) return false;
      if (!ParseDouble(tokens[i + 1], &a) || !ParseDouble(tokens[i + 2], &b)) {
        *error = "'" + op + "' needs " + usage + ", got '" + tokens[i + 1] + " " + tokens[i + 2] + "'";
        return false;
      }
      size_t next = i + 3;
      if (op != "translate") {
        next = about(i + 3, &cx, &cy);
        if (next == 0) return false;
      }
      if (op == "translate") t.Translation(a, b);
      else if (op == "scale") t.Scaling(a, b, cx, cy);
      else t.Shear(a, b, cx, cy);
      i = next;
    } else if (op == "rotate" || op == "reflect") {
      if (!need(1, op, "an angle such as 90deg or 1.57rad")) return false;
      if (!ParseAngle(tokens[i + 1], &a)) {
        *error = "'" + op + "' needs an angle such as 90deg or 1.57rad, got '" + tokens[i + 1] + "'";
        return false;
      }
      size_t next = about(i + 2, &cx, &cy);
      if (next == 0) return false;
      if (op == "rotate") t.Rotate(a, cx, cy);
      else t.Reflection(a, cx, cy);
      i = next;
    } else {
      *error = "unknown operation '" + op +
               "' (expected translate DX DY, scale SX SY, rotate ANGLE, shear SHX SHY or reflect ANGLE, "
               "each but translate optionally followed by 'about CX CY')";
      return false;
    }
  }
  return true;
}

void RunTransform(const TransformOptions& o) {
  std::vector<std::string> tokens, points = o.points;
  for (const std::string& tok : o.tokens) {
    if (tok.find(',') != std::string::npos) points.push_back(tok);
    else tokens.push_back(tok);
  }
  ATransform t;
  std::string error;
  if (!BuildChain(tokens, t, &error)) {
    Fail("transform: " + error);
    return;
  }
  if (points.empty() && !StdinIsTerminal()) {
    // Points on stdin when none are given as arguments.
    if (!ReadPointLines(std::cin, &points, &error)) {
      Fail("transform: " + error);
      return;
    }
  }
  PrintMatrix("matrix (x' = x*m11 + y*m21 + dx, y' = x*m12 + y*m22 + dy):", t.GetMatrix());
  TransMatrix inv = t.GetMatrix();
  if (inv.InverseMatrix()) PrintMatrix("inverse:", inv);
  else std::printf("inverse: none (the matrix is singular)\n");
  if (o.inverse && !t.CanInverseCalc()) {
    Fail("transform: --inverse needs an invertible transform");
    return;
  }
  for (const std::string& text : points) {
    std::vector<std::string> xy = Split(text, ',');
    double x, y;
    if (xy.size() != 2 || !ParseDouble(xy[0], &x) || !ParseDouble(xy[1], &y)) {
      Fail("transform: malformed point '" + text + "' (expected X,Y)");
      return;
    }
    double mx = x, my = y;
    if (o.inverse) t.InverseCalcPoint(mx, my);
    else t.CalcPoint(mx, my);
    int px = CPrecise::PreciseInt(mx, o.precision), py = CPrecise::PreciseInt(my, o.precision);
    std::printf("%.10g,%.10g -> %.10g,%.10g  pixel %d,%d\n", x, y, mx, my, px, py);
  }
}

void SetupTransform(CLI::App& app) {
  auto opts = std::make_shared<TransformOptions>();
  CLI::App* cmd = app.add_subcommand(
      "transform", "Apply a chain of affine operations to points");
  cmd->footer(
      "Operations act in the order given (the last acts last): translate DX DY, scale SX SY,\n"
      "rotate ANGLE, shear SHX SHY, reflect ANGLE; all but translate accept 'about CX CY'.\n"
      "Angles are degrees (90, 90deg) or radians (1.57rad). Tokens X,Y are points; without\n"
      "points, lines \"x y\" are read from stdin. Prints the matrix, its inverse and each point.");
  tqtool::Examples(cmd, {"tqbase transform translate 10 0 scale 2 2 rotate 90deg 3,4", "tqbase transform rotate 30 about 50 50 --inverse 10,10"});
  cmd->add_option("chain", opts->tokens, "operations and X,Y points")->allow_extra_args();
  cmd->add_option("-p,--point", opts->points, "a point X,Y (repeatable)");
  cmd->add_option("--precision", opts->precision, "rounding for the pixel column: 0.5 nearest, 0 truncate")
      ->capture_default_str();
  cmd->add_flag("-i,--inverse", opts->inverse, "map the points backward");
  cmd->positionals_at_end(false);
  cmd->callback([opts]() { RunTransform(*opts); });
}

// ---- cycle ----

struct CycleOptions {
  std::string cycle;
  int way = 1;
  bool off = false;
  std::vector<std::string> points;
  std::vector<std::string> runs;
  std::vector<std::string> rects;
  std::string clip;
};

void RunCycle(const CycleOptions& o) {
  CYCLEINFO ci;
  std::string cycleErr;
  if (!tqtool::ParseCycle(o.cycle, &ci.width, &ci.height, &ci.param, &cycleErr)) {
    Fail("cycle: --cycle: " + cycleErr);
    return;
  }
  if (ci.width < 1 || ci.height < 1) {
    Fail("cycle: the tile " + o.cycle + " must be at least 1x1 pixels");
    return;
  }
  if (o.way != 1 && o.way != 2) {
    Fail("cycle: --way must be 1 (tiles along x, each step displaces y) or 2 (along y, displaces x)");
    return;
  }
  ci.way = o.way;
  ci.onOff = o.off ? 0 : 1;
  RECT clip = {0, 0, 0, 0};
  const RECT* clipPtr = nullptr;
  if (!o.clip.empty()) {
    int v[4];
    if (!ParseInts(o.clip, 4, v) || v[2] <= v[0] || v[3] <= v[1]) {
      Fail("cycle: malformed --clip '" + o.clip + "' (expected LEFT,TOP,RIGHT,BOTTOM with right > left, bottom > top)");
      return;
    }
    clip = {v[0], v[1], v[2], v[3]};
    clipPtr = &clip;
  }
  std::vector<std::string> points = o.points;
  if (points.empty() && o.runs.empty() && o.rects.empty() && !StdinIsTerminal()) {
    std::string error;
    if (!ReadPointLines(std::cin, &points, &error)) {
      Fail("cycle: " + error);
      return;
    }
  }
  std::printf("repeat %dx%d param %d way %d %s\n", ci.width, ci.height, ci.param, ci.way, ci.onOff ? "on" : "off");
  if (clipPtr) std::printf("clip %d,%d,%d,%d (results relative to its top-left corner)\n", (int)clip.left, (int)clip.top,
                           (int)clip.right, (int)clip.bottom);

  for (const std::string& text : points) {
    int v[2];
    if (!ParseInts(text, 2, v)) {
      Fail("cycle: malformed point '" + text + "' (expected X,Y)");
      return;
    }
    POINT p = {v[0], v[1]};
    if (clipPtr == nullptr) {
      POINT f = ACycle::GCalLocalPoint(p.x, p.y, &ci);
      std::printf("point %d,%d -> %d,%d\n", (int)p.x, (int)p.y, (int)f.x, (int)f.y);
    } else {
      CArray<POINT> copies;
      int n = ACycle::GCycleSituation(&p, copies, clipPtr, &ci);
      std::printf("point %d,%d: %d cop%s in the clip\n", (int)p.x, (int)p.y, n, n == 1 ? "y" : "ies");
      for (const POINT& c : copies) std::printf("  %d,%d\n", (int)c.x, (int)c.y);
    }
  }

  for (const std::string& text : o.runs) {
    int v[3];
    if (!ParseInts(text, 3, v) || v[2] < 1) {
      Fail("cycle: malformed run '" + text + "' (expected X,Y,LENGTH with length >= 1)");
      return;
    }
    APTLENGTH run = {v[0], v[1], v[2]};
    CArray<APTLENGTH> pieces;
    CArray<int> offsets;
    int n = ACycle::GCycleSituation(&run, &pieces, &offsets, clipPtr, &ci);
    std::printf("run %d,%d length %d: %d piece%s\n", run.x, run.y, run.length, n, n == 1 ? "" : "s");
    for (int i = 0; i < n; ++i)
      std::printf("  x %d..%d y %d (length %d) from run index %d\n", pieces[i].x, pieces[i].x + pieces[i].length - 1,
                  pieces[i].y, pieces[i].length, offsets[i]);
  }

  for (const std::string& text : o.rects) {
    int v[4];
    if (!ParseInts(text, 4, v) || v[2] <= v[0] || v[3] <= v[1]) {
      Fail("cycle: malformed rectangle '" + text + "' (expected LEFT,TOP,RIGHT,BOTTOM with right > left, bottom > top)");
      return;
    }
    RECT rc = {v[0], v[1], v[2], v[3]};
    CArray<RECT> pieces;
    CArray<POINT> offsets;
    int n = ACycle::GCycleSituation(&rc, &pieces, &offsets, clipPtr, &ci);
    std::printf("rect %d,%d,%d,%d: %d piece%s\n", (int)rc.left, (int)rc.top, (int)rc.right, (int)rc.bottom, n, n == 1 ? "" : "s");
    for (int i = 0; i < n; ++i)
      std::printf("  %d,%d,%d,%d from rect offset %d,%d\n", (int)pieces[i].left, (int)pieces[i].top,
                  (int)pieces[i].right, (int)pieces[i].bottom, (int)offsets[i].x, (int)offsets[i].y);
  }
}

void SetupCycle(CLI::App& app) {
  auto opts = std::make_shared<CycleOptions>();
  CLI::App* cmd = app.add_subcommand(
      "cycle", "Fold points into a repeat tile and cut runs or rectangles into per-tile pieces");
  cmd->footer(
      "Way 1: tiles follow along x, each tile step displaces y by PARAM; way 2: along y, displacing x.\n"
      "With --clip the copies that meet the clip rectangle are listed, relative to its corner.\n"
      "Without points, runs or rectangles, lines \"x y\" are read from stdin as points.");
  tqtool::Examples(cmd, {"tqbase cycle --cycle 100x50+25 --way 1 -1,10 250,10", "tqbase cycle --cycle 200x200+100 --run 150,10,300 --clip 0,0,250,120"});
  cmd->add_option("--cycle", opts->cycle, "the tile WIDTHxHEIGHT[+PARAM], e.g. 100x50+25")->required();
  cmd->add_option("--way", opts->way, "1 or 2")->capture_default_str();
  cmd->add_flag("--off", opts->off, "the repeat off: only the tile itself");
  cmd->add_option("points", opts->points, "points X,Y to fold");
  cmd->add_option("--run", opts->runs, "a run X,Y,LENGTH to cut (repeatable)");
  cmd->add_option("--rect", opts->rects, "a rectangle LEFT,TOP,RIGHT,BOTTOM to cut (repeatable)");
  cmd->add_option("--clip", opts->clip, "a clipping rectangle LEFT,TOP,RIGHT,BOTTOM");
  cmd->callback([opts]() { RunCycle(*opts); });
}

}  // namespace

TQ_REGISTER_COMMAND("50-transform", SetupTransform);
TQ_REGISTER_COMMAND("51-cycle", SetupCycle);

