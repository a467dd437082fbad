// v2x_map_tool as a process: decode prints the map, encode gives the same
// bytes back, and bad input ends with one line and a non-zero status.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "codec_test_util.h"

using namespace codectest;
namespace fs = std::filesystem;

namespace {

struct ToolRun {
  int status;
  std::string out, err;
};

class MapTool : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::path(::testing::TempDir()) / ("map_tool_" + std::to_string(::getpid()));
    fs::remove_all(dir_);
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_); }

  std::string path(const char* name) const { return (dir_ / name).string(); }
  void write(const char* name, const std::string& data) const { std::ofstream(path(name), std::ios::binary) << data; }
  std::string read(const char* name) const {
    std::ifstream in(path(name), std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
  }
  ToolRun run(const std::string& args) const {
    const std::string cmd = "'" V2X_BINARY_DIR "/tools/v2x_map_tool/v2x_map_tool' " + args + " >'" + path("out") +
                            "' 2>'" + path("err") + "'";
    int st = std::system(cmd.c_str());
    return {WIFEXITED(st) ? WEXITSTATUS(st) : -1, read("out"), read("err")};
  }
  fs::path dir_;
};

TEST_F(MapTool, DecodePrintsTheMapAndEncodeGivesTheSameBytes) {
  const Bytes map = fromHex(kMap528);
  write("map.uper", std::string(map.begin(), map.end()));

  ToolRun dec = run("decode " + path("map.uper"));
  ASSERT_EQ(dec.status, 0) << dec.err;
  EXPECT_EQ(dec.out.rfind("<MessageFrame>", 0), 0U);
  EXPECT_NE(dec.out.find("<lat>280985258</lat>"), std::string::npos);
  EXPECT_NE(dec.out.find("<timeStamp>475970</timeStamp>"), std::string::npos);
  write("map.xml", dec.out);

  ToolRun enc = run("encode " + path("map.xml") + " -o " + path("back.uper"));
  ASSERT_EQ(enc.status, 0) << enc.err;
  EXPECT_EQ(read("back.uper"), std::string(map.begin(), map.end()));

  ToolRun again = run("decode " + path("map.xml"));  // XER in is detected
  EXPECT_EQ(again.status, 0);
  EXPECT_EQ(again.out, dec.out);

  ToolRun text = run("decode --text " + path("map.uper"));
  EXPECT_EQ(text.status, 0);
  EXPECT_NE(text.out.find("lat: 280985258"), std::string::npos);
}

TEST_F(MapTool, BadInputAndUsageErrors) {
  const Bytes map = fromHex(kMap528);
  write("short.uper", std::string(map.begin(), map.begin() + 100));
  write("bsm.uper", std::string("\x00\x7f\x12\x34\x56\x78\x9a\xbc", 8));
  write("far.xml",
        "<MessageFrame><mapFrame><msgCnt>1</msgCnt><nodes><Node><id><id>1</id></id><refPos><lat>1</lat>"
        "<long>1800000002</long></refPos></Node></nodes></mapFrame></MessageFrame>");
  struct Case {
    std::string args;
    int status;
    const char* message;
  };
  const Case cases[] = {
      {"decode " + path("short.uper"), 1, "not a valid UPER MessageFrame: data end inside the message"},
      {"decode " + path("bsm.uper"), 1, "(a bsmFrame, not supported)"},
      {"encode " + path("far.xml") + " -o " + path("x"), 1, "Longitude: constraint failed"},
      {"encode " + path("far.xml"), 2, "no output file"},
      {"decode", 2, "no input file"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.args);
    ToolRun r = run(c.args);
    EXPECT_EQ(r.status, c.status);
    EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
    EXPECT_EQ(r.out, "");
  }
  EXPECT_FALSE(fs::exists(path("x")));

  for (const char* cmd : {"decode", "encode"}) {
    ToolRun help = run(std::string(cmd) + " --help");
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(help.out.rfind(std::string("usage: v2x_map_tool ") + cmd, 0), 0U) << help.out;
  }
}

}  // namespace
