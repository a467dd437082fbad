/** \file map_conv_mapdown_stage.h \brief Map download storage under the field profile.
 *
 * Each map is written into a
 * version directory of its own and becomes the map data directory at once,
 * when its slice 1 is stored.
 *
 * Layout, for the map data directory DIR (e.g. <workdir>/mapdata):
 *   DIR            a symbolic link to DIR.versions/<N>, the current map
 *   DIR.versions/  one directory per map version: the current one and, while
 *                  a map arrives, the one being staged
 * The switch replaces the link with rename(2), so a reader of DIR/<file> sees
 * either the previous map or the new one, whole. */
#ifndef MAP_CONV_MAPDOWN_STAGE_H
#define MAP_CONV_MAPDOWN_STAGE_H

#include "map_conv_config.h"
#include "map_conv_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** Suffix of the directory that holds the map versions beside DIR. */
#define MAP_CONV_VERSIONS_SUFFIX ".versions"

/** Start-up under the field profile, before any map is stored: makes the map
 * data directory a link to its current version (a plain directory becomes
 * the current version), and removes versions a stopped or killed run was
 * staging. 0; -1 when the layout cannot be made (logged; every map is then
 * refused); -2 without a configuration. */
int32 v2xmapconv_MapStoreRecover(void);

/** Takes the next refresh notice of a map that became current (field profile;
 * one per file of the map, in storing order). 1 and *notice filled, 0 when
 * none is left, -2 for a null notice. Map-down callback thread only. */
int32 v2xmapconv_TakeMapRefresh(v2xipc_mapRefresh_t* notice);

#ifdef __cplusplus
}

namespace v2xmapconv::mapdown::detail {

/** Encodes one slice and writes its map file and record into dir; fills
 * refresh (may be null) with the file number and digest, and *stamp with the
 * record's time. 0 or the failing step's result. */
int32 writeSlice(const char* dir, const map_conv_config_t* cfg, v2xcloud_map_data_t* map_data, const char* eTag,
                 v2xipc_mapRefresh_t* refresh, uint64* stamp);

/** Field profile: stages one slice of map eTag below dataDir and, for slice 1,
 * makes the staged map current. *stamp receives the switched map's record
 * time (left alone otherwise). 0 or a negative failure (logged). */
int32 stageSlice(const char* dataDir, const map_conv_config_t* cfg, v2xcloud_map_data_t* map_data, const char* eTag,
                 uint64* stamp);

#ifdef V2X_TEST_SEAMS
void resetStageForTest();
#endif

}  // namespace v2xmapconv::mapdown::detail
#endif

#endif
