// "relative": a map's absolute points rewritten as offsets from their nodes,
// then encoded again.
#include <cstring>

#include "MessageFrame.h"
#include "map_tool.h"
#include "v2xapp_gbmap_build.h"

namespace {

constexpr const char* kName = "relative";

int absoluteIn(const PointList* points) {
  int n = 0;
  for (int i = 0; points != nullptr && i < points->list.count; ++i) {
    n += points->list.array[i]->posOffset.offsetLL.present == PositionOffsetLL_PR_position_LatLon;
  }
  return n;
}

// Absolute points of every link and lane of the map.
int absolutePoints(const MessageFrame_t& frame) {
  int n = 0;
  const NodeList_t& nodes = frame.choice.mapFrame.nodes;
  for (int i = 0; i < nodes.list.count; ++i) {
    const LinkList* links = nodes.list.array[i]->inLinks;
    for (int k = 0; links != nullptr && k < links->list.count; ++k) {
      n += absoluteIn(links->list.array[k]->points);
      const LaneList_t& lanes = links->list.array[k]->lanes;
      for (int l = 0; l < lanes.list.count; ++l) n += absoluteIn(lanes.list.array[l]->points);
    }
  }
  return n;
}

int runRelative(int argc, char** argv) {
  const char* outPath = nullptr;
  bool xer = false;
  std::vector<const char*> args;
  if (!maptool::parseArgs(kName, argc, argv, {{"-o", nullptr, &outPath, "a file name"}, {"--xer", &xer}}, args, 1)) {
    return maptool::kExitUsage;
  }
  const char* path = args.empty() ? nullptr : args[0];
  if (path == nullptr || outPath == nullptr) {
    maptool::fail(kName, "%s (see --help)", path == nullptr ? "no input file" : "no output file (-o OUT)");
    return maptool::kExitUsage;
  }

  void* frame = nullptr;
  if (!maptool::readAnyFrame(kName, path, &frame)) return maptool::kExitBadInput;
  const auto& map = *static_cast<const MessageFrame_t*>(frame);
  std::vector<uint8_t> before, after, out;
  bool ok = false;
  if (map.present != MessageFrame_PR_mapFrame) {
    maptool::fail(kName, "%s: not a map frame", path);
  } else if (maptool::encodeFrame(kName, frame, false, before)) {
    const int absBefore = absolutePoints(map);
    ok = v2xapp_convAbsPoint2RelPoint(frame) == 0 && maptool::encodeFrame(kName, frame, false, after) &&
         (!xer || maptool::encodeFrame(kName, frame, true, out)) &&
         maptool::writeOutput(kName, outPath, xer ? out : after);
    if (ok && std::strcmp(outPath, "-") != 0) {
      std::printf("UPER size  %zu bytes before, %zu bytes after\n", before.size(), after.size());
      std::printf("absolute   %d points before, %d after (too far from their node for an offset)\n", absBefore,
                  absolutePoints(map));
    }
  }
  maptool::freeFrame(&frame);
  return ok ? maptool::kExitOk : maptool::kExitBadInput;
}

}  // namespace

V2X_MAP_TOOL_COMMAND(kName, "rewrite a map's absolute points as offsets from their nodes",
                     "usage: v2x_map_tool relative FILE -o OUT [--xer]\n"
                     "\n"
                     "Reads one map from FILE (\"-\" for standard input): a MessageFrame in UPER or\n"
                     "XER, or a cloud map document read as the service reads it (detected). From\n"
                     "standard input), rewrites every absolute link and lane point as the\n"
                     "smallest offset from its node's reference position that holds it (points\n"
                     "more than 0.8388607 degree away stay absolute) and writes the map to OUT\n"
                     "as UPER (--xer: as XER; \"-\" for standard output). Prints the UPER sizes\n"
                     "before and after and the absolute points left. Exit status 0 on success,\n"
                     "1 for bad input, 2 for a wrong command line.\n",
                     runRelative)
