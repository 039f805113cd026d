// image_io.h - the tool's output files: expanded pixel rows written as PNG
// (when libpng is present) or as binary PNM, and plain files (SVG). Each
// replaces its target only when written completely.
#ifndef TQBASE_TOOLS_IMAGE_IO_H
#define TQBASE_TOOLS_IMAGE_IO_H

#include <cstdint>
#include <string>
#include <vector>

namespace tqtool {

// Expanded rows, tightly packed: 3 bytes per pixel at depth 24, else one
// byte holding a level of `depth` bits.
struct Image {
  uint32_t width = 0, height = 0;
  int depth = 8;
  std::vector<unsigned char> pixels;
  size_t RowBytes() const { return (size_t)width * (depth == 24 ? 3 : 1); }
};

// True when libpng was found at build time.
bool HavePng();
// The file a picture asked for as path (a ".png" name) is written to: path
// itself with libpng; without it the same name ending in ".pbm" (depth 1),
// ".ppm" (24) or ".pgm" (other depths), as WritePng and WritePngBits then
// write binary PNM.
std::string PictureName(const std::string& path, int depth);
// PNG (else PNM, see PictureName), grey or RGB; levels below 8 bits are
// spread over 0..255.
bool WritePng(const std::string& path, const Image& im, std::string& err);
// A bilevel picture from packed rows (1 bit per pixel, most significant
// first, `stride` bytes a row): set bits drawn black on white. Written with
// fast compression, for pictures of print size.
bool WritePngBits(const std::string& path, uint32_t width, uint32_t height, const unsigned char* rows,
                  size_t stride, std::string& err);
// Reads a PNG as 8-bit grey or (rgb) RGB rows; false with err when the
// file cannot be read or the tool was built without libpng.
bool ReadPng(const std::string& path, bool rgb, Image& im, std::string& err);
// Binary PGM of an 8-bit grey image.
bool WritePgm(const std::string& path, const Image& im, std::string& err);
// Any bytes, such as an SVG document.
bool WriteFile(const std::string& path, const std::string& bytes, std::string& err);
// Case-insensitive test of a file name's ending, such as ".png".
bool HasSuffix(const std::string& path, const char* suffix);

}  // namespace tqtool

#endif  // TQBASE_TOOLS_IMAGE_IO_H
