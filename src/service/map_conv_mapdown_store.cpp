// Map download: storage of a converted slice as a UPER map file with its MD5
// record, the eTag memory across slices, and the time of the last download.
#include <dirent.h>
#include <limits.h>
#include <mbedtls/md5.h>
#include <mbedtls/version.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>

#include "map_conv_config.h"
#include "map_conv_mapdown_detail.h"
#include "map_conv_mapdown_stage.h"
#include "map_conv_profile.h"
#include "v2xapp_gbmap.h"
#include "v2xpub.h"

using namespace v2xmapconv::mapdown::detail;

namespace {

// Storage state: the eTag of the map completed last in this run, whether the
// next slice starts a new map (and so empties the directory), and the time of
// the last map record written (seconds since the epoch).
char cur_eTag[64];
bool del_map_dir_flag = true;
alignas(std::atomic_ref<uint64>::required_alignment) uint64 g_last_mapdown_timestamp = 0;

}  // namespace

namespace v2xmapconv::mapdown::detail {

int32 writeSlice(const char* dir, const map_conv_config_t* cfg, v2xcloud_map_data_t* map_data, const char* eTag,
                 v2xipc_mapRefresh_t* refresh, uint64* stamp) {
  uint8 fileId = static_cast<uint8>(map_data->mapSlice - 1);
  if (refresh != nullptr) refresh->m_mapFileID = fileId;
  char mapPath[300];
  char recordPath[300];
  int n1 = std::snprintf(mapPath, sizeof(mapPath), "%s/%s%d", dir, cfg->m_MapFilename, fileId);
  int n2 = std::snprintf(recordPath, sizeof(recordPath), "%s/%s%d", dir, cfg->m_MapCfgname, fileId);
  if (n1 < 0 || n2 < 0 || static_cast<size_t>(n1) >= sizeof(mapPath) || static_cast<size_t>(n2) >= sizeof(recordPath)) {
    V2XLOG(&g_curTag, 2, "map file path too long in %s", dir);
    return -3;
  }

  uint8 encoded[MAP_CONV_UPER_BUF_SIZE];
  uint32 encodedLen = sizeof(encoded);
  int32 ret = v2xapp_GBMapUperEncode(map_data->map, encoded, &encodedLen);
  if (ret != 0) {
    V2XLOG(&g_curTag, 2, "v2xapp_GBMapUperEncode error ret=%d ", ret);
    return ret;
  }
  if (encodedLen > sizeof(encoded)) {
    // Never a cut file: the slice is refused as a whole.
    V2XLOG(&g_curTag, 2, "encoded map of %u bytes does not fit in %zu bytes", encodedLen, sizeof(encoded));
    return -5;
  }
  // The reference behaviour deliberately does not act on the file service's
  // result: a map file that cannot be written is logged by the file service
  // itself (the old file, if any, stays whole), and the record and eTag steps
  // still run. In the field the slice fails.
  ret = v2xpub_WriteFileData(mapPath, encoded, encodedLen);
  if (ret != 0 && v2xmapconv_IsFieldProfile()) {
    V2XLOG(&g_curTag, 2, "v2xpub_WriteFileData error ret=%d ", ret);
    return ret;
  }
  V2XLOG(&g_curTag, 4, "save generate file to %s SUCCESS", mapPath);

  unsigned char digest[16] = {};
#if defined(MBEDTLS_VERSION_NUMBER) && MBEDTLS_VERSION_NUMBER >= 0x03000000
  int md5ret = mbedtls_md5(encoded, encodedLen, digest);
#else
  int md5ret = mbedtls_md5_ret(encoded, encodedLen, digest);
#endif
  if (md5ret != 0) {
    V2XLOG(&g_curTag, 2, "mbedtls md5 error ret=%d ", md5ret);
    return -6;
  }
  if (refresh != nullptr) std::memcpy(refresh->m_CheckSum, digest, sizeof(digest));
  char md5Text[64] = {};
  for (size_t i = 0; i < sizeof(digest); ++i) std::snprintf(md5Text + 2 * i, 3, "%02x", digest[i]);
  char recordETag[64];
  copyText(recordETag, sizeof(recordETag), eTag);
  ret = v2xmapconv_WriteMapCfg(recordPath, recordETag, md5Text, stamp);
  if (ret != 0) V2XLOG(&g_curTag, 2, "v2xmapconv_WriteMapCfg error ret=%d ", ret);
  return ret;
}

}  // namespace v2xmapconv::mapdown::detail

extern "C" {

int32 delete_directory(const char* path) {
  V2XLOG(&g_curTag, 7, "%s start ", __func__);
  if (path == nullptr) return -2;
  DIR* dir = opendir(path);
  if (dir == nullptr) {
    V2XLOG(&g_curTag, 7, "open dir:%s failed!", path);
    return -1;
  }
  char entryPath[PATH_MAX];
  for (struct dirent* entry = readdir(dir); entry != nullptr; entry = readdir(dir)) {
    if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) continue;
    int n = std::snprintf(entryPath, sizeof(entryPath), "%s/%s", path, entry->d_name);
    if (n < 0 || static_cast<size_t>(n) >= sizeof(entryPath)) {
      // A cut path names another file: leave the entry alone.
      V2XLOG(&g_curTag, 3, "path of %s in %s too long, kept", entry->d_name, path);
      continue;
    }
    bool isDir = entry->d_type == DT_DIR;
    if (entry->d_type == DT_UNKNOWN) {
      // Some file systems do not report the type; ask, without following links.
      struct stat st {};
      isDir = lstat(entryPath, &st) == 0 && S_ISDIR(st.st_mode);
    }
    if (isDir) {
      delete_directory(entryPath);
      rmdir(entryPath);
    } else {
      unlink(entryPath);
    }
  }
  closedir(dir);
  return 0;
}

int32 v2xmapconv_WriteMapDataToCfg(v2xcloud_map_data_t* map_data, v2xipc_mapRefresh_t* refresh) {
  V2XLOG(&g_curTag, 7, "%s start ", __func__);
  if (map_data == nullptr) return -2;
  map_conv_config_t* cfg = nullptr;
  int32 ret = v2xmapconv_GetCfgData(&cfg);
  if (ret != 0 || cfg == nullptr) {
    V2XLOG(&g_curTag, 2, "Get config failed!");
    return ret != 0 ? ret : -1;
  }
  const bool field = v2xmapconv_IsFieldProfile() != 0;
  char eTag[sizeof(map_data->eTag)];
  copyText(eTag, sizeof(eTag), map_data->eTag);
  // Slices of the map completed last in this run are not stored again. The
  // reference behaviour compares over the received eTag's length only, so a
  // map whose eTag is the start of the last one's is never stored.
  if (field ? std::strcmp(eTag, cur_eTag) == 0 : std::strncmp(eTag, cur_eTag, std::strlen(eTag)) == 0) return 0;

  // Without a configured directory there is no file to write; an empty setting
  // would otherwise name the working directory itself.
  char* dataDir = nullptr;
  if (cfg->m_MapDataDir[0] != '\0') v2xmapconv_GetMapDataDir(cfg->m_MapDataDir, &dataDir);
  if (dataDir != nullptr && dataDir[0] != '\0') {
    if (field) {
      ret = stageSlice(dataDir, cfg, map_data, eTag, &g_last_mapdown_timestamp);
    } else {
      if (del_map_dir_flag) {
        delete_directory(dataDir);
        del_map_dir_flag = false;
      }
      ret = writeSlice(dataDir, cfg, map_data, eTag, refresh, &g_last_mapdown_timestamp);
    }
    if (ret != 0) return ret;
  }

  // Slice 1 completes the map: remember it here and in the configuration, and
  // let the next map start in an empty directory.
  if (map_data->mapSlice == 1) {
    copyText(cur_eTag, sizeof(cur_eTag), eTag);
    del_map_dir_flag = true;
    copyText(cfg->m_eTag, sizeof(cfg->m_eTag), eTag);
    ret = v2xmapconv_SetCfgData(cfg);
    if (ret != 0) {
      V2XLOG(&g_curTag, 2, "Set MAP config failed!");
      return ret;
    }
  }
  return ret;
}

int32 v2xmapconv_GetMapDownLastTimestamp(uint64* timeStamp) {
  V2XLOG_START(&g_curTag);
  int32 ret = 0;
  if (timeStamp == nullptr) {
    V2XLOG(&g_curTag, 2, "input param error");
    ret = -2;
  } else {
    // Written by the map-down callback (one atomic store), read here by the
    // map data task.
    *timeStamp = std::atomic_ref<uint64>(g_last_mapdown_timestamp).load();
  }
  V2XLOG_END(&g_curTag, ret);
  return ret;
}

#ifdef V2X_TEST_SEAMS
void v2xmapconv_MapDownResetForTest(void) {
  resetErrorCode();
  std::memset(cur_eTag, 0, sizeof(cur_eTag));
  del_map_dir_flag = true;
  std::atomic_ref<uint64>(g_last_mapdown_timestamp).store(0);
  resetStageForTest();
}
#endif

}  // extern "C"
