// Time to read, encode and store the realistic four-intersection sample map.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "map_conv_config.h"
#include "map_conv_mapdown.h"
#include "v2xapp_gbmap.h"
#include "v2xlog.h"

namespace {

namespace fs = std::filesystem;

std::string sampleMap() {
  std::ifstream in(std::string(V2X_SOURCE_DIR) + "/etc/samples/map_4x.json");
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

// Reads the document into a new frame; the caller frees it.
V2XAPP_GBMHANDLE readMap(std::string& text, v2xcloud_map_data_t& record) {
  V2XAPP_GBMHANDLE frame = nullptr;
  v2xapp_GBMapStrInit(&frame);
  record = {};
  record.map = static_cast<MessageFrame*>(frame);
  if (v2xmapconv_MapDownJsonToStruct(text.data(), &record) != 0) v2xapp_GBMapStrDel(&frame);
  return frame;
}

// A working directory with a configuration and an empty map directory.
struct Workdir {
  fs::path dir;
  Workdir() {
    char tmpl[] = "/tmp/bench_mapdownXXXXXX";
    dir = mkdtemp(tmpl);
    fs::create_directories(dir / "conf");
    fs::create_directories(dir / "mapdata");
    std::ofstream(dir / "conf/v2x_map_convert.cfg")
        << "rsuMapConvertInfo : { eTag = \"\"; MapDataDir = \"mapdata\"; MapFilename = \"map_data_\";"
           " MapCfgname = \"map_cfg_\"; Sysinfoname = \"\"; };\n";
    v2xlog_SetAllTagLevel(0);
    v2xmapconv_InitCfg(dir.c_str());
    v2xmapconv_ResetCfgForTest();
    v2xmapconv_MapDownResetForTest();
  }
  ~Workdir() { fs::remove_all(dir); }
};

void BM_ReadMap(benchmark::State& state) {
  Workdir work;
  std::string doc = sampleMap();
  for (auto _ : state) {
    std::string text = doc;
    v2xcloud_map_data_t record;
    V2XAPP_GBMHANDLE frame = readMap(text, record);
    if (frame == nullptr) state.SkipWithError("sample map rejected");
    v2xapp_GBMapStrDel(&frame);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * doc.size()));
}
BENCHMARK(BM_ReadMap);

void BM_EncodeMap(benchmark::State& state) {
  Workdir work;
  std::string text = sampleMap();
  v2xcloud_map_data_t record;
  V2XAPP_GBMHANDLE frame = readMap(text, record);
  uint8_t buf[MAP_CONV_UPER_BUF_SIZE];
  uint32_t len = 0;
  for (auto _ : state) {
    len = sizeof(buf);
    if (v2xapp_GBMapUperEncode(frame, buf, &len) != 0) state.SkipWithError("encode failed");
  }
  state.counters["bytes"] = len;
  v2xapp_GBMapStrDel(&frame);
}
BENCHMARK(BM_EncodeMap);

// The whole download of one complete map: read, encode, write the map file and
// its record (both replaced atomically, flushed to disk) and save the eTag.
void BM_ReadEncodeStore(benchmark::State& state) {
  Workdir work;
  std::string doc = sampleMap();
  const std::string tag = "jiading-grid-v1";
  size_t at = doc.find(tag);
  uint64_t n = 0;
  for (auto _ : state) {
    std::string text = doc;
    text.replace(at, tag.size(), "bench-" + std::to_string(n++));  // a new map every time
    v2xcloud_map_data_t record;
    V2XAPP_GBMHANDLE frame = readMap(text, record);
    v2xipc_mapRefresh_t refresh{};
    if (frame == nullptr || v2xmapconv_WriteMapDataToCfg(&record, &refresh) != 0) {
      state.SkipWithError("store failed");
    }
    v2xapp_GBMapStrDel(&frame);
  }
}
BENCHMARK(BM_ReadEncodeStore)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
