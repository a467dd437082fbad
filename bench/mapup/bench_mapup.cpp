// Time to render the frame of the realistic four-intersection sample map in
// its upload envelope and print it as JSON text.
#include <benchmark/benchmark.h>
#include <cjson/cJSON.h>
#include <unistd.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "map_conv_config.h"
#include "map_conv_mapdown.h"
#include "map_conv_mapup.h"
#include "v2xapp_gbmap.h"
#include "v2xlog.h"

namespace {

namespace fs = std::filesystem;

// The sample document read into a frame by the service's own reader, in a
// scratch working directory whose stored eTag differs from the sample's.
struct SampleFrame {
  fs::path dir;
  V2XAPP_GBMHANDLE frame = nullptr;
  SampleFrame() {
    char tmpl[] = "/tmp/bench_mapupXXXXXX";
    dir = mkdtemp(tmpl);
    fs::create_directories(dir / "conf");
    std::ofstream(dir / "conf/v2x_map_convert.cfg")
        << "rsuMapConvertInfo : { eTag = \"\"; MapDataDir = \"mapdata\"; MapFilename = \"map_data_\";"
           " MapCfgname = \"map_cfg_\"; Sysinfoname = \"\"; };\n";
    // The module's tag registered as the service does, at its start level.
    v2xlog_SetTagLevel(v2xlog_AddTag("MAPU"), 4);
    v2xlog_SetTagLevel(v2xlog_AddTag("DOWN"), 4);
    v2xmapconv_InitCfg(dir.c_str());
    std::ifstream in(std::string(V2X_SOURCE_DIR) + "/etc/samples/map_4x.json");
    std::stringstream ss;
    ss << in.rdbuf();
    std::string text = ss.str();
    v2xapp_GBMapStrInit(&frame);
    v2xcloud_map_data_t record{};
    record.map = static_cast<MessageFrame*>(frame);
    if (v2xmapconv_MapDownJsonToStruct(text.data(), &record) != 0) v2xapp_GBMapStrDel(&frame);
  }
  ~SampleFrame() {
    v2xapp_GBMapStrDel(&frame);
    fs::remove_all(dir);
  }
};

void BM_RenderMap(benchmark::State& state) {
  SampleFrame sample;
  if (sample.frame == nullptr) {
    state.SkipWithError("sample map rejected");
    return;
  }
  v2xcloud_map_data_t up{};
  v2xmapconv_SetMapDataValue(&up, sample.frame, 0);
  size_t bytes = 0;
  for (auto _ : state) {
    char* text = v2xmapconv_StructToJson(&up);
    if (text == nullptr) {
      state.SkipWithError("rendering failed");
      break;
    }
    bytes = std::strlen(text);
    cJSON_free(text);
  }
  state.counters["bytes"] = static_cast<double>(bytes);
}
BENCHMARK(BM_RenderMap);

// For comparison: the same writers on their own, with plain cJSON values and
// cJSON's printer (what the rendering would cost without its arena and
// printer).
void BM_RenderMapPlainCJson(benchmark::State& state) {
  SampleFrame sample;
  if (sample.frame == nullptr) {
    state.SkipWithError("sample map rejected");
    return;
  }
  for (auto _ : state) {
    cJSON* root = cJSON_CreateObject();
    AddMapToObject(root, static_cast<MessageFrame*>(sample.frame));
    char* text = cJSON_PrintUnformatted(root);
    benchmark::DoNotOptimize(text);
    cJSON_free(text);
    cJSON_Delete(root);
  }
}
BENCHMARK(BM_RenderMapPlainCJson);

}  // namespace

BENCHMARK_MAIN();
