// The MAP library's log lines (never installed). They go to the sink a
// library user gave (v2xapp_GBMapSetLogSink), else to the program's logger
// when it set one up (v2xlog_Init, v2xlog_AddTag, v2xlog_SetAllTagLevel), at
// its levels; otherwise to standard error at the library's own level:
// warnings and errors unless v2xapp_GBMapSetLogLevel says otherwise.
#ifndef GBMAP_LOG_H
#define GBMAP_LOG_H

#include "v2xlog.h"

namespace gbmap {

bool logEnabled(v2xlog_config_t* tag, int level);
void logPrint(v2xlog_config_t* tag, int level, const char* fmt, ...) __attribute__((format(printf, 3, 4)));

// A public call's place, for lines written on its behalf by a shared walk.
struct Site {
  const char* file;
  const char* func;
  int line;
};
#define GBLOG_SITE \
  gbmap::Site { __FILE__, __func__, __LINE__ }

// A line under the place of the public call (level test included).
void logAt(v2xlog_config_t* tag, int level, const Site& site, const char* fmt, ...)
    __attribute__((format(printf, 4, 5)));

}  // namespace gbmap

// As V2XLOG: "file:function:line:" and the message, the level test first.
#define GBLOG(tag, level, fmt, ...)                                                                  \
  do {                                                                                               \
    if (gbmap::logEnabled((tag), (level)))                                                           \
      gbmap::logPrint((tag), (level), "%s:%s:%d:" fmt, __FILE__, __func__, __LINE__, ##__VA_ARGS__); \
  } while (0)
#define GBLOG_START(tag) GBLOG((tag), 7, "%s start", __func__)
#define GBLOG_END(tag, ret) GBLOG((tag), 7, "%s end ret=%d", __func__, (int)(ret))

#endif
