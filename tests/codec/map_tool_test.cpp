// v2x_map_tool as a process: decode prints the map, encode gives the same
// bytes back, and bad input ends with one line and a non-zero status; the
// library's commands, match (plain and prepared) and relative, on the real
// four-link intersection.
#include <gtest/gtest.h>

#include "codec_test_util.h"
#include "map_tool_run.h"

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

TEST(MapTool, DecodePrintsTheMapAndEncodeGivesTheSameBytes) {
  v2xtest::TempDir dir;
  const ToolRun dec = runTool(dir, {"decode", writeMap(dir)});
  ASSERT_EQ(dec.status, 0) << dec.err;
  EXPECT_EQ(dec.out.rfind("<MessageFrame>", 0), 0U);
  EXPECT_NE(dec.out.find("<lat>280985258</lat>"), std::string::npos);
  EXPECT_NE(dec.out.find("<timeStamp>475970</timeStamp>"), std::string::npos);
  v2xtest::writeFile(dir.file("map.xml"), dec.out);

  const ToolRun enc = runTool(dir, {"encode", dir.file("map.xml"), "-o", dir.file("back.uper")});
  ASSERT_EQ(enc.status, 0) << enc.err;
  EXPECT_EQ(v2xtest::readFile(dir.file("back.uper")), v2xtest::readFile(dir.file("map.uper")));

  const ToolRun again = runTool(dir, {"decode", dir.file("map.xml")});  // XER in is detected
  EXPECT_EQ(again.status, 0);
  EXPECT_EQ(again.out, dec.out);

  const ToolRun text = runTool(dir, {"decode", "--text", dir.file("map.uper")});
  EXPECT_EQ(text.status, 0);
  EXPECT_NE(text.out.find("lat: 280985258"), std::string::npos);
}

TEST(MapTool, BadInputAndUsageErrors) {
  v2xtest::TempDir dir;
  const Bytes map = fromHex(kMap528);
  v2xtest::writeFile(dir.file("short.uper"), std::string(map.begin(), map.begin() + 100));
  v2xtest::writeFile(dir.file("bsm.uper"), std::string("\x00\x7f\x12\x34\x56\x78\x9a\xbc", 8));
  v2xtest::writeFile(dir.file("far.xml"),
                     "<MessageFrame><mapFrame><msgCnt>1</msgCnt><nodes><Node><id><id>1</id></id><refPos><lat>1</lat>"
                     "<long>1800000002</long></refPos></Node></nodes></mapFrame></MessageFrame>");
  // XER that the decoder alone would take, losing the misspelt member.
  auto node = [](const std::string& refPos) {
    return "<MessageFrame><mapFrame><msgCnt>1</msgCnt>\n<nodes><Node><id><id>1</id></id>\n<refPos>" + refPos +
           "</refPos></Node></nodes></mapFrame></MessageFrame>";
  };
  v2xtest::writeFile(dir.file("misspelt.xml"), node("<lat>1</lat><long>1</long><elevaton>5</elevaton>"));
  v2xtest::writeFile(dir.file("mismatch.xml"), node("<lat>1</lat><long>1</lon>"));
  const std::vector<ToolFailure> cases = {
      {{"encode", dir.file("misspelt.xml"), "-o", dir.file("x")},
       1,
       "line 3: unknown element <elevaton> in <refPos> (did you mean <elevation>?"},
      {{"encode", dir.file("mismatch.xml"), "-o", dir.file("x")}, 1, "line 3: </lon> closes <long> of line 3"},
      {{"decode", dir.file("short.uper")}, 1, "not a valid UPER MessageFrame: data end inside the message"},
      {{"decode", dir.file("bsm.uper")}, 1, "(a bsmFrame, not supported)"},
      {{"encode", dir.file("far.xml"), "-o", dir.file("x")}, 1, "Longitude: constraint failed"},
      {{"encode", dir.file("far.xml")}, 2, "no output file"},
      {{"decode"}, 2, "no input file"},
  };
  expectToolFailures(dir, cases);
  EXPECT_FALSE(std::filesystem::exists(dir.file("x")));

  for (const char* cmd : {"decode", "encode"}) {
    const ToolRun help = runTool(dir, {cmd, "--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.out.rfind(std::string("usage: v2x_map_tool ") + cmd, 0), 0U) << help.out;
  }
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
      // A cloud document is read as the service reads it.
      {{"match", V2X_SOURCE_DIR "/etc/samples/map_4x.json", "31.2800157", "121.1610"},
       0,
       "node=0 link=0 lane=0 laneId=1\n"},
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
