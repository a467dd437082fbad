/*
 * Tagged logging for RSU services.
 *
 * Every module owns one v2xlog_config_t naming its four-letter tag. A line is
 * written when its level is at or below the tag's level (0 = silent, 1 = bad
 * packets, 2 = errors, 3 = warnings, 4 = notices, 5/6 = detail, 7 = traces).
 * The level test happens before any formatting. A record caches its tag's
 * lookup in m_handle on first use (safely from any thread), so a disabled line
 * then costs two relaxed loads and no lock.
 *
 * Tags that were never added with v2xlog_AddTag (the codec's "UPER", say) are
 * still logged: they follow the "default level", which starts at
 * V2XLOG_DEFAULT_LEVEL (4, notices) and is changed by v2xlog_SetAllTagLevel.
 *
 * Output goes to a size-capped rotating log file and, when standard error is a
 * terminal (or the environment variable V2XLOG_STDERR=1 asks for it), to
 * standard error. Before v2xlog_Init every line goes to standard error.
 */
#ifndef V2XLOG_H
#define V2XLOG_H

#include "v2x_types.h"

#ifdef __cplusplus
extern "C" {
#endif

#define V2XLOG_DEFAULT_LEVEL 4
#define V2XLOG_MAX_LEVEL 7
#define V2XLOG_MAX_TAGS 32
#define V2XLOG_LINE_MAX 4096
/* Rotating file: this many bytes a file, this many old files kept. */
#define V2XLOG_FILE_MAX_SIZE (5 * 1024 * 1024)
#define V2XLOG_FILE_MAX_FILES 3

typedef void* V2XLOG_HANDLE;

/* One per module: its tag and the logger handle looked up on first use. The
 * logger owns m_handle after initialisation: start it null and leave it. */
typedef struct v2xlog_config {
  V2XLOG_HANDLE m_handle;
  char m_tagName[5];
} v2xlog_config_t;

/*
 * Sets up the logger. logFile: path of the rotating log file (its directory is
 * created when missing). defaultTag: tag of lines printed with a null record.
 * fileEnable: write to logFile. consoleEnable: also write to standard error
 * when it is a terminal. consoleForce: write to standard error in any case.
 * 0 on success, -2 on a bad argument, -1 when the file cannot be opened (the
 * console output still works then). Calling it again replaces the outputs.
 */
int32 v2xlog_Init(const char* logFile, const char* defaultTag, int32 fileEnable, int32 consoleEnable,
                  int32 consoleForce);

/* Registers a tag (1 to 4 characters); returns its handle (the existing one if
 * already added), or NULL when the tag is invalid or the registry is full. New
 * tags start at the default level. */
V2XLOG_HANDLE v2xlog_AddTag(const char* tagName);
/* Level 0..7; 0 on success, -2 on a null handle or a level out of range. */
int32 v2xlog_SetTagLevel(V2XLOG_HANDLE handle, int32 level);
/* Sets every registered tag and the default level; -2 for a level out of range. */
int32 v2xlog_SetAllTagLevel(int32 level);
/* Handle of a registered tag by name; 0 on success, -1 when unknown, -2 on null. */
int32 v2xlog_GetTagHandle(const char* tagName, V2XLOG_HANDLE* handle);
/* Number of registered tags. */
uint16 v2xlog_GetTagNum(void);
/* Name (zero-padded into 8 bytes) and level of the tag at index; 0, or -2. */
int32 v2xlog_GetTagLevelByIndex(uint16 index, char tagName[8], int16* level);
/* Current level of a tag record (registered or not). */
int32 v2xlog_GetLevel(v2xlog_config_t* tag);
/* True when a line of this level would be written for this tag. */
bool v2xlog_IsEnabled(v2xlog_config_t* tag, int32 level);
/* Formats (at most V2XLOG_LINE_MAX bytes) and writes one line. A null tag
 * record uses the default tag given to v2xlog_Init. */
void v2xlog_Print(v2xlog_config_t* tag, int32 level, const char* fmt, ...) __attribute__((format(printf, 3, 4)));
/* Flushes the outputs (tests and shutdown), after the summary lines of the
 * repeats still being counted. */
void v2xlog_Flush(void);
/* True once the program set its logging up: v2xlog_Init, v2xlog_AddTag or
 * v2xlog_SetAllTagLevel was called. */
bool v2xlog_IsConfigured(void);

/*
 * Summing of repeats, for bad-packet, error and warning lines (levels 1 to 3):
 * a line identical (tag, level and text) to one written less than windowMs
 * milliseconds before is not written but counted. When the window has passed
 * (seen at the next line written, or at v2xlog_Flush), the count goes out as
 * one line, the text followed by " ... repeated N times", and the next
 * identical line is written again. At most V2XLOG_REPEAT_SLOTS different lines
 * are counted at a time (the oldest is summed up to make room), each at most
 * V2XLOG_LINE_MAX bytes: the memory is bounded. windowMs 0 (the default)
 * writes every line. v2xlog_Init keeps the setting; the counts so far are
 * summed up to the outputs it replaces.
 */
void v2xlog_SetRepeatWindow(uint32 windowMs);
#define V2XLOG_REPEAT_SLOTS 16
/* The window a service uses: "within a few seconds". */
#define V2XLOG_REPEAT_WINDOW_MS 5000

/*
 * The one way modules log: V2XLOG(&g_curTag, 2, "open %s error", path) writes
 * "file:function:line:open ... error". The level test comes first.
 */
#define V2XLOG(tag, level, fmt, ...)                                                              \
  do {                                                                                            \
    if (v2xlog_IsEnabled((tag), (level)))                                                         \
      v2xlog_Print((tag), (level), "%s:%s:%d:" fmt, __FILE__, __func__, __LINE__, ##__VA_ARGS__); \
  } while (0)

/* Entry and exit traces at level 7. */
#define V2XLOG_START(tag) V2XLOG((tag), 7, "%s start", __func__)
#define V2XLOG_END(tag, ret) V2XLOG((tag), 7, "%s end ret=%d", __func__, (int)(ret))

#ifdef __cplusplus
}
#endif

#endif
