// "match": the lane of a stored map on which a position lies, found by the
// MAP library's lane matching (plain walk or prepared matcher).
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "map_tool.h"
#include "v2xapp_gbmap_match.h"
#include "v2xapp_gbmap_query.h"

namespace {

constexpr const char* kName = "match";

// A whole argument as a number; false for anything else.
bool parseDegrees(const char* text, double& value) {
  char* end = nullptr;
  errno = 0;
  value = std::strtod(text, &end);
  return end != text && *end == '\0' && errno == 0 && std::isfinite(value);
}

// The id of the lane at the result's indexes.
bool laneIdAt(void* map, const MapSearch_t& at, int16_t& laneId) {
  V2XAPP_GBMHANDLE node = nullptr, link = nullptr, lane = nullptr;
  return v2xapp_GBMapGetNodeByIndex(map, static_cast<uint32_t>(at.CurrentNode), &node) == 0 &&
         v2xapp_GBMapNodeGetLinkByIndex(node, static_cast<uint32_t>(at.CurrentLink), &link) == 0 &&
         v2xapp_GBMapLinkGetLaneByIndex(link, static_cast<uint32_t>(at.CurrentLane), &lane) == 0 &&
         v2xapp_GBMapGetLaneId(lane, &laneId) == 0;
}

int32_t matchPrepared(void* map, const c_pos3D_t& veh, MapSearch_t& at) {
  V2XAPP_GBMMATCHER matcher = nullptr;
  int32_t rc = v2xapp_GBMapMatchPrepare(map, &matcher);
  if (rc == 0) rc = v2xapp_GBMapMatchPrepared(matcher, &veh, &at);
  v2xapp_GBMapMatchRelease(&matcher);
  return rc;
}

int runMatch(int argc, char** argv) {
  bool prepared = false;
  std::vector<const char*> args;
  if (!maptool::parseArgs(kName, argc, argv, {{"--prepared", &prepared}}, args, 3)) return maptool::kExitUsage;
  c_pos3D_t veh{};
  if (args.size() < 3 || !parseDegrees(args[1], veh.lat) || !parseDegrees(args[2], veh.lon) ||
      std::fabs(veh.lat) > 90.0) {
    maptool::fail(kName, "needs FILE LAT LON, latitude within +-90 degrees (see --help)");
    return maptool::kExitUsage;
  }
  veh.posIsValid = true;

  void* frame = nullptr;
  if (!maptool::readAnyFrame(kName, args[0], &frame)) return maptool::kExitBadInput;
  MapSearch_t at{};
  const int32_t rc = prepared ? matchPrepared(frame, veh, at) : v2xapp_GBMapMatchLane(&veh, frame, &at);
  int16_t laneId = 0;
  int status = maptool::kExitBadInput;
  if (rc == 0 && laneIdAt(frame, at, laneId)) {
    std::printf("node=%d link=%d lane=%d laneId=%d\n", at.CurrentNode, at.CurrentLink, at.CurrentLane, laneId);
    status = maptool::kExitOk;
  } else if (rc == -1) {
    maptool::fail(kName, "no lane at %.7f %.7f", veh.lat, veh.lon);
  } else {
    maptool::fail(kName, "%s: not a map frame", args[0]);
  }
  maptool::freeFrame(&frame);
  return status;
}

}  // namespace

V2X_MAP_TOOL_COMMAND(kName, "find the lane of a map on which a position lies",
                     "usage: v2x_map_tool match [--prepared] FILE LAT LON\n"
                     "\n"
                     "Reads one map from FILE (\"-\" for standard input): a MessageFrame in UPER or\n"
                     "XER, or a cloud map document read as the service reads it (detected),\n"
                     "and matches the position LAT LON (degrees) to its lanes:\n"
                     "the first lane, in the map's order, whose centre line passes strictly\n"
                     "within half the lane's width of the position. Prints\n"
                     "\n"
                     "  node=N link=L lane=K laneId=ID\n"
                     "\n"
                     "with the 0-based indexes of the node, of the link in the node and of the\n"
                     "lane in the link. --prepared answers through the prepared matcher (the\n"
                     "same answer). Exit status 0 when a lane matched, 1 when none did or the\n"
                     "input is bad, 2 for a wrong command line.\n",
                     runMatch)
