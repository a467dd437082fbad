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

/*
 * As v2xmapconv_PrintUnformatted; with escapeHigh set, every byte from 0x80 of
 * a text (key or value) is written as \u00XX, so the document is ASCII, valid
 * UTF-8 JSON whatever bytes its texts hold, and a reader gets each such byte
 * back as the code point of the same value. Released with cJSON_free.
 */
char* v2xmapconv_PrintUnformattedAscii(const struct cJSON* item, size_t sizeHint, int escapeHigh);

#ifdef __cplusplus
}
#endif

#endif
