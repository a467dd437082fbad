// Where the MAP library's log lines go, and the public calls that steer them.
#include "gbmap_log.h"

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <mutex>

#include "v2xapp_gbmap.h"

namespace {

// Level of a program that did not set its logging up: warnings and errors.
constexpr int kQuietLevel = 3;
constexpr const char* kLevelNames[] = {"NONE", "PKT", "ERR", "WARN", "NOTE", "INFO", "DBG", "TRACE"};
constexpr const char* kLibraryTags[] = {"GMAP", "UPER"};

std::atomic<int> g_level{-1};  // -1: never set
std::mutex g_sinkMutex;
v2xapp_GBMapLogSink g_sink = nullptr;
void* g_sinkCtx = nullptr;
std::atomic<bool> g_hasSink{false};

}  // namespace

namespace gbmap {

bool logEnabled(v2xlog_config_t* tag, int level) {
  if (level <= 0) return false;
  if (v2xlog_IsConfigured()) return v2xlog_IsEnabled(tag, level);
  const int own = g_level.load(std::memory_order_relaxed);
  return level <= (own >= 0 ? own : kQuietLevel);
}

namespace {

void deliver(v2xlog_config_t* tag, int level, const char* line);

}  // namespace

void logPrint(v2xlog_config_t* tag, int level, const char* fmt, ...) {
  char line[V2XLOG_LINE_MAX];
  va_list ap;
  va_start(ap, fmt);
  std::vsnprintf(line, sizeof(line), fmt, ap);
  va_end(ap);
  deliver(tag, level, line);
}

void logAt(v2xlog_config_t* tag, int level, const Site& site, const char* fmt, ...) {
  if (!logEnabled(tag, level)) return;
  char line[V2XLOG_LINE_MAX];
  const int head = std::snprintf(line, sizeof(line), "%s:%s:%d:", site.file, site.func, site.line);
  if (head < 0 || static_cast<size_t>(head) >= sizeof(line)) return;
  va_list ap;
  va_start(ap, fmt);
  std::vsnprintf(line + head, sizeof(line) - static_cast<size_t>(head), fmt, ap);
  va_end(ap);
  deliver(tag, level, line);
}

namespace {

void deliver(v2xlog_config_t* tag, int level, const char* line) {
  if (g_hasSink.load(std::memory_order_acquire)) {
    v2xapp_GBMapLogSink sink = nullptr;
    void* ctx = nullptr;
    {
      std::lock_guard lock(g_sinkMutex);
      sink = g_sink;
      ctx = g_sinkCtx;
    }
    // Called without the lock: a sink may use the library itself.
    if (sink != nullptr) {
      sink(ctx, level, line);
      return;
    }
  }
  if (v2xlog_IsConfigured()) {
    v2xlog_Print(tag, level, "%s", line);
  } else {
    std::fprintf(stderr, "[%s][%s] %s\n", tag != nullptr ? tag->m_tagName : "GMAP", kLevelNames[level & 7], line);
  }
}

}  // namespace

}  // namespace gbmap

extern "C" {

int32_t v2xapp_GBMapSetLogLevel(int level) {
  if (level < 0 || level > V2XLOG_MAX_LEVEL) return -2;
  g_level.store(level, std::memory_order_relaxed);
  // A program with its own logger: the library's tags there follow too.
  if (v2xlog_IsConfigured()) {
    for (const char* name : kLibraryTags) v2xlog_SetTagLevel(v2xlog_AddTag(name), level);
  }
  return 0;
}

int32_t v2xapp_GBMapSetLogSink(v2xapp_GBMapLogSink sink, void* ctx) {
  std::lock_guard lock(g_sinkMutex);
  g_sink = sink;
  g_sinkCtx = sink != nullptr ? ctx : nullptr;
  g_hasSink.store(sink != nullptr, std::memory_order_release);
  return 0;
}

}  // extern "C"
