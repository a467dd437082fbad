// "diff": two map files of any form (cloud JSON, UPER, XER) compared element by
// element, matched by ids.
#include "map_tool_diff.h"

#include <cjson/cJSON.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <map>

#include "map_tool.h"

namespace maptool {
namespace {

constexpr const char* kName = "diff";

std::string join(const std::vector<std::string>& v) {
  std::string out;
  for (const std::string& s : v) out += (out.empty() ? "" : ", ") + s;
  return out.empty() ? "none" : out;
}

std::string text(const std::optional<std::string>& v) { return v ? "\"" + *v + "\"" : "none"; }
std::string text(const std::optional<long>& v) { return v ? std::to_string(*v) : "none"; }
std::string text(const std::optional<std::vector<std::string>>& v) { return v ? join(*v) : "none"; }

std::string text(const std::vector<SpeedLimit>& limits) {
  std::vector<std::string> parts;
  for (const SpeedLimit& s : limits) parts.push_back(s.type + " " + std::to_string(s.speed));
  return join(parts);
}

std::string text(const std::vector<GeoMovement>& moves) {
  std::vector<std::string> parts;
  for (const GeoMovement& m : moves) {
    parts.push_back("to " + nodeName(m.remote) + (m.phase ? " phase " + std::to_string(*m.phase) : ""));
  }
  return join(parts);
}

// Pairs the elements of two lists by key (a key met again counts as another
// one: "#2"): indices into a and b, -1 where one side has none. The old
// order first, then what only the new list holds.
template <typename T, typename Key>
std::vector<std::pair<int, int>> pairUp(const std::vector<T>& a, const std::vector<T>& b, Key key) {
  auto keys = [&](const std::vector<T>& list) {
    std::map<std::string, int> seen;
    std::vector<std::string> out;
    for (const T& e : list) {
      const std::string k = key(e);
      const int n = ++seen[k];
      out.push_back(n == 1 ? k : k + "#" + std::to_string(n));
    }
    return out;
  };
  const std::vector<std::string> ka = keys(a), kb = keys(b);
  std::vector<std::pair<int, int>> out;
  std::vector<bool> taken(kb.size(), false);
  for (size_t i = 0; i < ka.size(); ++i) {
    const auto it = std::find(kb.begin(), kb.end(), ka[i]);
    const int j = it == kb.end() ? -1 : static_cast<int>(it - kb.begin());
    if (j >= 0) taken[static_cast<size_t>(j)] = true;
    out.emplace_back(static_cast<int>(i), j);
  }
  for (size_t j = 0; j < kb.size(); ++j) {
    if (!taken[j]) out.emplace_back(-1, static_cast<int>(j));
  }
  return out;
}

class Differ {
 public:
  Differ(const GeoMap& a, const GeoMap& b) : a_(a), b_(b) {}

  std::vector<Difference> run() {
    compare(
        "node", a_.nodes, b_.nodes, &DiffPlace::node, {}, {}, [](const GeoNode& n) { return nodeName(n.id); },
        [](const GeoNode& n) { return "node " + nodeName(n.id); },
        [&](const GeoNode& na, const GeoNode& nb, const std::string& name, const DiffPlace& pa, const DiffPlace& pb) {
          attribute("node", name, "name", text(na.name), text(nb.name), pa, pb);
          moved("node", name, {na.refPos}, {nb.refPos}, pa, pb);
          links(na, nb, name, pa, pb);
        });
    return out_;
  }

 private:
  const GeoMap& a_;
  const GeoMap& b_;
  std::vector<Difference> out_;

  void add(const char* change, const char* kind, const std::string& element, const DiffPlace& pa, const DiffPlace& pb) {
    Difference d;
    d.change = change;
    d.kind = kind;
    d.element = element;
    d.old = pa;
    d.now = pb;
    out_.push_back(d);
  }
  void attribute(const char* kind, const std::string& element, const char* name, const std::string& before,
                 const std::string& after, const DiffPlace& pa, const DiffPlace& pb) {
    if (before == after) return;
    add("changed", kind, element, pa, pb);
    out_.back().attribute = name;
    out_.back().before = before;
    out_.back().after = after;
  }
  void moved(const char* kind, const std::string& element, const std::vector<GeoPosition>& a,
             const std::vector<GeoPosition>& b, const DiffPlace& pa, const DiffPlace& pb) {
    const double m = largestMove(a, b);
    if (m < kMoveThresholdM) return;
    add("moved", kind, element, pa, pb);
    out_.back().metres = m;
  }

  // Pairs the elements of two lists (one level below the places pa0, pb0) by
  // key; an element only one map holds is added or removed, a pair is handed
  // to body with its name and places.
  template <typename T, typename Key, typename Name, typename Body>
  void compare(const char* kind, const std::vector<T>& a, const std::vector<T>& b, int DiffPlace::*level,
               const DiffPlace& pa0, const DiffPlace& pb0, Key key, Name name, Body body) {
    for (auto [i, j] : pairUp(a, b, key)) {
      DiffPlace pa = pa0, pb = pb0;
      pa.*level = i;
      pb.*level = j;
      const std::string n = name(i >= 0 ? a[static_cast<size_t>(i)] : b[static_cast<size_t>(j)]);
      if (i < 0) {
        add("added", kind, n, {}, pb);
      } else if (j < 0) {
        add("removed", kind, n, pa, {});
      } else {
        body(a[static_cast<size_t>(i)], b[static_cast<size_t>(j)], n, pa, pb);
      }
    }
  }

  void links(const GeoNode& na, const GeoNode& nb, const std::string& node, const DiffPlace& pn, const DiffPlace& qn) {
    compare(
        "link", na.links, nb.links, &DiffPlace::link, pn, qn, [](const GeoLink& l) { return nodeName(l.upstream); },
        [&](const GeoLink& l) { return node + ", link from " + nodeName(l.upstream); },
        [&](const GeoLink& la, const GeoLink& lb, const std::string& name, const DiffPlace& pa, const DiffPlace& pb) {
          attribute("link", name, "name", text(la.name), text(lb.name), pa, pb);
          attribute("link", name, "linkWidth", std::to_string(la.widthCm) + " cm", std::to_string(lb.widthCm) + " cm",
                    pa, pb);
          attribute("link", name, "speedLimits", text(la.speedLimits), text(lb.speedLimits), pa, pb);
          attribute("link", name, "movements", text(la.movements), text(lb.movements), pa, pb);
          moved("link", name, la.points, lb.points, pa, pb);
          lanes(la, lb, name, pa, pb);
        });
  }

  void lanes(const GeoLink& la, const GeoLink& lb, const std::string& link, const DiffPlace& pl, const DiffPlace& ql) {
    auto width = [](const GeoLane& l) { return l.widthCm ? std::to_string(*l.widthCm) + " cm" : "none"; };
    auto type = [](const GeoLane& l) { return text(l.type) + " " + join(l.attributes); };
    compare(
        "lane", la.lanes, lb.lanes, &DiffPlace::lane, pl, ql, [](const GeoLane& l) { return std::to_string(l.id); },
        [&](const GeoLane& l) { return link + ", lane " + std::to_string(l.id); },
        [&](const GeoLane& a, const GeoLane& b, const std::string& name, const DiffPlace& pa, const DiffPlace& pb) {
          attribute("lane", name, "laneWidth", width(a), width(b), pa, pb);
          attribute("lane", name, "laneType", type(a), type(b), pa, pb);
          attribute("lane", name, "shareWith", text(a.sharing), text(b.sharing), pa, pb);
          attribute("lane", name, "maneuvers", text(a.maneuvers), text(b.maneuvers), pa, pb);
          attribute("lane", name, "speedLimits", text(a.speedLimits), text(b.speedLimits), pa, pb);
          moved("lane", name, a.points, b.points, pa, pb);
          connections(a, b, name, pa, pb);
        });
  }

  void connections(const GeoLane& la, const GeoLane& lb, const std::string& lane, const DiffPlace& pl,
                   const DiffPlace& ql) {
    compare(
        "connection", la.connections, lb.connections, &DiffPlace::connection, pl, ql,
        [](const GeoConnection& c) { return nodeName(c.remote) + "/" + text(c.lane); },
        [&](const GeoConnection& c) {
          return lane + ", connection to lane " + text(c.lane) + " of node " + nodeName(c.remote);
        },
        [&](const GeoConnection& a, const GeoConnection& b, const std::string& name, const DiffPlace& pa,
            const DiffPlace& pb) {
          attribute("connection", name, "maneuvers", text(a.maneuvers), text(b.maneuvers), pa, pb);
          attribute("connection", name, "phaseId", text(a.phase), text(b.phase), pa, pb);
        });
  }
};

// Distance in metres from p to the segment a-b, in a plane around p.
double toSegment(const GeoPosition& p, const GeoPosition& a, const GeoPosition& b) {
  const Projection pr(p.lat, p.lon);
  const double ax = pr.east(a), ay = pr.north(a), bx = pr.east(b), by = pr.north(b);
  const double dx = bx - ax, dy = by - ay, len2 = dx * dx + dy * dy;
  double t = len2 > 0 ? -(ax * dx + ay * dy) / len2 : 0.0;
  t = std::min(1.0, std::max(0.0, t));
  return std::hypot(ax + t * dx, ay + t * dy);
}

double toLine(const GeoPosition& p, const std::vector<GeoPosition>& line) {
  if (line.size() == 1) return toSegment(p, line[0], line[0]);
  double best = HUGE_VAL;
  for (size_t i = 1; i < line.size(); ++i) best = std::min(best, toSegment(p, line[i - 1], line[i]));
  return best;
}

std::vector<GeoPosition> valid(const std::vector<GeoPosition>& pts) {
  std::vector<GeoPosition> out;
  std::copy_if(pts.begin(), pts.end(), std::back_inserter(out), [](const GeoPosition& p) { return p.valid; });
  return out;
}

// --------------------------------------------------------------- the command

void printHuman(const char* a, const char* b, const std::vector<Difference>& diffs) {
  std::printf("%s -> %s: %zu difference%s\n", a, b, diffs.size(), diffs.size() == 1 ? "" : "s");
  for (const Difference& d : diffs) std::printf("  %s\n", differenceText(d).c_str());
}

void printJson(const char* a, const char* b, const std::vector<Difference>& diffs) {
  cJSON* o = cJSON_CreateObject();
  cJSON_AddStringToObject(o, "old", a);
  cJSON_AddStringToObject(o, "new", b);
  cJSON_AddBoolToObject(o, "equal", diffs.empty());
  cJSON* list = cJSON_AddArrayToObject(o, "differences");
  for (const Difference& d : diffs) {
    cJSON* e = cJSON_CreateObject();
    cJSON_AddStringToObject(e, "change", d.change.c_str());
    cJSON_AddStringToObject(e, "kind", d.kind.c_str());
    cJSON_AddStringToObject(e, "element", d.element.c_str());
    if (d.change == "changed") {
      cJSON_AddStringToObject(e, "attribute", d.attribute.c_str());
      cJSON_AddStringToObject(e, "before", d.before.c_str());
      cJSON_AddStringToObject(e, "after", d.after.c_str());
    }
    if (d.change == "moved") cJSON_AddNumberToObject(e, "metres", std::round(d.metres * 1000.0) / 1000.0);
    cJSON_AddItemToArray(list, e);
  }
  printJsonLine(o);
}

int runDiff(int argc, char** argv) {
  bool json = false;
  std::vector<const char*> files;
  if (!parseArgs(kName, argc, argv, {{"--json", &json}}, files, 2)) return kExitUsage;
  if (files.size() != 2) {
    fail(kName, "needs two map files, OLD and NEW (see --help)");
    return kExitUsage;
  }
  GeoMap a, b;
  if (!loadMap(kName, files[0], a) || !loadMap(kName, files[1], b)) return kExitUsage;
  const std::vector<Difference> diffs = diffMaps(a, b);
  if (json) {
    printJson(files[0], files[1], diffs);
  } else {
    printHuman(files[0], files[1], diffs);
  }
  return diffs.empty() ? kExitOk : kExitBadInput;
}

}  // namespace

std::vector<Difference> diffMaps(const GeoMap& before, const GeoMap& after) { return Differ(before, after).run(); }

std::string differenceText(const Difference& d) {
  char change[16];
  std::snprintf(change, sizeof(change), "%-8s ", d.change.c_str());
  std::string out = change + d.element;
  if (d.change == "changed") out += ": " + d.attribute + " " + d.before + " -> " + d.after;
  if (d.change == "moved") {
    char by[48];
    std::snprintf(by, sizeof(by), ": by up to %.2f m", d.metres);
    out += by;
  }
  return out;
}

double largestMove(const std::vector<GeoPosition>& a, const std::vector<GeoPosition>& b) {
  const std::vector<GeoPosition> va = valid(a), vb = valid(b);
  if (va.empty() || vb.empty()) return 0.0;
  double m = 0.0;
  if (va.size() == vb.size()) {
    for (size_t i = 0; i < va.size(); ++i) m = std::max(m, toSegment(va[i], vb[i], vb[i]));
    return m;
  }
  for (const GeoPosition& p : va) m = std::max(m, toLine(p, vb));
  for (const GeoPosition& p : vb) m = std::max(m, toLine(p, va));
  return m;
}

}  // namespace maptool

V2X_MAP_TOOL_COMMAND("diff", "what changed between two versions of a map",
                     "usage: v2x_map_tool diff [--json] OLD NEW\n"
                     "\n"
                     "Compares two map files, each a cloud map-down document (read with the\n"
                     "service's reader), XER or UPER, in any mix. Elements are matched by their\n"
                     "ids, not by their place in a list: nodes by region and id, links by their\n"
                     "upstream node, lanes by lane id, connections by remote node and connecting\n"
                     "lane. Lists what was added or removed, every attribute that changed with its\n"
                     "old and new value, and every node, link or lane whose geometry moved, with\n"
                     "the largest move of a point in metres (moves under 2 cm are not listed).\n"
                     "\n"
                     "--json prints {\"equal\", \"differences\": [{change, kind, element,\n"
                     "attribute, before, after, metres}]}. \"view NEW --diff OLD\" draws the\n"
                     "differences.\n"
                     "\n"
                     "Exit status 0 when the maps are equal, 1 when they differ, 2 when a file\n"
                     "cannot be read or is not a map (or for a wrong command line).\n",
                     maptool::runDiff)
