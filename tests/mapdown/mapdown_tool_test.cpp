// The convert subcommand as a user runs it: the real tool on real files.
#include <sys/wait.h>

#include <cstdio>

#include "mapdown_fixture.h"

namespace mapdown_test {
namespace {

struct ToolRun {
  int status;
  std::string out;
};

ToolRun runTool(const std::string& args) {
  std::string cmd = std::string(V2X_BINARY_DIR) + "/tools/v2x_map_tool/v2x_map_tool convert " + args + " 2>&1";
  ToolRun r{-1, {}};
  FILE* p = popen(cmd.c_str(), "r");
  if (p == nullptr) return r;
  char buf[4096];
  size_t n;
  while ((n = std::fread(buf, 1, sizeof(buf), p)) > 0) r.out.append(buf, n);
  int st = pclose(p);
  r.status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
  return r;
}

std::string samples() { return std::string(V2X_SOURCE_DIR) + "/etc/samples/"; }

TEST_F(MapDownTest, ConvertToolExitStatusAndOutput) {
  writeText(dir_ / "bad.json", R"({"eTag":"x","ack":true,"seqNum":"5","map":{"nodes":[{"id":{"id":1}}]}})");
  // A directory the storage would empty: only files it wrote itself may be there.
  fs::create_directories(dir_ / "foreign");
  writeText(dir_ / "foreign/map_data_notes.txt", "a user's notes beside the maps");
  writeText(dir_ / "foreign/map_data_1", "an earlier map file");
  fs::create_directories(dir_ / "linked");
  fs::create_symlink(dir_ / "bad.json", dir_ / "linked/map_data_2");
  fs::create_directories(dir_ / "earlier");
  writeText(dir_ / "earlier/map_data_255", "an earlier map file");
  writeText(dir_ / "earlier/map_cfg_7", "an earlier record");
  writeConfig("jiading-grid-v1", "mapdata");
  struct Case {
    std::string args;
    int status;
    const char* output;     // must appear in what the tool prints
    const char* mustExist;  // relative to the temporary directory, or nullptr
    const char* mustGo = nullptr;
  };
  const std::string out = (dir_ / "out").string();
  const Case cases[] = {
      {samples() + "map_slice3.json " + samples() + "map_slice2.json " + samples() + "map_slice1.json -o " + out, 0,
       R"(ack        {"seqNum":"201"})", "out/map_data_2"},
      {(dir_ / "bad.json").string() + " -o " + out, 1,
       R"({"seqNum":"5","errorCode":1,"errorDesc":"NODE refPos error"})", "out/map_data_0"},
      {samples() + "map_4x.json -o " + out + "2 --config " + (dir_ / "conf/v2x_map_convert.cfg").string(), 0,
       "-18: eTag jiading-grid-v1 unchanged", nullptr},
      {samples() + "map_4x.json -o " + (dir_ / "foreign").string(), 2, "holds map_data_notes.txt",
       "foreign/map_data_notes.txt"},
      {samples() + "map_4x.json -o " + (dir_ / "linked").string(), 2, "holds map_data_2", "linked/map_data_2"},
      {samples() + "map_4x.json -o " + (dir_ / "earlier").string(), 0, "map file", "earlier/map_data_0",
       "earlier/map_cfg_7"},
      {samples() + "map_4x.json", 2, "no output directory", nullptr},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.args);
    ToolRun r = runTool(c.args);
    EXPECT_EQ(r.status, c.status) << r.out;
    EXPECT_NE(r.out.find(c.output), std::string::npos) << r.out;
    if (c.mustExist != nullptr) {
      EXPECT_TRUE(fs::exists(dir_ / c.mustExist));
    }
    if (c.mustGo != nullptr) {
      EXPECT_FALSE(fs::exists(dir_ / c.mustGo));
    }
  }
  // The given configuration is only read.
  EXPECT_NE(readText(dir_ / "conf/v2x_map_convert.cfg").find("jiading-grid-v1"), std::string::npos);
}

}  // namespace
}  // namespace mapdown_test
