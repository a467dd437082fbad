/* The service's configuration file, the device information file and the map record file. */
#ifndef MAP_CONV_CONFIG_H
#define MAP_CONV_CONFIG_H

#include "v2x_types.h"

#ifdef __cplusplus
extern "C" {
#endif

#define MAP_CONV_CFG_FILE "conf/v2x_map_convert.cfg"
#define MAP_CONV_CFG_DIR_LEN 64

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
int32 v2xmapconv_GetCfgData(map_conv_config_t** p_mapconv_cfg);
int32 v2xmapconv_SetCfgData(map_conv_config_t* p_mapconv_cfg);

int32 v2xrsucloud_parseXML(char* xml, char* tag, char* out_value, int32_t max_out_len);
int32 v2xmapconv_GetSysinfo(map_conv_config_t* mapconv_cfg);

/* Writes a map record (replaced atomically). *timeStamp, when given, receives
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
