// "diff": what changed between two versions of a map, as a map engineer reads
// it: elements matched by their ids (nodes by region and id, links by their
// upstream node, lanes by lane id, connections by remote node and connecting
// lane), never by their place in a list.
#ifndef V2X_MAP_TOOL_DIFF_H
#define V2X_MAP_TOOL_DIFF_H

#include <string>
#include <vector>

#include "map_tool_geometry.h"

namespace maptool {

// An element's indices in one of the maps; -1 below the element's level, and
// node -1 when the map does not hold it.
struct DiffPlace {
  int node = -1;
  int link = -1;
  int lane = -1;
  int connection = -1;
};

struct Difference {
  std::string change;   // "added", "removed", "changed" or "moved"
  std::string kind;     // "node", "link", "lane" or "connection"
  std::string element;  // "node 1, link from 2, lane 3"
  std::string attribute;
  std::string before, after;  // the attribute's values ("changed")
  double metres = 0.0;        // the largest move of a point ("moved")
  DiffPlace old, now;         // where the element is in the old and the new map
};

// Geometry moving by less than this is not reported (a unit of the message
// set's positions is about a centimetre).
constexpr double kMoveThresholdM = 0.02;

std::vector<Difference> diffMaps(const GeoMap& before, const GeoMap& after);

// One line for a difference: "moved    node 1, link from 2, lane 3: by up to 2.00 m".
std::string differenceText(const Difference& d);

// The largest distance in metres between two point lists of one element:
// point by point when both have as many points, else the farthest point of
// either from the other's line.
double largestMove(const std::vector<GeoPosition>& a, const std::vector<GeoPosition>& b);

}  // namespace maptool

#endif
