/** \file map_conv_deamon_check.h \brief Service entry, start-up checks.
 *
 * The working directory's lock, the profile
 * of a configuration that cannot be read, and `--check`. */
#ifndef MAP_CONV_DEAMON_CHECK_H
#define MAP_CONV_DEAMON_CHECK_H

#include <stdio.h>

#include "v2x_types.h"

#ifdef __cplusplus
extern "C" {
#endif

/** The lock file in the working directory; a running field-profile service
 * holds an exclusive flock(2) on it and keeps its process id in it. */
#define MAP_CONV_LOCK_FILE "v2x_map_convert.lock"

/** Takes the working directory's lock for the life of the process (the file
 * is made when missing; the descriptor stays open). 0 when taken; 1 when
 * another process holds it (its process id, as written in the file, goes to
 * holder, holderSize bytes); -1 when the file cannot be made or locked
 * (errno kept); -2 for a null argument. */
int32 v2xmapconv_LockWorkDir(const char* workDir, char* holder, uint32 holderSize);

/** The profile a configuration file names, read from its text as written
 * (for a file the configuration library refuses): 0 reference (also when the
 * setting is absent or the file cannot be opened), 1 field, -1 another value.
 * Only a line that starts with `profile` counts. */
int32 v2xmapconv_PeekProfile(const char* cfgPath);

/** Checks a working directory as a start would use it: the configuration and
 * device files, the configuration and map data directories, the IPC port file
 * and the local ports, and the lock. Prints one line per problem to out, or
 * one "check OK" line when there is none. Returns the number of problems. */
int32 v2xmapconv_CheckWorkDir(const char* workDir, FILE* out);

#ifdef __cplusplus
}
#endif

#endif
