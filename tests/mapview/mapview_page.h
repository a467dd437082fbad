// The map view's pages as tests see them: a small real map, the page rendered
// by headless Chromium into pixels, and the place of a position on it (with
// GeographicLib's local plane, not the tool's own projection).
#ifndef MAPVIEW_PAGE_H
#define MAPVIEW_PAGE_H

#include <gtest/gtest.h>
#include <png.h>

#include <GeographicLib/LocalCartesian.hpp>
#include <cmath>
#include <cstdlib>
#include <regex>
#include <string>
#include <vector>

#include "map_tool_run.h"

namespace mapview {

// Node 1 at 31 N, 121 E; link 0 comes from the east (a vehicle and a bike
// lane, west-bound), link 1 from the south (two vehicle lanes, north-bound).
inline constexpr const char* kMap =
    R"({"mapSlice":"1","eTag":"t","map":{"nodes":[{"name":"Test Rd","id":{"region":1,"id":1},
"refPos":{"lon":121.0,"lat":31.0},"inLinks":[
 {"name":"east","upstreamNodeId":{"id":2},"linkWidth":700,"speedLimits":[{"type":"vehicleMaxSpeed","speed":500}],
  "points":[{"lon":121.0006,"lat":31.0},{"lon":121.0001,"lat":31.0}],"lanes":[
  {"laneId":1,"laneWidth":350,"laneAttributes":{"laneType":{"vehicle":0}},"maneuvers":2048,
   "points":[{"lon":121.0006,"lat":31.000016},{"lon":121.0001,"lat":31.000016}]},
  {"laneId":2,"laneWidth":200,"laneAttributes":{"laneType":{"bikeLane":0}},
   "points":[{"lon":121.0006,"lat":31.000043},{"lon":121.0001,"lat":31.000043}]}]},
 {"name":"south","upstreamNodeId":{"id":3},"linkWidth":700,
  "points":[{"lon":121.0,"lat":30.9995},{"lon":121.0,"lat":30.9999}],"lanes":[
  {"laneId":1,"laneWidth":350,"laneAttributes":{"laneType":{"vehicle":0}},
   "points":[{"lon":121.0000185,"lat":30.9995},{"lon":121.0000185,"lat":30.9999}]},
  {"laneId":2,"laneWidth":350,"laneAttributes":{"laneType":{"vehicle":0}},
   "points":[{"lon":121.000055,"lat":30.9995},{"lon":121.000055,"lat":30.9999}]}]}]}]}})";

struct Rgb {
  int r, g, b;
};

// The whole opening tag of the element with this id.
inline std::string tagOf(const std::string& html, const std::string& id) {
  const size_t at = html.find("id=\"" + id + "\"");
  if (at == std::string::npos) return "";
  const size_t open = html.rfind('<', at);
  return html.substr(open, html.find('>', at) - open);
}

inline double attr(const std::string& html, const char* name) {
  std::smatch m;
  const std::regex re(std::string(name) + "=\"([-0-9.e]+)\"");
  return std::regex_search(html, m, re) ? std::stod(m[1]) : std::nan("");
}

// Chromium from PATH (or V2X_CHROMIUM); empty when there is none.
inline std::string chromium() {
  if (const char* env = std::getenv("V2X_CHROMIUM")) return env;
  for (const char* name : {"chromium", "chromium-browser"}) {
    const std::string cmd = std::string("command -v ") + name + " >/dev/null 2>&1";
    if (std::system(cmd.c_str()) == 0) return name;
  }
  return "";
}

// The page rendered at 1200x900 pixels.
struct Rendered {
  std::vector<uint8_t> px;
  unsigned width = 0, height = 0;
  Rgb at(int x, int y) const {
    const size_t i = (static_cast<size_t>(y) * width + static_cast<size_t>(x)) * 3;
    return Rgb{px[i], px[i + 1], px[i + 2]};
  }
};

// Renders html (a file in dir) with Chromium; false when it could not.
inline bool render(const v2xtest::TempDir& dir, const std::string& html, Rendered& out) {
  const std::string browser = chromium();
  const std::string png = html + ".png";
  v2xtest::ChildProcess chrome;
  if (!chrome.start({"/bin/sh", "-c",
                     "exec \"$0\" --headless --no-sandbox --disable-gpu --hide-scrollbars --no-first-run "
                     "--disable-background-networking --disable-component-update --disable-sync "
                     "--user-data-dir=\"$1\" --window-size=1200,900 --screenshot=\"$2\" \"file://$3\"",
                     browser, dir.file("profile"), png, html},
                    {}, dir.file("chromium.err"))) {
    return false;
  }
  const int st = chrome.waitExit(std::chrono::seconds(120));
  EXPECT_TRUE(st >= 0 && WIFEXITED(st) && WEXITSTATUS(st) == 0) << v2xtest::readFile(dir.file("chromium.err"));
  png_image img{};
  img.version = PNG_IMAGE_VERSION;
  if (!png_image_begin_read_from_file(&img, png.c_str())) return false;
  img.format = PNG_FORMAT_RGB;
  out.px.assign(PNG_IMAGE_SIZE(img), 0);
  if (!png_image_finish_read(&img, nullptr, out.px.data(), 0, nullptr)) return false;
  out.width = img.width;
  out.height = img.height;
  return true;
}

// Where the page's initial view puts a position: the projection the root
// <svg> names (a local plane at data-lat0, data-lon0 drawn at data-cx,
// data-cy with data-px-per-m).
class PagePlace {
 public:
  explicit PagePlace(const std::string& html)
      : plane_(attr(html, "data-lat0"), attr(html, "data-lon0"), 0),
        cx_(attr(html, "data-cx")),
        cy_(attr(html, "data-cy")),
        scale_(attr(html, "data-px-per-m")) {}
  double scale() const { return scale_; }
  // The metres east and north of lat, lon in the page's plane.
  std::pair<double, double> metres(double lat, double lon) const {
    double e = 0, n = 0, u = 0;
    plane_.Forward(lat, lon, 0, e, n, u);
    return {e, n};
  }
  // The pixel of lat, lon, moved east and north by metres.
  std::pair<int, int> pixel(double lat, double lon, double east = 0, double north = 0) const {
    double e = 0, n = 0, u = 0;
    plane_.Forward(lat, lon, 0, e, n, u);
    return {static_cast<int>(std::lround(cx_ + (e + east) * scale_)),
            static_cast<int>(std::lround(cy_ - (n + north) * scale_))};
  }

 private:
  GeographicLib::LocalCartesian plane_;
  double cx_, cy_, scale_;
};

inline int colourDistance(const Rgb& a, const Rgb& b) {
  return std::abs(a.r - b.r) + std::abs(a.g - b.g) + std::abs(a.b - b.b);
}

}  // namespace mapview

#endif
