// "encode": an XER MessageFrame file written as unaligned PER.
#include <cstring>
#include <string>

#include "map_tool.h"

namespace {

constexpr const char* kName = "encode";

int runEncode(int argc, char** argv) {
  const char* path = nullptr;
  const char* outPath = nullptr;
  for (int i = 1; i < argc; i++) {
    if (std::strcmp(argv[i], "-o") == 0) {
      if (i + 1 >= argc) {
        maptool::fail(kName, "-o needs a file name (see --help)");
        return maptool::kExitUsage;
      }
      outPath = argv[++i];
    } else if (argv[i][0] == '-' && argv[i][1] != '\0') {
      maptool::fail(kName, "unknown option %s (see --help)", argv[i]);
      return maptool::kExitUsage;
    } else if (path == nullptr) {
      path = argv[i];
    } else {
      maptool::fail(kName, "more than one input file (see --help)");
      return maptool::kExitUsage;
    }
  }
  if (path == nullptr || outPath == nullptr) {
    maptool::fail(kName, "%s (see --help)", path == nullptr ? "no input file" : "no output file (-o OUT)");
    return maptool::kExitUsage;
  }

  std::vector<uint8_t> data;
  if (!maptool::readInput(kName, path, data)) return maptool::kExitBadInput;
  if (!maptool::looksLikeXml(data)) {
    maptool::fail(kName, "%s: not an XML document", path);
    return maptool::kExitBadInput;
  }
  void* frame = nullptr;
  if (!maptool::decodeFrame(kName, path, data, true, &frame)) return maptool::kExitBadInput;
  std::vector<uint8_t> uper;
  bool ok = maptool::encodeFrame(kName, frame, false, uper) && maptool::writeOutput(kName, outPath, uper);
  maptool::freeFrame(&frame);
  return ok ? maptool::kExitOk : maptool::kExitBadInput;
}

}  // namespace

V2X_MAP_TOOL_COMMAND(kName, "turn an XER MessageFrame file into unaligned PER",
                     "usage: v2x_map_tool encode FILE -o OUT\n"
                     "\n"
                     "Reads one MessageFrame in XER from FILE (\"-\" for standard input), checks it\n"
                     "against the message set's ranges and writes its unaligned PER encoding to\n"
                     "OUT (replaced atomically; \"-\" for standard output). Exit status 0 on\n"
                     "success, 1 for bad input, 2 for a wrong command line.\n",
                     runEncode)
