// test_streams.cpp - every byte stream the library writes, from the same
// seeded inputs on every platform: packed bits (1, 2, 4 bits a pixel), the
// run-length formats of each depth and the general byte format, LZW,
// Base64, and the INI files of the preference flags and of AProfile. Each
// stream decodes back to its input here; the files it writes are compared
// across builds by scripts/test-windows.sh (Linux against Windows under
// wine), which names the folder in TQTEST_STREAM_DIR. Without it the files
// go to a temporary folder that is removed afterwards.
//
// The inputs come from raw std::mt19937 values (its sequence is fixed by
// the standard; the distributions are not), so that every standard library
// builds the same lines.
#include <gtest/gtest.h>

#include <tqbase/tqbase.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace fs = std::filesystem;

namespace {

typedef std::vector<unsigned char> Bytes;

// The folder the streams are written to, for the whole test program.
class StreamDir {
public:
  StreamDir() {
    const char* env = std::getenv("TQTEST_STREAM_DIR");
    if (env && *env) {
      m_path = env;
    } else {
      m_path = (fs::temp_directory_path() / ("tqstreams." + std::to_string(std::random_device()()))).string();
      m_remove = true;
    }
    std::error_code ec;
    fs::create_directories(m_path, ec);
  }
  ~StreamDir() {
    std::error_code ec;
    if (m_remove) fs::remove_all(m_path, ec);
  }
  std::string File(const std::string& name) const { return (fs::path(m_path) / name).string(); }

private:
  std::string m_path;
  bool m_remove = false;
};

const StreamDir& Dir() {
  static const StreamDir dir;
  return dir;
}

// A file of records: each a 32-bit little-endian length and its bytes.
class RecordFile {
public:
  void Add(const unsigned char* p, size_t n) {
    for (int k = 0; k < 4; ++k) m_bytes.push_back((char)((n >> (8 * k)) & 0xFF));
    m_bytes.append(reinterpret_cast<const char*>(p), n);
  }
  void Write(const std::string& name) const {
    std::ofstream f(Dir().File(name), std::ios::binary);
    f << m_bytes;
    ASSERT_TRUE(f.good()) << name;
  }

private:
  std::string m_bytes;
};

// Line widths at the edges of the formats' records and some ordinary ones.
const unsigned long kWidths[] = {1, 2, 3, 4, 7, 8, 9, 63, 64, 65, 127, 128, 129, 255, 256, 257, 1000, 4099, 20000};

// A line of `width` pixels with levels below 2^bits: runs of random length
// (a print mask), or noise, or one colour, by kind.
Bytes Line(std::mt19937& rng, unsigned long width, int bits, int kind) {
  Bytes line(width);
  const unsigned levels = bits >= 8 ? 256u : 1u << bits;
  unsigned long x = 0;
  const unsigned char one = (unsigned char)(rng() % levels);
  while (x < width) {
    const unsigned long run = kind == 0 ? 1 + rng() % (rng() % 4 == 0 ? 600 : 40) : width;
    const unsigned char v = kind == 2 ? one : (unsigned char)(rng() % levels);
    for (unsigned long i = 0; i < run && x < width; ++i, ++x) line[x] = kind == 1 ? (unsigned char)(rng() % levels) : v;
  }
  return line;
}

// Every line of one depth's test set, in a fixed order.
std::vector<Bytes> Lines(unsigned seed, int bits, int bytesPerPixel) {
  std::mt19937 rng(seed);
  std::vector<Bytes> lines;
  for (unsigned long w : kWidths)
    for (int kind = 0; kind < 3; ++kind) lines.push_back(Line(rng, w * (unsigned long)bytesPerPixel, bits, kind));
  return lines;
}

TEST(Streams, PackedBits) {
  for (int depth : {1, 2, 4}) {
    RecordFile file;
    for (const Bytes& line : Lines(100 + (unsigned)depth, depth, 1)) {
      const unsigned long n = (unsigned long)line.size();
      Bytes packed((n * (unsigned long)depth + 7) / 8 + 1, 0), back(n + 8, 0);
      Bytes src = line;
      ASSERT_EQ(ACompress::ShrinkBit(src.data(), 0, n, depth, packed.data()), 1);
      packed.resize((n * (unsigned long)depth + 7) / 8);
      ASSERT_EQ(ACompress::ExpandBit(packed.data(), 0, n, depth, back.data()), 1);
      ASSERT_TRUE(std::equal(line.begin(), line.end(), back.begin())) << "depth " << depth << " width " << n;
      file.Add(packed.data(), packed.size());
    }
    file.Write("bits" + std::to_string(depth) + ".bin");
  }
}

TEST(Streams, RunLengthOfEveryDepth) {
  for (int depth : {1, 2, 4, 8, 24}) {
    RecordFile file;
    const int bpp = depth == 24 ? 3 : 1;
    for (const Bytes& line : Lines(200 + (unsigned)depth, depth == 24 ? 8 : depth, bpp)) {
      const unsigned long n = (unsigned long)line.size(), pixels = n / (unsigned long)bpp;
      if (depth == 8 && n < 2) continue;  // the 8-bit coder needs two bytes
      Bytes z(2 * n + 64), back(n + 8);
      unsigned long len = 0;
      ASSERT_EQ(ACompress::Pack(line.data(), n, depth, z.data(), (unsigned long)z.size(), len), 1)
          << "depth " << depth << " width " << pixels;
      ASSERT_EQ(ACompress::UnPack(z.data(), len, pixels, depth, back.data()), 1);
      ASSERT_TRUE(std::equal(line.begin(), line.end(), back.begin())) << "depth " << depth << " width " << pixels;
      file.Add(z.data(), len);
    }
    file.Write("rle" + std::to_string(depth) + ".bin");
  }
  // The general byte format.
  RecordFile file;
  for (const Bytes& line : Lines(300, 8, 1)) {
    const unsigned long n = (unsigned long)line.size();
    Bytes z(2 * n + 64), back(n + 8);
    unsigned long len = 0, got = 0;
    ASSERT_EQ(ACompress::Comp_RLE(line.data(), n, z.data(), (unsigned long)z.size(), len), 1) << n;
    ASSERT_EQ(ACompress::UnComp_RLE(z.data(), len, back.data(), (unsigned long)back.size(), got), 1);
    ASSERT_EQ(got, n);
    ASSERT_TRUE(std::equal(line.begin(), line.end(), back.begin())) << n;
    file.Add(z.data(), len);
  }
  file.Write("rle-general.bin");
}

TEST(Streams, Lzw) {
  RecordFile file;
  std::vector<Bytes> inputs = Lines(400, 8, 1);
  for (const Bytes& packed : Lines(401, 1, 1)) inputs.push_back(packed);  // as packed 1-bit rows look
  for (const Bytes& in : inputs) {
    const unsigned long n = (unsigned long)in.size();
    Bytes z(2 * n + 64), back(n + 6);
    unsigned long len = 0, got = 0;
    // Short inputs that do not compress overflow the coder's code array of
    // 3n/2 codes (1 to 3 bytes always): an empty record, on every platform.
    if (!ACompress::Comp_LZW(in.data(), n, z.data(), (unsigned long)z.size(), len)) {
      ASSERT_LT(n, 8u);
      file.Add(nullptr, 0);
      continue;
    }
    ASSERT_EQ(ACompress::UnComp_LZW(z.data(), len, back.data(), (unsigned long)back.size(), got), 1) << n;
    ASSERT_EQ(got, n);
    ASSERT_TRUE(std::equal(in.begin(), in.end(), back.begin())) << n;
    file.Add(z.data(), len);
  }
  file.Write("lzw.bin");
}

TEST(Streams, Base64) {
  std::mt19937 rng(500);
  RecordFile file;
  for (int iter = 0; iter < 300; ++iter) {
    std::string text((size_t)(iter < 10 ? iter : rng() % 200), ' ');
    for (char& c : text) c = (char)(1 + rng() % 255);  // any byte but NUL
    char* coded = ACompress::Base64_Encode(text.c_str());
    ASSERT_NE(coded, nullptr);
    char* plain = ACompress::Base64_Decode(coded);
    ASSERT_NE(plain, nullptr);
    EXPECT_EQ(std::string(plain), text) << iter;
    file.Add(reinterpret_cast<const unsigned char*>(coded), std::strlen(coded));
    ACompress::Base64_Free(&plain);
    ACompress::Base64_Free(&coded);
  }
  file.Write("base64.bin");
}

// The preference flags with every stored field away from its default
// (fixed folders: the defaults name the system's temporary folder), and an
// AProfile with the values its writer quotes.
TEST(Streams, IniFiles) {
  AGFLAGS f;
  f.Init();
  f.ResUnit = RESUNIT_DPCM;
  f.SizeUnit = SIZEUNIT_INCH;
  f.dDefRes = 1234.5678901234567;
  f.dDefWidth = 1.0 / 3.0;
  f.dDefHeight = -2.5e-7;
  f.page_dSpaceLimit_hor = 1e15 + 0.125;
  f.page_dSpaceLimit_ver = 6.02214076e23;
  f.nLRSpace = -2147483647 - 1;
  f.nTBSpace = 2147483647;
  f.dwPrnFileSizeLimit = 4294967295u;
  f.strCacheDirectory = "C:\\RIP\\Cache\\";
  f.strMapDataCacheDirectory = "/var/cache/rip/";
  f.strRIPDataCacheDirectory = "  padded  ";
  f.PrintDeviceModule = "\"quoted\"";
  f.strDefaultFontName = "宋体";
  const std::string flags = Dir().File("flags.ini");
  ASSERT_TRUE(f.SaveToProfile(flags.c_str()));
  AGFLAGS g;
  g.Init();
  ASSERT_TRUE(g.LoadFromProfile(flags.c_str()));
  for (int k = 0; k < AGFLAGS::GetKeyCount(); ++k)
    EXPECT_STREQ(g.GetKeyValue(k), f.GetKeyValue(k)) << AGFLAGS::GetKeyName(k);

  AProfile p;
  ASSERT_TRUE(p.SetString("Inks", "Cyan", "0,160,220"));
  ASSERT_TRUE(p.SetString("Inks", "Spot 1", " leading blank"));
  ASSERT_TRUE(p.SetString("Paths", "Data", "C:\\Korvel\\Data\\"));
  ASSERT_TRUE(p.SetString("inks", "Empty", ""));
  ASSERT_TRUE(p.SetString("图案", "名称", "'single'"));
  ASSERT_TRUE(p.DeleteKey("Inks", "Cyan"));
  const std::string profile = Dir().File("profile.ini");
  ASSERT_TRUE(p.Save(profile.c_str()));
  AProfile q;
  ASSERT_TRUE(q.Load(profile.c_str()));
  EXPECT_STREQ(q.GetText(), p.GetText());
}

}  // namespace
