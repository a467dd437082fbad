// The convert subcommand as a user runs it: the real tool on real files.
#include <cjson/cJSON.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <vector>

#include "map_conv_v2xcloud_dds.h"
#include "mapdown_fixture.h"

namespace mapdown_test {
namespace {

struct ToolRun {
  int status;
  std::string out;
};

ToolRun runTool(const std::string& args, const char* command = "convert") {
  std::string cmd =
      v2xtest::shellPrefix() + V2X_BINARY_DIR + "/tools/v2x_map_tool/v2x_map_tool " + command + " " + args + " 2>&1";
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
  writeFile(dir_ / "bad.json", R"({"eTag":"x","ack":true,"seqNum":"5","map":{"nodes":[{"id":{"id":1}}]}})");
  // A directory the storage would empty: only files it wrote itself may be there.
  fs::create_directories(dir_ / "foreign");
  writeFile(dir_ / "foreign/map_data_notes.txt", "a user's notes beside the maps");
  writeFile(dir_ / "foreign/map_data_1", "an earlier map file");
  fs::create_directories(dir_ / "linked");
  fs::create_symlink(dir_ / "bad.json", dir_ / "linked/map_data_2");
  fs::create_directories(dir_ / "earlier");
  writeFile(dir_ / "earlier/map_data_255", "an earlier map file");
  writeFile(dir_ / "earlier/map_cfg_7", "an earlier record");
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
    EXPECT_TRUE(c.mustExist == nullptr || fs::exists(dir_ / c.mustExist));
    EXPECT_TRUE(c.mustGo == nullptr || !fs::exists(dir_ / c.mustGo));
  }
  // The given configuration is only read.
  EXPECT_NE(readFile(dir_ / "conf/v2x_map_convert.cfg").find("jiading-grid-v1"), std::string::npos);
}

// validate lists every planted fault with its place and code, and
// predicts the acknowledgement that the service, fed the same document through
// its DDS reception, sends.
TEST_F(MapDownTest, ValidateFindsEveryFaultAndPredictsTheAcknowledgement) {
  struct Case {
    const char* name;
    std::string doc;
    int status;
    std::vector<std::string> findings;  // "path code"
  };
  const std::string node0 = R"({"id":{"id":1},"refPos":{"lon":121.16,"lat":31.28},"inLinks":[)";
  const std::string lane = R"({"laneId":1,"points":[{"lon":121.1,"lat":31.2},{"lon":121.2,"lat":31.2}]})";
  auto doc = [](const std::string& eTag, const std::string& nodes) {
    return R"({"mapSlice":"1","ack":true,"seqNum":"5","eTag":")" + eTag + R"(","map":{"nodes":[)" + nodes + "]}}";
  };
  const Case cases[] = {
      {"stored_with_faults",
       doc("v-a",
           node0 + R"({"upstreamNodeId":{"id":2},"speedLimits":[{"type":5,"speed":9000}],"linkWidth":700,)" +
               R"("movements":[{"remoteIntersection":{"id":3},"phaseId":300}],)" +
               R"("lanes":[{"laneId":1,"laneWidth":40000,"points":[{"lon":121.1,"lat":31.2},{"lon":121.2}]}]}]})"),
       1,
       {"nodes[0].inLinks[0].speedLimits[0].speed 10", "nodes[0].inLinks[0].movements[0].phaseId 11",
        "nodes[0].inLinks[0].lanes[0].laneWidth 13", "nodes[0].inLinks[0].lanes[0].points[1].lat 16",
        "nodes[0].inLinks[0].speedLimits 18"}},
      {"refused",
       doc("v-b", node0 + R"({"upstreamNodeId":{"id":2},"linkWidth":700,"lanes":[{"laneId":1,)" +
                      R"("connectsTo":[{"remoteIntersection":{"id":3},"phaseId":300}]}]}]},)" +
                      R"({"id":{"id":2},"refPos":{"lon":121.17,"lat":91}})"),
       1,
       {"nodes[0].inLinks[0].lanes[0].connectsTo[0].phaseId 14", "nodes[1].refPos.lat 5"}},
      {"link_dropped",
       doc("v-c", node0 + R"({"upstreamNodeId":{"id":2},"linkWidth":700,"lanes":[)" + lane +
                      R"(]},{"upstreamNodeId":{"id":4},"linkWidth":700,"lanes":[{"laneWidth":300}]}]})"),
       1,
       {"nodes[0].inLinks[1].lanes[0].laneId 9"}},
      {"etag_absent", R"({"ack":true,"seqNum":"5","map":{"nodes":[]}})", 1, {"eTag 1"}},
      {"clean", sample("map_slice1.json"), 0, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    fs::path file = dir_ / (std::string(c.name) + ".json");
    writeFile(file, c.doc);
    ToolRun r = runTool("--json " + file.string(), "validate");
    EXPECT_EQ(r.status, c.status) << r.out;
    cJSON* out = cJSON_Parse(r.out.c_str());
    ASSERT_NE(out, nullptr) << r.out;
    std::vector<std::string> got;
    const cJSON* f = nullptr;
    cJSON_ArrayForEach(f, cJSON_GetObjectItem(out, "findings")) {
      got.push_back(std::string(cJSON_GetObjectItem(f, "path")->valuestring) + " " +
                    std::to_string(cJSON_GetObjectItem(f, "code")->valueint));
    }
    EXPECT_EQ(got, c.findings) << r.out;
    char* predicted = cJSON_PrintUnformatted(cJSON_GetObjectItem(out, "ack"));

    // The service: the document as the DDS reception gets it, in samples of 1024 bytes.
    std::string text = c.doc;
    for (size_t at = 0; at <= text.size(); at += 1024) {
      size_t n = std::min<size_t>(1024, text.size() - at);
      v2xcloud_ddsRecvMapDown(text.data() + at, static_cast<unsigned int>(n));
      if (n < 1024) break;
    }
    v2xcloud_map_data_t* received = nullptr;
    ASSERT_EQ(v2xcloud_GetMapDownData(&received), 0);
    ASSERT_TRUE(received->ack);
    char sent[512];
    ASSERT_GT(v2xmapconv_MapDownAckBuild(received, sent, sizeof(sent)), 0);
    EXPECT_STREQ(predicted, sent);
    cJSON_free(predicted);
    cJSON_Delete(out);
  }
}

}  // namespace
}  // namespace mapdown_test
