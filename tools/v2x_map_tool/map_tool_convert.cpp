// "convert": cloud map-down documents run through the service's own reader and
// storage, as the DDS reception would, into map files and records in a directory.
#include <cjson/cJSON.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

#include "map_conv_config.h"
#include "map_conv_mapdown.h"
#include "map_tool.h"
#include "map_tool_validate_scan.h"
#include "v2xapp_gbmap.h"
#include "v2xcfg.h"
#include "v2xpub.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* kName = "convert";

struct Settings {
  std::string eTag;
  std::string mapFilename = "map_data_";
  std::string mapCfgname = "map_cfg_";
};

// The settings a configuration file gives the storage (its MapDataDir is not used).
bool readSettings(const std::string& path, Settings& s) {
  V2XCFGNODE_HANDLE h = nullptr;
  if (v2xcfg_InitContext(&h, path.c_str()) != V2XCFG_SUCCESS) {
    maptool::fail(kName, "%s: not a readable configuration file", path.c_str());
    return false;
  }
  auto get = [h](const char* key, std::string& out) {
    char value[128] = {};
    uint16 len = 127;
    if (v2xcfg_GetNodeValue(h, V2XCFG_MEM_TYPE_STRING, key, value, &len) == V2XCFG_SUCCESS) out = value;
  };
  get("rsuMapConvertInfo.eTag", s.eTag);
  get("rsuMapConvertInfo.MapFilename", s.mapFilename);
  get("rsuMapConvertInfo.MapCfgname", s.mapCfgname);
  v2xcfg_ExitContext(h);
  return true;
}

// Quotes a value for the configuration file's string syntax.
std::string quoted(const std::string& v) {
  std::string out = "\"";
  for (char c : v) {
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out + "\"";
}

// A private working directory: conf/v2x_map_convert.cfg with the settings, and
// "mapdata" pointing at the output directory. Removed (never followed) at the end.
class Workdir {
 public:
  ~Workdir() {
    std::error_code ec;
    if (!path_.empty()) fs::remove_all(path_, ec);
  }
  bool create(const Settings& s, const fs::path& outDir) {
    char tmpl[] = "/tmp/v2x_map_tool.XXXXXX";  // short: the service takes at most 63 characters
    if (mkdtemp(tmpl) == nullptr) {
      maptool::fail(kName, "cannot create a working directory: %s", std::strerror(errno));
      return false;
    }
    path_ = tmpl;
    std::error_code ec;
    fs::create_directory(path_ / "conf", ec);
    if (!ec) fs::create_directory_symlink(outDir, path_ / "mapdata", ec);
    std::string cfg = "rsuMapConvertInfo :\n{\n  eTag = " + quoted(s.eTag) +
                      ";\n  MapDataDir = \"mapdata\";\n  MapFilename = " + quoted(s.mapFilename) +
                      ";\n  MapCfgname = " + quoted(s.mapCfgname) + ";\n  Sysinfoname = \"\";\n};\n";
    fs::path cfgPath = path_ / "conf/v2x_map_convert.cfg";
    if (ec || v2xpub_WriteFileData(cfgPath.c_str(), cfg.data(), static_cast<uint32>(cfg.size())) != 0) {
      maptool::fail(kName, "cannot prepare the working directory %s", path_.c_str());
      return false;
    }
    return true;
  }
  const fs::path& path() const { return path_; }

 private:
  fs::path path_;
};

// True for a name the storage gives a slice's file: base followed by the
// file number as the storage prints it (0 to 255, no leading zero).
bool isSliceName(const std::string& name, const std::string& base) {
  if (name.size() <= base.size() || name.compare(0, base.size(), base) != 0) return false;
  std::string number = name.substr(base.size());
  if (number.size() > 3 || (number.size() > 1 && number[0] == '0')) return false;
  for (char c : number) {
    if (c < '0' || c > '9') return false;
  }
  return std::stoi(number) <= 255;
}

// The storage empties the map directory before the first slice of a map. So
// that it never removes what it did not write, only a directory that holds
// nothing but map files and records of an earlier run (regular files named as
// the storage names them) is accepted.
bool checkOutDir(const fs::path& outDir, const Settings& s) {
  std::error_code ec;
  if (!fs::exists(outDir, ec)) {
    fs::create_directories(outDir, ec);
    if (ec) {
      maptool::fail(kName, "%s: cannot create: %s", outDir.c_str(), ec.message().c_str());
      return false;
    }
  }
  if (!fs::is_directory(outDir, ec)) {
    maptool::fail(kName, "%s: not a directory", outDir.c_str());
    return false;
  }
  for (const fs::directory_entry& e : fs::directory_iterator(outDir, ec)) {
    std::string name = e.path().filename().string();
    bool ours = isSliceName(name, s.mapFilename) || isSliceName(name, s.mapCfgname);
    if (!ours || !e.is_regular_file(ec) || e.is_symlink(ec)) {
      maptool::fail(kName,
                    "%s holds %s, which is not a map file or record of an earlier run; the directory is emptied "
                    "before a new map, give a new or empty one",
                    outDir.c_str(), name.c_str());
      return false;
    }
  }
  if (ec) maptool::fail(kName, "%s: cannot list: %s", outDir.c_str(), ec.message().c_str());
  return !ec;
}

// One document as the reception handles it; true unless the document was rejected or not stored.
bool convertOne(const std::string& path, const fs::path& outDir, const Settings& s) {
  std::vector<uint8_t> data;
  if (!maptool::readInput(kName, path, data)) return false;
  std::printf("%s:\n", path.c_str());
  const std::string text(data.begin(), data.end());
  maptool::Finding tooLong;
  if (maptool::oversizeFinding(text, tooLong)) {
    // The reception never hands such a message to the reader whole.
    std::printf("  result     not stored: %s, %s\n", tooLong.value.c_str(), tooLong.range.c_str());
    std::printf("             reference: %s\n             field profile: %s\n", tooLong.effect.c_str(),
                tooLong.field.c_str());
    return false;
  }
  const maptool::TextPosition where = maptool::parsePosition(text);
  if (!where.ok) {
    std::printf("  result     -2: not JSON, %s\n", maptool::positionText(where).c_str());
    std::printf("  error code none (the service records no code for a text that is not JSON)\n");
    std::printf("  ack        none (the document could not be read)\n");
    return false;
  }
  data.push_back('\0');

  V2XAPP_GBMHANDLE frame = nullptr;
  if (v2xapp_GBMapStrInit(&frame) != 0) {
    maptool::fail(kName, "no memory for a frame");
    return false;
  }
  v2xcloud_map_data_t record{};
  record.map = static_cast<MessageFrame*>(frame);
  v2xipc_mapRefresh_t refresh{};
  int32 ret = v2xmapconv_MapDownJsonToStruct(reinterpret_cast<char*>(data.data()), &record);
  int32 stored = -1;
  if (ret == 0) {
    stored = v2xmapconv_WriteMapDataToCfg(&record, &refresh);
    if (stored != 0) v2xmapconv_SetErrorCode(ERROR_CODE_SET_MAP_CFG);
  }
  v2xapp_GBMapStrDel(&frame);

  bool ok = false;
  if (ret == MAP_CONV_ETAG_UNCHANGED) {
    std::printf("  result     -18: eTag %s unchanged, nothing stored\n", record.eTag);
    ok = true;
  } else if (ret != 0) {
    std::printf("  result     %d: document rejected\n", ret);
  } else if (stored != 0) {
    std::printf("  result     0, storage failed with %d\n", stored);
  } else {
    unsigned n = refresh.m_mapFileID;
    fs::path mapFile = outDir / (s.mapFilename + std::to_string(n));
    // A slice that was written always has a digest; a skipped one leaves the notice empty.
    bool written = false;
    for (int i = 0; i < 16; ++i) written = written || refresh.m_CheckSum[i] != 0;
    std::error_code ec;
    uintmax_t size = fs::file_size(mapFile, ec);
    char md5[33] = {};
    for (int i = 0; i < 16; ++i) std::snprintf(md5 + 2 * i, 3, "%02x", refresh.m_CheckSum[i]);
    std::printf("  result     0: slice %u stored, eTag %s%s\n", record.mapSlice, record.eTag,
                record.mapSlice == 1 ? " (last slice: map complete)" : "");
    if (!written || ec) {
      std::printf("  map file   none (the slice belongs to a map already completed)\n");
    } else {
      std::printf("  map file   %s (%ju bytes, md5 %s)\n", mapFile.c_str(), size, md5);
      std::printf("  record     %s\n", (outDir / (s.mapCfgname + std::to_string(n))).c_str());
    }
    ok = true;
  }
  // What the service stores differs from what the document says.
  std::vector<maptool::Finding> changed, ignored;
  cJSON* root = cJSON_Parse(text.c_str());
  maptool::Finding slice;
  if (ret != MAP_CONV_ETAG_UNCHANGED && maptool::sliceFinding(root, static_cast<uint8_t>(record.mapSlice - 1), slice)) {
    changed.push_back(slice);
  }
  maptool::scanKinds(root, changed, ignored);
  cJSON_Delete(root);
  for (const maptool::Finding& f : changed) {
    std::printf("  changed    %s: %s, the service takes %s\n", f.path.c_str(), f.value.c_str(), f.reads.c_str());
  }
  for (const maptool::Finding& f : ignored) {
    std::printf("  ignored    %s: %s\n", f.path.c_str(), f.text.c_str());
  }
  if (!changed.empty() || !ignored.empty()) ok = false;
  int32 code = v2xmapconv_GetErrorCode();
  std::printf("  error code %d (%s)\n", code, v2xmapconv_GetErrorDesc(code));
  char ack[512];
  if (v2xmapconv_MapDownAckBuild(&record, ack, sizeof(ack)) >= 0 && ret != -2) {
    std::printf("  ack        %s%s\n", ack, record.ack ? "" : " (not requested)");
  } else {
    std::printf("  ack        none (the document could not be read)\n");
  }
  return ok;
}

int runConvert(int argc, char** argv) {
  const char* outArg = nullptr;
  const char* cfgArg = nullptr;
  std::vector<const char*> docs;
  if (!maptool::parseArgs(kName, argc, argv,
                          {{"-o", nullptr, &outArg, "a directory"}, {"--config", nullptr, &cfgArg, "a file name"}},
                          docs)) {
    return maptool::kExitUsage;
  }
  if (docs.empty() || outArg == nullptr) {
    maptool::fail(kName, "%s (see --help)", docs.empty() ? "no document" : "no output directory (-o OUT_DIR)");
    return maptool::kExitUsage;
  }

  Settings settings;
  if (cfgArg != nullptr && !readSettings(cfgArg, settings)) return maptool::kExitUsage;
  std::error_code ec;
  fs::path outDir = fs::absolute(outArg, ec);
  if (ec || !checkOutDir(outDir, settings)) return maptool::kExitUsage;
  Workdir work;
  if (!work.create(settings, outDir)) return maptool::kExitBadInput;
  // One run per process: the service's modules start from their initial state.
  v2xmapconv_InitCfg(work.path().c_str());

  bool allStored = true;
  for (const char* doc : docs) allStored = convertOne(doc, outDir, settings) && allStored;
  return allStored ? maptool::kExitOk : maptool::kExitBadInput;
}

}  // namespace

V2X_MAP_TOOL_COMMAND(kName, "store cloud map-down JSON documents as the service does",
                     "usage: v2x_map_tool convert MAP.json... -o OUT_DIR [--config CFG]\n"
                     "\n"
                     "Reads each map-down document in turn with the service's reader and stores\n"
                     "it with the service's storage: the UPER map file and its MD5 record of the\n"
                     "slice go to OUT_DIR. The storage empties the directory before the first\n"
                     "slice of a new map, so OUT_DIR must be new (it is created), empty, or hold\n"
                     "only map files and records of an earlier run: regular files named\n"
                     "<MapFilename>N or <MapCfgname>N with N from 0 to 255 (map_data_N and\n"
                     "map_cfg_N without CFG). Anything else there (another file, a directory,\n"
                     "a link, map_data_notes.txt) makes the command refuse and change nothing.\n"
                     "Give the slices of one map in the order the cloud sends them (highest first).\n"
                     "\n"
                     "CFG is a service configuration file: its stored eTag and the base names of\n"
                     "the map files and records are used; the file itself is not changed. Without\n"
                     "it the eTag is empty and the names are map_data_N and map_cfg_N.\n"
                     "\n"
                     "For each document prints the result, the recorded error code with its text\n"
                     "and the acknowledgement the cloud would get, and every value the service\n"
                     "takes otherwise than written (a value of the wrong JSON kind, a slice number\n"
                     "outside 1 to 255) or ignores (an unknown member, a key repeated but for the\n"
                     "case of letters). A document longer than one map-down message (9999 bytes)\n"
                     "is not stored, as by the service. Exit status 0 when every document was\n"
                     "stored as written or had an unchanged eTag (recorded codes included), 1 when\n"
                     "one was rejected, could not be stored, or would not be stored as written\n"
                     "(see \"validate\" for the whole story), 2 for a wrong command line.\n",
                     runConvert)
