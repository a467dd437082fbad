/* Checks of the C tests of the MAP library: a failed check is reported with
 * its place and counted; main returns g_failures == 0 ? 0 : 1. */
#ifndef MAPLIB_C_CHECK_H
#define MAPLIB_C_CHECK_H

#include <stdio.h>

static int g_failures = 0;

#define CHECK(cond)                                                      \
  do {                                                                   \
    if (!(cond)) {                                                       \
      fprintf(stderr, "%s:%d: failed: %s\n", __FILE__, __LINE__, #cond); \
      g_failures++;                                                      \
    }                                                                    \
  } while (0)

#endif
