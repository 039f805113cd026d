// replay_main.cpp - runs a fuzz target over the files of its corpus
// folders (seeds and every crash found, minimised), so that ctest replays
// the corpora on every build without libFuzzer.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
  int files = 0;
  for (int i = 1; i < argc; ++i) {
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator(argv[i], ec)) {
      if (!entry.is_regular_file()) continue;
      std::ifstream f(entry.path(), std::ios::binary);
      std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
      LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
      ++files;
    }
    if (ec) {
      std::fprintf(stderr, "cannot read %s\n", argv[i]);
      return 1;
    }
  }
  std::printf("%d inputs replayed\n", files);
  return files > 0 ? 0 : 1;
}
