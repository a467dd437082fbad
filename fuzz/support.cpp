// Shared set-up of the fuzz targets.
#include "support.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "map_conv_config.h"
#include "v2xapp_gbmap.h"
#include "v2xlog.h"

namespace v2xfuzz {

namespace {

std::string g_workdir;

void removeWorkdir() {
  std::error_code ec;
  std::filesystem::remove_all(g_workdir, ec);
}

}  // namespace

void quietLogger() {
  v2xlog_Init(nullptr, "FUZZ", 0, 0, 0);
  v2xlog_SetAllTagLevel(V2XLOG_MAX_LEVEL);
}

void serviceWorkdir() {
  if (!g_workdir.empty()) return;
  char tmpl[] = "/tmp/v2xfuzz.XXXXXX";  // short: the service takes at most 63 characters
  require(::mkdtemp(tmpl) != nullptr, "no temporary working directory");
  g_workdir = tmpl;
  std::atexit(removeWorkdir);
  std::filesystem::create_directories(g_workdir + "/conf");
  std::filesystem::create_directories(g_workdir + "/mapdata");
  std::ofstream(g_workdir + "/conf/rsu_sysinfo.xml") << "<rsu_sysinfo><device_id>FUZZ01</device_id></rsu_sysinfo>\n";
  std::ofstream(g_workdir + "/conf/v2x_map_convert.cfg")
      << "rsuMapConvertInfo :\n{\n  eTag = \"stored-etag\";\n  MapDataDir = \"mapdata\";\n"
      << "  MapFilename = \"map_data_\";\n  MapCfgname = \"map_cfg_\";\n  Sysinfoname = \"" << g_workdir
      << "/conf/rsu_sysinfo.xml\";\n};\n";
  require(v2xmapconv_InitCfg(g_workdir.c_str()) == 0, "working directory refused");
  map_conv_config_t* cfg = nullptr;
  require(v2xmapconv_GetCfgData(&cfg) == 0, "configuration not read");
}

std::unique_ptr<uint8_t[]> heapCopy(const uint8_t* data, size_t size) {
  std::unique_ptr<uint8_t[]> copy(new uint8_t[size > 0 ? size : 1]);
  if (size > 0) std::memcpy(copy.get(), data, size);
  return copy;
}

bool encodeUper(void* frame, std::vector<uint8_t>& out) {
  out.assign(4096, 0);
  uint32_t len = static_cast<uint32_t>(out.size());
  if (v2xapp_GBMapUperEncode(frame, out.data(), &len) != 0) return false;
  if (len > out.size()) {  // the full length comes back when it does not fit
    out.assign(len, 0);
    if (v2xapp_GBMapUperEncode(frame, out.data(), &len) != 0 || len != out.size()) return false;
  }
  out.resize(len);
  return true;
}

void require(bool ok, const char* what) {
  if (ok) return;
  std::fprintf(stderr, "fuzz property broken: %s\n", what);
  std::abort();
}

}  // namespace v2xfuzz
