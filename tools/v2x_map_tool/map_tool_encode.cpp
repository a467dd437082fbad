// "encode": an XER MessageFrame file written as unaligned PER.
#include <string>

#include "map_tool.h"

namespace {

constexpr const char* kName = "encode";

int runEncode(int argc, char** argv) {
  const char* outPath = nullptr;
  std::vector<const char*> args;
  if (!maptool::parseArgs(kName, argc, argv, {{"-o", nullptr, &outPath, "a file name"}}, args, 1)) {
    return maptool::kExitUsage;
  }
  const char* path = args.empty() ? nullptr : args[0];
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
