// v2x_map_tool's library commands as a user runs them: match (plain and
// prepared) and relative, on the real four-link intersection.
#include <gtest/gtest.h>

#include "codec_test_util.h"

using namespace codectest;

namespace {

// Half-way along the first link's first segment (its lane is 22 m wide).
const char* const kLat = "28.1007355";
const char* const kLon = "112.9828090";

std::string writeMap(const v2xtest::TempDir& dir) {
  const Bytes map = fromHex(kMap528);
  v2xtest::writeFile(dir.file("map.uper"), std::string(map.begin(), map.end()));
  return dir.file("map.uper");
}

TEST(MapToolLib, MatchPrintsTheLaneOrFails) {
  v2xtest::TempDir dir;
  const std::string map = writeMap(dir);
  struct Case {
    std::vector<std::string> args;
    int status;
    std::string out;
  } cases[] = {
      {{"match", map, kLat, kLon}, 0, "node=0 link=0 lane=0 laneId=1\n"},
      {{"match", "--prepared", map, kLat, kLon}, 0, "node=0 link=0 lane=0 laneId=1\n"},
      {{"match", map, "28.2", "112.9"}, 1, ""},
      {{"match", "--prepared", map, "-28.1", "112.9"}, 1, ""},
      {{"match", map, "95", "112.9"}, 2, ""},
      {{"match", map, "28.1"}, 2, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.args[1] + " " + c.args.back());
    const ToolRun r = runTool(dir, c.args);
    EXPECT_EQ(c.status, r.status) << r.err;
    EXPECT_EQ(c.out, r.out);
    EXPECT_EQ(c.status != 0, r.err.find("v2x_map_tool match: ") != std::string::npos) << r.err;
  }
}

TEST(MapToolLib, RelativeShrinksTheMapAndKeepsItsLanes) {
  v2xtest::TempDir dir;
  const std::string rel = dir.file("rel.uper");
  const ToolRun r = runTool(dir, {"relative", writeMap(dir), "-o", rel});
  ASSERT_EQ(0, r.status) << r.err;
  size_t after = 0;
  ASSERT_EQ(1, std::sscanf(r.out.c_str(), "UPER size  528 bytes before, %zu bytes after", &after)) << r.out;
  EXPECT_LT(after, 528U);
  EXPECT_EQ(after, std::filesystem::file_size(rel));
  EXPECT_NE(std::string::npos, r.out.find("absolute   32 points before, 0 after")) << r.out;
  // The same lane at the same place, and nothing left to convert.
  EXPECT_EQ("node=0 link=0 lane=0 laneId=1\n", runTool(dir, {"match", rel, kLat, kLon}).out);
  ASSERT_EQ(0, runTool(dir, {"relative", rel, "-o", dir.file("rel2.uper")}).status);
  EXPECT_EQ(v2xtest::readFile(rel), v2xtest::readFile(dir.file("rel2.uper")));
  EXPECT_EQ(1, runTool(dir, {"relative", dir.file("missing.uper"), "-o", dir.file("x")}).status);
}

}  // namespace
