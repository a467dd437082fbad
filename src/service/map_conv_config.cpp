// The service's configuration file, the device information file and the map record file.
#include "map_conv_config.h"

#include <libconfig.h>
#include <pthread.h>
#include <sys/time.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "map_conv_profile.h"
#include "v2xcfg.h"
#include "v2xlog.h"
#include "v2xpub.h"

namespace {

v2xlog_config_t g_curTag = {nullptr, "MCFG"};

map_conv_config_t g_mapconv_cfg;
char g_configDir[MAP_CONV_CFG_DIR_LEN];
bool g_configDirRefused = false;
char g_configPath[128];
char g_mapdataPath[128];
V2XCFGNODE_HANDLE gp_convcfg_root = nullptr;
pthread_mutex_t g_convcfg_lock = PTHREAD_MUTEX_INITIALIZER;
bool g_convcfg_active = false;

// Builds "<workdir>/<userPath>" (user path cut to 63 characters, result to 127).
int32 buildPath(const char* userPath, char* target, size_t targetSize, char** fullPath) {
  char userpathStr[64] = {};
  if (userPath != nullptr) std::snprintf(userpathStr, sizeof(userpathStr), "%s", userPath);
  std::memset(target, 0, targetSize);
  if (g_configDir[0] != '\0') {
    std::snprintf(target, targetSize, "%s/%s", g_configDir, userpathStr);
  } else {
    std::snprintf(target, targetSize, "%s", userpathStr);
  }
  if (fullPath != nullptr) *fullPath = target;
  return 0;
}

struct KeyField {
  const char* key;
  size_t offset;
  uint16 maxLen;
  const char* errorText;
};

// The five settings, in the order they are read.
const KeyField kKeys[] = {
    {"rsuMapConvertInfo.eTag", offsetof(map_conv_config_t, m_eTag), 63, "rsuMapConvertInfo.eTag node error "},
    {"rsuMapConvertInfo.MapDataDir", offsetof(map_conv_config_t, m_MapDataDir), 127,
     "rsuMapConvertInfo.MapDataDir node error"},
    {"rsuMapConvertInfo.MapFilename", offsetof(map_conv_config_t, m_MapFilename), 127,
     "rsuMapConvertInfo.MapFilename node error "},
    {"rsuMapConvertInfo.MapCfgname", offsetof(map_conv_config_t, m_MapCfgname), 127,
     "rsuMapConvertInfo.m_MapCfgname node error "},
    {"rsuMapConvertInfo.Sysinfoname", offsetof(map_conv_config_t, m_SysinfoName), 127,
     "rsuMapConvertInfo.Sysinfoname node error "},
};

// Reads the five settings into cfg; a key that cannot be read is logged and
// its field keeps its content. The names of those keys go to missing (may be
// null), separated by blanks.
void readKeys(V2XCFGNODE_HANDLE root, map_conv_config_t* cfg, char* missing, size_t missingSize) {
  for (const KeyField& k : kKeys) {
    char* field = reinterpret_cast<char*>(cfg) + k.offset;
    char value[128] = {};
    uint16 len = k.maxLen;
    if (v2xcfg_GetNodeValue(root, V2XCFG_MEM_TYPE_STRING, k.key, value, &len) != V2XCFG_SUCCESS) {
      V2XLOG(&g_curTag, 3, "%s", k.errorText);
      if (missing != nullptr) {
        const size_t used = std::strlen(missing);
        std::snprintf(missing + used, missingSize - used, "%s%s", used > 0 ? " " : "", k.key);
      }
      continue;
    }
    std::memcpy(field, value, static_cast<size_t>(k.maxLen) + 1);
  }
}

// The top-level "profile" setting: absent means the reference behaviour; a
// value other than "reference" or "field" is a configuration error (-2).
int32 readProfile(V2XCFGNODE_HANDLE root, map_conv_profile_e* profile) {
  char value[32] = {};
  uint16 len = sizeof(value) - 1;
  int32 ret = v2xcfg_GetNodeValue(root, V2XCFG_MEM_TYPE_STRING, MAP_CONV_CFG_PROFILE_KEY, value, &len);
  if (ret == V2XCFG_NODE_NOTEXIST) {
    *profile = MAP_CONV_PROFILE_REFERENCE;
    return 0;
  }
  if (ret != V2XCFG_SUCCESS || v2xmapconv_ParseProfile(value, profile) != 0) {
    V2XLOG(&g_curTag, 2, "profile setting must be \"reference\" or \"field\"%s%s",
           ret == V2XCFG_SUCCESS ? ", not " : "", ret == V2XCFG_SUCCESS ? value : " text");
    return -2;
  }
  return 0;
}

}  // namespace

extern "C" {

int32 v2xmapconv_InitCfg(const char* dir) {
  if (dir != nullptr) {
    std::memset(g_configDir, 0, sizeof(g_configDir));
    if (std::strlen(dir) >= sizeof(g_configDir)) {
      // A cut directory would silently point at another configuration.
      g_configDirRefused = true;
      V2XLOG(&g_curTag, 2, "work directory %s is longer than %zu characters, refused", dir, sizeof(g_configDir) - 1);
      return -2;
    }
    g_configDirRefused = false;
    std::snprintf(g_configDir, sizeof(g_configDir), "%s", dir);
  }
  V2XLOG(&g_curTag, 4, "configDir = %s!", g_configDir);
  return 0;
}

int32 v2xmapconv_GetCfgDir(const char* userPath, char** fullcfgPath) {
  return buildPath(userPath, g_configPath, sizeof(g_configPath), fullcfgPath);
}

int32 v2xmapconv_GetMapDataDir(const char* userPath, char** fullcfgPath) {
  return buildPath(userPath, g_mapdataPath, sizeof(g_mapdataPath), fullcfgPath);
}

int32 v2xmapconv_GetCfgData(map_conv_config_t** p_mapconv_cfg) {
  V2XLOG(&g_curTag, 7, "%s start ", __func__);
  if (p_mapconv_cfg == nullptr) return 1;
  if (g_configDirRefused) {
    V2XLOG(&g_curTag, 2, "no usable work directory, configuration not read");
    return 1;
  }
  char* path = nullptr;
  v2xmapconv_GetCfgDir(MAP_CONV_CFG_FILE, &path);
  if (g_convcfg_active) {
    *p_mapconv_cfg = &g_mapconv_cfg;
    return 0;
  }
  if (gp_convcfg_root == nullptr && v2xcfg_InitContext(&gp_convcfg_root, path) != V2XCFG_SUCCESS) {
    gp_convcfg_root = nullptr;
    V2XLOG(&g_curTag, 2, "v2xcfg_InitContext error %s", path);
    return 1;
  }
  map_conv_profile_e profile = MAP_CONV_PROFILE_REFERENCE;
  if (readProfile(gp_convcfg_root, &profile) != 0) {
    v2xcfg_ExitContext(gp_convcfg_root);
    gp_convcfg_root = nullptr;
    return 1;
  }
  v2xmapconv_SetProfile(profile);
  pthread_mutex_lock(&g_convcfg_lock);
  readKeys(gp_convcfg_root, &g_mapconv_cfg, nullptr, 0);
  // In the field a missing device file is a failure: without the device id
  // the service would serve topics nobody publishes on.
  const bool deviceRead = v2xmapconv_GetSysinfo(&g_mapconv_cfg) == 0;
  g_convcfg_active = deviceRead || !v2xmapconv_IsFieldProfile();
  pthread_mutex_unlock(&g_convcfg_lock);
  v2xcfg_ExitContext(gp_convcfg_root);
  // The tree is gone; keep no dangling handle for a later reset.
  gp_convcfg_root = nullptr;
  if (!g_convcfg_active) return 1;
  *p_mapconv_cfg = &g_mapconv_cfg;
  return 0;
}

int32 v2xmapconv_SetCfgData(map_conv_config_t* p_mapconv_cfg) {
  if (p_mapconv_cfg == nullptr) return 1;
  char* path = nullptr;
  v2xmapconv_GetCfgDir(MAP_CONV_CFG_FILE, &path);
  V2XCFGNODE_HANDLE handle = nullptr;
  if (v2xcfg_InitContext(&handle, path) != V2XCFG_SUCCESS) {
    V2XLOG(&g_curTag, 2, "v2xcfg_InitContext error %s", path);
    return 1;
  }
  pthread_mutex_lock(&g_convcfg_lock);
  char eTag[sizeof(p_mapconv_cfg->m_eTag)];
  std::snprintf(eTag, sizeof(eTag), "%.63s", p_mapconv_cfg->m_eTag);
  bool written = true;
  if (v2xcfg_SetNodeValue(handle, V2XCFG_MEM_TYPE_STRING, "rsuMapConvertInfo.eTag", eTag) != V2XCFG_SUCCESS) {
    V2XLOG(&g_curTag, 3, "rsuMapConvertInfo.eTag node error ");
    written = false;
  }
  if (v2xcfg_UpdateFile(handle, 0) != V2XCFG_SUCCESS) written = false;
  pthread_mutex_unlock(&g_convcfg_lock);
  v2xcfg_ExitContext(handle);
  // The reference behaviour reports a failed write-back as success; in the
  // field it fails the storage, so the cloud hears of it.
  return (written || !v2xmapconv_IsFieldProfile()) ? 0 : 1;
}

int32 v2xmapconv_ReadCfgFile(map_conv_config_t* cfg, map_conv_profile_e* profile, char* missing, uint32 missingSize) {
  if (cfg == nullptr || profile == nullptr || missing == nullptr || missingSize == 0) return -2;
  std::memset(cfg, 0, sizeof(*cfg));
  missing[0] = '\0';
  *profile = MAP_CONV_PROFILE_REFERENCE;
  char* path = nullptr;
  v2xmapconv_GetCfgDir(MAP_CONV_CFG_FILE, &path);
  V2XCFGNODE_HANDLE root = nullptr;
  if (g_configDirRefused || v2xcfg_InitContext(&root, path) != V2XCFG_SUCCESS) return 1;
  int32 ret = readProfile(root, profile) == 0 ? 0 : 2;
  readKeys(root, cfg, missing, missingSize);
  v2xcfg_ExitContext(root);
  return ret;
}

#ifdef V2X_TEST_SEAMS
void v2xmapconv_ResetCfgForTest(void) {
  pthread_mutex_lock(&g_convcfg_lock);
  std::memset(&g_mapconv_cfg, 0, sizeof(g_mapconv_cfg));
  g_convcfg_active = false;
  pthread_mutex_unlock(&g_convcfg_lock);
}
#endif

int32 v2xrsucloud_parseXML(char* xml, char* tag, char* out_value, int32_t max_out_len) {
  V2XLOG_START(&g_curTag);
  int32 ret = 0;
  if (xml == nullptr || tag == nullptr || out_value == nullptr) {
    V2XLOG(&g_curTag, 2, "input param error");
    ret = -2;
  } else {
    char startTag[32];
    char endTag[32];
    std::snprintf(startTag, sizeof(startTag), "<%s>", tag);
    std::snprintf(endTag, sizeof(endTag), "</%s>", tag);
    const char* start = std::strstr(xml, startTag);
    const char* end = start != nullptr ? std::strstr(start, endTag) : nullptr;
    if (start == nullptr) {
      V2XLOG(&g_curTag, 2, "get start tag error");
      ret = -3;
    } else if (end == nullptr) {
      V2XLOG(&g_curTag, 2, "get end tag error");
      ret = -4;
    } else {
      // The end tag is searched from the start tag on, so it may overlap it
      // only for odd tag names; a negative length is refused like a long one.
      long content_length = end - (start + std::strlen(startTag));
      if (content_length >= 0 && content_length < max_out_len) {
        std::memcpy(out_value, start + std::strlen(startTag), static_cast<size_t>(content_length));
        out_value[content_length] = '\0';
      } else {
        V2XLOG(&g_curTag, 2, "content length is too large");
        ret = -5;
      }
    }
  }
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

int32 v2xmapconv_GetSysinfo(map_conv_config_t* mapconv_cfg) {
  if (mapconv_cfg == nullptr) {
    V2XLOG(&g_curTag, 2, "input param error");
    return -2;
  }
  FILE* fp = std::fopen(mapconv_cfg->m_SysinfoName, "rb");
  if (fp == nullptr) {
    V2XLOG(&g_curTag, 2, "open %s error", mapconv_cfg->m_SysinfoName);
    return -1;
  }
  long size = -1;
  if (std::fseek(fp, 0, SEEK_END) == 0) size = std::ftell(fp);
  std::rewind(fp);
  char* buf = size >= 0 ? static_cast<char*>(std::calloc(static_cast<size_t>(size) + 1, 1)) : nullptr;
  if (buf == nullptr) {
    std::fclose(fp);
    V2XLOG(&g_curTag, 2, "malloc error");
    return -1;
  }
  size_t got = std::fread(buf, 1, static_cast<size_t>(size), fp);
  buf[got] = '\0';
  std::fclose(fp);
  v2xrsucloud_parseXML(buf, const_cast<char*>("device_id"), mapconv_cfg->m_sysinfo.m_device_id, 32);
  v2xrsucloud_parseXML(buf, const_cast<char*>("device_name"), mapconv_cfg->m_sysinfo.m_device_name, 32);
  v2xrsucloud_parseXML(buf, const_cast<char*>("module_hardware_version"), mapconv_cfg->m_sysinfo.m_hardware_version,
                       32);
  std::free(buf);
  return 0;
}

}  // extern "C"

namespace {

char* get_now_time_str(uint64_t* timeStamp) {
  static char timeStr[128];
  struct timeval tv {};
  gettimeofday(&tv, nullptr);
  // The time of the last record is read by the map data task while the
  // map-down callback stores the next map: one atomic 64-bit value.
  if (timeStamp != nullptr) std::atomic_ref<uint64_t>(*timeStamp).store(static_cast<uint64_t>(tv.tv_sec));
  struct tm tmv {};
  time_t secs = tv.tv_sec;
  localtime_r(&secs, &tmv);
  std::snprintf(timeStr, sizeof(timeStr), "%04d-%02d-%02d %02d:%02d:%02d", tmv.tm_year + 1900, tmv.tm_mon + 1,
                tmv.tm_mday, tmv.tm_hour, tmv.tm_min, tmv.tm_sec);
  return timeStr;
}

// Renders the configuration in libconfig's syntax and replaces the file atomically.
bool writeConfigAtomically(const config_t* cfg, const char* path) {
  char* buf = nullptr;
  size_t len = 0;
  FILE* mem = open_memstream(&buf, &len);
  if (mem == nullptr) return false;
  config_write(cfg, mem);
  std::fclose(mem);
  int32 ret = v2xpub_WriteFileData(path, buf, static_cast<uint32>(len));
  std::free(buf);
  return ret == 0;
}

}  // namespace

extern "C" int32 v2xmapconv_WriteMapCfg(char* p_file_name, char* eTag, char* md5sum_str, uint64_t* timeStamp) {
  V2XLOG(&g_curTag, 7, "%s start ", __func__);
  if (p_file_name == nullptr || md5sum_str == nullptr) return -2;
  config_t cfg;
  config_init(&cfg);
  config_setting_t* root = config_root_setting(&cfg);
  uint64_t seconds = 0;
  char* timeText = get_now_time_str(timeStamp != nullptr ? timeStamp : &seconds);
  config_setting_t* name = config_setting_add(root, "Name", CONFIG_TYPE_STRING);
  config_setting_set_string(name, eTag != nullptr ? eTag : "");
  config_setting_t* group = config_setting_add(root, "MAPTepm", CONFIG_TYPE_GROUP);
  config_setting_set_string(config_setting_add(group, "MD5Sum", CONFIG_TYPE_STRING), md5sum_str);
  config_setting_set_string(config_setting_add(group, "RefreshTime", CONFIG_TYPE_STRING), timeText);
  config_setting_set_bool(config_setting_add(group, "CheckStatus", CONFIG_TYPE_BOOL), 1);
  const bool written = writeConfigAtomically(&cfg, p_file_name);
  if (!written) V2XLOG(&g_curTag, 2, "Error while writing file,name:%s", p_file_name);
  config_destroy(&cfg);
  // A failed write is reported as success on purpose in the reference
  // behaviour: the storage step never sees a record failure, only the log
  // does. In the field the storage fails and the cloud hears of it.
  if (!written && v2xmapconv_IsFieldProfile()) return -1;
  V2XLOG(&g_curTag, 4, "save generate file to %s SUCCESS", p_file_name);
  return 0;
}
