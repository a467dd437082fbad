// "decode": a MessageFrame file (UPER or XER, detected) printed as XER or as
// the codec's text form.

#include "MessageFrame.h"
#include "map_tool.h"
#include "v2x_asn_codec.h"

namespace {

constexpr const char* kName = "decode";

int runDecode(int argc, char** argv) {
  bool text = false;
  std::vector<const char*> args;
  if (!maptool::parseArgs(kName, argc, argv, {{"--text", &text}}, args, 1)) return maptool::kExitUsage;
  if (args.empty()) {
    maptool::fail(kName, "no input file (see --help)");
    return maptool::kExitUsage;
  }
  const char* path = args[0];

  void* frame = nullptr;
  if (!maptool::readFrame(kName, path, &frame)) return maptool::kExitBadInput;

  int rc = maptool::kExitOk;
  if (text) {
    if (asn_fprint(stdout, &asn_DEF_MessageFrame, frame) != 0) rc = maptool::kExitBadInput;
  } else {
    std::vector<uint8_t> xml;
    if (maptool::encodeFrame(kName, frame, true, xml)) {
      xml.push_back('\n');
      if (!maptool::writeOutput(kName, "-", xml)) rc = maptool::kExitBadInput;
    } else {
      rc = maptool::kExitBadInput;
    }
  }
  maptool::freeFrame(&frame);
  return rc;
}

}  // namespace

V2X_MAP_TOOL_COMMAND(kName, "print a MessageFrame file (UPER or XER) as XER or text",
                     "usage: v2x_map_tool decode [--text] FILE\n"
                     "\n"
                     "Reads one MessageFrame from FILE (\"-\" for standard input). XML input is\n"
                     "recognised by its first character '<', anything else is taken as unaligned\n"
                     "PER. The frame must fill the file and pass the message set's range checks.\n"
                     "\n"
                     "Prints the frame as XER on standard output, or with --text in the codec's\n"
                     "indented text form. Exit status 0 on success, 1 for bad input, 2 for a\n"
                     "wrong command line.\n",
                     runDecode)
