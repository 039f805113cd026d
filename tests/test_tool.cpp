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

#else

TEST(Tool, NeedsTheTool) { GTEST_SKIP() << "the tool is not built (TQBASE_BUILD_TOOLS=OFF)"; }

#endif

}  // namespace
