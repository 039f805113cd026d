// bench_acompress.cpp - the codecs on synthetic print-mask lines (long runs
// with edges) and incompressible lines, widths 10,000 and 40,000, beside
// memcpy/memset bandwidth and the peers: libtiff's PackBits and LZW (whole
// strips through in-memory TIFF I/O) and libb64.
//
// Bytes processed are always the expanded (uncompressed) bytes, so the
// rates of encoders, decoders and peers compare directly.
#include <tqbase/tqbase.h>

#include "acompress_internal.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#ifdef TQBENCH_HAVE_TIFF
#include "bench_tiff.h"
#endif
#ifdef TQBENCH_HAVE_B64
extern "C" {
#include <b64/cdecode.h>
#include <b64/cencode.h>
}
#endif

namespace {

typedef std::vector<unsigned char> Bytes;
typedef unsigned long ulong;

const int kRows = 16;  // lines per iteration

enum Kind { kMask = 0, kNoise = 1 };

// A print-mask line: runs averaging ~300 pixels with sharp edges, values
// from `levels` levels; or noise.
Bytes MakeLine(std::mt19937& rng, size_t n, Kind kind, unsigned maxValue) {
  Bytes v(n);
  std::uniform_int_distribution<unsigned> val(0, maxValue);
  if (kind == kNoise) {
    for (auto& b : v) b = (unsigned char)val(rng);
    return v;
  }
  std::geometric_distribution<unsigned> run(1.0 / 300);
  size_t i = 0;
  while (i < n) {
    size_t len = 1 + run(rng);
    const unsigned char x = (unsigned char)val(rng);
    for (; len && i < n; --len) v[i++] = x;
  }
  return v;
}

struct Lines {
  std::vector<Bytes> raw;      // expanded
  std::vector<Bytes> stream;   // encoded at `depth`
  size_t bytes = 0;
};

// Lines of width pixels at a depth (3 bytes per pixel at 24).
const Lines& GetLines(int depth, Kind kind, size_t width) {
  static std::vector<std::pair<std::string, Lines>> cache;
  const std::string key = std::to_string(depth) + "/" + std::to_string(kind) + "/" + std::to_string(width);
  for (auto& e : cache)
    if (e.first == key) return e.second;
  std::mt19937 rng(1234 + depth);
  Lines l;
  const unsigned maxValue = depth >= 8 || depth == 0 ? 255 : (1u << depth) - 1;  // 0: general format
  for (int r = 0; r < kRows; ++r) {
    Bytes line;
    if (depth == 24) {
      const Bytes a = MakeLine(rng, width, kind, 255), b = MakeLine(rng, width, kind, 255);
      line.resize(width * 3);
      for (size_t i = 0; i < width; ++i) {  // runs shared by the 3 channels
        line[3 * i] = a[i];
        line[3 * i + 1] = kind == kMask ? (unsigned char)(a[i] ^ 0x5A) : b[i];
        line[3 * i + 2] = kind == kMask ? (unsigned char)(a[i] + 17) : a[(i * 7) % width];
      }
    } else {
      line = MakeLine(rng, width, kind, maxValue);
    }
    Bytes s(line.size() * 2 + 64);
    ulong len = 0;
    if (depth == 0)
      ACompress::Comp_RLE(line.data(), line.size(), s.data(), s.size(), len);
    else
      ACompress::Pack(line.data(), line.size(), depth, s.data(), s.size(), len);
    s.resize(len);
    l.bytes += line.size();
    l.raw.push_back(std::move(line));
    l.stream.push_back(std::move(s));
  }
  cache.emplace_back(key, std::move(l));
  return cache.back().second;
}

void Args(benchmark::internal::Benchmark* b) {
  for (int kind : {kMask, kNoise})
    for (int width : {10000, 40000}) b->Args({kind, width});
}

void Label(benchmark::State& st) {
  st.SetLabel(std::string(st.range(0) == kMask ? "mask" : "noise") + " w=" + std::to_string(st.range(1)));
}

// ---- bandwidth references ----

void BM_memcpy(benchmark::State& st) {
  const size_t n = (size_t)st.range(1) * kRows;
  Bytes a(n, 1), b(n);
  for (auto _ : st) {
    std::memcpy(b.data(), a.data(), n);
    benchmark::DoNotOptimize(b.data());
    benchmark::ClobberMemory();
  }
  st.SetBytesProcessed((int64_t)st.iterations() * n);
  Label(st);
}
BENCHMARK(BM_memcpy)->Apply(Args);

void BM_memset(benchmark::State& st) {
  const size_t n = (size_t)st.range(1) * kRows;
  Bytes b(n);
  for (auto _ : st) {
    std::memset(b.data(), 7, n);
    benchmark::DoNotOptimize(b.data());
    benchmark::ClobberMemory();
  }
  st.SetBytesProcessed((int64_t)st.iterations() * n);
  Label(st);
}
BENCHMARK(BM_memset)->Apply(Args);

// ---- bit packing ----

template <int Depth, bool Fast>
void BM_Expand(benchmark::State& st) {
  const Lines& l = GetLines(Depth, (Kind)st.range(0), st.range(1));
  const size_t w = st.range(1);
  std::vector<Bytes> packed;
  for (const Bytes& r : l.raw) {
    Bytes p((w * Depth + 7) / 8 + 8);
    ACompress::ShrinkBit(const_cast<unsigned char*>(r.data()), 0, w, Depth, p.data());
    packed.push_back(p);
  }
  Bytes out(w + 16);
  for (auto _ : st) {
    for (const Bytes& p : packed) {
      if (Depth == 1 && !Fast)
        tqbase::codec::ExpandBit1Table(p.data(), 0, w, out.data());
      else
        ACompress::ExpandBit(p.data(), 0, w, Depth, out.data());
      benchmark::DoNotOptimize(out.data());
    }
  }
  st.SetBytesProcessed((int64_t)st.iterations() * l.bytes);
  Label(st);
}
void BM_ExpandBit1(benchmark::State& st) { BM_Expand<1, true>(st); }
void BM_ExpandBit1Table(benchmark::State& st) { BM_Expand<1, false>(st); }
void BM_ExpandBit2(benchmark::State& st) { BM_Expand<2, true>(st); }
void BM_ExpandBit4(benchmark::State& st) { BM_Expand<4, true>(st); }
BENCHMARK(BM_ExpandBit1)->Apply(Args);
BENCHMARK(BM_ExpandBit1Table)->Apply(Args);
BENCHMARK(BM_ExpandBit2)->Apply(Args);
BENCHMARK(BM_ExpandBit4)->Apply(Args);

template <int Depth, bool Fast>
void BM_Shrink(benchmark::State& st) {
  const Lines& l = GetLines(Depth, (Kind)st.range(0), st.range(1));
  const size_t w = st.range(1);
  Bytes out((w * Depth + 7) / 8 + 8);
  for (auto _ : st) {
    for (const Bytes& r : l.raw) {
      if (Depth == 1 && !Fast)
        tqbase::codec::ShrinkBit1Plain(r.data(), 0, w, out.data());
      else
        ACompress::ShrinkBit(const_cast<unsigned char*>(r.data()), 0, w, Depth, out.data());
      benchmark::DoNotOptimize(out.data());
    }
  }
  st.SetBytesProcessed((int64_t)st.iterations() * l.bytes);
  Label(st);
}
void BM_ShrinkBit1(benchmark::State& st) { BM_Shrink<1, true>(st); }
void BM_ShrinkBit1Plain(benchmark::State& st) { BM_Shrink<1, false>(st); }
void BM_ShrinkBit2(benchmark::State& st) { BM_Shrink<2, true>(st); }
void BM_ShrinkBit4(benchmark::State& st) { BM_Shrink<4, true>(st); }
BENCHMARK(BM_ShrinkBit1)->Apply(Args);
BENCHMARK(BM_ShrinkBit1Plain)->Apply(Args);
BENCHMARK(BM_ShrinkBit2)->Apply(Args);
BENCHMARK(BM_ShrinkBit4)->Apply(Args);

// ---- run-length encoders and decoders ----

typedef int (*EncodeFn)(const unsigned char*, ulong, unsigned char*, ulong, ulong&);
typedef int (*DecodeFn)(const unsigned char*, ulong, unsigned char*, ulong, ulong&);

void RunEncode(benchmark::State& st, int depth, EncodeFn fn) {
  const Lines& l = GetLines(depth, (Kind)st.range(0), st.range(1));
  Bytes out(l.raw[0].size() * 2 + 64);
  ulong len = 0;
  for (auto _ : st)
    for (const Bytes& r : l.raw) {
      if (!fn(r.data(), r.size(), out.data(), out.size(), len)) st.SkipWithError("encode failed");
      benchmark::DoNotOptimize(out.data());
    }
  st.SetBytesProcessed((int64_t)st.iterations() * l.bytes);
  Label(st);
}

void RunDecode(benchmark::State& st, int depth, DecodeFn fn) {
  const Lines& l = GetLines(depth, (Kind)st.range(0), st.range(1));
  Bytes out(l.raw[0].size());
  ulong len = 0;
  for (auto _ : st)
    for (const Bytes& s : l.stream) {
      if (!fn(s.data(), s.size(), out.data(), out.size(), len)) st.SkipWithError("decode failed");
      benchmark::DoNotOptimize(out.data());
    }
  st.SetBytesProcessed((int64_t)st.iterations() * l.bytes);
  Label(st);
}

int Pack1Fn(const unsigned char* s, ulong n, unsigned char* d, ulong c, ulong& l) { return ACompress::Pack1(s, n, d, c, l); }
int Pack2Fn(const unsigned char* s, ulong n, unsigned char* d, ulong c, ulong& l) { return ACompress::Pack2(s, n, d, c, l); }
int UnPack1Fn(const unsigned char* s, ulong n, unsigned char* d, ulong c, ulong& l) { l = c; return ACompress::UnPack1(s, n, c, d); }
int UnPack1PlainFn(const unsigned char* s, ulong n, unsigned char* d, ulong c, ulong& l) { l = c; return tqbase::codec::UnPack1Plain(s, n, c, d); }
int UnPack2Fn(const unsigned char* s, ulong n, unsigned char* d, ulong c, ulong& l) { l = c; return ACompress::UnPack2(s, n, c, d); }
int UnPackSpan8Fn(const unsigned char* s, ulong n, unsigned char* d, ulong c, ulong& l) {
  // The middle half of the line, located from the nearer end.
  l = c / 2;
  return ACompress::UnPackSpan8(s, n, c, c / 4, c / 2, d);
}

void BM_Comp_RLE(benchmark::State& st) { RunEncode(st, 0, ACompress::Comp_RLE); }
void BM_Comp_RLEPlain(benchmark::State& st) { RunEncode(st, 0, tqbase::codec::Comp_RLEPlain); }
void BM_UnComp_RLE(benchmark::State& st) { RunDecode(st, 0, ACompress::UnComp_RLE); }
void BM_Pack1(benchmark::State& st) { RunEncode(st, 1, Pack1Fn); }
void BM_Pack1Plain(benchmark::State& st) { RunEncode(st, 1, tqbase::codec::Pack1Plain); }
void BM_UnPack1(benchmark::State& st) { RunDecode(st, 1, UnPack1Fn); }
void BM_UnPack1Plain(benchmark::State& st) { RunDecode(st, 1, UnPack1PlainFn); }
void BM_Pack2(benchmark::State& st) { RunEncode(st, 2, Pack2Fn); }
void BM_UnPack2(benchmark::State& st) { RunDecode(st, 2, UnPack2Fn); }
void BM_Comp_RLE4(benchmark::State& st) { RunEncode(st, 4, ACompress::Comp_RLE4); }
void BM_UnComp_RLE4(benchmark::State& st) { RunDecode(st, 4, ACompress::UnComp_RLE4); }
void BM_Comp_RLE8(benchmark::State& st) { RunEncode(st, 8, ACompress::Comp_RLE8); }
void BM_Comp_RLE8Plain(benchmark::State& st) { RunEncode(st, 8, tqbase::codec::Comp_RLE8Plain); }
void BM_UnComp_RLE8(benchmark::State& st) { RunDecode(st, 8, ACompress::UnComp_RLE8); }
void BM_UnComp_RLE8Plain(benchmark::State& st) { RunDecode(st, 8, tqbase::codec::UnComp_RLE8Plain); }
void BM_UnPackSpan8(benchmark::State& st) { RunDecode(st, 8, UnPackSpan8Fn); st.SetBytesProcessed(st.bytes_processed() / 2); }
void BM_Comp_RLE24(benchmark::State& st) { RunEncode(st, 24, ACompress::Comp_RLE24); }
void BM_UnComp_RLE24(benchmark::State& st) { RunDecode(st, 24, ACompress::UnComp_RLE24); }
BENCHMARK(BM_Comp_RLE)->Apply(Args);
BENCHMARK(BM_Comp_RLEPlain)->Apply(Args);
BENCHMARK(BM_UnComp_RLE)->Apply(Args);
BENCHMARK(BM_Pack1)->Apply(Args);
BENCHMARK(BM_Pack1Plain)->Apply(Args);
BENCHMARK(BM_UnPack1)->Apply(Args);
BENCHMARK(BM_UnPack1Plain)->Apply(Args);
BENCHMARK(BM_Pack2)->Apply(Args);
BENCHMARK(BM_UnPack2)->Apply(Args);
BENCHMARK(BM_Comp_RLE4)->Apply(Args);
BENCHMARK(BM_UnComp_RLE4)->Apply(Args);
BENCHMARK(BM_Comp_RLE8)->Apply(Args);
BENCHMARK(BM_Comp_RLE8Plain)->Apply(Args);
BENCHMARK(BM_UnComp_RLE8)->Apply(Args);
BENCHMARK(BM_UnComp_RLE8Plain)->Apply(Args);
BENCHMARK(BM_UnPackSpan8)->Apply(Args);
BENCHMARK(BM_Comp_RLE24)->Apply(Args);
BENCHMARK(BM_UnComp_RLE24)->Apply(Args);

// ---- LZW ----

// The rows of one kind as one buffer: what a strip holds.
Bytes Strip(Kind kind, size_t width) {
  const Lines& l = GetLines(8, kind, width);
  Bytes all;
  for (const Bytes& r : l.raw) all.insert(all.end(), r.begin(), r.end());
  return all;
}

void BM_Comp_LZW(benchmark::State& st) {
  const Bytes in = Strip((Kind)st.range(0), st.range(1));
  Bytes out(in.size() * 2 + 64);
  ulong len = 0;
  for (auto _ : st) {
    if (!ACompress::Comp_LZW(in.data(), in.size(), out.data(), out.size(), len)) st.SkipWithError("failed");
    benchmark::DoNotOptimize(out.data());
  }
  st.SetBytesProcessed((int64_t)st.iterations() * in.size());
  st.counters["ratio"] = (double)len / in.size();
  Label(st);
}
BENCHMARK(BM_Comp_LZW)->Apply(Args);

void BM_Pack_LZWNodes(benchmark::State& st) {
  const Bytes in = Strip((Kind)st.range(0), st.range(1));
  std::vector<unsigned short> codes(in.size() * 3 / 2);
  ulong n = 0;
  for (auto _ : st) {
    if (!tqbase::codec::Pack_LZWNodes(in.data(), in.size(), codes.data(), codes.size(), n)) st.SkipWithError("failed");
    benchmark::DoNotOptimize(codes.data());
  }
  st.SetBytesProcessed((int64_t)st.iterations() * in.size());
  Label(st);
}
BENCHMARK(BM_Pack_LZWNodes)->Apply(Args);

void BM_UnComp_LZW(benchmark::State& st) {
  const Bytes in = Strip((Kind)st.range(0), st.range(1));
  Bytes z(in.size() * 2 + 64), out(in.size() + 8);
  ulong zl = 0, len = 0;
  ACompress::Comp_LZW(in.data(), in.size(), z.data(), z.size(), zl);
  for (auto _ : st) {
    if (!ACompress::UnComp_LZW(z.data(), zl, out.data(), out.size(), len)) st.SkipWithError("failed");
    benchmark::DoNotOptimize(out.data());
  }
  st.SetBytesProcessed((int64_t)st.iterations() * in.size());
  Label(st);
}
BENCHMARK(BM_UnComp_LZW)->Apply(Args);

#ifdef TQBENCH_HAVE_TIFF
// ---- libtiff: one strip of kRows lines, 8 bits, through memory ----

using namespace tqbench;

void WriteStrip(MemFile& f, const Bytes& in, size_t width, int compression) {
  f.data.clear();
  f.data.reserve(in.size() * 2);
  TIFF* t = MemOpen(f, "w");
  TIFFSetField(t, TIFFTAG_IMAGEWIDTH, (uint32_t)width);
  TIFFSetField(t, TIFFTAG_IMAGELENGTH, (uint32_t)kRows);
  TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 8);
  TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 1);
  TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, (uint32_t)kRows);
  TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
  TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(t, TIFFTAG_COMPRESSION, compression);
  TIFFWriteEncodedStrip(t, 0, const_cast<unsigned char*>(in.data()), (tmsize_t)in.size());
  TIFFClose(t);
}

void TiffEncode(benchmark::State& st, int compression) {
  TIFFSetWarningHandler(nullptr);
  const Bytes in = Strip((Kind)st.range(0), st.range(1));
  MemFile f;
  for (auto _ : st) {
    WriteStrip(f, in, st.range(1), compression);
    benchmark::DoNotOptimize(f.data.data());
  }
  st.SetBytesProcessed((int64_t)st.iterations() * in.size());
  st.counters["ratio"] = (double)f.data.size() / in.size();
  Label(st);
}

void TiffDecode(benchmark::State& st, int compression) {
  TIFFSetWarningHandler(nullptr);
  const Bytes in = Strip((Kind)st.range(0), st.range(1));
  MemFile f;
  WriteStrip(f, in, st.range(1), compression);
  Bytes out(in.size());
  for (auto _ : st) {
    TIFF* t = MemOpen(f, "r");
    if (TIFFReadEncodedStrip(t, 0, out.data(), (tmsize_t)out.size()) != (tmsize_t)in.size())
      st.SkipWithError("libtiff decode failed");
    TIFFClose(t);
    benchmark::DoNotOptimize(out.data());
  }
  st.SetBytesProcessed((int64_t)st.iterations() * in.size());
  Label(st);
}

void BM_TiffPackBitsEncode(benchmark::State& st) { TiffEncode(st, COMPRESSION_PACKBITS); }
void BM_TiffPackBitsDecode(benchmark::State& st) { TiffDecode(st, COMPRESSION_PACKBITS); }
void BM_TiffLZWEncode(benchmark::State& st) { TiffEncode(st, COMPRESSION_LZW); }
void BM_TiffLZWDecode(benchmark::State& st) { TiffDecode(st, COMPRESSION_LZW); }
BENCHMARK(BM_TiffPackBitsEncode)->Apply(Args);
BENCHMARK(BM_TiffPackBitsDecode)->Apply(Args);
BENCHMARK(BM_TiffLZWEncode)->Apply(Args);
BENCHMARK(BM_TiffLZWDecode)->Apply(Args);
#endif

// ---- Base64 (text of non-NUL bytes) ----

std::string Text(size_t n) {
  std::mt19937 rng(99);
  std::string s(n, ' ');
  for (char& c : s) c = (char)(1 + rng() % 255);
  return s;
}

void B64Args(benchmark::internal::Benchmark* b) { b->Arg(256)->Arg(64 << 10); }

void BM_Base64_Encode(benchmark::State& st) {
  const std::string s = Text(st.range(0));
  for (auto _ : st) {
    char* e = ACompress::Base64_Encode(s.c_str());
    benchmark::DoNotOptimize(e);
    ACompress::Base64_Free(&e);
  }
  st.SetBytesProcessed((int64_t)st.iterations() * s.size());
}
BENCHMARK(BM_Base64_Encode)->Apply(B64Args);

void BM_Base64_Decode(benchmark::State& st) {
  const std::string s = Text(st.range(0));
  char* e = ACompress::Base64_Encode(s.c_str());
  for (auto _ : st) {
    char* d = ACompress::Base64_Decode(e);
    benchmark::DoNotOptimize(d);
    ACompress::Base64_Free(&d);
  }
  ACompress::Base64_Free(&e);
  st.SetBytesProcessed((int64_t)st.iterations() * s.size());
}
BENCHMARK(BM_Base64_Decode)->Apply(B64Args);

#ifdef TQBENCH_HAVE_B64
// libb64 into a preallocated buffer (it needs no allocation per call; ours
// returns a new string, as its interface requires).
void BM_libb64_Encode(benchmark::State& st) {
  const std::string s = Text(st.range(0));
  std::string out(s.size() * 2 + 16, '\0');
  for (auto _ : st) {
    base64_encodestate es;
    base64_init_encodestate(&es);
    int n = base64_encode_block(s.data(), (int)s.size(), &out[0], &es);
    n += base64_encode_blockend(&out[n], &es);
    benchmark::DoNotOptimize(n);
  }
  st.SetBytesProcessed((int64_t)st.iterations() * s.size());
}
BENCHMARK(BM_libb64_Encode)->Apply(B64Args);

void BM_libb64_Decode(benchmark::State& st) {
  const std::string s = Text(st.range(0));
  char* e = ACompress::Base64_Encode(s.c_str());
  const size_t el = std::strlen(e);
  std::string out(el, '\0');
  for (auto _ : st) {
    base64_decodestate ds;
    base64_init_decodestate(&ds);
    int n = base64_decode_block(e, (int)el, &out[0], &ds);
    benchmark::DoNotOptimize(n);
  }
  ACompress::Base64_Free(&e);
  st.SetBytesProcessed((int64_t)st.iterations() * s.size());
}
BENCHMARK(BM_libb64_Decode)->Apply(B64Args);
#endif

}  // namespace

BENCHMARK_MAIN();
