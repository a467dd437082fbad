// The drawing of a map as one self-contained HTML page (inline SVG, CSS and a
// little script; nothing is loaded from the network).
#ifndef V2X_MAP_TOOL_VIEW_H
#define V2X_MAP_TOOL_VIEW_H

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "map_tool_geometry.h"

namespace maptool {

// A fault found in a map: where, as a path into the map document such as
// "nodes[0].inLinks[1].lanes[2].laneWidth" or "nodes[0].refPos.lat" (an
// optional leading "map." is ignored), and what, as a line of text.
struct MapFault {
  std::string path;
  std::string text;
};

// The element of the map a fault path names: indices into nodes, inLinks,
// lanes and points (of the lane, or of the link when lane is -1); -1 where the
// path does not go that deep. A path that does not start with "nodes[i]" has
// node -1.
struct FaultPlace {
  int node = -1;
  int link = -1;
  int lane = -1;
  int point = -1;
};
FaultPlace faultPlace(std::string_view path);

// A line drawn under the map: an element of another version of it (a lane
// that version removed, the old line of a lane that moved).
struct PageOverlay {
  std::vector<GeoPosition> points;
  double widthM = 3.0;
  std::string tip;
};

// The id of a lane's element on the page ("lane-0-1-2": node, link, lane).
std::string laneElem(size_t n, size_t k, size_t l);

struct PageOptions {
  int width = 1200;  // pixels of the drawing
  int height = 900;
  std::string title;  // shown at the top left, usually the file name
  // A comparison with another version: lanes of the map marked by element id
  // ("lane-0-1-2") as "added", "moved" or "changed", the other version's lanes
  // drawn under it, and the differences listed in the side panel.
  std::map<std::string, std::string> marks;
  std::vector<PageOverlay> overlays;
  std::vector<std::string> differences;
};

// The page. North is up; metres are equal in both directions (a local plane
// around the map's centre on the WGS84 ellipsoid), fitted into the drawing.
// Each fault is marked in red on the deepest element of its path that the
// map holds (node, link, lane or point) and listed with its text; the root
// <svg id="map"> carries the projection of the initial view as data-lat0,
// data-lon0 (degrees at pixel data-cx, data-cy) and data-px-per-m.
std::string mapPage(const GeoMap& map, const std::vector<MapFault>& faults, const PageOptions& options);

}  // namespace maptool

#endif
