/* The service's configuration file, the device information file and the map record file. */
#ifndef MAP_CONV_CONFIG_H
#define MAP_CONV_CONFIG_H

#include "map_conv_profile.h"
#include "v2x_types.h"

#ifdef __cplusplus
extern "C" {
#endif

#define MAP_CONV_CFG_FILE "conf/v2x_map_convert.cfg"
#define MAP_CONV_CFG_DIR_LEN 64
/** Top-level setting naming the behaviour profile: "reference" (also when
 * absent) or "field". */
#define MAP_CONV_CFG_PROFILE_KEY "profile"

typedef struct __attribute__((packed)) rsu_sysinfo {
  char m_device_id[32];
  char m_device_name[32];
  char m_hardware_version[32];
} rsu_sysinfo_t;

typedef struct __attribute__((packed)) map_conv_config {
  char m_eTag[64];
  char m_MapDataDir[128];
  char m_MapFilename[128];
  char m_MapCfgname[128];
  char m_SysinfoName[128];
  rsu_sysinfo_t m_sysinfo;
} map_conv_config_t;

int32 v2xmapconv_InitCfg(const char* dir);
int32 v2xmapconv_GetCfgDir(const char* userPath, char** fullcfgPath);
int32 v2xmapconv_GetMapDataDir(const char* userPath, char** fullcfgPath);
/** Reads the configuration on the first call (and sets the process's profile
 * from its "profile" setting), then serves the cached record. 0, or 1 when
 * the file cannot be read, its profile is neither "reference" nor "field",
 * or (field profile) the device information file cannot be read. */
int32 v2xmapconv_GetCfgData(map_conv_config_t** p_mapconv_cfg);
/** Writes the record's eTag back to the file. 0; 1 when the file cannot be
 * re-read, and under the field profile also when it cannot be written. */
int32 v2xmapconv_SetCfgData(map_conv_config_t* p_mapconv_cfg);

/** Reads the configuration file afresh into *cfg (the device fields stay
 * empty; nothing is cached and the process's profile is not changed) and its
 * profile into *profile. The keys that cannot be read are named in missing
 * (missingSize bytes, blank-separated). 0; 1 when the file cannot be read or
 * parsed; 2 when its profile is neither "reference" nor "field"; -2 for a
 * null argument. */
int32 v2xmapconv_ReadCfgFile(map_conv_config_t* cfg, map_conv_profile_e* profile, char* missing, uint32 missingSize);

int32 v2xrsucloud_parseXML(char* xml, char* tag, char* out_value, int32_t max_out_len);
int32 v2xmapconv_GetSysinfo(map_conv_config_t* mapconv_cfg);

/** Writes a map record (replaced atomically). 0, -2 for a null path or digest;
 * a failed write is logged and gives 0, under the field profile -1. *timeStamp, when given, receives
 * the record's time in seconds since 1970 as one atomic store: other threads
 * read it while the next map is stored. */
int32 v2xmapconv_WriteMapCfg(char* p_file_name, char* eTag, char* md5sum_str, uint64_t* timeStamp);

#ifdef V2X_TEST_SEAMS
/* Tests only: forgets the cached configuration so the next read goes to the file. */
void v2xmapconv_ResetCfgForTest(void);
#endif

#ifdef __cplusplus
}
#endif

#endif
