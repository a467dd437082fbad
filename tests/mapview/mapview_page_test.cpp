// "view" on a real map document with faults: the page names the element each
// fault path points at, loads nothing from the network, and, rendered by
// headless Chromium, shows each lane in its colour where its positions lie
// (checked with GeographicLib's local plane, not the tool's own projection).
#include "mapview_page.h"

using codectest::runTool;
using codectest::ToolRun;
using namespace mapview;

namespace {

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

TEST_F(MapViewPage, RenderedLanesLieWhereTheirPositionsAre) {
  const std::string browser = chromium();
  if (browser.empty()) GTEST_SKIP() << "chromium is not installed (scripts/install-deps.sh installs it)";
  Rendered page;
  ASSERT_TRUE(render(dir_, dir_.file("m.html"), page));
  ASSERT_EQ(page.width, 1200U);
  ASSERT_EQ(page.height, 900U);
  const PagePlace place(html_);
  ASSERT_GT(place.scale(), 5.0);
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
    const auto [x, y] = place.pixel(s.lat, s.lon);
    ASSERT_TRUE(x >= 0 && x < 1200 && y >= 0 && y < 900) << x << "," << y;
    const Rgb got = page.at(x, y);
    EXPECT_LE(colourDistance(got, s.colour), 12)
        << "at " << x << "," << y << ": " << got.r << " " << got.g << " " << got.b;
  }

  // The script drew the scale bar at the bottom left.
  const Rgb bar = page.at(40, 875);
  EXPECT_LT(bar.r + bar.g + bar.b, 200) << bar.r << " " << bar.g << " " << bar.b;
}

}  // namespace
