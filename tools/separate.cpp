// separate.cpp - RGB pictures into ink planes (see separate.h).
#include "separate.h"

#include "args.h"
#include "command.h"

#include <algorithm>
#include <cstdlib>

namespace tqtool {

bool Separate(const Image& rgb, int mode, std::vector<Plane>& planes, std::string* err) {
  planes.clear();
  const size_t n = (size_t)rgb.width * rgb.height;
  if (rgb.depth != 24 || rgb.pixels.size() < n * 3) {
    *err = "the picture is not RGB";
    return false;
  }
  std::vector<unsigned char> cmyk(n * 4);
  g_Error.ClearError();
  // Line by line, as an output stage converts.
  for (uint32_t y = 0; y < rgb.height; ++y)
    if (!g_RGBtoCMYK.Convert(&rgb.pixels[(size_t)y * rgb.width * 3], &cmyk[(size_t)y * rgb.width * 4], (int)rgb.width)) {
      *err = LastErrorText("the colour engine has no profiles");
      return false;
    }
  KY_INKINFO info;
  AClrObj::GetInkInfoFromInkMode(info, mode);
  auto has = [&](unsigned char code) { return std::find(info.inks, info.inks + info.nCount, code) != info.inks + info.nCount; };
  for (int i = 0; i < info.nCount; ++i) {
    Plane p;
    p.code = info.inks[i];
    p.name = AClrObj::ColorName(p.code, 0).GetString();
    if (p.name.empty()) p.name = "ink" + std::to_string(p.code);
    p.ink.width = rgb.width;
    p.ink.height = rgb.height;
    p.ink.depth = 8;
    p.ink.pixels.assign(n, 0);
    const int dark = p.code <= 3 ? p.code : (p.code >= 20 && p.code <= 23 ? p.code - 20 : -1);
    const bool light = p.code >= 20 && p.code <= 23, split = dark >= 0 && (light || has((unsigned char)(dark + 20)));
    if (dark >= 0)
      for (size_t k = 0; k < n; ++k) {
        const int v = cmyk[k * 4 + (size_t)dark];
        p.ink.pixels[k] = (unsigned char)(!split ? v : light ? std::min(255, 2 * v) : std::max(0, 2 * v - 255));
      }
    planes.push_back(std::move(p));
  }
  return true;
}

Image InkPicture(const Image& ink) {
  Image im = ink;
  for (auto& v : im.pixels) v = (unsigned char)(255 - v);
  return im;
}

int FindInkMode(const std::string& text) {
  char* end = nullptr;
  const long v = std::strtol(text.c_str(), &end, 10);
  if (!text.empty() && end && *end == '\0') return v >= 1 && v <= 16 ? (int)v : -1;
  for (int m = 1; m <= 16; ++m) {
    CString name;
    AClrObj::GetInkModeName(name, m);
    if (Lower(name.GetString()) == Lower(text)) return m;
  }
  return -1;
}

}  // namespace tqtool
