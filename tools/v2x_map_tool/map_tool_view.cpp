// "view": a map file (cloud JSON, UPER or XER) drawn to scale as one
// self-contained HTML page, with the faults of a findings file (or of the
// document itself) marked in red.
#include "map_tool_view.h"

#include <cjson/cJSON.h>

#include <cstdio>
#include <cstring>
#include <filesystem>

#include "map_tool.h"
#include "map_tool_diff.h"
#include "map_tool_validate.h"

namespace {

constexpr const char* kName = "view";

// A finding's line on the page: its text, the value found and what is allowed
// there (when the finding names them), and whether the service reaches it.
std::string faultText(const maptool::Finding& f) {
  std::string out = f.text;
  if (!f.value.empty()) out += ": " + f.value;
  if (!f.range.empty()) out += " (allowed: " + f.range + ")";
  if (f.reach == maptool::kReachNotReached) out += " [not reached by the service]";
  return out;
}

// Findings as "validate --json" prints them (an object whose "findings" list
// holds objects with "path" and "text"), or such a list by itself.
bool readFaults(const std::string& path, std::vector<maptool::MapFault>& faults) {
  std::vector<uint8_t> data;
  if (!maptool::readInput(kName, path, data)) return false;
  cJSON* root = cJSON_ParseWithLength(reinterpret_cast<const char*>(data.data()), data.size());
  const cJSON* list = cJSON_IsArray(root) ? root : cJSON_GetObjectItemCaseSensitive(root, "findings");
  bool ok = cJSON_IsArray(list);
  const cJSON* item = nullptr;
  cJSON_ArrayForEach(item, (ok ? list : nullptr)) {
    const cJSON* p = cJSON_GetObjectItemCaseSensitive(item, "path");
    const cJSON* t = cJSON_GetObjectItemCaseSensitive(item, "text");
    if (!cJSON_IsString(p) || !cJSON_IsString(t)) {
      ok = false;
      break;
    }
    auto field = [item](const char* key) {
      const cJSON* v = cJSON_GetObjectItemCaseSensitive(item, key);
      return std::string(cJSON_IsString(v) ? v->valuestring : "");
    };
    maptool::Finding f;
    f.text = t->valuestring;
    f.value = field("value");
    f.range = field("range");
    f.reach = field("reach");
    faults.push_back({p->valuestring, faultText(f)});
  }
  cJSON_Delete(root);
  if (!ok) {
    maptool::fail(kName, "%s: not a list of findings (objects with \"path\" and \"text\" strings)", path.c_str());
  }
  return ok;
}

// The lanes of an element of map at place (a node, a link or a lane), as
// callback(node, link, lane, the lane).
template <typename Each>
void lanesAt(const maptool::GeoMap& map, const maptool::DiffPlace& at, Each each) {
  if (at.node < 0) return;
  const auto n = static_cast<size_t>(at.node);
  for (size_t k = 0; k < map.nodes[n].links.size(); ++k) {
    if (at.link >= 0 && k != static_cast<size_t>(at.link)) continue;
    const maptool::GeoLink& link = map.nodes[n].links[k];
    for (size_t l = 0; l < link.lanes.size(); ++l) {
      if (at.lane < 0 || l == static_cast<size_t>(at.lane)) each(n, k, l, link.lanes[l]);
    }
  }
}

// What changed since the map in oldPath, marked on the page of map.
bool markDifferences(const char* oldPath, const maptool::GeoMap& map, maptool::PageOptions& opt) {
  maptool::GeoMap before;
  if (!maptool::loadMap(kName, oldPath, before)) return false;
  for (const maptool::Difference& d : maptool::diffMaps(before, map)) {
    opt.differences.push_back(maptool::differenceText(d));
    if (d.kind == "connection") continue;
    if (d.change == "removed" || (d.change == "moved" && d.kind == "lane")) {
      lanesAt(before, d.old, [&](size_t, size_t, size_t, const maptool::GeoLane& lane) {
        const double width = lane.widthCm && *lane.widthCm > 0 ? static_cast<double>(*lane.widthCm) / 100.0 : 3.0;
        opt.overlays.push_back({lane.points, width, d.element + " (" + d.change + "; as it was)"});
      });
    }
    if (d.change == "removed" || (d.kind != "lane" && d.change != "added")) continue;
    lanesAt(map, d.now, [&](size_t n, size_t k, size_t l, const maptool::GeoLane&) {
      std::string& mark = opt.marks[maptool::laneElem(n, k, l)];
      if (mark.empty() || d.change == "added") mark = d.change;
    });
  }
  return true;
}

bool parseSize(const char* text, maptool::PageOptions& opt) {
  int w = 0, h = 0;
  char end = 0;
  if (std::sscanf(text, "%dx%d%c", &w, &h, &end) != 2 || w < 200 || h < 200 || w > 10000 || h > 10000) return false;
  opt.width = w;
  opt.height = h;
  return true;
}

int runView(int argc, char** argv) {
  const char* outPath = "-";
  const char* faultsPath = nullptr;
  const char* diffPath = nullptr;
  const char* size = nullptr;
  maptool::PageOptions opt;
  std::vector<const char*> args;
  if (!maptool::parseArgs(kName, argc, argv,
                          {{"-o", nullptr, &outPath, "a file name"},
                           {"--faults", nullptr, &faultsPath, "a file name"},
                           {"--diff", nullptr, &diffPath, "a map file"},
                           {"--size", nullptr, &size, "WIDTHxHEIGHT"}},
                          args, 1)) {
    return maptool::kExitUsage;
  }
  if (size != nullptr && !parseSize(size, opt)) {
    maptool::fail(kName, "--size takes WIDTHxHEIGHT in pixels, 200 to 10000 each");
    return maptool::kExitUsage;
  }
  if (args.empty()) {
    maptool::fail(kName, "no input file (see --help)");
    return maptool::kExitUsage;
  }
  const char* path = args[0];

  maptool::GeoMap map;
  std::string document;
  std::vector<uint8_t> data;
  if (!maptool::readInput(kName, path, data)) return maptool::kExitBadInput;
  if (!maptool::loadMapData(kName, path, data, map, &document)) {
    // A document the service refuses is drawn as read past its refusals,
    // with every fault marked.
    std::vector<uint8_t> mended;
    if (!document.empty()) {
      const std::string text = maptool::validateDocument(document).mended;
      mended.assign(text.begin(), text.end());
    }
    map = {};
    if (mended.empty() || !maptool::loadMapData(kName, path, mended, map)) return maptool::kExitBadInput;
    maptool::fail(kName, "%s: drawn as read past the faults that make the service refuse it", path);
  }
  if (diffPath != nullptr && !markDifferences(diffPath, map, opt)) return maptool::kExitBadInput;
  // The faults to mark: those of the findings file, or else, for a cloud
  // document, what "validate" finds in it.
  std::vector<maptool::MapFault> faults;
  if (faultsPath != nullptr) {
    if (!readFaults(faultsPath, faults)) return maptool::kExitBadInput;
  } else if (!document.empty()) {
    for (const maptool::Finding& f : maptool::validateDocument(document).findings)
      faults.push_back({f.path, faultText(f)});
  }
  opt.title = std::strcmp(path, "-") == 0 ? "map" : std::filesystem::path(path).filename().string();
  const std::string page = maptool::mapPage(map, faults, opt);
  if (!maptool::writeOutput(kName, outPath, page)) {
    return maptool::kExitBadInput;
  }
  return maptool::kExitOk;
}

}  // namespace

V2X_MAP_TOOL_COMMAND(kName, "draw a map (cloud JSON, UPER or XER) as an HTML page",
                     "usage: v2x_map_tool view FILE [-o map.html] [--faults FINDINGS.json] [--diff OLD]\n"
                     "                         [--size WxH]\n"
                     "\n"
                     "Reads a map from FILE (\"-\" for standard input) as \"geojson\" does and writes\n"
                     "one self-contained HTML page (nothing is loaded from the network) to OUT or to\n"
                     "standard output. The map is drawn to scale, north up: lanes as wide as they\n"
                     "are, coloured by lane type, with dashed centre lines and a bar at their stop\n"
                     "end; link centre lines; blue arrows from each lane to the lanes it connects\n"
                     "to; nodes with their names; a scale bar and a north arrow. Hovering a lane,\n"
                     "link or node shows its ids, width, type, maneuvers, connections and speed\n"
                     "limits. The mouse wheel zooms and dragging moves the drawing.\n"
                     "\n"
                     "  --faults F  mark the findings of F in red and list them: the output of\n"
                     "              \"validate --json\", or a JSON list of {\"path\", \"text\"} with\n"
                     "              paths such as nodes[0].inLinks[1].lanes[2].laneWidth; without\n"
                     "              it a cloud document's own findings (as \"validate\" lists them)\n"
                     "              are marked\n"
                     "  --diff OLD  show what changed since the map in OLD (any form): lanes\n"
                     "              added in cyan, changed or moved in orange, removed lanes and\n"
                     "              the old lines of moved lanes in purple under the map, and\n"
                     "              the differences listed as \"diff\" prints them\n"
                     "  --size WxH  size of the drawing in pixels (default 1200x900)\n"
                     "\n"
                     "A cloud document that the service refuses is drawn all the same, as read\n"
                     "past the faults that stop the reader (a node without a usable position at\n"
                     "the middle of its points), with every fault marked.\n"
                     "\n"
                     "Exit status 0 on success, 1 for an unreadable map or findings file, 2 for\n"
                     "a wrong command line.\n",
                     runView)
