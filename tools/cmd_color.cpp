// cmd_color.cpp - the colour subcommands of the tqbase tool:
//
//   tqbase inks [MODE]                          the ink modes, or one mode's planes
//   tqbase color V1,V2,V3 --from SPACE --to SPACE [--rgb NAME] [--white ILLUM]
//   tqbase cmyk IN.png --out-dir DIR [--mode M] [--rgb-profile F] [--cmyk-profile F] [--intent N]
//   tqbase inkcount PLANE.png...                coverage of ink planes (ink dark on white)
#include "args.h"
#include "command.h"
#include "image_io.h"
#include "separate.h"

#include <tqbase/tqbase.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace {

using tqtool::Number;

int Fail(const char* cmd, const std::string& text) {
  std::fprintf(stderr, "tqbase %s: %s\n", cmd, text.c_str());
  tqtool::ToolExit(1);
  return 1;
}

std::string Flag(unsigned long f) {
  char b[16];
  std::snprintf(b, sizeof b, "0x%08lX", f);
  return b;
}

// ---- inks ----

void Inks(const std::string& modeText) {
  if (modeText.empty()) {
    std::printf("%-4s %-14s %-5s %s\n", "mode", "name", "inks", "planes");
    for (int m = 1; m <= 16; ++m) {
      KY_INKINFO info;
      CString name;
      AClrObj::GetInkModeName(name, m);
      const int n = AClrObj::GetInkInfoFromInkMode(info, m);
      std::string planes;
      for (int i = 0; i < n; ++i) {
        const std::string s = AClrObj::ColorName(info.inks[i], 0).GetString();
        planes += (i ? " " : "") + (s.empty() ? "(" + std::to_string(info.inks[i]) + ")" : s);
      }
      std::printf("%-4d %-14s %-5d %s\n", m, name.GetString(), n, planes.c_str());
    }
    return;
  }
  const int m = tqtool::FindInkMode(modeText);
  if (m < 0) {
    Fail("inks", "unknown ink mode '" + modeText + "' (1 to 16, or a name such as CMYKcm)");
    return;
  }
  KY_INKINFO info;
  CString name;
  AClrObj::GetInkModeName(name, m);
  const int n = AClrObj::GetInkInfoFromInkMode(info, m);
  std::printf("mode %d %s: %d plane%s\n", m, name.GetString(), n, n == 1 ? "" : "s");
  std::printf("  %-5s %-5s %-20s %-7s %s\n", "plane", "code", "name", "short", "flag");
  for (int i = 0; i < n; ++i)
    std::printf("  %-5d %-5d %-20s %-7s %s\n", i, info.inks[i], AClrObj::ColorName(info.inks[i], 1).GetString(),
                AClrObj::ColorName(info.inks[i], 0).GetString(), Flag(AClrObj::TransInkOrderToColor(info.inks[i])).c_str());
}

// ---- color ----

struct ColorOptions {
  std::string value, from = "rgb", to = "lab", rgb = "sRGB", white = "D50";
};

bool ParseTriple(const std::string& text, double v[3]) {
  std::string t = text;
  for (char& c : t)
    if (c == ',') c = ' ';
  std::istringstream in(t);
  std::string rest;
  return (bool)(in >> v[0] >> v[1] >> v[2]) && !(in >> rest) && std::isfinite(v[0]) && std::isfinite(v[1]) &&
         std::isfinite(v[2]);
}

void Color(const ColorOptions& o) {
  const int space = ColorSpace::FindRgbSpace(o.rgb.c_str()), white = ColorSpace::FindIlluminant(o.white.c_str());
  if (space < 0) return (void)Fail("color", "unknown RGB space '" + o.rgb + "' (such as sRGB, \"Adobe RGB (1998)\")");
  if (white < 0) return (void)Fail("color", "unknown white '" + o.white + "' (A, B, C, D50, D55, D65, D75, E, F2, F7, F11)");
  double v[3];
  if (!ParseTriple(o.value, v)) return (void)Fail("color", "a colour is three numbers, such as 0.2,0.5,0.9");
  const ColorSpace cs(space, white);
  const std::string from = tqtool::Lower(o.from), to = tqtool::Lower(o.to);
  double xyz[3];
  bool clamped = false;
  // Into XYZ.
  if (from == "rgb") {
    cs.RGBToXYZ(v, xyz);
  } else if (from == "xyz") {
    for (int i = 0; i < 3; ++i) xyz[i] = v[i];
  } else if (from == "lab" || from == "lch") {
    double lab[3] = {v[0], v[1], v[2]};
    if (from == "lch") ColorSpace::LChToLab(v, lab);
    cs.LabToXYZ(lab, xyz);
  } else if (from == "xyy") {
    ColorSpace::xyYToXYZ(v, xyz);
  } else if (from == "hsv" || from == "hsl") {
    double rgb[3];
    if (from == "hsv") ColorSpace::HSVToRGB(v, rgb); else ColorSpace::HSLToRGB(v, rgb);
    cs.RGBToXYZ(rgb, xyz);
  } else {
    return (void)Fail("color", "--from is rgb, xyz, lab, lch, xyy, hsv or hsl, not '" + o.from + "'");
  }
  double out[3];
  if (to == "xyz") {
    for (int i = 0; i < 3; ++i) out[i] = xyz[i];
  } else if (to == "lab" || to == "lch") {
    cs.XYZToLab(xyz, out);
    if (to == "lch") {
      double lab[3] = {out[0], out[1], out[2]};
      ColorSpace::LabToLCh(lab, out);
    }
  } else if (to == "xyy") {
    cs.XYZToxyY(xyz, out);
  } else if (to == "rgb" || to == "hsv" || to == "hsl") {
    double rgb[3];
    clamped = !cs.XYZToRGB(xyz, rgb);
    if (to == "rgb") for (int i = 0; i < 3; ++i) out[i] = rgb[i];
    else if (to == "hsv") ColorSpace::RGBToHSV(rgb, out);
    else ColorSpace::RGBToHSL(rgb, out);
  } else {
    return (void)Fail("color", "--to is rgb, xyz, lab, lch, xyy, hsv or hsl, not '" + o.to + "'");
  }
  std::printf("%s %s,%s,%s -> %s %s,%s,%s  (%s, white %s)%s\n", from.c_str(), Number(v[0], 6).c_str(),
              Number(v[1], 6).c_str(), Number(v[2], 6).c_str(), to.c_str(), Number(out[0], 6).c_str(),
              Number(out[1], 6).c_str(), Number(out[2], 6).c_str(), ColorSpace::RgbSpaceName(space),
              ColorSpace::IlluminantName(white), clamped ? "  [outside the RGB space: clamped]" : "");
}

// ---- cmyk ----

struct CmykOptions {
  std::string in, outDir = "cmyk", mode = "CMYK", rgbProfile, cmykProfile;
  int intent = 0;
};

void Cmyk(const CmykOptions& o) {
  const int mode = tqtool::FindInkMode(o.mode);
  if (mode < 0) return (void)Fail("cmyk", "unknown ink mode '" + o.mode + "'");
  tqtool::Image rgb;
  std::string err;
  if (!tqtool::ReadPng(o.in, true, rgb, err)) return (void)Fail("cmyk", err);
  g_Error.ClearError();
  if ((!o.rgbProfile.empty() || !o.cmykProfile.empty() || o.intent != 0) &&
      !g_RGBtoCMYK.SetProfiles(o.rgbProfile.c_str(), o.cmykProfile.c_str(), o.intent))
    return (void)Fail("cmyk", tqtool::LastErrorText("the profiles could not be loaded"));
  std::vector<tqtool::Plane> planes;
  if (!tqtool::Separate(rgb, mode, planes, &err)) return (void)Fail("cmyk", err);
  std::error_code ec;
  std::filesystem::create_directories(o.outDir, ec);
  CInkCountInfo count;
  for (size_t i = 0; i < planes.size(); ++i) {
    const std::string path = o.outDir + "/" + planes[i].name + ".png";
    if (!tqtool::WritePng(path, tqtool::InkPicture(planes[i].ink), err)) return (void)Fail("cmyk", err);
    for (uint32_t y = 0; y < rgb.height; ++y)
      count.AddExpandedLine((int)i, &planes[i].ink.pixels[(size_t)y * rgb.width], rgb.width, 8);
    std::printf("  %-6s %s  coverage %s%%, ink %s%%\n", planes[i].name.c_str(), path.c_str(),
                Number(count.Coverage((int)i), 2).c_str(), Number(count.InkAmount((int)i), 2).c_str());
  }
  // The proof: the CMYK back to RGB through the engine's reverse direction.
  const size_t n = (size_t)rgb.width * rgb.height;
  std::vector<unsigned char> cmyk(n * 4);
  g_RGBtoCMYK.Convert(rgb.pixels.data(), cmyk.data(), (int)n);
  tqtool::Image proof = rgb;
  if (!g_RGBtoCMYK.ConvertToRGB(cmyk.data(), proof.pixels.data(), (int)n) ||
      !tqtool::WritePng(o.outDir + "/proof.png", proof, err))
    return (void)Fail("cmyk", err.empty() ? tqtool::LastErrorText("the proof failed") : err);
  std::printf("  proof  %s/proof.png (%s -> %s)\n", o.outDir.c_str(), g_RGBtoCMYK.GetRgbProfileName().GetString(),
              g_RGBtoCMYK.GetCmykProfileName().GetString());
}

// ---- inkcount ----

void InkCount(const std::vector<std::string>& files) {
  std::printf("  %-40s %10s %10s\n", "plane", "coverage", "ink");
  CInkCountInfo count;
  for (size_t i = 0; i < files.size(); ++i) {
    tqtool::Image im;
    std::string err;
    if (!tqtool::ReadPng(files[i], false, im, err)) return (void)Fail("inkcount", files[i] + ": " + err);
    const int ink = (int)(i % CInkCountInfo::MAX_INKS);
    count.ullDots[ink] = count.ullLevels[ink] = count.ullPixels[ink] = 0;
    std::vector<unsigned char> line(im.width);
    for (uint32_t y = 0; y < im.height; ++y) {
      for (uint32_t x = 0; x < im.width; ++x) line[x] = (unsigned char)(255 - im.pixels[(size_t)y * im.width + x]);
      count.AddExpandedLine(ink, line.data(), im.width, 8);
    }
    std::printf("  %-40s %9s%% %9s%%\n", files[i].c_str(), Number(count.Coverage(ink), 2).c_str(),
                Number(count.InkAmount(ink), 2).c_str());
  }
}

void Setup(CLI::App& app) {
  auto mode = std::make_shared<std::string>();
  CLI::App* inks = app.add_subcommand("inks", "The ink modes, or one mode's planes with their codes, names and flags");
  tqtool::Examples(inks, {"tqbase inks", "tqbase inks CMYKcm+1SPOT", "tqbase inks 16"});
  inks->add_option("mode", *mode, "an ink mode: 1 to 16, or its name");
  inks->callback([mode] { Inks(*mode); });

  auto co = std::make_shared<ColorOptions>();
  CLI::App* color = app.add_subcommand("color", "Convert a colour between RGB, XYZ, Lab, LCh, xyY, HSV and HSL");
  tqtool::Examples(color, {"tqbase color 1,0,0 --from rgb --to lab", "tqbase color 50,20,-30 --from lab --to rgb --rgb \"Adobe RGB (1998)\"",
                           "tqbase color 0.2,0.4,0.6 --to lch --white D65"});
  color->add_option("value", co->value, "three numbers, such as 0.2,0.5,0.9 (RGB, HSV's S and V, HSL's S and L 0..1)")->required();
  color->add_option("--from", co->from, "rgb, xyz, lab, lch, xyy, hsv or hsl")->capture_default_str();
  color->add_option("--to", co->to, "rgb, xyz, lab, lch, xyy, hsv or hsl")->capture_default_str();
  color->add_option("--rgb", co->rgb, "the RGB working space")->capture_default_str();
  color->add_option("--white", co->white, "the reference white of XYZ and Lab")->capture_default_str();
  color->callback([co] { Color(*co); });

  auto cm = std::make_shared<CmykOptions>();
  CLI::App* cmyk = app.add_subcommand("cmyk", "Separate an RGB picture into the ink planes of a mode through the ICC engine");
  tqtool::Examples(cmyk, {"tqbase cmyk photo.png --out-dir planes", "tqbase cmyk design.png --out-dir planes --mode CMYKcm --intent 1"});
  cmyk->add_option("input", cm->in, "RGB picture (PNG)")->required();
  cmyk->add_option("--out-dir", cm->outDir, "folder for the plane pictures and the proof")->capture_default_str();
  cmyk->add_option("--mode", cm->mode, "ink mode")->capture_default_str();
  cmyk->add_option("--rgb-profile", cm->rgbProfile, "RGB ICC profile (default: sRGB)");
  cmyk->add_option("--cmyk-profile", cm->cmykProfile, "CMYK output ICC profile (default: default_cmyk.icc)");
  cmyk->add_option("--intent", cm->intent, "0 perceptual, 1 relative, 2 saturation, 3 absolute")
      ->capture_default_str()
      ->check(CLI::Range(0, 3));
  cmyk->callback([cm] { Cmyk(*cm); });

  auto files = std::make_shared<std::vector<std::string>>();
  CLI::App* count = app.add_subcommand("inkcount", "Coverage of ink plane pictures (ink dark on white)");
  tqtool::Examples(count, {"tqbase inkcount planes/C.png planes/M.png planes/Y.png planes/K.png"});
  count->add_option("planes", *files, "plane pictures (PNG)")->required();
  count->callback([files] { InkCount(*files); });
}

}  // namespace

TQ_REGISTER_COMMAND("60-color", Setup);
