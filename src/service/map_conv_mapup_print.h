/* Printing of the upload document's cJSON tree. */
#ifndef MAP_CONV_MAPUP_PRINT_H
#define MAP_CONV_MAPUP_PRINT_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

struct cJSON;

/*
 * The text cJSON_PrintUnformatted gives for item, byte for byte, made in one
 * pass without cJSON's per-value length scans and printf/scanf number round
 * trips. sizeHint: expected length (0 if unknown). Released with cJSON_free;
 * null for a null item, a raw value without text, or when out of memory.
 */
char* v2xmapconv_PrintUnformatted(const struct cJSON* item, size_t sizeHint);

#ifdef __cplusplus
}
#endif

#endif
