// Tagged logging over spdlog: a fixed registry of tags with atomic levels, one
// spdlog logger with a rotating file sink and an optional stderr sink.
#include "v2xlog.h"

#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <mutex>
#include <string>
#include <type_traits>

namespace {

struct TagEntry {
  char name[8] = {};
  std::atomic<int32> level{V2XLOG_DEFAULT_LEVEL};
};

class Registry {
 public:
  TagEntry* add(const char* name) {
    std::lock_guard lock(mutex_);
    if (TagEntry* e = findLocked(name)) return e;
    uint16 n = count_.load(std::memory_order_relaxed);
    if (n >= V2XLOG_MAX_TAGS) return nullptr;
    TagEntry& e = tags_[n];
    std::strncpy(e.name, name, 4);
    e.level.store(defaultLevel_.load(std::memory_order_relaxed), std::memory_order_relaxed);
    count_.store(n + 1, std::memory_order_release);
    return &e;
  }

  TagEntry* find(const char* name) {
    std::lock_guard lock(mutex_);
    return findLocked(name);
  }

  TagEntry* at(uint16 index) { return index < count_.load(std::memory_order_acquire) ? &tags_[index] : nullptr; }

  uint16 count() const { return count_.load(std::memory_order_acquire); }

  void setAll(int32 level) {
    std::lock_guard lock(mutex_);
    defaultLevel_.store(level, std::memory_order_relaxed);
    for (uint16 i = 0; i < count_.load(std::memory_order_relaxed); ++i)
      tags_[i].level.store(level, std::memory_order_relaxed);
  }

  int32 defaultLevel() const { return defaultLevel_.load(std::memory_order_relaxed); }

  // Level of a module's record. Its handle caches the lookup: a registered
  // tag's entry, or a mark that says "not registered while the registry held
  // k tags". Once cached, a lookup is two relaxed loads and no lock; a mark
  // goes stale (and the name is looked up again) when a tag is added.
  int32 levelOf(v2xlog_config_t* tag) {
    if (tag == nullptr) return defaultLevel();
    std::atomic_ref<V2XLOG_HANDLE> cache(tag->m_handle);
    const auto h = reinterpret_cast<uintptr_t>(cache.load(std::memory_order_relaxed));
    const auto entries = reinterpret_cast<uintptr_t>(tags_.data());
    const auto marks = reinterpret_cast<uintptr_t>(marks_.data());
    if (h - entries < sizeof(tags_)) return reinterpret_cast<TagEntry*>(h)->level.load(std::memory_order_relaxed);
    if (h - marks < sizeof(marks_) && h - marks == count_.load(std::memory_order_relaxed)) return defaultLevel();
    std::lock_guard lock(mutex_);
    TagEntry* e = findLocked(tag->m_tagName);
    cache.store(e != nullptr ? static_cast<V2XLOG_HANDLE>(e) : &marks_[count_.load(std::memory_order_relaxed)],
                std::memory_order_relaxed);
    return e != nullptr ? e->level.load(std::memory_order_relaxed) : defaultLevel();
  }

 private:
  TagEntry* findLocked(const char* name) {
    for (uint16 i = 0; i < count_.load(std::memory_order_relaxed); ++i)
      if (std::strncmp(tags_[i].name, name, 4) == 0 && name[std::strlen(tags_[i].name)] == '\0') return &tags_[i];
    return nullptr;
  }

  std::mutex mutex_;
  std::array<TagEntry, V2XLOG_MAX_TAGS> tags_{};
  std::array<char, V2XLOG_MAX_TAGS + 1> marks_{};
  std::atomic<uint16> count_{0};
  std::atomic<int32> defaultLevel_{V2XLOG_DEFAULT_LEVEL};
};

// Constant-initialised and trivially destructible: no start-up order to mind,
// and never torn down while service threads may still log during exit.
constinit Registry g_registry;
static_assert(std::is_trivially_destructible_v<Registry>);

// Names of the levels as they appear in each line.
constexpr std::array<const char*, 8> kLevelNames = {"NONE", "PKT", "ERR", "WARN", "NOTE", "INFO", "DBG", "TRACE"};

spdlog::level::level_enum toSpd(int32 level) {
  if (level <= 2) return spdlog::level::err;
  if (level == 3) return spdlog::level::warn;
  if (level <= 5) return spdlog::level::info;
  if (level == 6) return spdlog::level::debug;
  return spdlog::level::trace;
}

bool summed(int32 level) { return level >= 1 && level <= 3; }

// Counts repeats of identical lines (see v2xlog_SetRepeatWindow). Not
// thread-safe by itself: the output calls it under its repeat lock.
class Repeats {
 public:
  using Clock = std::chrono::steady_clock;
  using Emit = void (*)(void* ctx, const char* tag, int32 level, const char* text, uint32 count);

  bool idle() const { return used_.load(std::memory_order_relaxed) == 0; }

  // Sums up (through emit) the lines whose window has passed by now, or all
  // of them when all is set, and frees their slots.
  void sumUp(Clock::time_point now, Clock::duration window, bool all, Emit emit, void* ctx) {
    for (Slot& s : slots_) {
      if (!s.used || (!all && now - s.since < window)) continue;
      if (s.count > 0) emit(ctx, s.tag, s.level, s.text.c_str(), s.count);
      s.used = false;
      used_.fetch_sub(1, std::memory_order_relaxed);
    }
  }

  // True when the line repeats one written within the window (it is counted
  // then); false when it is to be written, and is remembered from now on.
  bool repeat(const char* tag, int32 level, const char* text, Clock::time_point now, Emit emit, void* ctx) {
    const uint64 hash = fnv(text);
    Slot* room = nullptr;
    for (Slot& s : slots_) {
      if (!s.used) {
        if (room == nullptr || room->used) room = &s;
        continue;
      }
      if (s.hash == hash && s.level == level && std::strcmp(s.tag, tag) == 0 && s.text == text) {
        ++s.count;
        return true;
      }
      if (room == nullptr || (room->used && s.since < room->since)) room = &s;
    }
    if (room->used) {  // full: the oldest makes room
      if (room->count > 0) emit(ctx, room->tag, room->level, room->text.c_str(), room->count);
    } else {
      used_.fetch_add(1, std::memory_order_relaxed);
    }
    room->used = true;
    room->hash = hash;
    room->level = level;
    std::snprintf(room->tag, sizeof(room->tag), "%s", tag);
    room->text.assign(text, strnlen(text, V2XLOG_LINE_MAX));
    room->since = now;
    room->count = 0;
    return false;
  }

 private:
  struct Slot {
    bool used = false;
    uint64 hash = 0;
    int32 level = 0;
    char tag[8] = {};
    std::string text;
    Clock::time_point since{};
    uint32 count = 0;
  };

  static uint64 fnv(const char* text) {
    uint64 h = 14695981039346656037ULL;
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p != '\0'; ++p)
      h = (h ^ *p) * 1099511628211ULL;
    return h;
  }

  std::array<Slot, V2XLOG_REPEAT_SLOTS> slots_{};
  std::atomic<int> used_{0};
};

class Output {
 public:
  // Never destroyed, like the registry: a task thread logging during exit
  // must not meet a logger that static destruction has already taken down.
  static Output& instance() {
    static Output* o = new Output;
    return *o;
  }

  int32 init(const char* path, const char* defaultTag, bool file, bool console, bool force) {
    std::vector<spdlog::sink_ptr> sinks;
    int32 ret = 0;
    if (file) {
      try {
        std::error_code ec;
        auto parent = std::filesystem::path(path).parent_path();
        if (!parent.empty()) std::filesystem::create_directories(parent, ec);
        sinks.push_back(
            std::make_shared<spdlog::sinks::rotating_file_sink_mt>(path, V2XLOG_FILE_MAX_SIZE, V2XLOG_FILE_MAX_FILES));
      } catch (const spdlog::spdlog_ex& e) {
        std::fprintf(stderr, "v2xlog: cannot open log file %s: %s\n", path, e.what());
        ret = -1;
      }
    }
    const char* env = std::getenv("V2XLOG_STDERR");
    bool envForce = env != nullptr && std::strcmp(env, "1") == 0;
    if (force || envForce || (console && isatty(STDERR_FILENO) != 0))
      sinks.push_back(std::make_shared<spdlog::sinks::stderr_sink_mt>());
    sumUpRepeats();  // into the outputs being replaced
    auto logger = std::make_shared<spdlog::logger>("v2x", sinks.begin(), sinks.end());
    logger->set_pattern("%Y-%m-%d %H:%M:%S.%e %v");
    logger->set_level(spdlog::level::trace);
    logger->flush_on(spdlog::level::trace);
    {
      std::lock_guard lock(mutex_);
      logger_ = logger;
      std::snprintf(defaultTag_, sizeof(defaultTag_), "%.4s", defaultTag);
    }
    return ret;
  }

  void write(const char* tag, int32 level, const char* text) {
    std::shared_ptr<spdlog::logger> logger;
    char tagName[8];
    {
      std::lock_guard lock(mutex_);
      logger = logger_;
      std::snprintf(tagName, sizeof(tagName), "%s", tag != nullptr ? tag : defaultTag_);
    }
    const uint32 window = windowMs_.load(std::memory_order_relaxed);
    if (window == 0 || (!summed(level) && repeats_.idle())) {
      emit(logger.get(), tagName, level, text, 0);
      return;
    }
    // Deciding and writing under one lock keeps a summary before the lines after it.
    std::lock_guard lock(repeatMutex_);
    const auto now = Repeats::Clock::now();
    repeats_.sumUp(now, std::chrono::milliseconds(window), false, emitTo, logger.get());
    if (summed(level) && repeats_.repeat(tagName, level, text, now, emitTo, logger.get())) return;
    emit(logger.get(), tagName, level, text, 0);
  }

  void setWindow(uint32 ms) {
    windowMs_.store(ms, std::memory_order_relaxed);
    if (ms == 0) sumUpRepeats();
  }

  void flush() {
    sumUpRepeats();
    std::shared_ptr<spdlog::logger> logger;
    {
      std::lock_guard lock(mutex_);
      logger = logger_;
    }
    if (logger) logger->flush();
  }

 private:
  // One line, or (count > 0) the summary of count repeats of it.
  static void emit(spdlog::logger* logger, const char* tag, int32 level, const char* text, uint32 count) {
    const char* lvl = kLevelNames[static_cast<size_t>(level) & 7U];
    if (logger != nullptr) {
      if (count > 0) {
        logger->log(toSpd(level), "[{}][{}] {} ... repeated {} times", tag, lvl, text, count);
      } else {
        logger->log(toSpd(level), "[{}][{}] {}", tag, lvl, text);
      }
    } else if (count > 0) {
      std::fprintf(stderr, "[%s][%s] %s ... repeated %u times\n", tag, lvl, text, count);
    } else {
      std::fprintf(stderr, "[%s][%s] %s\n", tag, lvl, text);
    }
  }
  static void emitTo(void* ctx, const char* tag, int32 level, const char* text, uint32 count) {
    emit(static_cast<spdlog::logger*>(ctx), tag, level, text, count);
  }

  // Every count so far goes out now.
  void sumUpRepeats() {
    std::shared_ptr<spdlog::logger> logger;
    {
      std::lock_guard lock(mutex_);
      logger = logger_;
    }
    std::lock_guard lock(repeatMutex_);
    repeats_.sumUp(Repeats::Clock::now(), {}, true, emitTo, logger.get());
  }

  std::mutex mutex_;
  std::shared_ptr<spdlog::logger> logger_;
  char defaultTag_[8] = "V2X";
  std::atomic<uint32> windowMs_{0};
  std::mutex repeatMutex_;
  Repeats repeats_;
};

bool validTag(const char* name) {
  if (name == nullptr) return false;
  size_t n = std::strlen(name);
  return n >= 1 && n <= 4;
}

bool validLevel(int32 level) { return level >= 0 && level <= V2XLOG_MAX_LEVEL; }

constinit std::atomic<bool> g_configured{false};

}  // namespace

extern "C" {

int32 v2xlog_Init(const char* logFile, const char* defaultTag, int32 fileEnable, int32 consoleEnable,
                  int32 consoleForce) {
  if ((fileEnable != 0 && logFile == nullptr) || defaultTag == nullptr) return -2;
  g_configured.store(true, std::memory_order_release);
  return Output::instance().init(logFile, defaultTag, fileEnable != 0, consoleEnable != 0, consoleForce != 0);
}

V2XLOG_HANDLE v2xlog_AddTag(const char* tagName) {
  if (!validTag(tagName)) return nullptr;
  g_configured.store(true, std::memory_order_release);
  return g_registry.add(tagName);
}

int32 v2xlog_SetTagLevel(V2XLOG_HANDLE handle, int32 level) {
  if (handle == nullptr || !validLevel(level)) return -2;
  static_cast<TagEntry*>(handle)->level.store(level, std::memory_order_relaxed);
  return 0;
}

int32 v2xlog_SetAllTagLevel(int32 level) {
  if (!validLevel(level)) return -2;
  g_configured.store(true, std::memory_order_release);
  g_registry.setAll(level);
  return 0;
}

int32 v2xlog_GetTagHandle(const char* tagName, V2XLOG_HANDLE* handle) {
  if (tagName == nullptr || handle == nullptr) return -2;
  TagEntry* e = validTag(tagName) ? g_registry.find(tagName) : nullptr;
  if (e == nullptr) return -1;
  *handle = e;
  return 0;
}

uint16 v2xlog_GetTagNum(void) { return g_registry.count(); }

int32 v2xlog_GetTagLevelByIndex(uint16 index, char tagName[8], int16* level) {
  if (tagName == nullptr || level == nullptr) return -2;
  TagEntry* e = g_registry.at(index);
  if (e == nullptr) return -2;
  std::memset(tagName, 0, 8);
  std::memcpy(tagName, e->name, std::strlen(e->name));
  *level = static_cast<int16>(e->level.load(std::memory_order_relaxed));
  return 0;
}

int32 v2xlog_GetLevel(v2xlog_config_t* tag) { return g_registry.levelOf(tag); }

bool v2xlog_IsEnabled(v2xlog_config_t* tag, int32 level) { return level > 0 && level <= g_registry.levelOf(tag); }

void v2xlog_Print(v2xlog_config_t* tag, int32 level, const char* fmt, ...) {
  if (fmt == nullptr || !v2xlog_IsEnabled(tag, level)) return;
  char line[V2XLOG_LINE_MAX];
  va_list ap;
  va_start(ap, fmt);
  std::vsnprintf(line, sizeof(line), fmt, ap);
  va_end(ap);
  Output::instance().write(tag != nullptr ? tag->m_tagName : nullptr, level, line);
}

void v2xlog_Flush(void) { Output::instance().flush(); }

bool v2xlog_IsConfigured(void) { return g_configured.load(std::memory_order_acquire); }
void v2xlog_SetRepeatWindow(uint32 windowMs) { Output::instance().setWindow(windowMs); }

}  // extern "C"
