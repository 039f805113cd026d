// image_io.cpp - PNG (libpng's simplified interface) and PGM writers.
#include "image_io.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>

#ifdef TQTOOL_HAVE_PNG
#include <png.h>
#endif

namespace tqtool {

bool HavePng() {
#ifdef TQTOOL_HAVE_PNG
  return true;
#else
  return false;
#endif
}

bool HasSuffix(const std::string& path, const char* suffix) {
  const size_t n = std::strlen(suffix);
  if (path.size() < n) return false;
  for (size_t i = 0; i < n; ++i)
    if (std::tolower((unsigned char)path[path.size() - n + i]) != std::tolower((unsigned char)suffix[i]))
      return false;
  return true;
}

bool WritePng(const std::string& path, const Image& im, std::string& err) {
#ifdef TQTOOL_HAVE_PNG
  std::vector<unsigned char> spread;
  const unsigned char* px = im.pixels.data();
  if (im.depth < 8) {
    const unsigned maxValue = (1u << im.depth) - 1;
    spread.resize(im.pixels.size());
    for (size_t i = 0; i < spread.size(); ++i) spread[i] = (unsigned char)(im.pixels[i] * 255u / maxValue);
    px = spread.data();
  }
  png_image png;
  std::memset(&png, 0, sizeof png);
  png.version = PNG_IMAGE_VERSION;
  png.width = im.width;
  png.height = im.height;
  png.format = im.depth == 24 ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
  if (!png_image_write_to_file(&png, path.c_str(), 0, px, 0, nullptr)) {
    err = std::string("cannot write PNG: ") + png.message;
    return false;
  }
  return true;
#else
  err = "built without libpng: cannot write " + path;
  return false;
#endif
}

bool WritePgm(const std::string& path, const Image& im, std::string& err) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) {
    err = "cannot open " + path + ": " + std::strerror(errno);
    return false;
  }
  std::fprintf(f, "P5\n%u %u\n255\n", (unsigned)im.width, (unsigned)im.height);
  bool ok = std::fwrite(im.pixels.data(), 1, im.pixels.size(), f) == im.pixels.size();
  ok = (std::fclose(f) == 0) && ok;
  if (!ok) err = "cannot write " + path;
  return ok;
}

}  // namespace tqtool
