// Printing of the upload document's cJSON tree in cJSON's unformatted form.
//
// cJSON's printer measures every piece it writes again with strlen and prints
// each number with printf and reads it back with scanf: for a map of a few
// kilobytes that is most of the time an upload takes. This printer walks the
// same tree once and writes the same bytes; numbers that are not integral
// texts already (the renderer writes its integers as raw values) are still
// printed by cJSON.
#include "map_conv_mapup_print.h"

#include <cjson/cJSON.h>

#include <array>
#include <cstring>
#include <memory>
#include <new>

namespace {

// A growing output buffer written through a raw pointer.
class Output {
 public:
  explicit Output(size_t hint) { grow(hint > 64 ? hint : 64); }
  bool ok() const { return buf_ != nullptr; }
  // Room for n more bytes; false when out of memory.
  bool reserve(size_t n) {
    if (static_cast<size_t>(end_ - next_) >= n) return true;
    return grow((static_cast<size_t>(next_ - buf_.get()) + n) * 2);
  }
  void put(char c) { *next_++ = c; }
  void put(const char* text, size_t n) {
    if (n <= 16) {
      // Most pieces are short keys and numbers: no call for them.
      for (size_t i = 0; i < n; ++i) next_[i] = text[i];
    } else {
      std::memcpy(next_, text, n);
    }
    next_ += n;
  }
  size_t size() const { return static_cast<size_t>(next_ - buf_.get()); }
  const char* data() const { return buf_.get(); }

 private:
  bool grow(size_t capacity) {
    std::unique_ptr<char[]> bigger(new (std::nothrow) char[capacity]);
    if (bigger == nullptr) return false;
    const size_t used = buf_ != nullptr ? size() : 0;
    if (used > 0) std::memcpy(bigger.get(), buf_.get(), used);
    buf_ = std::move(bigger);
    next_ = buf_.get() + used;
    end_ = buf_.get() + capacity;
    return true;
  }
  std::unique_ptr<char[]> buf_;
  char* next_ = nullptr;
  char* end_ = nullptr;
};

bool putText(Output& out, const char* text) {
  const size_t n = std::strlen(text);
  if (!out.reserve(n)) return false;
  out.put(text, n);
  return true;
}

using Stops = std::array<bool, 256>;

// Bytes that end a plain run of a text: the terminator and everything JSON
// escapes (and, with high, every byte from 0x80).
constexpr Stops stopsFor(bool high) {
  Stops stops{};
  for (int c = 0; c < 32; ++c) stops[c] = true;
  stops['"'] = stops['\\'] = true;
  for (int c = 0x80; high && c < 256; ++c) stops[c] = true;
  return stops;
}
constexpr Stops kStops = stopsFor(false);
constexpr Stops kStopsAscii = stopsFor(true);

// A text as cJSON quotes it: quote, backslash and the control characters
// escaped (the short forms where JSON has them, \u00xx otherwise), every
// other byte as it is, or (stops kStopsAscii) every byte from 0x80 as \u00xx.
bool printString(const char* text, Output& out, const Stops& stops) {
  if (text == nullptr) text = "";
  const auto* p = reinterpret_cast<const unsigned char*>(text);
  const auto* run = p;
  for (;; ++p) {
    while (!stops[*p]) ++p;
    const unsigned char c = *p;
    const size_t n = static_cast<size_t>(p - run);
    // The opening quote, the run, and the longest escape or the closing quote.
    if (!out.reserve(n + 7)) return false;
    if (run == reinterpret_cast<const unsigned char*>(text)) out.put('"');
    out.put(reinterpret_cast<const char*>(run), n);
    run = p + 1;
    if (c == '\0') break;
    static const char kHex[] = "0123456789abcdef";
    out.put('\\');
    switch (c) {
      case '"': out.put('"'); break;
      case '\\': out.put('\\'); break;
      case '\b': out.put('b'); break;
      case '\f': out.put('f'); break;
      case '\n': out.put('n'); break;
      case '\r': out.put('r'); break;
      case '\t': out.put('t'); break;
      default: {
        const char code[5] = {'u', '0', '0', kHex[c >> 4], kHex[c & 15]};
        out.put(code, sizeof(code));
        break;
      }
    }
  }
  out.put('"');
  return true;
}

bool printValue(const cJSON* item, Output& out, const Stops& stops) {
  switch (item->type & 0xFF) {
    case cJSON_NULL: return putText(out, "null");
    case cJSON_False: return putText(out, "false");
    case cJSON_True: return putText(out, "true");
    case cJSON_Raw: return item->valuestring != nullptr && putText(out, item->valuestring);
    case cJSON_String: return printString(item->valuestring, out, stops);
    case cJSON_Number: {
      // cJSON's own number form (precision, exponent, locale).
      char* number = cJSON_PrintUnformatted(item);
      const bool ok = number != nullptr && putText(out, number);
      cJSON_free(number);
      return ok;
    }
    case cJSON_Array:
    case cJSON_Object: {
      const bool object = (item->type & 0xFF) == cJSON_Object;
      if (!out.reserve(1)) return false;
      out.put(object ? '{' : '[');
      for (const cJSON* child = item->child; child != nullptr; child = child->next) {
        if (object && !(printString(child->string, out, stops) && out.reserve(1))) return false;
        if (object) out.put(':');
        if (!printValue(child, out, stops) || !out.reserve(1)) return false;
        if (child->next != nullptr) out.put(',');
      }
      if (!out.reserve(1)) return false;
      out.put(object ? '}' : ']');
      return true;
    }
    default: return false;
  }
}

}  // namespace

extern "C" {

char* v2xmapconv_PrintUnformatted(const cJSON* item, size_t sizeHint) {
  return v2xmapconv_PrintUnformattedAscii(item, sizeHint, 0);
}

char* v2xmapconv_PrintUnformattedAscii(const cJSON* item, size_t sizeHint, int escapeHigh) {
  if (item == nullptr) return nullptr;
  Output out(sizeHint);
  if (!out.ok() || !printValue(item, out, escapeHigh != 0 ? kStopsAscii : kStops)) return nullptr;
  auto* text = static_cast<char*>(cJSON_malloc(out.size() + 1));
  if (text == nullptr) return nullptr;
  std::memcpy(text, out.data(), out.size());
  text[out.size()] = '\0';
  return text;
}

}  // extern "C"
