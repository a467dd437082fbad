// v2x_map_tool's library commands as a user runs them: match (plain and
// prepared) and relative, on the real four-link intersection.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "codec_test_util.h"

namespace fs = std::filesystem;

namespace {

struct ToolRun {
  int status;
  std::string out, err;
};

class MapToolLib : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::path(::testing::TempDir()) / ("map_tool_maplib_" + std::to_string(::getpid()));
    fs::create_directories(dir_);
    const codectest::Bytes map = codectest::fromHex(codectest::kMap528);
    std::ofstream(path("map.uper"), std::ios::binary).write(reinterpret_cast<const char*>(map.data()), map.size());
  }
  void TearDown() override { fs::remove_all(dir_); }

  std::string path(const char* name) const { return (dir_ / name).string(); }
  std::string read(const char* name) const {
    std::ifstream in(path(name), std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
  }
  ToolRun run(const std::string& args) const {
    const std::string cmd = "'" V2X_BINARY_DIR "/tools/v2x_map_tool/v2x_map_tool' " + args + " >'" + path("out") +
                            "' 2>'" + path("err") + "'";
    const int st = std::system(cmd.c_str());
    return {WIFEXITED(st) ? WEXITSTATUS(st) : -1, read("out"), read("err")};
  }
  fs::path dir_;
};

TEST_F(MapToolLib, MatchPrintsTheLaneOrFails) {
  // Half-way along the first link's first segment (its lane is 22 m wide).
  struct Case {
    std::string args;
    int status;
    std::string out;
  } cases[] = {
      {"match " + path("map.uper") + " 28.1007355 112.9828090", 0, "node=0 link=0 lane=0 laneId=1\n"},
      {"match --prepared " + path("map.uper") + " 28.1007355 112.9828090", 0, "node=0 link=0 lane=0 laneId=1\n"},
      {"match " + path("map.uper") + " 28.2 112.9", 1, ""},
      {"match --prepared " + path("map.uper") + " -28.1 112.9", 1, ""},
      {"match " + path("map.uper") + " 95 112.9", 2, ""},
      {"match " + path("map.uper") + " 28.1", 2, ""},
  };
  for (const Case& c : cases) {
    const ToolRun r = run(c.args);
    EXPECT_EQ(c.status, r.status) << c.args << "\n" << r.err;
    EXPECT_EQ(c.out, r.out) << c.args;
    EXPECT_EQ(c.status != 0, r.err.find("v2x_map_tool match: ") != std::string::npos) << r.err;
  }
}

TEST_F(MapToolLib, RelativeShrinksTheMapAndKeepsItsLanes) {
  const ToolRun r = run("relative " + path("map.uper") + " -o " + path("rel.uper"));
  ASSERT_EQ(0, r.status) << r.err;
  size_t after = 0;
  ASSERT_EQ(1, std::sscanf(r.out.c_str(), "UPER size  528 bytes before, %zu bytes after", &after)) << r.out;
  EXPECT_LT(after, 528U);
  EXPECT_EQ(after, fs::file_size(path("rel.uper")));
  EXPECT_NE(std::string::npos, r.out.find("absolute   32 points before, 0 after")) << r.out;
  // The same lane at the same place, and nothing left to convert.
  EXPECT_EQ("node=0 link=0 lane=0 laneId=1\n", run("match " + path("rel.uper") + " 28.1007355 112.9828090").out);
  const std::string once = read("rel.uper");
  ASSERT_EQ(0, run("relative " + path("rel.uper") + " -o " + path("rel2.uper")).status);
  EXPECT_EQ(once, read("rel2.uper"));
  EXPECT_EQ(1, run("relative " + path("missing.uper") + " -o " + path("x")).status);
}

}  // namespace
