// bench_codec_lines.cpp - the codecs as the output stage calls them: one
// raster line per call, beside libtiff coding the same lines one row per
// strip (through its strip interface on a memory-mapped file) and memcpy
// moving the same streams, in the same run.
//
// Line sets (16,000 pixels a line):
//  0 mask:   1,500 8-bit print-mask lines, runs of 0 and 255 with a ramp
//            of 4 to 40 pixels at each edge;
//  1 noise:  500 lines of random bytes;
//  2 packed: the mask lines thresholded and packed 1 bit per pixel
//            (2,000 bytes a line).
// Workloads: LZW decode and encode of each set (libtiff LZW); the 1-bit
// run-length format (UnPack1/Pack1: 16,000 one-byte pixels a line) against
// PackBits on the packed lines; the 8-bit run-length format
// (UnComp_RLE8/Comp_RLE8) against PackBits on the same lines, and its
// decoder against memcpy of its input stream.
// Time per iteration is the whole set; buffers are the caller's, made once.
#include <tqbase/tqbase.h>

#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#ifdef TQBENCH_HAVE_TIFF
#include "bench_tiff.h"
#endif

namespace {

typedef std::vector<unsigned char> Bytes;
typedef unsigned long ulong;

const size_t kWidth = 16000;
enum Set { kMask, kNoise, kPacked };
const char* const kSetNames[] = {"mask lines", "noise lines", "packed 1-bit lines"};

Bytes MaskLine(std::mt19937& rng) {
  Bytes v(kWidth);
  std::geometric_distribution<unsigned> run(1.0 / 400);
  std::uniform_int_distribution<unsigned> ramp(4, 40);
  size_t i = 0;
  bool on = rng() % 2;
  while (i < kWidth) {
    const size_t len = 1 + run(rng);
    for (size_t k = 0; k < len && i < kWidth; ++k) v[i++] = on ? 255 : 0;
    const unsigned r = ramp(rng);  // the edge: a ramp to the other level
    for (unsigned k = 1; k <= r && i < kWidth; ++k) v[i++] = (unsigned char)(on ? 255 - 255 * k / (r + 1) : 255 * k / (r + 1));
    on = !on;
  }
  return v;
}

// The lines of a set, made once.
const std::vector<Bytes>& Lines(int set) {
  static std::vector<Bytes> sets[3];
  std::vector<Bytes>& out = sets[set];
  if (!out.empty()) return out;
  std::mt19937 rng(4242 + set);
  if (set == kNoise) {
    for (int r = 0; r < 500; ++r) {
      Bytes v(kWidth);
      for (auto& b : v) b = (unsigned char)rng();
      out.push_back(v);
    }
  } else {
    for (int r = 0; r < 1500; ++r) out.push_back(MaskLine(rng));
    if (set == kPacked)
      for (Bytes& v : out) {
        Bytes p(kWidth / 8, 0);
        for (size_t i = 0; i < kWidth; ++i)
          if (v[i] >= 128) p[i / 8] |= (unsigned char)(0x80 >> (i % 8));
        v.swap(p);
      }
  }
  return out;
}

// The mask lines as one-byte pixels 0 and 1 (the 1-bit format's input).
const std::vector<Bytes>& Bits() {
  static std::vector<Bytes> out;
  if (out.empty())
    for (const Bytes& v : Lines(kMask)) {
      Bytes b(v.size());
      for (size_t i = 0; i < v.size(); ++i) b[i] = v[i] >= 128;
      out.push_back(b);
    }
  return out;
}

typedef int (*Encoder)(const unsigned char*, ulong, unsigned char*, ulong, ulong&);

// Every line encoded, each stream exactly sized.
std::vector<Bytes> Encode(const std::vector<Bytes>& lines, Encoder enc) {
  std::vector<Bytes> out;
  for (const Bytes& v : lines) {
    Bytes s(v.size() * 2 + 64);
    ulong n = 0;
    enc(v.data(), v.size(), s.data(), s.size(), n);
    s.resize(n);
    out.push_back(s);
  }
  return out;
}

size_t TotalBytes(const std::vector<Bytes>& v) {
  size_t n = 0;
  for (const Bytes& b : v) n += b.size();
  return n;
}

int Pack1Fn(const unsigned char* s, ulong n, unsigned char* d, ulong cap, ulong& len) {
  return ACompress::Pack1(s, n, d, cap, len);
}

// ---- ours ----

void Decode(benchmark::State& st, const std::vector<Bytes>& streams, size_t lineBytes,
            int (*dec)(const unsigned char*, ulong, unsigned char*, ulong, ulong&)) {
  Bytes out(lineBytes + 64);
  ulong n = 0;
  for (auto _ : st)
    for (const Bytes& s : streams) {
      if (!dec(s.data(), s.size(), out.data(), out.size(), n)) st.SkipWithError("decode failed");
      benchmark::DoNotOptimize(out.data());
    }
  st.SetBytesProcessed((int64_t)st.iterations() * (int64_t)(streams.size() * lineBytes));
}

void EncodeAll(benchmark::State& st, const std::vector<Bytes>& lines, Encoder enc) {
  Bytes out(lines[0].size() * 2 + 64);
  ulong n = 0;
  for (auto _ : st)
    for (const Bytes& v : lines) {
      if (!enc(v.data(), v.size(), out.data(), out.size(), n)) st.SkipWithError("encode failed");
      benchmark::DoNotOptimize(out.data());
    }
  st.SetBytesProcessed((int64_t)st.iterations() * (int64_t)TotalBytes(lines));
}

void BM_LzwDecode_Ours(benchmark::State& st) {
  const std::vector<Bytes>& lines = Lines((int)st.range(0));
  Decode(st, Encode(lines, ACompress::Comp_LZW), lines[0].size(), ACompress::UnComp_LZW);
  st.SetLabel(kSetNames[st.range(0)]);
}
void BM_LzwEncode_Ours(benchmark::State& st) {
  EncodeAll(st, Lines((int)st.range(0)), ACompress::Comp_LZW);
  st.SetLabel(kSetNames[st.range(0)]);
}
BENCHMARK(BM_LzwDecode_Ours)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LzwEncode_Ours)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);

void BM_Bits1Decode_Ours(benchmark::State& st) {
  const std::vector<Bytes> streams = Encode(Bits(), Pack1Fn);
  Bytes out(kWidth + 64);
  for (auto _ : st)
    for (const Bytes& s : streams) {
      if (!ACompress::UnPack1(s.data(), s.size(), kWidth, out.data())) st.SkipWithError("decode failed");
      benchmark::DoNotOptimize(out.data());
    }
  st.SetLabel("UnPack1 vs PackBits");
}
void BM_Bits1Encode_Ours(benchmark::State& st) {
  EncodeAll(st, Bits(), Pack1Fn);
  st.SetLabel("Pack1 vs PackBits");
}
BENCHMARK(BM_Bits1Decode_Ours)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Bits1Encode_Ours)->Unit(benchmark::kMillisecond);

void BM_Rle8Decode_Ours(benchmark::State& st) {
  const std::vector<Bytes>& lines = Lines((int)st.range(0));
  Decode(st, Encode(lines, ACompress::Comp_RLE8), kWidth, ACompress::UnComp_RLE8);
  st.SetLabel(kSetNames[st.range(0)]);
}
void BM_Rle8Encode_Ours(benchmark::State& st) {
  EncodeAll(st, Lines((int)st.range(0)), ACompress::Comp_RLE8);
  st.SetLabel(kSetNames[st.range(0)]);
}
BENCHMARK(BM_Rle8Decode_Ours)->DenseRange(0, 1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Rle8Encode_Ours)->DenseRange(0, 1)->Unit(benchmark::kMillisecond);

// The bandwidth limit of a decoder: memcpy moving its input streams.
void BM_Rle8Decode_Memcpy(benchmark::State& st) {
  const std::vector<Bytes> streams = Encode(Lines((int)st.range(0)), ACompress::Comp_RLE8);
  Bytes out(kWidth * 2 + 64);
  for (auto _ : st)
    for (const Bytes& s : streams) {
      std::memcpy(out.data(), s.data(), s.size());
      benchmark::DoNotOptimize(out.data());
    }
  st.SetLabel(kSetNames[st.range(0)]);
}
BENCHMARK(BM_Rle8Decode_Memcpy)->DenseRange(0, 1)->Unit(benchmark::kMillisecond);

// The bandwidth limit of the 1-bit encoder: memcpy reading its input lines
// (one byte a pixel) into one line buffer.
void BM_Bits1Encode_Memcpy(benchmark::State& st) {
  const std::vector<Bytes>& lines = Bits();
  Bytes out(kWidth);
  for (auto _ : st)
    for (const Bytes& v : lines) {
      std::memcpy(out.data(), v.data(), v.size());
      benchmark::DoNotOptimize(out.data());
    }
  st.SetLabel("Pack1 vs PackBits");
}
BENCHMARK(BM_Bits1Encode_Memcpy)->Unit(benchmark::kMillisecond);

#ifdef TQBENCH_HAVE_TIFF
using namespace tqbench;

// The lines as a TIFF of one row per strip (8 bits; 1 bit for the packed
// set, 16,000 pixels wide either way).
void WriteRows(MemFile& f, const std::vector<Bytes>& lines, int bits, int compression) {
  f.data.clear();
  TIFF* t = MemOpen(f, "w");
  TIFFSetField(t, TIFFTAG_IMAGEWIDTH, (uint32_t)kWidth);
  TIFFSetField(t, TIFFTAG_IMAGELENGTH, (uint32_t)lines.size());
  TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, bits);
  TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 1);
  TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, 1);
  TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
  TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(t, TIFFTAG_COMPRESSION, compression);
  for (size_t r = 0; r < lines.size(); ++r)
    TIFFWriteEncodedStrip(t, (uint32_t)r, const_cast<unsigned char*>(lines[r].data()), (tmsize_t)lines[r].size());
  TIFFClose(t);
}

void TiffDecode(benchmark::State& st, const std::vector<Bytes>& lines, int bits, int compression) {
  TIFFSetWarningHandler(nullptr);
  MemFile f;
  WriteRows(f, lines, bits, compression);
  TIFF* t = MemOpen(f, "r");
  Bytes out(lines[0].size());
  for (auto _ : st)
    for (uint32_t r = 0; r < lines.size(); ++r) {
      if (TIFFReadEncodedStrip(t, r, out.data(), (tmsize_t)out.size()) != (tmsize_t)out.size())
        st.SkipWithError("libtiff decode failed");
      benchmark::DoNotOptimize(out.data());
    }
  TIFFClose(t);
}

void TiffEncode(benchmark::State& st, const std::vector<Bytes>& lines, int bits, int compression) {
  TIFFSetWarningHandler(nullptr);
  MemFile f;
  WriteRows(f, lines, bits, compression);
  const size_t size = f.data.size();
  for (auto _ : st) {
    f.data.reserve(size);
    WriteRows(f, lines, bits, compression);
    benchmark::DoNotOptimize(f.data.data());
  }
}

int Bits(int set) { return set == kPacked ? 1 : 8; }

void BM_LzwDecode_Tiff(benchmark::State& st) {
  TiffDecode(st, Lines((int)st.range(0)), Bits((int)st.range(0)), COMPRESSION_LZW);
  st.SetLabel(kSetNames[st.range(0)]);
}
void BM_LzwEncode_Tiff(benchmark::State& st) {
  TiffEncode(st, Lines((int)st.range(0)), Bits((int)st.range(0)), COMPRESSION_LZW);
  st.SetLabel(kSetNames[st.range(0)]);
}
BENCHMARK(BM_LzwDecode_Tiff)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LzwEncode_Tiff)->DenseRange(0, 2)->Unit(benchmark::kMillisecond);

void BM_Bits1Decode_Tiff(benchmark::State& st) { TiffDecode(st, Lines(kPacked), 1, COMPRESSION_PACKBITS); }
void BM_Bits1Encode_Tiff(benchmark::State& st) { TiffEncode(st, Lines(kPacked), 1, COMPRESSION_PACKBITS); }
BENCHMARK(BM_Bits1Decode_Tiff)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Bits1Encode_Tiff)->Unit(benchmark::kMillisecond);

void BM_Rle8Decode_Tiff(benchmark::State& st) {
  TiffDecode(st, Lines((int)st.range(0)), 8, COMPRESSION_PACKBITS);
  st.SetLabel(kSetNames[st.range(0)]);
}
void BM_Rle8Encode_Tiff(benchmark::State& st) {
  TiffEncode(st, Lines((int)st.range(0)), 8, COMPRESSION_PACKBITS);
  st.SetLabel(kSetNames[st.range(0)]);
}
BENCHMARK(BM_Rle8Decode_Tiff)->DenseRange(0, 1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Rle8Encode_Tiff)->DenseRange(0, 1)->Unit(benchmark::kMillisecond);
#endif

}  // namespace

BENCHMARK_MAIN();
