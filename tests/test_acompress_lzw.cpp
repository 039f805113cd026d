// test_acompress_lzw.cpp - ACompress LZW and Base64: codes against a
// dictionary model and the node-store encoder, the bit stream's width
// schedule across clear codes, the decoders' rules on hostile code
// streams, the capacity rules, the fast forms against the plain ones on
// seeded random inputs, and the library's unpadded Base64.
#include "codec_test_util.h"
#include "test_support.h"
#include "acompress_internal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <set>
#include <string>

using tqtest::AsCode;
using tqtest::Bytes;

namespace {

typedef unsigned long ulong;
typedef std::vector<unsigned short> Codes;

// Plain LZW with a std::map dictionary and the clear every 3,836 codes.
Codes ModelCodes(const Bytes& s) {
  Codes out{256};
  std::map<std::pair<unsigned, unsigned>, unsigned> dict;
  unsigned prefix = s[0], next = 258;
  ulong count = 1;
  for (size_t i = 1; i < s.size(); ++i) {
    auto it = dict.find({prefix, s[i]});
    if (it != dict.end()) {
      prefix = it->second;
      continue;
    }
    out.push_back((unsigned short)prefix);
    if (count < 3836) {
      dict[{prefix, s[i]}] = next++;
      ++count;
    } else {
      out.push_back(256);
      dict.clear();
      next = 258;
      count = 1;
    }
    prefix = s[i];
  }
  out.push_back((unsigned short)prefix);
  out.push_back(257);
  return out;
}

// The width of the code numbered `number` since the last clear at 12 bits.
unsigned Width(ulong number) { return number < 255 ? 9 : number < 767 ? 10 : number < 1791 ? 11 : 12; }

// Bits the stream takes under the width schedule.
ulong ModelBits(const Codes& codes) {
  ulong bits = 0, number = 0;
  for (unsigned short c : codes) {
    const unsigned w = Width(number);
    bits += w;
    number = (c == 256 && w == 12) ? 1 : number + 1;
  }
  return bits;
}

Codes Pack(const Bytes& s, ulong cap) {
  Codes c(cap);
  ulong n = 0;
  if (!ACompress::Pack_LZW(s.data(), s.size(), c.data(), cap, n)) return {};
  c.resize(n);
  return c;
}

}  // namespace

// One byte: clear, the byte, end - and the end code needs
// codeCount + 1 < codeCap. Comp_LZW refuses inputs whose stream would not
// be strictly shorter than its buffer, which excludes 1 to 3 bytes.
TEST(ACompressLzwCodes, ShortestInputs) {
  const Bytes one = {0x41};
  EXPECT_EQ(Pack(one, 4), (Codes{256, 0x41, 257}));
  EXPECT_TRUE(Pack(one, 3).empty());
  Codes c{256, 0x41, 257};
  unsigned char bits[8], out[64];
  ulong len = 0;
  ASSERT_EQ(ACompress::TransformDataBits(c.data(), 3, bits, sizeof bits, len), 1);
  EXPECT_EQ(Bytes(bits, bits + len), (Bytes{0x80, 0x10, 0x60, 0x20}));  // 27 bits
  EXPECT_EQ(ACompress::TransformDataBits(c.data(), 3, bits, 4, len), 0);  // strictly shorter
  for (const char* s : {"a", "ab", "aa", "abc", "aaa", "abcd"})
    EXPECT_EQ(ACompress::Comp_LZW((const unsigned char*)s, std::strlen(s), out, sizeof out, len), 0) << s;
  ASSERT_EQ(ACompress::Comp_LZW((const unsigned char*)"aaaa", 4, out, sizeof out, len), 1);
  Bytes back(16);
  ulong blen = 0;
  ASSERT_EQ(ACompress::UnComp_LZW(out, len, back.data(), back.size(), blen), 1);
  EXPECT_EQ(Bytes(back.begin(), back.begin() + blen), (Bytes{'a', 'a', 'a', 'a'}));
}

TEST(ACompressLzwDecoder, CodeStreamRules) {
  unsigned char out[64];
  ulong len = 0;
  auto run = [&](Codes c) { return ACompress::UnPack_LZW(c.data(), c.size(), out, sizeof out, len); };
  EXPECT_EQ(run({300, 65, 257}), 0);         // starts above 256
  EXPECT_EQ(run({257, 65}), 0);
  EXPECT_EQ(run({256, 256, 257}), 0);        // nothing but clears and ends
  EXPECT_EQ(run({256, 300}), 0);             // no string to extend yet
  ASSERT_EQ(run({256, 65, 258, 257}), 1);    // the string being defined
  EXPECT_EQ(std::string((char*)out, len), "AAA");
  ASSERT_EQ(run({65, 66, 258, 260, 257}), 1);  // codes from the dictionary and beyond it
  EXPECT_EQ(std::string((char*)out, len), "ABABABA");
  ASSERT_EQ(run({256, 65, 66, 256, 256, 67, 258, 257}), 1);  // clears reset the dictionary
  EXPECT_EQ(std::string((char*)out, len), "ABCCC");
  EXPECT_EQ(run({256, 65, 66, 256, 259}), 0);  // a string code right after a clear
  ASSERT_EQ(run({256, 65, 66, 4096, 65535, 257}), 1);  // far beyond: the string being defined too
  EXPECT_EQ(std::string((char*)out, len), "ABBBBBB");  // A, B, BB, BBB
  ASSERT_EQ(run({256, 65, 66}), 1);             // no end code: stops at the last code
  EXPECT_EQ(std::string((char*)out, len), "AB");
  // Capacity: the output keeps 6 spare bytes.
  Codes c{256, 65, 66, 67, 257};
  EXPECT_EQ(ACompress::UnPack_LZW(c.data(), c.size(), out, 9, len), 1);
  EXPECT_EQ(ACompress::UnPack_LZW(c.data(), c.size(), out, 8, len), 0);
  // At most 4,096 strings since a clear.
  Codes many{256};
  for (int i = 0; i < 4098; ++i) many.push_back((unsigned short)(i % 200));
  Bytes big(100000);
  EXPECT_EQ(ACompress::UnPack_LZW(many.data(), many.size(), big.data(), big.size(), len), 0);
  EXPECT_EQ(ACompress::UnPack_LZW(many.data(), 4098, big.data(), big.size(), len), 1);  // exactly 4,096
}

TEST(ACompressIsStrInList, WalksSiblingsAndReportsTheLastNode) {
  // Nodes at 3 ('x', next 6), 6 ('y', next 9), 9 ('z', end).
  unsigned char nodes[12] = {0, 0, 0, 'x', 6, 0, 'y', 9, 0, 'z', 0, 0};
  unsigned short code = 0, last = 99;
  EXPECT_EQ(ACompress::IsStrInList(65, 'y', nodes, 3, &code, &last), 1);
  EXPECT_EQ(code, 6 / 3 + 257);
  EXPECT_EQ(last, 3);
  EXPECT_EQ(ACompress::IsStrInList(65, 'q', nodes, 3, &code, &last), 0);
  EXPECT_EQ(last, 9);
  EXPECT_EQ(ACompress::IsStrInList(65, 'q', nodes, 0, &code, &last), 0);
  EXPECT_EQ(last, 0);
}

// ---------------------------------------------------------------------------
// Fast forms against the plain ones (node-store encoder, string-store
// decoder, bit-at-a-time packing), results, lengths and bytes alike.

namespace {

using tqbase::codec::ResumeDataBitPlain;
using tqbase::codec::TransformDataBitsPlain;
using tqbase::codec::UnPack_LZWPlain;

// "Codes name = {...};" for pasting a failing case into a test.
std::string CodesAsCode(const char* name, const Codes& v) {
  std::string o = std::string("Codes ") + name + " = {";
  for (size_t i = 0; i < v.size(); ++i) o += (i ? ", " : "") + std::to_string(v[i]);
  return o + "};";
}

struct Outcome {
  int ok;
  ulong len;
  Bytes bytes;  // the output, when it succeeded
  bool operator==(const Outcome& o) const { return ok == o.ok && len == o.len && bytes == o.bytes; }
};
std::ostream& operator<<(std::ostream& os, const Outcome& o) {
  return os << "{ok " << o.ok << ", len " << o.len << ", " << o.bytes.size() << " bytes}";
}

// Runs `write(out, len)` into a buffer of cap bytes and keeps its outcome.
template <class F>
Outcome Into(ulong cap, F write) {
  Bytes out(cap);
  ulong len = 0;
  Outcome r{write(out.data(), len), len, {}};
  if (r.ok) r.bytes.assign(out.begin(), out.begin() + len);
  return r;
}

// Comp_LZW the plain way: node store into 1.5 codes per byte, then bit by bit.
Outcome PlainComp(const Bytes& s, ulong cap) {
  Codes codes(s.size() * 3 / 2 + 1);
  ulong n = 0;
  if (!tqbase::codec::Pack_LZWNodes(s.data(), s.size(), codes.data(), s.size() * 3 / 2, n))
    return Outcome{0, 0, {}};
  return Into(cap, [&](unsigned char* o, ulong& l) { return TransformDataBitsPlain(codes.data(), n, o, cap, l); });
}

Outcome FastComp(const Bytes& s, ulong cap) {
  return Into(cap, [&](unsigned char* o, ulong& l) { return ACompress::Comp_LZW(s.data(), s.size(), o, cap, l); });
}

// UnComp_LZW the plain way: bit by bit into codes, then the string store.
Outcome PlainUnComp(const Bytes& z, ulong cap) {
  Codes codes(z.size() + 1);
  ulong n = 0;
  ResumeDataBitPlain(z.data(), z.size(), codes.data(), n);
  if (!n) return Outcome{0, 0, {}};
  return Into(cap, [&](unsigned char* o, ulong& l) { return UnPack_LZWPlain(codes.data(), n, o, cap, l); });
}

Outcome FastUnComp(const Bytes& z, ulong cap) {
  return Into(cap, [&](unsigned char* o, ulong& l) { return ACompress::UnComp_LZW(z.data(), z.size(), o, cap, l); });
}

Outcome PlainUnPack(const Codes& c, ulong cap) {
  return Into(cap, [&](unsigned char* o, ulong& l) { return UnPack_LZWPlain(c.data(), c.size(), o, cap, l); });
}

Outcome FastUnPack(const Codes& c, ulong cap) {
  return Into(cap, [&](unsigned char* o, ulong& l) { return ACompress::UnPack_LZW(c.data(), c.size(), o, cap, l); });
}

Bytes Pack(const Codes& c) {
  Bytes bits(c.size() * 2 + 8);
  ulong len = 0;
  EXPECT_EQ(TransformDataBitsPlain(c.data(), c.size(), bits.data(), bits.size(), len), 1);
  bits.resize(len);
  return bits;
}

// Inputs an encoder meets: noise, print-mask runs, long runs of one byte,
// a few values, and repeats of a short pattern.
Bytes EncoderInput(std::mt19937& rng, int kind, size_t n) {
  switch (kind % 5) {
    case 0: return tqtest::RandomBytes(rng, n);
    case 1: return tqtest::MakeLine(rng, n, 255, 1 + rng() % 400);
    case 2: return tqtest::MakeLine(rng, n, 1 + rng() % 3, 2000);
    case 3: return tqtest::MakeLine(rng, n, rng() % 4, 1 + rng() % 4);
    default: {
      Bytes b(n), pat = tqtest::RandomBytes(rng, 1 + rng() % 9);
      for (size_t i = 0; i < n; ++i) b[i] = pat[i % pat.size()];
      return b;
    }
  }
}

// A code stream for the decoders, mostly decodable: single bytes, defined
// strings, the string being defined (KwKwK), clears at every width, and
// now and then a hostile code (beyond the dictionary, above 4,095 for code
// arrays, a string code right after a clear, an early end).
Codes DecoderCodes(std::mt19937& rng, size_t n, bool hostile, bool maxWidth) {
  Codes c;
  if (rng() % 4) c.push_back(256);
  unsigned next = 258;
  ulong number = c.size();
  bool afterClear = true;
  for (size_t i = 0; i < n; ++i) {
    const unsigned w = Width(number);
    unsigned code;
    const unsigned r = rng() % 1000;
    if (afterClear) {
      code = rng() % 256;
    } else if (r < 3 && !maxWidth) {
      code = 256;
    } else if (r < 300) {
      code = rng() % 256;
    } else if (r < 400) {
      code = next;  // the string being defined
    } else if (hostile && r < 410) {
      code = rng() % 4 == 0 ? 257 : rng() % (1u << w);
    } else {
      code = next > 258 ? 258 + rng() % (next - 258) : rng() % 256;
    }
    if (code > (1u << w) - 1) code = rng() % 256;  // keep it in the width
    c.push_back((unsigned short)code);
    if (code == 256) {
      afterClear = true;
      next = 258;
    } else {
      if (!afterClear) ++next;
      afterClear = false;
    }
    number = (code == 256 && w == 12) ? 1 : number + 1;
  }
  c.push_back(257);
  return c;
}

}  // namespace

// Pack_LZW against the dictionary model (long inputs pass the clear after
// 3,836 codes) and against the node-store encoder at any capacity; Comp_LZW
// against the two plain stages around its stream's length and at a random
// capacity: results, lengths, codes and bytes alike.
TEST(ACompressLzwPlain, EncodersMatchTheModelAndThePlainStages) {
  std::mt19937 rng(47);
  for (int iter = 0; iter < 300; ++iter) {
    const size_t n = iter < 20 ? 1 + iter % 10 : 1 + rng() % (iter % 15 == 0 ? 120000 : 6000);
    const Bytes s = EncoderInput(rng, iter, n);
    ASSERT_EQ(Pack(s, 2 * n + 4), ModelCodes(s)) << AsCode("s", s);
    const ulong codeCap = 1 + rng() % (n + 8);
    Codes ref(codeCap);
    ulong rn = 0;
    ref.resize(tqbase::codec::Pack_LZWNodes(s.data(), n, ref.data(), codeCap, rn) ? rn : 0);
    ASSERT_EQ(Pack(s, codeCap), ref) << "code cap " << codeCap << "\n" << AsCode("s", s);
    const Outcome want = PlainComp(s, 2 * n + 16);
    ASSERT_EQ(FastComp(s, 2 * n + 16), want) << AsCode("s", s);
    if (!want.ok) continue;
    // Around the stream length: it must stay strictly shorter than the buffer.
    for (ulong cap : {want.len - 1, want.len, want.len + 1}) {
      if (!cap) continue;
      ASSERT_EQ(FastComp(s, cap), PlainComp(s, cap)) << "cap " << cap << "\n" << AsCode("s", s);
    }
    const ulong cap = 1 + rng() % (want.len + 1);
    ASSERT_EQ(FastComp(s, cap), PlainComp(s, cap)) << "cap " << cap << "\n" << AsCode("s", s);
  }
  // Every prefix of one noise input up to 2,000 bytes: the last data code
  // takes each number of the first run, the width steps 254, 766 and 1,790
  // among them, so the end code falls right at each step.
  const Bytes noise = tqtest::RandomBytes(rng, 2000);
  std::set<size_t> lastNumbers;
  for (size_t n = 1; n <= noise.size(); ++n) {
    const Bytes s(noise.begin(), noise.begin() + n);
    ASSERT_EQ(FastComp(s, 2 * n + 16), PlainComp(s, 2 * n + 16)) << AsCode("s", s);
    lastNumbers.insert(Pack(s, 2 * n + 4).size() - 2);
  }
  for (size_t step : {254, 766, 1790}) EXPECT_EQ(lastNumbers.count(step), 1u) << step;
}

// Runs of one byte: the encoder takes a run a code at a time once the
// dictionary holds its strings, so run lengths sweep past the stored run
// strings (over 255 bytes) and past a round's clear, with runs of several
// bytes interleaved and cut by single other bytes.
TEST(ACompressLzwPlain, EncodersMatchTheModelOnLongRuns) {
  std::mt19937 rng(53);
  for (int iter = 0; iter < 12; ++iter) {
    Bytes s;
    const unsigned values = 1 + iter % 3;
    while (s.size() < (iter < 4 ? 60000u : 250000u)) {
      const unsigned char x = (unsigned char)(7 * (rng() % values));
      size_t len = iter % 2 ? 1 + rng() % 700 : (rng() % 8 == 0 ? 20000 + rng() % 40000 : 1 + rng() % 300);
      s.insert(s.end(), len, x);
      if (rng() % 3 == 0) s.push_back((unsigned char)rng());
    }
    const ulong n = s.size();
    ASSERT_EQ(Pack(s, 2 * n + 4), ModelCodes(s)) << "iter " << iter;
    const Outcome want = PlainComp(s, 2 * n + 16);
    ASSERT_EQ(want.ok, 1);
    ASSERT_EQ(FastComp(s, 2 * n + 16), want) << "iter " << iter;
    ASSERT_EQ(FastComp(s, want.len), PlainComp(s, want.len)) << "iter " << iter;
    ASSERT_EQ(FastUnComp(want.bytes, n + 6), (Outcome{1, n, s})) << "iter " << iter;
  }
}

TEST(ACompressLzwPlain, BitStreamMatchesBitByBit) {
  std::mt19937 rng(49);
  for (int iter = 0; iter < 400; ++iter) {
    // Any 16-bit codes: the packer keeps the low bits of each.
    Codes c = DecoderCodes(rng, 1 + rng() % 5000, true, iter % 4 == 0);
    if (iter % 3 == 0)
      for (auto& x : c)
        if (rng() % 50 == 0) x = (unsigned short)rng();
    const ulong full = c.size() * 2 + 8;
    for (ulong cap : {full, (ulong)(1 + rng() % full)}) {
      Bytes a(cap), b(cap);
      ulong al = 0, bl = 0;
      const int aok = ACompress::TransformDataBits(c.data(), c.size(), a.data(), cap, al);
      const int bok = TransformDataBitsPlain(c.data(), c.size(), b.data(), cap, bl);
      ASSERT_EQ(aok, bok) << "cap " << cap << "\n" << CodesAsCode("c", c);
      ASSERT_EQ(al, bl) << "cap " << cap << "\n" << CodesAsCode("c", c);
      if (aok) {
        ASSERT_TRUE(std::equal(a.begin(), a.begin() + al, b.begin())) << CodesAsCode("c", c);
      }
    }
    // Codes within their widths: the length follows the width schedule and
    // the stream reads back up to its first end code.
    Bytes bits = Pack(c);
    if (iter % 3) {
      ASSERT_EQ(bits.size(), (ModelBits(c) + 7) / 8) << CodesAsCode("c", c);
      Codes whole(bits.size() + 1);
      ulong wn = 0;
      ASSERT_EQ(ACompress::ResumeDataBit(bits.data(), bits.size(), whole.data(), wn), 1);
      whole.resize(wn);
      ASSERT_EQ(whole, Codes(c.begin(), std::find(c.begin(), c.end(), 257) + 1)) << CodesAsCode("c", c);
    }
    // Reading back a cut or damaged stream.
    if (iter % 2) bits.resize(rng() % (bits.size() + 1));
    if (iter % 5 == 0 && !bits.empty()) bits[rng() % bits.size()] ^= (unsigned char)(1 + rng() % 255);
    if (bits.empty()) continue;
    Codes a(bits.size() + 1), b(bits.size() + 1);
    ulong an = 0, bn = 0;
    ASSERT_EQ(ACompress::ResumeDataBit(bits.data(), bits.size(), a.data(), an), 1);
    ASSERT_EQ(ResumeDataBitPlain(bits.data(), bits.size(), b.data(), bn), 1);
    a.resize(an);
    b.resize(bn);
    ASSERT_EQ(a, b) << AsCode("bits", bits);
  }
}

// Exact-size buffers throughout, so the sanitizer sees any write outside
// them; nothing is left allocated. Generated code streams (clears at every
// width, the string being defined, now and then a hostile code), and real
// streams: each round-trips under the decoder's and the compressor's
// capacity rules, then is cut short or has a bit flipped.
TEST(ACompressLzwPlain, DecodersMatchOnRealAndDamagedStreams) {
  std::mt19937 rng(51);
  tqtest::MemoryCounts before;
  for (int iter = 0; iter < 400; ++iter) {
    if (iter % 2) {
      const bool maxWidth = iter % 4 == 1;  // long enough to reach 12 bits without a clear
      const Codes c = DecoderCodes(rng, maxWidth ? 2000 + rng() % 3000 : 1 + rng() % 3000, iter % 5 == 0, maxWidth);
      const ulong roomy = PlainUnPack(c, 1 << 22).len;
      for (ulong cap : {(ulong)(1 << 22), roomy + 6, roomy + 5, (ulong)(1 + rng() % (roomy + 8))}) {
        ASSERT_EQ(FastUnPack(c, cap), PlainUnPack(c, cap)) << "cap " << cap << "\n" << CodesAsCode("c", c);
        const Bytes bits = Pack(c);
        ASSERT_EQ(FastUnComp(bits, cap), PlainUnComp(bits, cap)) << "cap " << cap << "\n" << AsCode("bits", bits);
      }
      continue;
    }
    const size_t n = 6 + rng() % (iter % 20 == 0 ? 200000 : 5000);
    const Bytes s = EncoderInput(rng, iter / 2, n);
    const Outcome z = FastComp(s, 2 * n + 16);
    ASSERT_EQ(z.ok, 1) << AsCode("s", s);
    // Strictly shorter than the compressor's buffer; 6 spare bytes in the decoder's.
    ASSERT_EQ(FastComp(s, z.len).ok, 0);
    ASSERT_EQ(FastComp(s, z.len + 1), z);
    ASSERT_EQ(FastUnComp(z.bytes, n + 6), (Outcome{1, (ulong)n, s})) << AsCode("s", s);
    ASSERT_EQ(FastUnComp(z.bytes, n + 5).ok, 0);
    Bytes damaged = z.bytes;
    if (iter % 4) damaged.resize(rng() % (z.len + 1));
    if (iter % 3 == 0 && !damaged.empty()) damaged[rng() % damaged.size()] ^= 0x10;
    if (damaged.empty()) continue;
    const ulong cap = iter % 3 ? 1 << 22 : 1 + rng() % 5000;
    ASSERT_EQ(FastUnComp(damaged, cap), PlainUnComp(damaged, cap)) << "cap " << cap << "\n" << AsCode("z", damaged);
  }
  EXPECT_TRUE(tqtest::MemoryCounts() == before);
}

// ---------------------------------------------------------------------------
// Base64

namespace {

std::string Enc(const char* s) {
  char* p = ACompress::Base64_Encode(s);
  std::string r = p ? p : "<null>";
  ACompress::Base64_Free(&p);
  EXPECT_EQ(p, nullptr);
  return r;
}

std::string Dec(const char* s) {
  char* p = ACompress::Base64_Decode(s);
  std::string r = p ? p : "<null>";
  ACompress::Base64_Free(&p);
  return r;
}

}  // namespace

TEST(ACompressBase64, UnpaddedEncodingOfTheLibrary) {
  // Short groups are filled with 'A' (zero bits), not '=' padding.
  EXPECT_EQ(Enc("a"), "YQAA");
  EXPECT_EQ(Enc("Ma"), "TWEA");
  EXPECT_EQ(Enc(""), "");
  EXPECT_EQ(Enc("hello world"), "aGVsbG8gd29ybGQA");
  EXPECT_EQ(Enc("\xff\xfe\xfd"), "//79");
  EXPECT_EQ(Dec("YQ=="), "a");  // standard padding reads the same
  EXPECT_EQ(Dec("aGVsbG8gd29ybGQ="), "hello world");
  EXPECT_EQ(Dec("aGVsbG8gd29ybGQ"), "hello world");  // not a multiple of 4
  EXPECT_EQ(Dec("TWFu!TWFu"), "Man");  // translation stops at '!'
  EXPECT_EQ(Dec(""), "");
  tqtest::HookCapture hooks;
  EXPECT_EQ(ACompress::Base64_Encode(nullptr), nullptr);
  EXPECT_EQ(ACompress::Base64_Decode(nullptr), nullptr);
  ACompress::Base64_Free(nullptr);
}

TEST(ACompressBase64, RoundTripsAndOutputSizes) {
  std::mt19937 rng(46);
  tqtest::MemoryCounts before;
  for (int iter = 0; iter < 2000; ++iter) {
    std::string s(rng() % 300, ' ');
    for (char& c : s) c = (char)(1 + rng() % 255);
    char* e = ACompress::Base64_Encode(s.c_str());
    ASSERT_NE(e, nullptr);
    ASSERT_EQ(std::strlen(e), (s.size() + 2) / 3 * 4);
    ASSERT_EQ(std::strspn(e, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"), std::strlen(e));
    char* d = ACompress::Base64_Decode(e);
    ASSERT_NE(d, nullptr);
    ASSERT_EQ(std::string(d), s);
    ACompress::Base64_Free(&e);
    ACompress::Base64_Free(&d);
  }
  EXPECT_TRUE(tqtest::MemoryCounts() == before);
}
