/* The service's behaviour profile: "reference" (the default) or "field".
 * Set once at start-up from the configuration file's top-level `profile`
 * setting; read by every module that behaves differently in the field. */
#ifndef MAP_CONV_PROFILE_H
#define MAP_CONV_PROFILE_H

#include "v2x_types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef enum map_conv_profile {
  MAP_CONV_PROFILE_REFERENCE = 0,
  MAP_CONV_PROFILE_FIELD = 1,
} map_conv_profile_e;

/* Sets the profile (any thread; later readers see it). */
void v2xmapconv_SetProfile(map_conv_profile_e profile);
map_conv_profile_e v2xmapconv_GetProfile(void);
/* 1 under the field profile, 0 under the reference one. */
int v2xmapconv_IsFieldProfile(void);
/* "reference" or "field". */
const char* v2xmapconv_ProfileName(map_conv_profile_e profile);
/* Parses a configuration value: 0 and *out set for "reference" or "field"
 * (exact, lower case), -2 for anything else. */
int32 v2xmapconv_ParseProfile(const char* text, map_conv_profile_e* out);

#ifdef __cplusplus
}
#endif

#endif
