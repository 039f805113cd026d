// image_io.cpp - PNG (libpng's simplified interface), PNM and text writers.
// Every file is written beside its target and renamed over it when
// complete, so that a failure midway leaves the old file as it was.
// Without libpng the PNG writers write binary PNM (PBM, PGM, PPM) under
// the name PictureName gives.
#include "image_io.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>

#ifdef TQTOOL_HAVE_PNG
#include <png.h>
#endif

#ifdef _WIN32
#include <windows.h>
#endif

namespace tqtool {

bool HavePng() {
#ifdef TQTOOL_HAVE_PNG
  return true;
#else
  return false;
#endif
}

std::string PictureName(const std::string& path, int depth) {
  if (HavePng() || !HasSuffix(path, ".png")) return path;
  return path.substr(0, path.size() - 4) + (depth == 1 ? ".pbm" : depth == 24 ? ".ppm" : ".pgm");
}

bool HasSuffix(const std::string& path, const char* suffix) {
  const size_t n = std::strlen(suffix);
  if (path.size() < n) return false;
  for (size_t i = 0; i < n; ++i)
    if (std::tolower((unsigned char)path[path.size() - n + i]) != std::tolower((unsigned char)suffix[i]))
      return false;
  return true;
}

namespace {
// The name a file is written under before it replaces path.
std::string Partial(const std::string& path) { return path + ".part"; }

// Renames the written file over path (rename() on Windows refuses to
// replace an existing file).
bool Replace(const std::string& from, const std::string& to) {
#ifdef _WIN32
  return MoveFileExA(from.c_str(), to.c_str(), MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
#else
  return std::rename(from.c_str(), to.c_str()) == 0;
#endif
}

bool Commit(const std::string& path, bool ok, std::string& err) {
  if (ok && !Replace(Partial(path), path)) {
    err = "cannot replace " + path;
#ifndef _WIN32
    err += std::string(": ") + std::strerror(errno);
#endif
    ok = false;
  }
  if (!ok) std::remove(Partial(path).c_str());
  return ok;
}
}  // namespace

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
  if (!png_image_write_to_file(&png, Partial(path).c_str(), 0, px, 0, nullptr)) {
    err = std::string("cannot write PNG: ") + png.message;
    return Commit(path, false, err);
  }
  return Commit(path, true, err);
#else
  if (im.depth == 24) {
    char header[64];
    const int n = std::snprintf(header, sizeof header, "P6\n%u %u\n255\n", (unsigned)im.width, (unsigned)im.height);
    return WriteFile(PictureName(path, 24), std::string(header, (size_t)n) + std::string(im.pixels.begin(), im.pixels.end()),
                     err);
  }
  if (im.depth < 8) {
    Image spread = im;
    const unsigned maxValue = (1u << im.depth) - 1;
    for (unsigned char& v : spread.pixels) v = (unsigned char)(v * 255u / maxValue);
    spread.depth = 8;
    return WritePgm(PictureName(path, 8), spread, err);
  }
  return WritePgm(PictureName(path, 8), im, err);
#endif
}

bool WritePngBits(const std::string& path, uint32_t width, uint32_t height, const unsigned char* rows,
                  size_t stride, std::string& err) {
#ifdef TQTOOL_HAVE_PNG
  FILE* f = std::fopen(Partial(path).c_str(), "wb");
  if (!f) {
    err = "cannot open " + path + ": " + std::strerror(errno);
    return false;
  }
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  bool ok = png && info;
  if (ok && setjmp(png_jmpbuf(png))) ok = false;  // libpng reports its errors here
  else if (ok) {
    png_init_io(png, f);
    png_set_compression_level(png, 1);
    png_set_IHDR(png, info, width, height, 1, PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
                 PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    png_set_invert_mono(png);
    for (uint32_t y = 0; y < height; ++y) png_write_row(png, const_cast<unsigned char*>(rows + (size_t)y * stride));
    png_write_end(png, nullptr);
  }
  png_destroy_write_struct(png ? &png : nullptr, info ? &info : nullptr);
  ok = (std::fclose(f) == 0) && ok;
  if (!ok) err = "cannot write PNG " + path;
  return Commit(path, ok, err);
#else
  // PBM's rows are packed the same way: most significant bit first, 1 black.
  char header[64];
  const int n = std::snprintf(header, sizeof header, "P4\n%u %u\n", (unsigned)width, (unsigned)height);
  std::string bytes(header, (size_t)n);
  const size_t rowBytes = ((size_t)width + 7) / 8;
  for (uint32_t y = 0; y < height; ++y) bytes.append(reinterpret_cast<const char*>(rows) + (size_t)y * stride, rowBytes);
  return WriteFile(PictureName(path, 1), bytes, err);
#endif
}

bool ReadPng(const std::string& path, bool rgb, Image& im, std::string& err) {
#ifdef TQTOOL_HAVE_PNG
  png_image png;
  std::memset(&png, 0, sizeof png);
  png.version = PNG_IMAGE_VERSION;
  if (!png_image_begin_read_from_file(&png, path.c_str())) {
    err = std::string("cannot read PNG: ") + png.message;
    return false;
  }
  // Pictures of up to a gigapixel (a 64 cm tile at 300 dpi has 57
  // megapixels): a header asking for more is refused before any pixel
  // is allocated.
  const unsigned long long kMaxPixels = 1ull << 30;
  if ((unsigned long long)png.width * png.height > kMaxPixels) {
    err = "cannot read PNG: " + std::to_string(png.width) + " x " + std::to_string(png.height) +
          " pixels is more than this tool takes (" + std::to_string(kMaxPixels) + " pixels)";
    png_image_free(&png);
    return false;
  }
  png.format = rgb ? PNG_FORMAT_RGB : PNG_FORMAT_GRAY;
  im.width = png.width;
  im.height = png.height;
  im.depth = rgb ? 24 : 8;
  try {
    im.pixels.resize(PNG_IMAGE_SIZE(png));
  } catch (const std::bad_alloc&) {
    err = "cannot read PNG: out of memory for " + std::to_string(png.width) + " x " + std::to_string(png.height) + " pixels";
    png_image_free(&png);
    return false;
  }
  if (!png_image_finish_read(&png, nullptr, im.pixels.data(), 0, nullptr)) {
    err = std::string("cannot decode PNG: ") + png.message;
    return false;
  }
  return true;
#else
  (void)rgb;
  (void)im;
  err = "built without libpng: cannot read " + path;
  return false;
#endif
}

bool WritePgm(const std::string& path, const Image& im, std::string& err) {
  char header[64];
  const int n = std::snprintf(header, sizeof header, "P5\n%u %u\n255\n", (unsigned)im.width, (unsigned)im.height);
  return WriteFile(path, std::string(header, (size_t)n) + std::string(im.pixels.begin(), im.pixels.end()), err);
}

bool WriteFile(const std::string& path, const std::string& bytes, std::string& err) {
  FILE* f = std::fopen(Partial(path).c_str(), "wb");
  if (!f) {
    err = "cannot open " + path + ": " + std::strerror(errno);
    return false;
  }
  bool ok = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
  ok = (std::fclose(f) == 0) && ok;
  if (!ok) err = "cannot write " + path;
  return Commit(path, ok, err);
}

}  // namespace tqtool
