// "view" on a real map document with faults: the page names the element each
// fault path points at, loads nothing from the network, and, rendered by
// headless Chromium, shows each lane in its colour where its positions lie
// (checked with GeographicLib's local plane, not the tool's own projection).
#include <gtest/gtest.h>
#include <png.h>

#include <GeographicLib/LocalCartesian.hpp>
#include <cmath>
#include <cstdlib>
#include <regex>

#include "map_tool_run.h"

using codectest::runTool;
using codectest::ToolRun;

namespace {

// Node 1 at 31 N, 121 E; link 0 comes from the east (a vehicle and a bike
// lane, west-bound), link 1 from the south (two vehicle lanes, north-bound).
constexpr const char* kMap = R"({"mapSlice":"1","eTag":"t","map":{"nodes":[{"name":"Test Rd","id":{"region":1,"id":1},
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

struct FaultCase {
  const char* path;
  const char* text;
  const char* marked;  // id of the element marked, "" when only listed
};
const FaultCase kFaults[] = {
    {"nodes[0].inLinks[1].lanes[1].laneWidth", "lane width out of range", "lane-0-1-1"},
    {"nodes[0].inLinks[0].lanes[0].points[1].lat", "point latitude error", "point-0-0-0-1"},
    {"nodes[0].inLinks[0].speedLimits[0].speed", "speed limit error", "link-0-0"},
    {"map.nodes[0].refPos.ele", "elevation error", "node-0"},
    {"nodes[0].inLinks[5].lanes[0].laneId", "dropped link", "node-0"},
    {"eTag", "eTag error", ""},
};

struct Rgb {
  int r, g, b;
};

// The whole opening tag of the element with this id.
std::string tagOf(const std::string& html, const std::string& id) {
  const size_t at = html.find("id=\"" + id + "\"");
  if (at == std::string::npos) return "";
  const size_t open = html.rfind('<', at);
  return html.substr(open, html.find('>', at) - open);
}

double attr(const std::string& html, const char* name) {
  std::smatch m;
  const std::regex re(std::string(name) + "=\"([-0-9.e]+)\"");
  return std::regex_search(html, m, re) ? std::stod(m[1]) : std::nan("");
}

class MapViewPage : public ::testing::Test {
 protected:
  void SetUp() override {
    v2xtest::writeFile(dir_.file("map.json"), kMap);
    std::string faults = "{\"findings\":[";
    for (const FaultCase& f : kFaults) {
      faults += std::string(faults.back() == '[' ? "" : ",") + "{\"path\":\"" + f.path + "\",\"text\":\"" + f.text +
                "\",\"code\":13}";
    }
    v2xtest::writeFile(dir_.file("faults.json"), faults + "]}");
    const ToolRun run =
        runTool(dir_, {"view", dir_.file("map.json"), "--faults", dir_.file("faults.json"), "-o", dir_.file("m.html")});
    ASSERT_EQ(run.status, 0) << run.err;
    html_ = v2xtest::readFile(dir_.file("m.html"));
  }

  v2xtest::TempDir dir_;
  std::string html_;
};

TEST_F(MapViewPage, FaultsAreMarkedOnTheElementTheirPathNames) {
  for (const FaultCase& f : kFaults) {
    SCOPED_TRACE(f.path);
    if (*f.marked == '\0') {
      EXPECT_NE(html_.find(std::string(f.path) + "</code> " + f.text + " <em>(not on the drawing)"), std::string::npos);
      continue;
    }
    const std::string tag = tagOf(html_, f.marked);
    EXPECT_NE(tag.find("fault\""), std::string::npos) << tag;
    EXPECT_NE(tag.find(std::string("FAULT ") + f.path + ": " + f.text), std::string::npos) << tag;
  }
  EXPECT_EQ(tagOf(html_, "lane-0-0-1").find("fault"), std::string::npos);  // the others stay as they are
  EXPECT_NE(tagOf(html_, "lane-0-0-0").find("maneuvers: maneuverStraightAllowed"), std::string::npos);
  // Self-contained: nothing to fetch.
  for (const char* ref : {" src=", " href=", "url(", "@import"}) EXPECT_EQ(html_.find(ref), std::string::npos) << ref;
}

// Without a findings file, a cloud document's own faults are marked: a lane
// width out of range here, found by the service's reader.
TEST_F(MapViewPage, DocumentFaultsAreMarkedWithoutAFindingsFile) {
  std::string doc = kMap;
  const std::string wide = R"({"laneId":2,"laneWidth":350,"laneAttributes":{"laneType":{"vehicle":0}},)";
  ASSERT_NE(doc.find(wide), std::string::npos);
  doc.replace(doc.find(wide), wide.size(),
              R"({"laneId":2,"laneWidth":40000,"laneAttributes":{"laneType":{"vehicle":0}},)");
  v2xtest::writeFile(dir_.file("bad.json"), doc);
  const ToolRun run = runTool(dir_, {"view", dir_.file("bad.json"), "-o", dir_.file("bad.html")});
  ASSERT_EQ(run.status, 0) << run.err;
  const std::string html = v2xtest::readFile(dir_.file("bad.html"));
  EXPECT_NE(
      tagOf(html, "lane-0-1-1").find("FAULT nodes[0].inLinks[1].lanes[1].laneWidth: NODE Link lanes lanewidth error"),
      std::string::npos);
  EXPECT_EQ(tagOf(html, "lane-0-1-0").find("fault"), std::string::npos);
}

// Chromium from PATH (or V2X_CHROMIUM); empty when there is none.
std::string chromium() {
  if (const char* env = std::getenv("V2X_CHROMIUM")) return env;
  for (const char* name : {"chromium", "chromium-browser"}) {
    const std::string cmd = std::string("command -v ") + name + " >/dev/null 2>&1";
    if (std::system(cmd.c_str()) == 0) return name;
  }
  return "";
}

TEST_F(MapViewPage, RenderedLanesLieWhereTheirPositionsAre) {
  const std::string browser = chromium();
  if (browser.empty()) GTEST_SKIP() << "chromium is not installed (scripts/install-deps.sh installs it)";
  const std::string png = dir_.file("m.png");
  v2xtest::ChildProcess chrome;
  ASSERT_TRUE(chrome.start({"/bin/sh", "-c",
                            "exec \"$0\" --headless --no-sandbox --disable-gpu --hide-scrollbars --no-first-run "
                            "--disable-background-networking --disable-component-update --disable-sync "
                            "--user-data-dir=\"$1\" --window-size=1200,900 --screenshot=\"$2\" \"file://$3\"",
                            browser, dir_.file("profile"), png, dir_.file("m.html")},
                           {}, dir_.file("chromium.err")));
  const int st = chrome.waitExit(std::chrono::seconds(120));
  ASSERT_TRUE(st >= 0 && WIFEXITED(st) && WEXITSTATUS(st) == 0) << v2xtest::readFile(dir_.file("chromium.err"));

  png_image img{};
  img.version = PNG_IMAGE_VERSION;
  ASSERT_TRUE(png_image_begin_read_from_file(&img, png.c_str())) << img.message;
  img.format = PNG_FORMAT_RGB;
  std::vector<uint8_t> px(PNG_IMAGE_SIZE(img));
  ASSERT_TRUE(png_image_finish_read(&img, nullptr, px.data(), 0, nullptr)) << img.message;
  ASSERT_EQ(img.width, 1200U);
  ASSERT_EQ(img.height, 900U);
  auto at = [&](int x, int y) {
    const size_t i = (static_cast<size_t>(y) * img.width + static_cast<size_t>(x)) * 3;
    return Rgb{px[i], px[i + 1], px[i + 2]};
  };

  // Where the page says its view is: a local plane at (lat0, lon0) drawn at
  // (cx, cy) with a number of pixels per metre.
  const double lat0 = attr(html_, "data-lat0"), lon0 = attr(html_, "data-lon0");
  const double cx = attr(html_, "data-cx"), cy = attr(html_, "data-cy"), scale = attr(html_, "data-px-per-m");
  ASSERT_GT(scale, 5.0);
  const GeographicLib::LocalCartesian plane(lat0, lon0, 0);
  struct Sample {
    const char* what;
    double lat, lon;  // a quarter lane width off the centre line, clear of its dashes
    Rgb colour;
  };
  const Sample samples[] = {
      {"vehicle lane 0-0-0", 31.0000240, 121.00045, {0x7d, 0x85, 0x90}},
      {"bike lane 0-0-1", 31.0000475, 121.00045, {0x4c, 0xaf, 0x50}},
      {"vehicle lane 0-1-0", 30.9997, 121.0000277, {0x7d, 0x85, 0x90}},
      {"faulted lane 0-1-1", 30.9997, 121.0000642, {0xd6, 0x27, 0x28}},
      {"ground between the links", 30.9997, 121.0004, {0xf5, 0xf3, 0xee}},
  };
  for (const Sample& s : samples) {
    SCOPED_TRACE(s.what);
    double east = 0, north = 0, up = 0;
    plane.Forward(s.lat, s.lon, 0, east, north, up);
    const int x = static_cast<int>(std::lround(cx + east * scale)),
              y = static_cast<int>(std::lround(cy - north * scale));
    ASSERT_TRUE(x >= 0 && x < 1200 && y >= 0 && y < 900) << x << "," << y;
    const Rgb got = at(x, y);
    EXPECT_LE(std::abs(got.r - s.colour.r) + std::abs(got.g - s.colour.g) + std::abs(got.b - s.colour.b), 12)
        << "at " << x << "," << y << ": " << got.r << " " << got.g << " " << got.b;
  }

  // The script drew the scale bar at the bottom left.
  const Rgb bar = at(40, 875);
  EXPECT_LT(bar.r + bar.g + bar.b, 200) << bar.r << " " << bar.g << " " << bar.b;
}

}  // namespace
