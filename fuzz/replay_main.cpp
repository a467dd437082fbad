// Replays kept inputs through a fuzz target without libFuzzer:
//   fuzz_<target>_replay DIR|FILE...
// Every regular file under the arguments goes through the target once, in
// name order. Exit status 0 when all went through (a crash, sanitizer report
// or broken property ends the run earlier); 1 when there was nothing to run.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "support.h"

namespace fs = std::filesystem;

int main(int argc, char** argv) {
  std::vector<fs::path> inputs;
  for (int i = 1; i < argc; i++) {
    std::error_code ec;
    if (fs::is_directory(argv[i], ec)) {
      for (const auto& e : fs::recursive_directory_iterator(argv[i]))
        if (e.is_regular_file()) inputs.push_back(e.path());
    } else if (fs::is_regular_file(argv[i], ec)) {
      inputs.emplace_back(argv[i]);
    }
  }
  std::sort(inputs.begin(), inputs.end());
  if (inputs.empty()) {
    std::fprintf(stderr, "no inputs to replay\n");
    return 1;
  }
  LLVMFuzzerInitialize(&argc, &argv);
  for (const fs::path& p : inputs) {
    std::ifstream in(p, std::ios::binary);
    std::vector<uint8_t> data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::fprintf(stderr, "replay %s (%zu bytes)\n", p.c_str(), data.size());
    LLVMFuzzerTestOneInput(v2xfuzz::heapCopy(data.data(), data.size()).get(), data.size());
  }
  std::fprintf(stderr, "%zu inputs replayed\n", inputs.size());
  return 0;
}
