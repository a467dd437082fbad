// v2x_map_tool as a process: decode prints the map, encode gives the same
// bytes back, and bad input ends with one line and a non-zero status.
#include <gtest/gtest.h>

#include "codec_test_util.h"

using namespace codectest;

namespace {

TEST(MapTool, DecodePrintsTheMapAndEncodeGivesTheSameBytes) {
  v2xtest::TempDir dir;
  const Bytes bytes = fromHex(kMap528);
  const std::string map(bytes.begin(), bytes.end());
  v2xtest::writeFile(dir.file("map.uper"), map);

  const ToolRun dec = runTool(dir, {"decode", dir.file("map.uper")});
  ASSERT_EQ(dec.status, 0) << dec.err;
  EXPECT_EQ(dec.out.rfind("<MessageFrame>", 0), 0U);
  EXPECT_NE(dec.out.find("<lat>280985258</lat>"), std::string::npos);
  EXPECT_NE(dec.out.find("<timeStamp>475970</timeStamp>"), std::string::npos);
  v2xtest::writeFile(dir.file("map.xml"), dec.out);

  const ToolRun enc = runTool(dir, {"encode", dir.file("map.xml"), "-o", dir.file("back.uper")});
  ASSERT_EQ(enc.status, 0) << enc.err;
  EXPECT_EQ(v2xtest::readFile(dir.file("back.uper")), map);

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
  struct Case {
    std::vector<std::string> args;
    int status;
    const char* message;
  };
  const Case cases[] = {
      {{"decode", dir.file("short.uper")}, 1, "not a valid UPER MessageFrame: data end inside the message"},
      {{"decode", dir.file("bsm.uper")}, 1, "(a bsmFrame, not supported)"},
      {{"encode", dir.file("far.xml"), "-o", dir.file("x")}, 1, "Longitude: constraint failed"},
      {{"encode", dir.file("far.xml")}, 2, "no output file"},
      {{"decode"}, 2, "no input file"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.message);
    const ToolRun r = runTool(dir, c.args);
    EXPECT_EQ(r.status, c.status);
    EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
    EXPECT_EQ(r.out, "");
  }
  EXPECT_FALSE(std::filesystem::exists(dir.file("x")));

  for (const char* cmd : {"decode", "encode"}) {
    const ToolRun help = runTool(dir, {cmd, "--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.out.rfind(std::string("usage: v2x_map_tool ") + cmd, 0), 0U) << help.out;
  }
}

}  // namespace
