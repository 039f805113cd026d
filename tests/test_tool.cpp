// test_tool.cpp - the tqbase command-line tool as users run it: every
// subcommand's --help (with examples) and exit statuses, and the demo end
// to end, its outputs checked against each other with the library's own
// decoders: the coded lines give back the mask, the picture holds the
// mask's pixels, the traced outlines rebuild them.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "tqbase/tqbase.h"

#ifdef TQTEST_HAVE_PNG
#include <png.h>
#endif

namespace {

#if defined(TQTEST_TOOL)

struct ToolRun {
  int status;
  std::string out;
};

// One argument quoted for the command interpreter (sh, or cmd on Windows).
std::string Quote(const std::string& arg) {
#ifdef _WIN32
  return "\"" + arg + "\"";
#else
  return "'" + arg + "'";
#endif
}

#ifdef _WIN32
// The tool is built beside the test programs (one folder, as installed).
std::string ToolPath() {
  char self[MAX_PATH + 1];
  const DWORD n = GetModuleFileNameA(nullptr, self, sizeof self);
  std::string path(self, n < sizeof self ? n : 0);
  return path.substr(0, path.find_last_of("\\/") + 1) + TQTEST_TOOL;
}
#endif

// Runs the tool with args (words for the command interpreter); stdout and
// stderr together, and the exit status.
ToolRun Tool(const std::string& args) {
  ToolRun r{-1, ""};
#ifdef _WIN32
  // cmd /c drops the outer pair of quotes around the whole line.
  const std::string cmd = "\"" + Quote(ToolPath()) + " " + args + " <NUL 2>&1\"";
  FILE* p = _popen(cmd.c_str(), "r");
#else
  const std::string cmd = Quote(TQTEST_TOOL) + " " + args + " </dev/null 2>&1";
  FILE* p = popen(cmd.c_str(), "r");
#endif
  if (!p) return r;
  char buf[4096];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof buf, p)) > 0) r.out.append(buf, n);
#ifdef _WIN32
  r.status = _pclose(p);
#else
  const int w = pclose(p);
  r.status = WIFEXITED(w) ? WEXITSTATUS(w) : -1;
#endif
  return r;
}

// The names listed under "Subcommands:" in a --help text.
std::vector<std::string> Subcommands(const std::string& help) {
  std::vector<std::string> names;
  std::istringstream in(help);
  std::string line;
  bool inList = false;
  while (std::getline(in, line)) {
    if (line.rfind("Subcommands:", 0) == 0) {
      inList = true;
      continue;
    }
    if (!inList) continue;
    if (line.size() < 3 || line[0] != ' ') break;
    if (line[2] == ' ') continue;  // a description's second line
    std::string name = line.substr(2, line.find_first_of(" ,", 2) - 2);
    names.push_back(name);
  }
  return names;
}

TEST(Tool, EveryCommandHasHelpWithExamplesAndUsageErrorsExitWithTwo) {
  const ToolRun top = Tool("--help");
  ASSERT_EQ(top.status, 0) << top.out;
  const std::vector<std::string> commands = Subcommands(top.out);
  ASSERT_GE(commands.size(), 10u) << top.out;
  std::vector<std::string> paths(commands.begin(), commands.end());
  for (size_t i = 0; i < paths.size(); ++i) {
    const ToolRun help = Tool(paths[i] + " --help");
    EXPECT_EQ(help.status, 0) << paths[i];
    EXPECT_NE(help.out.find("Examples:\n  tqbase " + paths[i].substr(0, paths[i].find(' '))), std::string::npos)
        << paths[i] << " has no examples:\n" << help.out;
    for (const std::string& sub : Subcommands(help.out)) paths.push_back(paths[i] + " " + sub);
    const ToolRun bad = Tool(paths[i] + " --no-such-option");
    EXPECT_EQ(bad.status, 2) << paths[i] << ": " << bad.out;
  }
  EXPECT_EQ(Tool("").status, 2);
  EXPECT_EQ(Tool("no-such-command").status, 2);
  // A failure of the work itself is status 1, with the command's name.
  const ToolRun fail = Tool("rle decode /nonexistent/file.tqrl out.png");
  EXPECT_EQ(fail.status, 1) << fail.out;
  EXPECT_NE(fail.out.find("tqbase rle decode: "), std::string::npos) << fail.out;
}

std::vector<unsigned char> ReadAll(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  return std::vector<unsigned char>(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

uint32_t Get32(const std::vector<unsigned char>& b, size_t at) {
  return (uint32_t)b[at] | (uint32_t)b[at + 1] << 8 | (uint32_t)b[at + 2] << 16 | (uint32_t)b[at + 3] << 24;
}

// The lines of a line container ("TQRL" / "TQLW" layout).
std::vector<std::vector<unsigned char>> Lines(const std::vector<unsigned char>& f, const char* magic, uint32_t* w,
                                              uint32_t* h) {
  std::vector<std::vector<unsigned char>> lines;
  if (f.size() < 20 || std::string(f.begin(), f.begin() + 4) != magic || Get32(f, 4) != 1) return lines;
  *w = Get32(f, 8);
  *h = Get32(f, 12);
  size_t at = 20;
  for (uint32_t y = 0; y < *h && at + 4 <= f.size(); ++y) {
    const uint32_t n = Get32(f, at);
    at += 4;
    if (at + n > f.size()) break;
    lines.emplace_back(f.begin() + (long)at, f.begin() + (long)(at + n));
    at += n;
  }
  return lines;
}

TEST(Tool, DemoOutputsAgreeWithEachOther) {
  const std::string dir = (std::filesystem::temp_directory_path() / "tqbase-test-demo").string();
  std::filesystem::remove_all(dir);
  const ToolRun demo = Tool("demo --out " + Quote(dir) + " --size 8cm --res 150dpi --bleed 3");
  ASSERT_EQ(demo.status, 0) << demo.out;
  EXPECT_NE(demo.out.find("memory manager: every block freed"), std::string::npos);

  // The 8-bit run-length lines give the mask.
  uint32_t W = 0, H = 0;
  const auto rle = Lines(ReadAll(dir + "/mask-rle8.tqrl"), "TQRL", &W, &H);
  ASSERT_EQ(rle.size(), H);
  ASSERT_GT(W, 0u);
  std::vector<unsigned char> mask((size_t)W * H);
  long long area = 0;
  for (uint32_t y = 0; y < H; ++y) {
    unsigned long n = 0;
    ASSERT_TRUE(ACompress::UnComp_RLE8(rle[y].data(), rle[y].size(), &mask[(size_t)y * W], W, n)) << y;
    ASSERT_EQ(n, W);
  }
  for (unsigned char v : mask) {
    ASSERT_TRUE(v == 0 || v == 255);
    area += v != 0;
  }
  EXPECT_NE(demo.out.find(std::to_string(area) + " px"), std::string::npos) << "area " << area << "\n" << demo.out;

  // The packed rows and their LZW lines.
  const size_t stride = (W + 7) / 8;
  const std::vector<unsigned char> bits = ReadAll(dir + "/mask-1bit.raw");
  ASSERT_EQ(bits.size(), stride * H);
  uint32_t lw = 0, lh = 0;
  const auto lzw = Lines(ReadAll(dir + "/mask-lzw.tqlw"), "TQLW", &lw, &lh);
  ASSERT_EQ(lzw.size(), H);
  std::vector<unsigned char> row(stride + 16);
  for (uint32_t y = 0; y < H; ++y) {
    for (uint32_t x = 0; x < W; ++x)
      ASSERT_EQ((bits[y * stride + x / 8] >> (7 - x % 8)) & 1, mask[(size_t)y * W + x] ? 1 : 0) << x << "," << y;
    unsigned long n = 0;
    ASSERT_TRUE(ACompress::UnComp_LZW(lzw[y].data(), lzw[y].size(), row.data(), row.size(), n)) << y;
    ASSERT_EQ(n, stride);
    EXPECT_TRUE(std::equal(row.begin(), row.begin() + (long)stride, bits.begin() + (long)(y * stride))) << y;
  }

  // The outlines rebuild the mask: "M x y L x y ... Z" through pixel centres.
  std::ifstream svgFile(dir + "/outlines.svg");
  const std::string svg((std::istreambuf_iterator<char>(svgFile)), std::istreambuf_iterator<char>());
  svgFile.close();  // an open file cannot be removed on Windows
  const size_t d = svg.find(" d=\"");
  ASSERT_NE(d, std::string::npos);
  std::istringstream path(svg.substr(d + 4, svg.find('"', d + 4) - d - 4));
  std::vector<POINT> pts;
  std::vector<int> sizes;
  std::string op;
  while (path >> op) {
    if (op == "Z") continue;
    ASSERT_TRUE(op[0] == 'M' || op[0] == 'L') << op;
    const double x = std::stod(op.substr(1));
    double y;
    path >> y;
    if (op[0] == 'M') sizes.push_back(0);
    pts.push_back(POINT{(LONG)std::lround(x - 0.5), (LONG)std::lround(y - 0.5)});
    ++sizes.back();
  }
  ASSERT_FALSE(sizes.empty());
  CRasterArray* back = CRstLines::CreateRasterArray(pts.data(), sizes.data(), (int)sizes.size(), ALTERNATE_FILL, 1);
  ASSERT_TRUE(back);
  std::vector<unsigned char> rebuilt((size_t)W * H, 0);
  for (RSRLINE* p : *back) ASSERT_TRUE(CRstLines::SetRasterMaskInBuf(rebuilt.data(), RECT{0, 0, (LONG)W, (LONG)H}, p, 255));
  CRstLines::Delete(back);
  EXPECT_TRUE(rebuilt == mask);

#ifdef TQTEST_HAVE_PNG
  // The tile picture: the mask's pixels black on white.
  png_image png;
  std::memset(&png, 0, sizeof png);
  png.version = PNG_IMAGE_VERSION;
  ASSERT_TRUE(png_image_begin_read_from_file(&png, (dir + "/tile.png").c_str()));
  png.format = PNG_FORMAT_GRAY;
  EXPECT_EQ(png.width, W);
  EXPECT_EQ(png.height, H);
  std::vector<unsigned char> grey(PNG_IMAGE_SIZE(png));
  ASSERT_TRUE(png_image_finish_read(&png, nullptr, grey.data(), 0, nullptr));
  long long inked = 0;
  for (size_t i = 0; i < grey.size() && i < mask.size(); ++i) {
    inked += grey[i] < 128;
    if ((grey[i] < 128) != (mask[i] != 0)) {
      ADD_FAILURE() << "tile.png differs from the mask at pixel " << i;
      break;
    }
  }
  EXPECT_EQ(inked, area);
  std::memset(&png, 0, sizeof png);
  png.version = PNG_IMAGE_VERSION;
  ASSERT_TRUE(png_image_begin_read_from_file(&png, (dir + "/repeat-3x3.png").c_str()));
  EXPECT_EQ(png.width % 3, 0u);
  png_image_free(&png);

  // Each ink plane's coverage in the summary is that of its picture (ink
  // dark on white), when the colour engine has its profiles here.
  std::istringstream lines(demo.out);
  std::string line;
  int planes = 0;
  while (std::getline(lines, line)) {
    std::istringstream words(line);
    std::string shortName, longName, cov;
    if (!(words >> shortName) || line.find('%') == std::string::npos || line.find("inks") != std::string::npos) continue;
    const std::string file = dir + "/ink-" + shortName + ".png";
    if (!std::filesystem::exists(file)) continue;
    const double want = std::stod(line.substr(line.find_last_of(' ', line.find('%')) + 1));
    std::memset(&png, 0, sizeof png);
    png.version = PNG_IMAGE_VERSION;
    ASSERT_TRUE(png_image_begin_read_from_file(&png, file.c_str()));
    png.format = PNG_FORMAT_GRAY;
    std::vector<unsigned char> ink(PNG_IMAGE_SIZE(png));
    ASSERT_TRUE(png_image_finish_read(&png, nullptr, ink.data(), 0, nullptr));
    long long inked = 0;
    for (unsigned char v : ink) inked += v != 255;
    EXPECT_NEAR(100.0 * inked / (double)ink.size(), want, 0.006) << shortName;
    ++planes;
  }
  if (demo.out.find("colour engine") != std::string::npos) {
    EXPECT_GE(planes, 4) << demo.out;
  }
#endif
  std::filesystem::remove_all(dir);
}

#if defined(_WIN32) || !defined(TQTEST_HAVE_PNG)

TEST(Tool, HostileInputFailsCleanly) {
  GTEST_SKIP() << "the table holds POSIX paths and the PNG reader's messages: a build with libpng on a POSIX host";
}

#else

// CRC-32 of the PNG chunks, for the hand-made pictures below.
uint32_t Crc32(const std::string& bytes) {
  uint32_t c = 0xFFFFFFFFu;
  for (unsigned char b : bytes) {
    c ^= b;
    for (int k = 0; k < 8; ++k) c = (c >> 1) ^ (0xEDB88320u & (0u - (c & 1)));
  }
  return ~c;
}

std::string Be32(uint32_t v) {
  return std::string{(char)(v >> 24), (char)(v >> 16), (char)(v >> 8), (char)v};
}
std::string Le32(uint32_t v) {
  return std::string{(char)v, (char)(v >> 8), (char)(v >> 16), (char)(v >> 24)};
}

std::string Chunk(const std::string& typeAndData) {
  return Be32((uint32_t)typeAndData.size() - 4) + typeAndData + Be32(Crc32(typeAndData));
}

// A PNG signature and header for a grey picture of w x h, and pixel data
// that is no zlib stream.
std::string PngHeader(uint32_t w, uint32_t h) {
  return std::string("\x89PNG\r\n\x1a\n", 8) +
         Chunk("IHDR" + Be32(w) + Be32(h) + std::string("\x08\x00\x00\x00\x00", 5)) + Chunk("IDATnot zlib") +
         Chunk("IEND");
}

// Hostile input through the tool: truncated, oversized and garbage files,
// absurd sizes and resolutions, missing and unwritable paths. Every row
// ends with exit status 1 (a job that cannot be done) or 2 (a command line
// that does not parse) and a message that names the command and the
// problem; none crashes, and none writes its output: a file already there
// keeps its content and nothing is left beside it.
TEST(Tool, HostileInputFailsCleanly) {
  namespace fs = std::filesystem;
  const std::string dir = ::testing::TempDir() + "tq_hostile";
  fs::remove_all(dir);
  fs::create_directories(dir);
  const auto path = [&](const std::string& name) { return dir + "/" + name; };
  const auto put = [&](const std::string& name, const std::string& bytes) {
    std::ofstream(path(name), std::ios::binary) << bytes;
  };
  std::string noise;
  for (int i = 0; i < 3000; ++i) noise += (char)(i * 131 % 251);
  put("noise.bin", noise);
  put("noise.png", noise);
  put("huge.png", PngHeader(900000, 900000));
  put("empty.png", PngHeader(0, 10));
  put("nopixels.png", PngHeader(64, 64));
  put("short.rle", "TQRL");
  put("dims.rle", "TQRL" + Le32(1) + Le32(0x7FFFFFFF) + Le32(0x7FFFFFFF) + Le32(8));
  put("cut.rle", "TQRL" + Le32(1) + Le32(16) + Le32(2) + Le32(8) + Le32(0xFFFFFF00) + "\x05\x01");
  put("claims.lz", "TQLZ" + Le32(0) + Le32(0x80) + std::string("\x80\0\0\0", 4));
  put("afile", "a file, not a folder");
  ASSERT_EQ(Tool("lzw encode " + path("noise.bin") + " " + path("good.lz")).status, 0);
  std::ifstream good(path("good.lz"), std::ios::binary);
  const std::string lz((std::istreambuf_iterator<char>(good)), std::istreambuf_iterator<char>());
  put("cut.lz", lz.substr(0, lz.size() / 2));
  ASSERT_EQ(Tool("region --rect 0,0,8,8 --png " + path("ok.png")).status, 0);
  put("cut.icc", std::string("\0\0\x02\x30" "acsp", 8));  // a size, then nothing

  struct Row {
    std::string args;  // file names are in the scratch folder
    int status;
    const char* says;
    const char* out;  // the output the job must leave alone, or ""
  };
  const Row rows[] = {
      {"rle encode @noise.png @out.rle -d 8", 1, "rle encode: cannot read PNG", "out.rle"},
      {"rle encode @huge.png @out.rle -d 1", 1, "more than this tool takes", "out.rle"},
      {"rle encode @empty.png @out.rle -d 8", 1, "cannot read PNG", "out.rle"},
      {"rle encode @nopixels.png @out.rle -d 8", 1, "cannot decode PNG", "out.rle"},
      {"rle encode @missing.png @out.rle -d 8", 1, "No such file", "out.rle"},
      {"rle encode @noise.bin @out.rle -d 8 --width 0", 1, "rle encode:", "out.rle"},
      {"rle encode @noise.bin @out.rle -d 7 --width 100", 1, "--depth must be", "out.rle"},
      {"rle decode @short.rle @out.png", 1, "not a tqbase run-length file", "out.png"},
      {"rle decode @noise.bin @out.png", 1, "not a tqbase run-length file", "out.png"},
      {"rle decode @dims.rle @out.png", 1, "rle decode:", "out.png"},
      {"rle decode @cut.rle @out.png", 1, "cut short", "out.png"},
      {"rle decode @missing.rle @out.png", 1, "cannot read", "out.png"},
      {"rle locate @cut.rle --line 5 --pixel 3", 1, "rle locate:", ""},
      {"lzw decode @noise.bin @out.raw", 1, "not a tqbase LZW file", "out.raw"},
      {"lzw decode @claims.lz @out.raw", 1, "cannot hold", "out.raw"},
      {"lzw decode @cut.lz @out.raw", 1, "lzw decode:", "out.raw"},
      {"lzw encode @noise.bin @afile/out.lz", 1, "cannot write", ""},
      {"lzw encode @missing.bin @out.lz", 1, "cannot read", "out.lz"},
      {"cmyk @noise.png --out-dir @inks", 1, "cannot read PNG", ""},
      {"cmyk @ok.png --out-dir @inks --rgb-profile @noise.bin", 1, "RGB profile", ""},
      {"cmyk @ok.png --out-dir @inks --cmyk-profile @cut.icc", 1, "CMYK profile", ""},
      {"cmyk @ok.png --out-dir @inks --cmyk-profile @missing.icc", 1, "missing.icc", ""},
      {"inkcount @noise.png", 1, "inkcount:", ""},
      {"demo --size 1e9cm --out @demo", 2, "must be", ""},
      {"demo --res 0dpi --out @demo", 2, "not a resolution", ""},
      {"demo --res 1e308dpi --out @demo", 2, "demo:", ""},
      {"demo --out @afile/demo", 1, "demo:", ""},
      {"units nan cm in", 1, "not a number", ""},
      {"units 1e400 cm in", 1, "not a number", ""},
      {"units 1 m px --res 1e308dpi", 1, "outside", ""},
      {"region --rect 0,0,2147483647,2147483647 --png @out.png", 1, "larger than", "out.png"},
      {"region --rect 0,0,100000,100000 --png @out.png", 1, "the limit is", "out.png"},
      {"region --circle 0,0,1000000000 --png @out.png", 1, "radius", "out.png"},
      {"region --poly \"1e300,0 5,5 0,9\" --png @out.png", 1, "region:", "out.png"},
      {"cycle --cycle 0x0 1,1", 1, "repeat cell", ""},
      {"cycle --cycle 2147483647x1+2147483647 --way 3 1,1", 1, "cycle:", ""},
  };
  for (const Row& r : rows) {
    // "@name" is a file of the scratch folder.
    std::string args = r.args;
    for (size_t at; (at = args.find('@')) != std::string::npos;) args.replace(at, 1, dir + "/");
    if (*r.out) put(r.out, "OLD");
    const ToolRun run = Tool(args);
    EXPECT_EQ(run.status, r.status) << r.args << "\n" << run.out;
    EXPECT_NE(run.out.find(r.says), std::string::npos) << r.args << "\n" << run.out;
    EXPECT_EQ(run.out.find("terminate"), std::string::npos) << r.args << "\n" << run.out;
    if (r.status == 1) {
      EXPECT_EQ(run.out.rfind("tqbase ", 0), 0u) << r.args << ": the message names no command\n" << run.out;
    }
    if (*r.out) {
      std::ifstream f(path(r.out), std::ios::binary);
      const std::string now((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
      EXPECT_EQ(now, "OLD") << r.args << ": the old output was replaced";
      EXPECT_FALSE(fs::exists(path(r.out) + ".part")) << r.args << ": a partial file was left";
      fs::remove(path(r.out));
    }
  }
  fs::remove_all(dir);
}

#endif  // hostile input

#else

TEST(Tool, NeedsTheTool) { GTEST_SKIP() << "the tool is not built (TQBASE_BUILD_TOOLS=OFF)"; }

#endif

}  // namespace
