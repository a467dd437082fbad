// "diff" and "view --diff" on two versions of a real map: a node renamed, a
// connection removed and a lane moved 2 m east (moved with GeographicLib's
// geodesic, not the tool's plane); and "view" of a document the service
// refuses. The pages are rendered by headless Chromium and read back.
#include <cjson/cJSON.h>

#include <GeographicLib/Geodesic.hpp>
#include <cstdio>

#include "mapview_page.h"

using codectest::runTool;
using codectest::ToolRun;
using namespace mapview;

namespace {

constexpr double kMoveM = 2.0;
// Lane 2 of the link from the south, at this longitude on both its points.
constexpr const char* kMovedLon = "121.000055";

std::string replaced(std::string text, const std::string& from, const std::string& to) {
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
  return text;
}

std::string withConnections(const std::string& connections) {
  return replaced(kMap, R"("maneuvers":2048,)", R"("maneuvers":2048,"connectsTo":[)" + connections + "],");
}

const char* const kToLane1 = R"({"remoteIntersection":{"id":1},"connectingLane":{"laneId":1}})";
const char* const kToLane2 = R"({"remoteIntersection":{"id":1},"connectingLane":{"laneId":2},"phaseId":3})";

class MapDiff : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::string before = withConnections(std::string(kToLane1) + "," + kToLane2);
    double lat = 0, lon = 0;
    GeographicLib::Geodesic::WGS84().Direct(30.9997, std::stod(kMovedLon), 90.0, kMoveM, lat, lon);
    char moved[32];
    std::snprintf(moved, sizeof(moved), "%.9f", lon);
    std::string after = replaced(withConnections(kToLane1), kMovedLon, moved);
    after = replaced(after, R"("name":"Test Rd")", R"("name":"Main Rd")");
    v2xtest::writeFile(dir_.file("old.json"), before);
    v2xtest::writeFile(dir_.file("new.json"), after);
  }
  v2xtest::TempDir dir_;
};

TEST_F(MapDiff, ReportsExactlyWhatChangedByIdsInAnyForm) {
  // The old version as the service stores it: a UPER map file.
  const ToolRun conv = runTool(dir_, {"convert", dir_.file("old.json"), "-o", dir_.file("out")});
  ASSERT_EQ(conv.status, 0) << conv.out << conv.err;
  const std::string uper = dir_.file("out/map_data_0");
  EXPECT_EQ(runTool(dir_, {"diff", dir_.file("old.json"), uper}).status, 0);

  const ToolRun r = runTool(dir_, {"diff", "--json", uper, dir_.file("new.json")});
  EXPECT_EQ(r.status, 1) << r.err;
  cJSON* out = cJSON_Parse(r.out.c_str());
  ASSERT_NE(out, nullptr) << r.out;
  std::vector<std::string> got;
  double metres = 0;
  const cJSON* d = nullptr;
  cJSON_ArrayForEach(d, cJSON_GetObjectItem(out, "differences")) {
    auto get = [d](const char* key) {
      const cJSON* v = cJSON_GetObjectItem(d, key);
      return std::string(cJSON_IsString(v) ? v->valuestring : "");
    };
    got.push_back(get("change") + " " + get("element") +
                  (get("attribute").empty() ? "" : std::string(" ") + get("attribute")) +
                  (get("before").empty() ? "" : std::string(" ") + get("before") + " > " + get("after")));
    if (get("change") == "moved") metres = cJSON_GetObjectItem(d, "metres")->valuedouble;
  }
  cJSON_Delete(out);
  const std::vector<std::string> expected = {
      R"(changed node 1-1 name "Test Rd" > "Main Rd")",
      "removed node 1-1, link from 2, lane 1, connection to lane 2 of node 1",
      "moved node 1-1, link from 3, lane 2",
  };
  std::vector<std::string> sortedGot = got, sortedExpected = expected;
  std::sort(sortedGot.begin(), sortedGot.end());
  std::sort(sortedExpected.begin(), sortedExpected.end());
  EXPECT_EQ(sortedGot, sortedExpected);
  EXPECT_NEAR(metres, kMoveM, 0.05);
}

TEST_F(MapDiff, PageShowsBothLinesOfAMovedLane) {
  const std::string browser = chromium();
  if (browser.empty()) GTEST_SKIP() << "chromium is not installed (scripts/install-deps.sh installs it)";
  const ToolRun run =
      runTool(dir_, {"view", dir_.file("new.json"), "--diff", dir_.file("old.json"), "-o", dir_.file("d.html")});
  ASSERT_EQ(run.status, 0) << run.err;
  const std::string html = v2xtest::readFile(dir_.file("d.html"));
  EXPECT_NE(html.find("3 difference(s)"), std::string::npos);
  Rendered page;
  ASSERT_TRUE(render(dir_, dir_.file("d.html"), page));
  const PagePlace place(html);
  const double quarter = 3.5 / 4;
  struct Sample {
    const char* what;
    double east;  // metres from the moved lane's old centre line
    Rgb colour;
  } samples[] = {
      {"old line of the moved lane", -quarter, {0x8e, 0x24, 0xaa}},
      {"moved lane where it is now", kMoveM + quarter, {0xff, 0x8f, 0x00}},
      {"unchanged lane beside it", -3.5 - quarter, {0x7d, 0x85, 0x90}},
  };
  for (const Sample& s : samples) {
    SCOPED_TRACE(s.what);
    const auto [x, y] = place.pixel(30.9997, std::stod(kMovedLon), s.east);
    ASSERT_TRUE(x >= 0 && x < 1200 && y >= 0 && y < 900) << x << "," << y;
    const Rgb got = page.at(x, y);
    EXPECT_LE(colourDistance(got, s.colour), 12) << got.r << " " << got.g << " " << got.b;
  }
}

// A node whose latitude is out of range makes the service refuse the whole
// document; the page still draws it, the node (its latitude the middle of its
// points' latitudes) marked in red, and lists the fault with its value and range.
TEST_F(MapDiff, RefusedDocumentIsDrawnWithItsFaults) {
  const std::string doc = replaced(kMap, R"("refPos":{"lon":121.0,"lat":31.0})", R"("refPos":{"lon":121.0,"lat":91})");
  ASSERT_NE(doc, kMap);
  v2xtest::writeFile(dir_.file("refused.json"), doc);
  const ToolRun run = runTool(dir_, {"view", dir_.file("refused.json"), "-o", dir_.file("r.html")});
  ASSERT_EQ(run.status, 0) << run.err;
  const std::string html = v2xtest::readFile(dir_.file("r.html"));
  EXPECT_NE(html.find("nodes[0].refPos.lat"), std::string::npos);
  EXPECT_NE(html.find("91 (allowed: -90.0000000 to 90.0000001 degrees)"), std::string::npos);

  // The middle of the node's points' latitudes, from the document itself.
  double lat = 0;
  int n = 0;
  for (size_t at = doc.find(R"("lon":)"); at != std::string::npos; at = doc.find(R"("lon":)", at + 1)) {
    double x = 0, y = 0;
    if (std::sscanf(doc.c_str() + at, R"("lon":%lf,"lat":%lf})", &x, &y) == 2 && y < 90) lat += y, ++n;
  }
  ASSERT_GT(n, 0);
  const std::string browser = chromium();
  if (browser.empty()) GTEST_SKIP() << "chromium is not installed (scripts/install-deps.sh installs it)";
  Rendered page;
  ASSERT_TRUE(render(dir_, dir_.file("r.html"), page));
  const PagePlace place(html);
  const auto [nx, ny] = place.pixel(lat / n, 121.0);
  EXPECT_LE(colourDistance(page.at(nx, ny), {0xd6, 0x27, 0x28}), 12);
  const auto [lx, ly] = place.pixel(31.0000240, 121.00045);
  EXPECT_LE(colourDistance(page.at(lx, ly), {0x7d, 0x85, 0x90}), 12);
}

// The four-intersection sample's 3.5 m lanes on a 550 m grid would be a few
// pixels wide: each intersection also gets an inset where a lane is at least
// 8 pixels wide, and its lanes lie there where their positions say.
TEST(MapViewInsets, SlimLanesAreShownInAnInsetPerIntersection) {
  v2xtest::TempDir dir;
  const std::string sample = V2X_SOURCE_DIR "/etc/samples/map_4x.json";
  const ToolRun run = runTool(dir, {"view", sample, "-o", dir.file("s.html")});
  ASSERT_EQ(run.status, 0) << run.err;
  const std::string html = v2xtest::readFile(dir.file("s.html"));
  std::smatch m;
  const std::regex re(R"re(<svg class="inset" x="([-0-9.e]+)" y="([-0-9.e]+)"[^>]*data-e0="([-0-9.e]+)" )re"
                      R"re(data-s0="([-0-9.e]+)" data-inset-px-per-m="([-0-9.e]+)")re");
  ASSERT_TRUE(std::regex_search(html, m, re));
  const double x = std::stod(m[1]), y = std::stod(m[2]), e0 = std::stod(m[3]), s0 = std::stod(m[4]),
               k = std::stod(m[5]);
  EXPECT_GE(k * 3.5, 8.0);
  // Lane 1 of the first link of the first node: a metre before its stop end.
  cJSON* doc = cJSON_Parse(v2xtest::readFile(sample).c_str());
  ASSERT_NE(doc, nullptr);
  const cJSON* lane = cJSON_GetObjectItem(doc, "map");
  for (const char* key : {"nodes", "inLinks", "lanes"}) lane = cJSON_GetArrayItem(cJSON_GetObjectItem(lane, key), 0);
  const cJSON* points = cJSON_GetObjectItem(lane, "points");
  const int last = cJSON_GetArraySize(points) - 1;
  auto at = [&](int i, const char* key) {
    return cJSON_GetObjectItem(cJSON_GetArrayItem(points, i), key)->valuedouble;
  };
  const PagePlace place(html);
  const auto [e1, n1] = place.metres(at(last, "lat"), at(last, "lon"));
  const auto [e2, n2] = place.metres(at(last - 1, "lat"), at(last - 1, "lon"));
  cJSON_Delete(doc);
  const double len = std::hypot(e2 - e1, n2 - n1);
  ASSERT_GT(len, 1.0);
  const double e = e1 + (e2 - e1) / len, n = n1 + (n2 - n1) / len;
  const int px = static_cast<int>(std::lround(x + (e - e0) * k)), py = static_cast<int>(std::lround(y + (-n - s0) * k));
  if (chromium().empty()) GTEST_SKIP() << "chromium is not installed (scripts/install-deps.sh installs it)";
  Rendered page;
  ASSERT_TRUE(render(dir, dir.file("s.html"), page));
  ASSERT_TRUE(px >= 0 && px < 1200 && py >= 0 && py < 900) << px << "," << py;
  // Beside the centre line's dashes: a quarter lane to the side.
  const Rgb got =
      page.at(px + static_cast<int>((n2 - n1) / len * k * 0.9), py + static_cast<int>((e2 - e1) / len * k * 0.9));
  EXPECT_LE(colourDistance(got, {0x7d, 0x85, 0x90}), 12) << got.r << " " << got.g << " " << got.b;
}

}  // namespace
