// cmd_codec.cpp - the codec subcommands of the tqbase tool:
//
//   tqbase rle encode IN OUT --depth D [--width W]   image -> one stream per line
//   tqbase rle encode IN --depth all [--width W]     compression ratio per depth
//   tqbase rle decode IN OUT                         streams -> image (PNG or raw)
//   tqbase rle locate IN --line Y --pixel X          the record holding a pixel
//   tqbase lzw encode|decode IN OUT                (compress|decompress too)
//   tqbase base64 encode|decode [TEXT]               (stdin without TEXT)
//
// Images are PNG files (when the tool is built with libpng) or raw files of
// expanded pixels (1 byte per pixel, 3 at depth 24) with --width. Encoded
// images are kept in a small container: "TQRL", version 1, width, height
// and depth as 32-bit little-endian values, then per line a 32-bit length
// and the line's stream. LZW files: "TQLZ", the 64-bit original length,
// the bit stream.
#include "command.h"
#include "image_io.h"
#include "progress.h"

#include <tqbase/tqbase.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#ifndef _WIN32
#include <unistd.h>
#endif

namespace {

typedef std::vector<unsigned char> Bytes;

bool ReadFile(const std::string& path, Bytes& out) {
  std::ifstream f(path, std::ios::binary);
  if (!f) return false;
  out.assign(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
  return true;
}

// Written aside and renamed over path, so a failure leaves the old file.
bool WriteFile(const std::string& path, const Bytes& data) {
  std::string err;
  return tqtool::WriteFile(path, std::string(data.begin(), data.end()), err);
}

int Error(const std::string& text) {
  std::cerr << "tqbase " << tqtool::CommandName() << ": " << text << "\n";
  tqtool::ToolExit(1);
  return 1;
}

// ---- images ----

using tqtool::Image;

// Reads an image for coding at `depth`: values are reduced to the depth
// (the top bits of a grey level), colour is kept only at 24.
bool LoadImage(const std::string& path, int depth, uint32_t rawWidth, Image& im, std::string& err) {
  im.depth = depth;
  const int bpp = depth == 24 ? 3 : 1;
  if (tqtool::HasSuffix(path, ".png")) {
    if (!tqtool::ReadPng(path, depth == 24, im, err)) return false;
    im.depth = depth;
    if (depth < 8)
      for (auto& p : im.pixels) p = (unsigned char)(p >> (8 - depth));
    return true;
  }
  if (!rawWidth) {
    err = "a raw image needs --width (or give a .png file)";
    return false;
  }
  if (!ReadFile(path, im.pixels)) {
    err = "cannot read " + path;
    return false;
  }
  im.width = rawWidth;
  im.height = (uint32_t)(im.pixels.size() / ((size_t)rawWidth * bpp));
  im.pixels.resize((size_t)im.height * rawWidth * bpp);
  const unsigned maxValue = depth >= 8 ? 255u : (1u << depth) - 1;
  for (auto& p : im.pixels)
    if (p > maxValue) p = (unsigned char)maxValue;
  return true;
}

bool SaveImage(const std::string& path, const Image& im, std::string& err) {
  if (tqtool::HavePng() && tqtool::HasSuffix(path, ".png")) return tqtool::WritePng(path, im, err);
  if (!WriteFile(path, im.pixels)) {
    err = "cannot write " + path;
    return false;
  }
  return true;
}

// ---- the line container ----

void Put32(Bytes& b, uint32_t v) {
  for (int i = 0; i < 4; ++i) b.push_back((unsigned char)(v >> (8 * i)));
}

bool Get32(const Bytes& b, size_t& at, uint32_t& v) {
  if (b.size() - at < 4 || at > b.size()) return false;
  v = (uint32_t)b[at] | (uint32_t)b[at + 1] << 8 | (uint32_t)b[at + 2] << 16 | (uint32_t)b[at + 3] << 24;
  at += 4;
  return true;
}

struct Encoded {
  uint32_t width = 0, height = 0, depth = 0;
  std::vector<std::pair<size_t, size_t>> lines;  // offset, length in data
  Bytes data;
};

bool ParseContainer(const Bytes& file, Encoded& e, std::string& err) {
  size_t at = 4;
  uint32_t version = 0;
  if (file.size() < 20 || std::memcmp(file.data(), "TQRL", 4) != 0 || !Get32(file, at, version) ||
      version != 1 || !Get32(file, at, e.width) || !Get32(file, at, e.height) || !Get32(file, at, e.depth)) {
    err = "not a tqbase run-length file";
    return false;
  }
  for (uint32_t y = 0; y < e.height; ++y) {
    uint32_t len;
    if (!Get32(file, at, len) || file.size() - at < len) {
      err = "line " + std::to_string(y) + " is cut short";
      return false;
    }
    e.lines.emplace_back(at, len);
    at += len;
  }
  e.data = file;
  return true;
}

// Encodes every line; returns the container (empty on failure).
Bytes EncodeImage(const Image& im, int depth, size_t* streamBytes, bool progress) {
  Bytes out = {'T', 'Q', 'R', 'L'};
  Put32(out, 1);
  Put32(out, im.width);
  Put32(out, im.height);
  Put32(out, (uint32_t)depth);
  const size_t row = im.RowBytes();
  Bytes s(row * 2 + 64);
  size_t total = 0;
  tqtool::Progress bar("encoding", im.height);
  for (uint32_t y = 0; y < im.height; ++y) {
    unsigned long len = 0;
    if (!ACompress::Pack(im.pixels.data() + y * row, row, depth, s.data(), s.size(), len)) return {};
    Put32(out, (uint32_t)len);
    out.insert(out.end(), s.begin(), s.begin() + len);
    total += len;
    if (progress) bar.Update(y + 1);
  }
  if (streamBytes) *streamBytes = total;
  return out;
}

// ---- rle ----

struct RleOptions {
  std::string in, out, depth = "8";
  uint32_t width = 0;
  long line = 0, pixel = 0;
  int checkDepth = 0;
};

int RleEncode(const RleOptions& o) {
  std::vector<int> depths;
  if (o.depth == "all") {
    depths = {1, 2, 4, 8, 24};
  } else {
    const int d = std::atoi(o.depth.c_str());
    if (d != 1 && d != 2 && d != 4 && d != 8 && d != 24) return Error("--depth must be 1, 2, 4, 8, 24 or all");
    depths = {d};
  }
  if (depths.size() == 1 && o.out.empty()) return Error("rle encode needs an output file");
  for (int depth : depths) {
    Image im;
    std::string err;
    if (!LoadImage(o.in, depth, o.width, im, err)) return Error(err);
    if (im.width < 2 && depth == 8) return Error("lines of 8-bit images need at least 2 pixels");
    size_t streams = 0;
    const Bytes out = EncodeImage(im, depth, &streams, depths.size() == 1);
    if (out.empty()) return Error("encoding failed: " + std::string(g_Error.strError));
    const double ratio = im.pixels.empty() ? 0.0 : 100.0 * streams / im.pixels.size();
    std::printf("depth %2d: %u x %u, %zu bytes -> %zu bytes of streams (%.2f%%)\n", depth, im.width,
                im.height, im.pixels.size(), streams, ratio);
    if (depths.size() == 1 && !WriteFile(o.out, out)) return Error("cannot write " + o.out);
  }
  return 0;
}

int RleDecode(const RleOptions& o) {
  Bytes file;
  if (!ReadFile(o.in, file)) return Error("cannot read " + o.in);
  Encoded e;
  std::string err;
  if (!ParseContainer(file, e, err)) return Error(err);
  if (o.checkDepth && o.checkDepth != (int)e.depth)
    return Error("the file holds depth " + std::to_string(e.depth));
  Image im;
  im.width = e.width;
  im.height = e.height;
  im.depth = (int)e.depth;
  const size_t row = im.RowBytes();
  im.pixels.resize(row * im.height);
  tqtool::Progress bar("decoding", im.height);
  for (uint32_t y = 0; y < e.height; ++y) {
    const auto& l = e.lines[y];
    if (!l.second || !ACompress::UnPack(e.data.data() + l.first, l.second, e.width, (int)e.depth, 0,
                                        e.width, im.pixels.data() + y * row))
      return Error("line " + std::to_string(y) + ": " + std::string(g_Error.strError));
    bar.Update(y + 1);
  }
  if (!SaveImage(o.out, im, err)) return Error(err);
  return 0;
}

std::string Hex(const unsigned char* p, size_t n) {
  std::string s;
  char buf[4];
  for (size_t i = 0; i < n; ++i) {
    std::snprintf(buf, sizeof buf, "%s%02X", i ? " " : "", p[i]);
    s += buf;
  }
  return s;
}

int RleLocate(const RleOptions& o) {
  Bytes file;
  if (!ReadFile(o.in, file)) return Error("cannot read " + o.in);
  Encoded e;
  std::string err;
  if (!ParseContainer(file, e, err)) return Error(err);
  if (o.line < 0 || o.line >= (long)e.height) return Error("--line is outside the image");
  if (o.pixel < 0 || o.pixel >= (long)e.width) return Error("--pixel is outside the line");
  const unsigned char* s = e.data.data() + e.lines[o.line].first;
  const unsigned long len = e.lines[o.line].second, p = (unsigned long)o.pixel;
  unsigned long off = 0, a = 0, b = 0;
  int ok = 0;
  size_t recLen = 0;
  std::string what;
  switch (e.depth) {
    case 1:
    case 2: {
      ok = e.depth == 1 ? ACompress::GetLoc_RLE1(s, len, e.width, p, off, a)
                        : ACompress::GetLoc_RLE2(s, len, e.width, p, off, a);
      if (!ok) break;
      if (s[off] & 0x80) {
        recLen = 1;
        what = "literal byte, pixels from " + std::to_string(a);
      } else {
        unsigned char v = 0;
        unsigned long n = 0;
        // The located run ends before the tail byte, so its digits are all
        // inside the line's stream.
        recLen = e.depth == 1 ? ACompress::UnPackSeg1(s, off, 0, v, n, 1) : ACompress::UnPackSeg2(s, off, 0, v, n, 1);
        what = "run of " + std::to_string(n) + " pixels of value " + std::to_string(v) + " from " + std::to_string(a);
      }
      break;
    }
    case 4:
      ok = ACompress::GetLoc_RLE4(s, len, e.width, p, off, a);
      if (ok) {
        recLen = 1;
        const unsigned v = off % 3 == 0 ? s[off + 1] >> 4 : s[off - 1] & 15;
        what = "run " + std::string(off % 3 == 0 ? "A" : "B") + " of " + std::to_string(s[off]) +
               " pixels of value " + std::to_string(v) + ", " + std::to_string(a) + " of them from pixel " +
               std::to_string(p);
      }
      break;
    case 8:
      ok = ACompress::GetLoc_RLE8(s, len, e.width, p, off, a, b);
      if (ok) {
        recLen = 2;
        what = "run of " + std::to_string(b) + " pixels of value " + std::to_string(s[off + 1]) + " from " + std::to_string(a);
      }
      break;
    case 24:
      ok = ACompress::GetLoc_RLE24(s, len, e.width, p, off, a);
      if (ok) {
        recLen = 4;
        what = "run of " + std::to_string(s[off]) + " pixels of colour " + Hex(s + off + 1, 3) + " from " + std::to_string(a);
      }
      break;
  }
  if (!ok) return Error("cannot locate: " + std::string(g_Error.strError));
  std::printf("line %ld, pixel %ld: record at byte %lu of %lu: [%s] %s\n", o.line, o.pixel, off, len,
              Hex(s + off, recLen).c_str(), what.c_str());
  return 0;
}

void SetupRle(CLI::App& app) {
  auto* rle = app.add_subcommand("rle", "run-length coding of image lines");
  tqtool::Examples(rle, {"tqbase rle encode mask.png mask.tqrl --depth 1", "tqbase rle decode mask.tqrl back.png"});
  rle->require_subcommand(1);
  auto opts = std::make_shared<RleOptions>();
  auto* enc = rle->add_subcommand("encode", "encode an image (PNG or raw) as one stream per line");
  tqtool::Examples(enc, {"tqbase rle encode mask.png mask.tqrl --depth 8", "tqbase rle encode mask.png --depth all"});
  enc->add_option("input", opts->in, "image file (.png, or raw with --width)")->required();
  enc->add_option("output", opts->out, "run-length file to write");
  enc->add_option("--depth,-d", opts->depth, "1, 2, 4, 8, 24, or all to compare the ratios")->capture_default_str();
  enc->add_option("--width,-w", opts->width, "pixels per line of a raw image");
  enc->callback([opts] { RleEncode(*opts); });
  auto* dec = rle->add_subcommand("decode", "decode a run-length file to an image (PNG or raw)");
  tqtool::Examples(dec, {"tqbase rle decode tqbase-demo/mask-rle8.tqrl mask.png"});
  dec->add_option("input", opts->in, "run-length file")->required();
  dec->add_option("output", opts->out, "image file to write (.png or raw)")->required();
  dec->add_option("--depth,-d", opts->checkDepth, "expected depth (checked against the file)");
  dec->callback([opts] { RleDecode(*opts); });
  auto* loc = rle->add_subcommand("locate", "show the record that holds a pixel");
  tqtool::Examples(loc, {"tqbase rle locate tqbase-demo/mask-rle8.tqrl --line 100 --pixel 2000"});
  loc->add_option("input", opts->in, "run-length file")->required();
  loc->add_option("--line,-y", opts->line, "line number")->required();
  loc->add_option("--pixel,-x", opts->pixel, "pixel in the line")->required();
  loc->callback([opts] { RleLocate(*opts); });
}
TQ_REGISTER_COMMAND("40-rle", SetupRle);

// ---- lzw ----

struct IoOptions {
  std::string in, out;
};

int LzwCompress(const IoOptions& o) {
  Bytes in;
  if (!ReadFile(o.in, in)) return Error("cannot read " + o.in);
  Bytes out = {'T', 'Q', 'L', 'Z'};
  for (int i = 0; i < 8; ++i) out.push_back((unsigned char)((uint64_t)in.size() >> (8 * i)));
  if (!in.empty()) {
    Bytes z(in.size() * 2 + 16);  // 12 bits per byte at worst, and the two codes
    unsigned long len = 0;
    if (!ACompress::Comp_LZW(in.data(), in.size(), z.data(), z.size(), len))
      return Error("compression failed: " + std::string(g_Error.strError));
    out.insert(out.end(), z.begin(), z.begin() + len);
  }
  if (!WriteFile(o.out, out)) return Error("cannot write " + o.out);
  if (!in.empty()) std::printf("%zu bytes -> %zu bytes (%.2f%%)\n", in.size(), out.size() - 12, 100.0 * (out.size() - 12) / in.size());
  return 0;
}

int LzwDecompress(const IoOptions& o) {
  Bytes in;
  if (!ReadFile(o.in, in)) return Error("cannot read " + o.in);
  if (in.size() < 12 || std::memcmp(in.data(), "TQLZ", 4) != 0) return Error("not a tqbase LZW file");
  uint64_t n = 0;
  for (int i = 0; i < 8; ++i) n |= (uint64_t)in[4 + i] << (8 * i);
  // A code of at least 9 bits gives at most 4,097 bytes: a length beyond
  // that is not what the stream holds, and is refused before allocating.
  const uint64_t most = ((uint64_t)(in.size() - 12) * 8 / 9 + 1) * 4097;
  if (n > most) return Error("the stream cannot hold " + std::to_string(n) + " bytes");
  Bytes out(n + 6);  // the decoder keeps 6 spare bytes
  unsigned long len = 0;
  if (n && !ACompress::UnComp_LZW(in.data() + 12, in.size() - 12, out.data(), out.size(), len))
    return Error("decompression failed: " + std::string(g_Error.strError));
  if (len != n) return Error("decoded " + std::to_string(len) + " of " + std::to_string(n) + " bytes");
  out.resize(n);
  return WriteFile(o.out, out) ? 0 : Error("cannot write " + o.out);
}

void SetupLzw(CLI::App& app) {
  auto* lzw = app.add_subcommand("lzw", "LZW compression of a file");
  tqtool::Examples(lzw, {"tqbase lzw encode tqbase-demo/mask-1bit.raw mask.tqlz", "tqbase lzw decode mask.tqlz mask.raw"});
  lzw->require_subcommand(1);
  auto opts = std::make_shared<IoOptions>();
  auto* c = lzw->add_subcommand("encode", "compress a file");
  c->alias("compress");
  tqtool::Examples(c, {"tqbase lzw encode tqbase-demo/mask-1bit.raw mask.tqlz"});
  c->add_option("input", opts->in)->required();
  c->add_option("output", opts->out)->required();
  c->callback([opts] { LzwCompress(*opts); });
  auto* d = lzw->add_subcommand("decode", "decompress a file written by lzw encode");
  d->alias("decompress");
  tqtool::Examples(d, {"tqbase lzw decode mask.tqlz mask.raw"});
  d->add_option("input", opts->in)->required();
  d->add_option("output", opts->out)->required();
  d->callback([opts] { LzwDecompress(*opts); });
}
TQ_REGISTER_COMMAND("41-lzw", SetupLzw);

// ---- base64 ----

int Base64(bool encode, const std::string& text, bool haveText) {
  std::string in = text;
  if (!haveText) {
    in.assign(std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>());
    while (!in.empty() && (in.back() == '\n' || in.back() == '\r')) in.pop_back();
  }
  char* r = encode ? ACompress::Base64_Encode(in.c_str()) : ACompress::Base64_Decode(in.c_str());
  if (!r) return Error(std::string(g_Error.strError));
  std::printf("%s\n", r);
  ACompress::Base64_Free(&r);
  return 0;
}

void SetupBase64(CLI::App& app) {
  auto* b64 = app.add_subcommand("base64", "the library's Base64 text form (no '=' padding)");
  tqtool::Examples(b64, {"tqbase base64 encode \"textile\"", "echo dGV4dGlsZQ | tqbase base64 decode"});
  b64->require_subcommand(1);
  auto text = std::make_shared<std::string>();
  auto* e = b64->add_subcommand("encode", "encode TEXT (or stdin)");
  tqtool::Examples(e, {"tqbase base64 encode \"textile\""});
  e->add_option("text", *text);
  e->callback([text, e] { Base64(true, *text, e->count("text") > 0); });
  auto* d = b64->add_subcommand("decode", "decode TEXT (or stdin)");
  tqtool::Examples(d, {"tqbase base64 decode dGV4dGlsZQ"});
  d->add_option("text", *text);
  d->callback([text, d] { Base64(false, *text, d->count("text") > 0); });
}
TQ_REGISTER_COMMAND("42-base64", SetupBase64);

}  // namespace

