// The HTML page of "view": the map drawn to scale in SVG (lanes as wide as
// they are, centre lines, stop ends, connection arrows, nodes), faults marked
// in red, and the page's style and script.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>

#include "map_tool_view.h"

namespace maptool {
namespace {

constexpr int kMarginPx = 56;            // around the map's extent
constexpr double kMaxPxPerMetre = 40.0;  // a single point or a tiny map is not blown up further
constexpr double kDefaultLaneWidthM = 3.0;
constexpr int kFaultPanelPx = 360;  // left of the drawing, kept clear for the fault list
// Below this many pixels for a usual lane of the map, each intersection is
// also drawn in an inset of its own, at a scale that shows its lanes.
constexpr double kMinLanePx = 8.0;
constexpr double kInsetLanePx = 14.0;
constexpr int kInsetPx = 220;

// Drawing coordinates are metres with y pointing south, so text stays upright.
struct Pt {
  double x, y;
};

Pt toPt(const Projection& pr, const GeoPosition& p) { return {pr.east(p), -pr.north(p)}; }

std::string num(double v) {
  char b[32];
  std::snprintf(b, sizeof(b), "%.2f", v);
  return b;
}

std::string esc(std::string_view s) {
  std::string out;
  for (char c : s) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      case '\'': out += "&#39;"; break;
      case '\n': out += "&#10;"; break;
      default: out += c;
    }
  }
  return out;
}

std::string join(const std::vector<std::string>& v, const char* sep = ", ") {
  std::string out;
  for (const std::string& s : v) out += (out.empty() ? "" : sep) + s;
  return out;
}

struct LaneStyle {
  const char* type;
  const char* colour;
};
constexpr LaneStyle kLaneStyles[] = {
    {"vehicle", "#7d8590"},        {"crosswalk", "#b0b7c3"}, {"bikeLane", "#4caf50"},
    {"sidewalk", "#d2b98c"},       {"median", "#9ccc65"},    {"striping", "#f9a825"},
    {"trackedVehicle", "#8d6e63"}, {"parking", "#5c9fd6"},   {nullptr, "#a6a6a6"},  // no lane type
};
constexpr const char* kFaultColour = "#d62728";
// A comparison's colours: what the other version did not have, what it had
// and this one does not (and the old line of a lane that moved), what changed.
constexpr const char* kAddedColour = "#00acc1";
constexpr const char* kRemovedColour = "#8e24aa";
constexpr const char* kChangedColour = "#ff8f00";

const char* markColour(const std::string& mark) {
  if (mark == "added") return kAddedColour;
  return mark == "removed" ? kRemovedColour : kChangedColour;
}

const LaneStyle& laneStyle(const std::optional<std::string>& type) {
  for (const LaneStyle& s : kLaneStyles) {
    if (s.type != nullptr && type && *type == s.type) return s;
  }
  return kLaneStyles[std::size(kLaneStyles) - 1];
}

std::string speedText(const std::vector<SpeedLimit>& limits) {
  std::vector<std::string> parts;
  for (const SpeedLimit& s : limits) {
    char b[32];
    std::snprintf(b, sizeof(b), " %.1f km/h", static_cast<double>(s.speed) * 0.072);
    parts.push_back(s.type + b);
  }
  return join(parts);
}

// Metres; a lane without a width (or with one that cannot be drawn) gets a
// usual one.
double laneWidth(const GeoLane& lane) {
  return lane.widthCm && *lane.widthCm > 0 ? static_cast<double>(*lane.widthCm) / 100.0 : kDefaultLaneWidthM;
}

bool sameNode(const NodeRef& a, const NodeRef& b) {
  return a.id == b.id && (!a.region || !b.region || *a.region == *b.region);
}

// Faults by the id of the element they mark; "" for those not on the drawing.
using FaultIndex = std::map<std::string, std::vector<const MapFault*>>;

std::string nodeElem(size_t n) { return "node-" + std::to_string(n); }
std::string linkElem(size_t n, size_t k) { return "link-" + std::to_string(n) + "-" + std::to_string(k); }
std::string pointElem(const std::string& owner, size_t m) {
  return "point" + owner.substr(owner.find('-')) + "-" + std::to_string(m);
}

bool hasPoint(const std::vector<GeoPosition>& points, int m) {
  return m >= 0 && static_cast<size_t>(m) < points.size() && points[static_cast<size_t>(m)].valid;
}

// Links and lanes are drawn when two of their points are positions.
bool drawn(const std::vector<GeoPosition>& points) {
  return std::count_if(points.begin(), points.end(), [](const GeoPosition& p) { return p.valid; }) >= 2;
}

// The deepest drawn element on the fault's path: a point, a lane, a link or a
// node; "" when the fault cannot be shown on the drawing.
std::string faultElem(const GeoMap& map, const MapFault& f) {
  const FaultPlace p = faultPlace(f.path);
  if (p.node < 0 || static_cast<size_t>(p.node) >= map.nodes.size()) return "";
  const auto n = static_cast<size_t>(p.node);
  const GeoNode& node = map.nodes[n];
  const std::string nodeId = node.refPos.valid ? nodeElem(n) : "";
  if (p.link < 0 || static_cast<size_t>(p.link) >= node.links.size()) return nodeId;
  const auto k = static_cast<size_t>(p.link);
  const GeoLink& link = node.links[k];
  const std::string linkId = drawn(link.points) ? linkElem(n, k) : nodeId;
  if (p.lane < 0) return hasPoint(link.points, p.point) ? pointElem(linkElem(n, k), p.point) : linkId;
  if (static_cast<size_t>(p.lane) >= link.lanes.size()) return linkId;
  const auto l = static_cast<size_t>(p.lane);
  const GeoLane& lane = link.lanes[l];
  if (hasPoint(lane.points, p.point)) return pointElem(laneElem(n, k, l), p.point);
  return drawn(lane.points) ? laneElem(n, k, l) : linkId;
}

std::vector<Pt> validPts(const Projection& pr, const std::vector<GeoPosition>& pts) {
  std::vector<Pt> out;
  for (const GeoPosition& p : pts) {
    if (p.valid) out.push_back(toPt(pr, p));
  }
  return out;
}

class Page {
 public:
  Page(const GeoMap& map, const std::vector<MapFault>& faults, const PageOptions& opt)
      : map_(map), faults_(faults), opt_(opt), proj_(0.0, 0.0) {
    for (const MapFault& f : faults) index_[faultElem(map, f)].push_back(&f);
    fit();
  }
  std::string html();

 private:
  void fit();
  std::string tipFaults(const std::string& elem, std::string tip) const;
  bool faulted(const std::string& elem) const { return index_.count(elem) != 0; }
  std::string polyline(const std::vector<GeoPosition>& pts) const;
  void drawLane(size_t n, size_t k, size_t l);
  void drawConnections(size_t n, const GeoLane& lane);
  void drawLink(size_t n, size_t k);
  void drawNode(size_t n);
  int lanePointsIn(double x0, double y0, double x1, double y1) const;
  void drawPointFaults(const std::string& owner, const std::vector<GeoPosition>& pts, double radius);
  std::string insets() const;
  std::string legend() const;
  std::string faultList() const;

  const GeoMap& map_;
  const std::vector<MapFault>& faults_;
  const PageOptions& opt_;
  FaultIndex index_;
  Projection proj_;
  double scale_ = 1.0;          // pixels per metre of the initial view
  double left_ = 0.0;           // pixels at the left kept clear of the map
  double cx_ = 0.0, cy_ = 0.0;  // pixel of the projection's centre
  size_t insets_ = 0;           // intersections drawn in insets of their own
  double insetScale_ = 1.0;     // their pixels per metre
  bool empty_ = true;
  std::string lanes_, marks_, links_, arrows_, nodes_;
};

void Page::fit() {
  double minLat = 90, maxLat = -90, minLon = 180, maxLon = -180;
  auto take = [&](const GeoPosition& p) {
    if (!p.valid) return;
    empty_ = false;
    minLat = std::min(minLat, p.lat), maxLat = std::max(maxLat, p.lat);
    minLon = std::min(minLon, p.lon), maxLon = std::max(maxLon, p.lon);
  };
  for (const GeoNode& node : map_.nodes) {
    take(node.refPos);
    for (const GeoLink& link : node.links) {
      for (const GeoPosition& p : link.points) take(p);
      for (const GeoLane& lane : link.lanes) {
        for (const GeoPosition& p : lane.points) take(p);
      }
    }
  }
  for (const PageOverlay& o : opt_.overlays) {
    for (const GeoPosition& p : o.points) take(p);
  }
  left_ = faults_.empty() && opt_.differences.empty() ? 0.0 : kFaultPanelPx;
  cx_ = left_ + (opt_.width - left_) / 2.0;
  cy_ = opt_.height / 2.0;
  if (empty_) return;
  proj_ = Projection((minLat + maxLat) / 2, (minLon + maxLon) / 2);
  const GeoPosition lo{true, minLon, minLat, {}}, hi{true, maxLon, maxLat, {}};
  const double ex = std::max(proj_.east(hi) - proj_.east(lo), 1.0);
  const double ey = std::max(proj_.north(hi) - proj_.north(lo), 1.0);
  auto fitTo = [&](double top) {
    cy_ = top + (opt_.height - top) / 2.0;
    scale_ = std::min({std::max(opt_.width - left_ - 2.0 * kMarginPx, 100.0) / ex,
                       std::max(opt_.height - top - 2.0 * kMarginPx, 50.0) / ey, kMaxPxPerMetre});
    scale_ = std::max(scale_, 1e-6);
  };
  fitTo(0.0);
  // The usual lane width: the median of the map's lanes.
  std::vector<double> widths;
  size_t placed = 0;
  for (const GeoNode& node : map_.nodes) {
    placed += node.refPos.valid ? 1 : 0;
    for (const GeoLink& link : node.links) {
      for (const GeoLane& lane : link.lanes) widths.push_back(laneWidth(lane));
    }
  }
  if (widths.empty() || placed < 2) return;
  std::nth_element(widths.begin(), widths.begin() + static_cast<std::ptrdiff_t>(widths.size() / 2), widths.end());
  const double usual = widths[widths.size() / 2];
  if (scale_ * usual >= kMinLanePx) return;
  // A row of insets at the top, the whole map below it.
  insets_ = std::min(placed, static_cast<size_t>((opt_.width - left_ - 60) / (kInsetPx + 8)));
  insetScale_ = kInsetLanePx / usual;
  fitTo(kInsetPx + 48.0);
}

// Each intersection at a scale that shows its lanes, in a row at the top:
// the world's lanes, links and arrows again, in a window around the node.
std::string Page::insets() const {
  std::string out;
  size_t drawnInsets = 0;
  for (size_t n = 0; n < map_.nodes.size() && drawnInsets < insets_; ++n) {
    const GeoNode& node = map_.nodes[n];
    if (!node.refPos.valid) continue;
    // Around the stop ends of the node's lanes (the node itself when none),
    // all of them in the window as far as the scale allows.
    std::vector<Pt> ends;
    for (const GeoLink& link : node.links) {
      for (const GeoLane& lane : link.lanes) {
        const std::vector<Pt> pts = validPts(proj_, lane.points);
        if (!pts.empty()) ends.push_back(pts.back());
      }
    }
    if (ends.empty()) ends.push_back(toPt(proj_, node.refPos));
    Pt c{0, 0};
    for (const Pt& e : ends)
      c.x += e.x / static_cast<double>(ends.size()), c.y += e.y / static_cast<double>(ends.size());
    double reach = 0;
    for (const Pt& e : ends) reach = std::max({reach, std::fabs(e.x - c.x), std::fabs(e.y - c.y)});
    const double scale = std::max(std::min(insetScale_, kInsetPx / 2.0 / (reach + 12.0)), scale_);
    const double half = kInsetPx / 2.0 / scale;
    const double x = left_ + 8.0 + static_cast<double>(drawnInsets++) * (kInsetPx + 8), y = 40.0;
    std::string content = lanes_ + links_ + arrows_;
    for (size_t at = content.find(" id=\""); at != std::string::npos; at = content.find(" id=\"", at)) {
      content.replace(at, 5, " data-of=\"");
    }
    out += "<rect class=\"inset-frame\" x=\"" + num(x) + "\" y=\"" + num(y) + "\" width=\"" + std::to_string(kInsetPx) +
           "\" height=\"" + std::to_string(kInsetPx) + "\"/>\n";
    out += "<svg class=\"inset\" x=\"" + num(x) + "\" y=\"" + num(y) + "\" width=\"" + std::to_string(kInsetPx) +
           "\" height=\"" + std::to_string(kInsetPx) + "\" viewBox=\"" + num(c.x - half) + " " + num(c.y - half) + " " +
           num(2 * half) + " " + num(2 * half) + "\" data-e0=\"" + num(c.x - half) + "\" data-s0=\"" + num(c.y - half) +
           "\" data-inset-px-per-m=\"" + num(scale) + "\">\n" + content + "</svg>\n";
    out += "<text class=\"inset-name\" x=\"" + num(x + 4) + "\" y=\"" + num(y + 14) + "\">" +
           esc((node.name ? *node.name + " " : "") + "(" + nodeName(node.id) + ")") + "</text>\n";
  }
  return out;
}

std::string Page::tipFaults(const std::string& elem, std::string tip) const {
  auto it = index_.find(elem);
  if (it == index_.end()) return tip;
  for (const MapFault* f : it->second) tip += "\nFAULT " + f->path + ": " + f->text;
  return tip;
}

std::string Page::polyline(const std::vector<GeoPosition>& pts) const {
  std::string out;
  for (const GeoPosition& p : pts) {
    if (!p.valid) continue;
    const Pt q = toPt(proj_, p);
    if (!out.empty()) out += ' ';
    out += num(q.x);
    out += ',';
    out += num(q.y);
  }
  return out;
}

void Page::drawLane(size_t n, size_t k, size_t l) {
  const GeoNode& node = map_.nodes[n];
  const GeoLink& link = node.links[k];
  const GeoLane& lane = link.lanes[l];
  const std::string id = laneElem(n, k, l);
  const double width = laneWidth(lane);

  std::string tip = "Lane " + std::to_string(lane.id) + " of link " +
                    (link.name ? *link.name : nodeName(link.upstream)) + " at node " + nodeName(node.id) +
                    (node.name ? " " + *node.name : "");
  tip +=
      "\nwidth: " + (lane.widthCm ? num(static_cast<double>(*lane.widthCm) / 100.0) + " m" : std::string("not given"));
  tip += "\ntype: " + (lane.type ? *lane.type : std::string("not given"));
  if (!lane.attributes.empty()) tip += " (" + join(lane.attributes) + ")";
  if (lane.sharing && !lane.sharing->empty()) tip += "\nshared with: " + join(*lane.sharing);
  tip += "\nmaneuvers: " + (lane.maneuvers ? (lane.maneuvers->empty() ? "none" : join(*lane.maneuvers)) : "not given");
  for (const GeoConnection& c : lane.connections) {
    tip += "\nconnects to node " + nodeName(c.remote);
    if (c.lane) tip += " lane " + std::to_string(*c.lane);
    if (c.maneuvers && !c.maneuvers->empty()) tip += " (" + join(*c.maneuvers) + ")";
    if (c.phase) tip += ", phase " + std::to_string(*c.phase);
  }
  if (!lane.speedLimits.empty()) tip += "\nspeed limits: " + speedText(lane.speedLimits);
  tip += "\npath: nodes[" + std::to_string(n) + "].inLinks[" + std::to_string(k) + "].lanes[" + std::to_string(l) + "]";

  drawPointFaults(id, lane.points, width / 2);
  const std::vector<Pt> pts = validPts(proj_, lane.points);
  if (pts.size() < 2) return;
  const auto mark = opt_.marks.find(id);
  const char* colour = faulted(id)                ? kFaultColour
                       : mark != opt_.marks.end() ? markColour(mark->second)
                                                  : laneStyle(lane.type).colour;
  if (mark != opt_.marks.end()) tip += "\n" + mark->second + " since the other version";
  const std::string line = polyline(lane.points);
  lanes_ += "<polyline class=\"lane" + std::string(faulted(id) ? " fault" : "") + "\" id=\"" + id + "\" points=\"" +
            line + "\" stroke=\"" + colour + "\" stroke-width=\"" + num(width) + "\" data-tip=\"" +
            esc(tipFaults(id, tip)) + "\"/>\n";
  lanes_ += "<polyline class=\"centre\" points=\"" + line + "\"/>\n";
  // Stop end: across the lane at its downstream end.
  const Pt a = pts[pts.size() - 2], b = pts.back();
  const double len = std::hypot(b.x - a.x, b.y - a.y);
  if (len > 0) {
    const double ux = (b.y - a.y) / len * width / 2, uy = -(b.x - a.x) / len * width / 2;
    lanes_ += "<line class=\"stop\" x1=\"" + num(b.x + ux) + "\" y1=\"" + num(b.y + uy) + "\" x2=\"" + num(b.x - ux) +
              "\" y2=\"" + num(b.y - uy) + "\"/>\n";
  }
  drawConnections(n, lane);
}

// Arrows from the lane's stop end to the start of each connecting lane that the
// map holds: the lane of the remote node's link that comes from this node.
void Page::drawConnections(size_t n, const GeoLane& lane) {
  const std::vector<Pt> from = validPts(proj_, lane.points);
  for (const GeoConnection& c : lane.connections) {
    if (!c.lane) continue;
    const GeoLane* target = nullptr;
    for (const GeoNode& remote : map_.nodes) {
      if (!sameNode(remote.id, c.remote)) continue;
      for (const GeoLink& link : remote.links) {
        if (!sameNode(link.upstream, map_.nodes[n].id)) continue;
        for (const GeoLane& l : link.lanes) {
          if (l.id == *c.lane) target = &l;
        }
      }
    }
    if (target == nullptr) continue;
    const std::vector<Pt> to = validPts(proj_, target->points);
    if (to.size() < 2 || from.size() < 2) continue;
    const Pt p0 = from.back(), d0{p0.x - from[from.size() - 2].x, p0.y - from[from.size() - 2].y};
    const Pt p1 = to.front(), d1{to[1].x - p1.x, to[1].y - p1.y};
    // Control point where the source lane's way ahead meets the target lane's
    // way back; halfway when they do not meet so (straight on, or a strange
    // geometry).
    Pt ctl{(p0.x + p1.x) / 2, (p0.y + p1.y) / 2};
    const double den = d0.x * d1.y - d0.y * d1.x;
    const double dist = std::hypot(p1.x - p0.x, p1.y - p0.y);
    if (std::fabs(den) > 1e-9 * std::hypot(d0.x, d0.y) * std::hypot(d1.x, d1.y)) {
      const double t = ((p1.x - p0.x) * d1.y - (p1.y - p0.y) * d1.x) / den;
      const double u = ((p1.x - p0.x) * d0.y - (p1.y - p0.y) * d0.x) / den;
      const Pt q{p0.x + t * d0.x, p0.y + t * d0.y};
      if (t > 0 && u < 0 && std::hypot(q.x - p0.x, q.y - p0.y) < 2 * dist) ctl = q;
    }
    // Arrowhead along the curve's last tangent, sized in pixels of the initial view.
    const double tx = p1.x - ctl.x, ty = p1.y - ctl.y, tl = std::hypot(tx, ty);
    if (dist <= 0 || tl <= 0) continue;
    const double h = 9.0 / scale_, hw = 4.0 / scale_;
    const double ux = tx / tl, uy = ty / tl;
    const Pt base{p1.x - ux * h, p1.y - uy * h};
    arrows_ += "<path class=\"conn\" d=\"M" + num(p0.x) + " " + num(p0.y) + " Q" + num(ctl.x) + " " + num(ctl.y) + " " +
               num(base.x) + " " + num(base.y) + "\"/><polygon class=\"head\" points=\"" + num(p1.x) + "," + num(p1.y) +
               " " + num(base.x - uy * hw) + "," + num(base.y + ux * hw) + " " + num(base.x + uy * hw) + "," +
               num(base.y - ux * hw) + "\"/>\n";
  }
}

void Page::drawLink(size_t n, size_t k) {
  const GeoNode& node = map_.nodes[n];
  const GeoLink& link = node.links[k];
  const std::string id = linkElem(n, k);
  std::string tip = "Link " + (link.name ? *link.name : std::string("(no name)")) + " from node " +
                    nodeName(link.upstream) + " to node " + nodeName(node.id);
  tip += "\nwidth: " + num(static_cast<double>(link.widthCm) / 100.0) + " m, " + std::to_string(link.lanes.size()) +
         " lane(s)";
  if (!link.speedLimits.empty()) tip += "\nspeed limits: " + speedText(link.speedLimits);
  for (const GeoMovement& m : link.movements) {
    tip += "\nmovement to node " + nodeName(m.remote) + (m.phase ? ", phase " + std::to_string(*m.phase) : "");
  }
  tip += "\npath: nodes[" + std::to_string(n) + "].inLinks[" + std::to_string(k) + "]";
  if (drawn(link.points)) {
    links_ += "<polyline class=\"link" + std::string(faulted(id) ? " fault" : "") + "\" id=\"" + id + "\" points=\"" +
              polyline(link.points) + "\" data-tip=\"" + esc(tipFaults(id, tip)) + "\"/>\n";
  }
  drawPointFaults(id, link.points, 4.0 / scale_);
}

void Page::drawPointFaults(const std::string& owner, const std::vector<GeoPosition>& pts, double radius) {
  for (size_t m = 0; m < pts.size(); m++) {
    const std::string id = pointElem(owner, m);
    if (!faulted(id)) continue;
    const Pt q = toPt(proj_, pts[m]);
    marks_ += "<circle class=\"point fault\" id=\"" + id + "\" cx=\"" + num(q.x) + "\" cy=\"" + num(q.y) + "\" r=\"" +
              num(std::max(radius, 6.0 / scale_)) + "\" data-tip=\"" +
              esc(tipFaults(id, "Point " + std::to_string(m) + " of " + owner)) + "\"/>\n";
  }
}

void Page::drawNode(size_t n) {
  const GeoNode& node = map_.nodes[n];
  const std::string id = nodeElem(n);
  if (!node.refPos.valid) return;
  const Pt q = toPt(proj_, node.refPos);
  char where[64];
  std::snprintf(where, sizeof(where), "%.7f, %.7f", node.refPos.lat, node.refPos.lon);
  std::string tip = "Node " + nodeName(node.id) + (node.name ? " " + *node.name : "") + "\nreference: " + where;
  if (node.refPos.elevation) tip += ", " + num(*node.refPos.elevation) + " m";
  tip += "\n" + std::to_string(node.links.size()) + " incoming link(s)\npath: nodes[" + std::to_string(n) + "]";
  const double r = 5.0 / scale_;
  const double font = 13.0 / scale_;
  const std::string label = (node.name ? *node.name + " " : "") + "(" + nodeName(node.id) + ")";
  // The label goes beside the node where it covers the fewest lanes: the
  // corners first (towards the middle of the drawing, so that it is not cut
  // at the edge), then above, below and to the sides, each ever farther out
  // until a place clear of the lanes is found. A leader line joins a label
  // set apart to its node.
  const double textW = 0.6 * font * static_cast<double>(label.size()), gap = 1.6 * r;
  const bool towardsLeft = q.x > 0;
  double dx = 0, dy = 0, chosenReach = 1.0;
  int best = -1;
  for (double reach : {1.0, 3.0, 6.0, 10.0}) {
    for (int c = 0; c < 8 && best != 0; c++) {
      // 0-3: corners; 4, 5: above and below, centred; 6, 7: level, to the sides.
      const bool left = c < 4 ? towardsLeft != (c >= 2) : c == 6;
      const int vertical = c < 4 ? (c % 2 == 0 ? -1 : 1) : (c == 4 ? -1 : c == 5 ? 1 : 0);
      const double g = gap * reach;
      const double x0 = c == 4 || c == 5 ? q.x - textW / 2 : left ? q.x - g - textW : q.x + g;
      const double y0 = vertical < 0 ? q.y - g - font : vertical > 0 ? q.y + g : q.y - font / 2;
      // Cut at the edge of the initial view counts as much as covering a lane.
      const bool cut = x0 < (left_ - cx_) / scale_ || x0 + textW > (opt_.width - cx_) / scale_ || y0 < -cy_ / scale_ ||
                       y0 + font > (opt_.height - cy_) / scale_;
      const int hits = lanePointsIn(x0, y0, x0 + textW, y0 + font) + (cut ? 1000 : 0);
      if (best < 0 || hits < best) {
        best = hits;
        chosenReach = reach;
        dx = x0 - q.x;
        dy = y0 + 0.8 * font - q.y;
      }
    }
  }
  std::string leader;
  if (chosenReach > 1.0) {
    leader = "<line class=\"leader\" x1=\"" + num(q.x) + "\" y1=\"" + num(q.y) + "\" x2=\"" +
             num(q.x + dx + textW / 2) + "\" y2=\"" + num(q.y + dy - 0.3 * font) + "\"/>";
  }
  nodes_ += "<g class=\"node" + std::string(faulted(id) ? " fault" : "") + "\" id=\"" + id + "\" data-tip=\"" +
            esc(tipFaults(id, tip)) + "\">" + leader + "<circle cx=\"" + num(q.x) + "\" cy=\"" + num(q.y) + "\" r=\"" +
            num(r) + "\"/><text x=\"" + num(q.x + dx) + "\" y=\"" + num(q.y + dy) + "\" font-size=\"" + num(font) +
            "\" stroke-width=\"" + num(3.0 / scale_) + "\">" + esc(label) + "</text></g>\n";
}

// How much of the lanes lies in a box of the drawing: samples every few pixels
// along each lane.
int Page::lanePointsIn(double x0, double y0, double x1, double y1) const {
  int hits = 0;
  const double step = 2.0 / scale_;
  for (const GeoNode& node : map_.nodes) {
    for (const GeoLink& link : node.links) {
      for (const GeoLane& lane : link.lanes) {
        const std::vector<Pt> pts = validPts(proj_, lane.points);
        // The lane's half width and two pixels around the box.
        const double m = laneWidth(lane) / 2 + step;
        for (size_t i = 1; i < pts.size(); i++) {
          const Pt a = pts[i - 1], b = pts[i];
          if (std::max(a.x, b.x) < x0 - m || std::min(a.x, b.x) > x1 + m || std::max(a.y, b.y) < y0 - m ||
              std::min(a.y, b.y) > y1 + m) {
            continue;
          }
          const int steps = static_cast<int>(std::min(std::hypot(b.x - a.x, b.y - a.y) / step, 1e5)) + 1;
          for (int k = 0; k <= steps; k++) {
            const double x = a.x + (b.x - a.x) * k / steps, y = a.y + (b.y - a.y) * k / steps;
            if (x >= x0 - m && x <= x1 + m && y >= y0 - m && y <= y1 + m) hits++;
          }
        }
      }
    }
  }
  return hits;
}

std::string Page::legend() const {
  std::string out = "<div id=\"legend\">";
  for (const LaneStyle& s : kLaneStyles) {
    bool used = false;
    for (const GeoNode& node : map_.nodes) {
      for (const GeoLink& link : node.links) {
        for (const GeoLane& lane : link.lanes) used = used || &laneStyle(lane.type) == &s;
      }
    }
    if (used) {
      out += "<div><i style=\"background:" + std::string(s.colour) + "\"></i>" +
             (s.type != nullptr ? s.type : "no lane type") + "</div>";
    }
  }
  out += "<div><i class=\"sw-conn\"></i>connection</div><div><i class=\"sw-stop\"></i>stop end</div>";
  if (!faults_.empty()) out += "<div><i style=\"background:" + std::string(kFaultColour) + "\"></i>fault</div>";
  if (!opt_.marks.empty() || !opt_.overlays.empty()) {
    for (const char* m : {"added", "removed", "changed"}) {
      out += "<div><i style=\"background:" + std::string(markColour(m)) + "\"></i>" + m + "</div>";
    }
  }
  return out + "</div>\n";
}

std::string Page::faultList() const {
  if (!opt_.differences.empty()) {
    std::string out =
        "<div id=\"faults\" class=\"diff\"><b>" + std::to_string(opt_.differences.size()) + " difference(s)</b><ul>";
    for (const std::string& d : opt_.differences) out += "<li>" + esc(d) + "</li>";
    return out + "</ul></div>\n";
  }
  if (faults_.empty()) return "";
  std::string out = "<div id=\"faults\"><b>" + std::to_string(faults_.size()) + " fault(s)</b><ul>";
  for (const MapFault& f : faults_) {
    const std::string elem = faultElem(map_, f);
    // A path breaks only before its steps, never inside a name.
    std::string path;
    for (char c : esc(f.path)) {
      if (c == '.' || c == '[') path += "<wbr>";
      path += c;
    }
    out += "<li" + (elem.empty() ? std::string() : " data-target=\"" + elem + "\"") + "><code>" + path + "</code> " +
           esc(f.text) + (elem.empty() ? " <em>(not on the drawing)</em>" : "") + "</li>";
  }
  return out + "</ul></div>\n";
}

// Style and behaviour: hover tips, wheel zoom and drag pan of the drawing, the
// scale bar (redrawn for each zoom) and fault list highlighting.
constexpr const char* kStyle = R"(
body{margin:0;background:#f5f3ee;font:13px/1.35 sans-serif;color:#222}
svg{display:block}
.lane{fill:none;stroke-linecap:butt;stroke-linejoin:round}
.lane:hover,.lane.hl{stroke-opacity:.75}
.centre{fill:none;stroke:#fff;stroke-width:1;stroke-dasharray:5 4;vector-effect:non-scaling-stroke;pointer-events:none}
.stop{stroke:#111;stroke-width:2.5;vector-effect:non-scaling-stroke;pointer-events:none}
.link{fill:none;stroke:#5d4f3a;stroke-width:1.5;stroke-dasharray:8 5;vector-effect:non-scaling-stroke}
.link.fault{stroke:#d62728;stroke-width:4;stroke-dasharray:none}
.conn{fill:none;stroke:#1565c0;stroke-width:1.3;stroke-opacity:.75;vector-effect:non-scaling-stroke;pointer-events:none}
.head{fill:#1565c0;fill-opacity:.85;pointer-events:none}
.point.fault{fill:#d62728;fill-opacity:.55;stroke:#d62728;stroke-width:2;vector-effect:non-scaling-stroke}
.node circle{fill:#fff;stroke:#222;stroke-width:2;vector-effect:non-scaling-stroke}
.node.fault circle{fill:#d62728;stroke:#d62728}
.leader{stroke:#222;stroke-width:1;vector-effect:non-scaling-stroke}
.node text{fill:#222;stroke:#f5f3ee;paint-order:stroke;font-family:sans-serif}
.node.fault text{fill:#d62728}
.hl{stroke:#ff9800!important;fill-opacity:.9}
#title{position:fixed;left:8px;top:6px;font-weight:bold;background:#f5f3eecc;padding:2px 6px}
#faults{position:fixed;left:8px;top:32px;width:320px;max-height:calc(100% - 110px);overflow:auto;background:#fff;
  border:1px solid #d62728;padding:4px 8px;color:#d62728}
#faults.diff{border-color:#555;color:#222}
#faults ul{margin:2px 0;padding-left:16px;overflow-wrap:break-word}#faults code{word-break:keep-all}#faults code{color:#222}#faults li{cursor:default}
#legend{position:fixed;right:8px;bottom:8px;background:#fffe;border:1px solid #bbb;padding:4px 8px}
#legend i{display:inline-block;width:18px;height:9px;margin-right:6px;vertical-align:middle}
#legend .sw-conn{height:0;border-top:2px solid #1565c0}#legend .sw-stop{width:3px;background:#111;margin:0 13px 0 8px}
#tip{position:fixed;background:#fff;border:1px solid #555;padding:4px 7px;white-space:pre;pointer-events:none;
  box-shadow:1px 1px 4px #0004;z-index:2}
.inset-frame{fill:#f5f3ee;stroke:#555;stroke-width:1}
.inset-name{font:12px sans-serif;fill:#222;stroke:#f5f3ee;stroke-width:3px;paint-order:stroke}
#bar text,#north text{font:12px sans-serif;fill:#222}
)";

constexpr const char* kScript = R"(
(function(){
const svg=document.getElementById('map'),world=document.getElementById('world'),tip=document.getElementById('tip');
let s=+svg.dataset.pxPerM,tx=+svg.dataset.cx,ty=+svg.dataset.cy,drag=null;
function bar(){
  const max=svg.width.baseVal.value*0.2/s,p=Math.pow(10,Math.floor(Math.log10(max)));
  const len=[5,2,1].map(k=>k*p).find(v=>v<=max),w=len*s;
  document.getElementById('bar-line').setAttribute('points','0,-6 0,0 '+w+',0 '+w+',-6');
  document.getElementById('bar-text').textContent=len>=1000?+(len/1000).toPrecision(3)+' km':+len.toPrecision(3)+' m';
}
function apply(){world.setAttribute('transform','translate('+tx+' '+ty+') scale('+s+')');bar();}
svg.addEventListener('wheel',e=>{
  e.preventDefault();
  const k=Math.exp(-e.deltaY*0.0015),r=svg.getBoundingClientRect(),x=e.clientX-r.left,y=e.clientY-r.top;
  tx=x-(x-tx)*k;ty=y-(y-ty)*k;s*=k;apply();
},{passive:false});
svg.addEventListener('mousedown',e=>{drag={x:e.clientX-tx,y:e.clientY-ty};});
window.addEventListener('mouseup',()=>{drag=null;});
document.addEventListener('mousemove',e=>{
  if(drag){tx=e.clientX-drag.x;ty=e.clientY-drag.y;apply();}
  const t=e.target.closest&&e.target.closest('[data-tip]');
  if(!t){tip.hidden=true;return;}
  tip.textContent=t.dataset.tip;tip.hidden=false;
  const left=Math.min(e.clientX+14,innerWidth-tip.offsetWidth-4),top=Math.min(e.clientY+14,innerHeight-tip.offsetHeight-4);
  tip.style.left=Math.max(left,0)+'px';tip.style.top=Math.max(top,0)+'px';
});
document.querySelectorAll('#faults li[data-target]').forEach(li=>{
  const el=document.getElementById(li.dataset.target);
  li.addEventListener('mouseenter',()=>el&&el.classList.add('hl'));
  li.addEventListener('mouseleave',()=>el&&el.classList.remove('hl'));
});
apply();
})();
)";

std::string Page::html() {
  for (const PageOverlay& o : opt_.overlays) {
    if (!drawn(o.points)) continue;
    lanes_ += "<polyline class=\"lane removed\" points=\"" + polyline(o.points) + "\" stroke=\"" + kRemovedColour +
              "\" stroke-width=\"" + num(o.widthM) + "\" data-tip=\"" + esc(o.tip) + "\"/>\n";
  }
  for (size_t n = 0; n < map_.nodes.size(); n++) {
    for (size_t k = 0; k < map_.nodes[n].links.size(); k++) {
      for (size_t l = 0; l < map_.nodes[n].links[k].lanes.size(); l++) drawLane(n, k, l);
      drawLink(n, k);
    }
  }
  for (size_t n = 0; n < map_.nodes.size(); n++) drawNode(n);

  const int w = opt_.width, h = opt_.height;
  size_t links = 0, lanes = 0;
  for (const GeoNode& node : map_.nodes) {
    links += node.links.size();
    for (const GeoLink& link : node.links) lanes += link.lanes.size();
  }
  char proj[256];
  std::snprintf(proj, sizeof(proj),
                " data-lat0=\"%.9f\" data-lon0=\"%.9f\" data-cx=\"%g\" data-cy=\"%g\" data-px-per-m=\"%.9g\"",
                proj_.lat0(), proj_.lon0(), cx_, cy_, scale_);
  const std::string size = "width=\"" + std::to_string(w) + "\" height=\"" + std::to_string(h) + "\"";

  std::string out = "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\">\n<title>" + esc(opt_.title) +
                    "</title>\n<style>" + kStyle + "</style></head><body>\n";
  out += "<svg id=\"map\" xmlns=\"http://www.w3.org/2000/svg\" " + size + " viewBox=\"0 0 " + std::to_string(w) + " " +
         std::to_string(h) + "\"" + proj + ">\n";
  out += "<rect " + size + " fill=\"#f5f3ee\"/>\n";
  out += "<g id=\"world\" transform=\"translate(" + num(cx_) + " " + num(cy_) + ") scale(" + num(scale_) + ")\">\n" +
         lanes_ + links_ + arrows_ + marks_ + nodes_ + "</g>\n";
  if (empty_) {
    out += "<text x=\"" + std::to_string(w / 2) + "\" y=\"" + std::to_string(h / 2) +
           "\" text-anchor=\"middle\" font-size=\"16\">no positions to draw</text>\n";
  }
  out += insets();
  // Scale bar (drawn by the script) and north arrow, in pixels.
  out += "<g id=\"bar\" transform=\"translate(20 " + std::to_string(h - 24) +
         ")\"><polyline id=\"bar-line\" fill=\"none\" stroke=\"#222\" stroke-width=\"2\" points=\"\"/>"
         "<text id=\"bar-text\" x=\"0\" y=\"16\"></text></g>\n";
  out += "<g id=\"north\" transform=\"translate(" + std::to_string(w - 30) +
         " 40)\"><polygon points=\"0,-22 8,4 0,-2 -8,4\" fill=\"#222\"/><text x=\"0\" y=\"20\" "
         "text-anchor=\"middle\">N</text></g>\n</svg>\n";
  out += "<div id=\"title\">" + esc(opt_.title) + " — " + std::to_string(map_.nodes.size()) + " node(s), " +
         std::to_string(links) + " link(s), " + std::to_string(lanes) + " lane(s)</div>\n";
  out += faultList() + legend() + "<div id=\"tip\" hidden></div>\n<script>" + kScript + "</script>\n</body></html>\n";
  return out;
}

}  // namespace

std::string laneElem(size_t n, size_t k, size_t l) {
  return "lane-" + std::to_string(n) + "-" + std::to_string(k) + "-" + std::to_string(l);
}

FaultPlace faultPlace(std::string_view path) {
  FaultPlace place;
  if (path.substr(0, 4) == "map.") path.remove_prefix(4);
  int* const levels[] = {&place.node, &place.link, &place.lane};
  const char* const names[] = {"nodes", "inLinks", "lanes"};
  size_t depth = 0;
  while (!path.empty()) {
    const size_t dot = path.find('.');
    std::string_view seg = path.substr(0, dot);
    path = dot == std::string_view::npos ? std::string_view() : path.substr(dot + 1);
    const size_t open = seg.find('[');
    if (open == std::string_view::npos || seg.back() != ']' || open + 2 >= seg.size()) break;
    const std::string_view name = seg.substr(0, open), digits = seg.substr(open + 1, seg.size() - open - 2);
    if (digits.size() > 6 || !std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; })) {
      break;
    }
    const int index = std::stoi(std::string(digits));
    if (depth < 3 && name == names[depth]) {
      *levels[depth++] = index;
    } else if (depth >= 2 && name == "points") {
      place.point = index;
      break;
    } else {
      break;
    }
  }
  return place;
}

std::string mapPage(const GeoMap& map, const std::vector<MapFault>& faults, const PageOptions& options) {
  return Page(map, faults, options).html();
}

}  // namespace maptool
