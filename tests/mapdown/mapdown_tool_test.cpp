// The convert subcommand as a user runs it: the real tool on real files.
#include <cjson/cJSON.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <vector>

#include "LinkList.h"
#include "NodeList.h"
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
        // Every part the encoder refuses, the point list cut to one point included.
        "nodes[0].inLinks[0].speedLimits 18", "nodes[0].inLinks[0].movements[0].phaseId 18",
        "nodes[0].inLinks[0].lanes[0].laneWidth 18", "nodes[0].inLinks[0].lanes[0].points 18"}},
      {"refused",
       doc("v-b", node0 + R"({"upstreamNodeId":{"id":2},"linkWidth":700,"lanes":[{"laneId":1,)" +
                      R"("connectsTo":[{"remoteIntersection":{"id":3},"phaseId":300}]}]}]},)" +
                      R"({"id":{"id":2},"refPos":{"lon":121.17,"lat":91}})"),
       1,
       {"nodes[0].inLinks[0].lanes[0].connectsTo[0].phaseId 14", "nodes[1].refPos.lat 5",
        "nodes[0].inLinks[0].lanes[0].connectsTo[0].phaseId 18 unreached"}},
      // Past the refusing node: its own links and the next node's, as the
      // service would meet them once the latitude is mended.
      {"past_refusal",
       doc("v-e", R"({"id":{"id":1},"refPos":{"lon":121.16,"lat":91},"inLinks":[{"upstreamNodeId":{"id":2},)"
                  R"("linkWidth":700,"lanes":[{"laneId":1,"laneWidth":40000}]}]},)" +
                      node0 + R"({"upstreamNodeId":{"id":2},"lanes":[{"laneId":1}]}]})"),
       1,
       {"nodes[0].refPos.lat 5", "nodes[0].inLinks[0].lanes[0].laneWidth 13 unreached",
        "nodes[1].inLinks[0].linkWidth 8 unreached", "nodes[0].inLinks[0].lanes[0].laneWidth 18 unreached"}},
      {"link_dropped",
       doc("v-c", node0 + R"({"upstreamNodeId":{"id":2},"linkWidth":700,"lanes":[)" + lane +
                      R"(]},{"upstreamNodeId":{"id":4},"linkWidth":700,"lanes":[{"laneWidth":300}]}]})"),
       1,
       {"nodes[0].inLinks[1].lanes[0].laneId 9"}},
      // Without "mapSlice" the slice is stored as file 255; past the eTag, an
      // empty node list is more than the encoder takes.
      {"etag_absent",
       R"({"ack":true,"seqNum":"5","map":{"nodes":[]}})",
       1,
       {"mapSlice 0", "eTag 1", "nodes 18 unreached"}},
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
      const bool reached = std::string(cJSON_GetObjectItem(f, "reach")->valuestring) != "not reached by the service";
      got.push_back(std::string(cJSON_GetObjectItem(f, "path")->valuestring) + " " +
                    std::to_string(cJSON_GetObjectItem(f, "code")->valueint) + (reached ? "" : " unreached"));
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

// The finding (or warning) of validate's JSON report at path; null when none.
const cJSON* reported(const cJSON* out, const std::string& path) {
  for (const char* list : {"findings", "warnings"}) {
    const cJSON* f = nullptr;
    cJSON_ArrayForEach(f, cJSON_GetObjectItem(out, list)) {
      if (path == cJSON_GetObjectItem(f, "path")->valuestring) return f;
    }
  }
  return nullptr;
}

std::string field(const cJSON* finding, const char* key) {
  const cJSON* item = cJSON_GetObjectItem(finding, key);
  return cJSON_IsString(item) ? item->valuestring : "";
}

// Documents the service reads otherwise than they are written: the service's
// reader (or its DDS reception) shows what it takes, and validate must say
// so at the right place, never with a clean verdict.
TEST_F(MapDownTest, ValidateNeverPassesWhatTheServiceLosesOrChanges) {
  const std::string defaultLane =
      R"({"laneId":1,"laneWidth":350,"points":[{"lon":121.1,"lat":31.2},{"lon":121.2,"lat":31.2}]})";
  auto doc = [&](const std::string& envelope, const std::string& refPos, const std::string& lane) {
    return R"({)" + envelope + R"("eTag":"v-t","seqNum":"5","map":{"nodes":[{"id":{"id":1},"refPos":{"lon":121.16,)" +
           refPos + R"(},"inLinks":[{"upstreamNodeId":{"id":2},"linkWidth":700,"lanes":[)" + lane + "]}]}]}}";
  };
  const std::string slice1 = R"("mapSlice":"1","ack":true,)";
  auto node = [this] { return frame_.map().nodes.list.array[0]; };
  auto lane = [&] { return node()->inLinks->list.array[0]->lanes.list.array[0]; };
  struct Case {
    const char* name;
    std::string doc;
    std::string path;
    const char* key;       // of the finding
    std::string expected;  // what it must contain there
    std::function<bool()> service;
  };
  const Case cases[] = {
      {"lat_text", doc(slice1, R"("lat":"31.28")", defaultLane), "nodes[0].refPos.lat", "reads", "0 degrees",
       [&] { return node()->refPos.lat == 0; }},
      {"width_text", doc(slice1, R"("lat":31.28)", R"({"laneId":1,"laneWidth":"350"})"),
       "nodes[0].inLinks[0].lanes[0].laneWidth", "reads", "0 cm", [&] { return *lane()->laneWidth == 0; }},
      {"width_fraction", doc(slice1, R"("lat":31.28)", R"({"laneId":1,"laneWidth":350.7})"),
       "nodes[0].inLinks[0].lanes[0].laneWidth", "reads", "350 cm", [&] { return *lane()->laneWidth == 350; }},
      {"slice_0", doc(R"("mapSlice":"0",)", R"("lat":31.28)", defaultLane), "mapSlice", "effect", "file 255",
       [&] { return record_.mapSlice == 0; }},
      {"slice_300", doc(R"("mapSlice":"300",)", R"("lat":31.28)", defaultLane), "mapSlice", "effect", "file 43",
       [&] { return record_.mapSlice == 44; }},
      {"slice_number", doc(R"("mapSlice":1,)", R"("lat":31.28)", defaultLane), "mapSlice", "effect", "file 255",
       [&] { return record_.mapSlice == 0; }},
      {"ack_text", doc(R"("mapSlice":"1","ack":"true",)", R"("lat":31.28)", defaultLane), "ack", "reads", "false",
       [&] { return !record_.ack; }},
      {"misspelt_width", doc(slice1, R"("lat":31.28)", R"({"laneId":1,"laneWidht":350})"),
       "nodes[0].inLinks[0].lanes[0].laneWidht", "text", "\"laneWidth\"", [&] { return lane()->laneWidth == nullptr; }},
      {"misspelt_points", doc(slice1, R"("lat":31.28)", R"({"laneId":1,"point":[{"lon":121.1,"lat":31.2}]})"),
       "nodes[0].inLinks[0].lanes[0].point", "text", "\"points\"", [&] { return lane()->points == nullptr; }},
      {"case_twin", doc(slice1, R"("lat":31.28,"LAT":0)", defaultLane), "nodes[0].refPos.LAT", "effect",
       "takes the first, \"lat\" (31.28)", [&] { return node()->refPos.lat == 312800000; }},
      {"id_number", R"({"mapSlice":"1","eTag":"v-t","map":{"nodes":[{"id":7,"refPos":{"lon":121.1,"lat":31.2}}]}})",
       "nodes[0].id", "reads", "an object without members", [&] { return node()->id.id == 0; }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ASSERT_EQ(read(c.doc), 0);
    EXPECT_TRUE(c.service()) << "the service no longer does what this case expects";
    const fs::path file = dir_ / (std::string(c.name) + ".json");
    writeFile(file, c.doc);
    const ToolRun r = runTool("--json " + file.string(), "validate");
    EXPECT_EQ(r.status, 1) << r.out;
    cJSON* out = cJSON_Parse(r.out.c_str());
    ASSERT_NE(out, nullptr) << r.out;
    EXPECT_NE(field(out, "verdict"), "the service stores the map");
    const cJSON* f = reported(out, c.path);
    ASSERT_NE(f, nullptr) << r.out;
    EXPECT_NE(field(f, c.key).find(c.expected), std::string::npos) << field(f, c.key);
    cJSON_Delete(out);
  }
}

// A pretty-printed copy of the four-link sample is over 9999 bytes, which the
// DDS reception cuts (the cloud link test shows how): validate says so first,
// and convert stores nothing.
TEST_F(MapDownTest, ValidateAndConvertTellTheServiceDropsALongMessage) {
  cJSON* sample = cJSON_Parse(readFile(samples() + "map_4x.json").c_str());
  ASSERT_NE(sample, nullptr);
  cJSON_ReplaceItemInObject(sample, "eTag", cJSON_CreateString("v-long"));
  char* pretty = cJSON_Print(sample);
  std::string text = pretty;
  cJSON_free(pretty);
  cJSON_Delete(sample);
  ASSERT_GT(text.size(), 9999U);
  writeFile(dir_ / "long.json", text);
  const ToolRun r = runTool("--json " + (dir_ / "long.json").string(), "validate");
  EXPECT_EQ(r.status, 1) << r.out;
  cJSON* out = cJSON_Parse(r.out.c_str());
  ASSERT_NE(out, nullptr) << r.out;
  EXPECT_TRUE(cJSON_IsTrue(cJSON_GetObjectItem(out, "tooLong")));
  EXPECT_TRUE(cJSON_IsNull(cJSON_GetObjectItem(out, "ack")));
  const cJSON* first = cJSON_GetArrayItem(cJSON_GetObjectItem(out, "findings"), 0);
  EXPECT_EQ(field(first, "reach"), "refuses the document");
  EXPECT_NE(field(first, "field").find("dropped whole"), std::string::npos);
  cJSON_Delete(out);

  const ToolRun conv = runTool((dir_ / "long.json").string() + " -o " + (dir_ / "out").string());
  EXPECT_EQ(conv.status, 1) << conv.out;
  EXPECT_FALSE(fs::exists(dir_ / "out/map_data_0"));
}

// A text that stops being JSON is named by line, column and byte, by both
// commands, and is never "0 faults".
TEST_F(MapDownTest, BadJsonIsReportedWhereItBreaks) {
  const std::string text = "{\"mapSlice\": \"1\",\n  \"eTag\": \"x\",\n  \"map\": {\"nodes\": [1,\n  }";
  ASSERT_EQ(read(text), -2);
  writeFile(dir_ / "broken.json", text);
  const ToolRun v = runTool((dir_ / "broken.json").string(), "validate");
  EXPECT_EQ(v.status, 2);
  EXPECT_NE(v.out.find("1 fault"), std::string::npos) << v.out;
  const ToolRun c = runTool((dir_ / "broken.json").string() + " -o " + (dir_ / "out").string());
  EXPECT_EQ(c.status, 1);
  for (const std::string& out : {v.out, c.out}) {
    EXPECT_NE(out.find("line 4, column 3 (byte 58)"), std::string::npos) << out;
  }
}

}  // namespace
}  // namespace mapdown_test
