// Map download: the JSON text of one map-down message into the JSON library's
// item tree, built in the document's own memory.
//
// The tree is item for item what cJSON_Parse gives for the same text (types,
// keys, strings, numbers with their integer view, order, the leniencies: a
// trailing text after the value, control characters in strings, a number
// read as far as it goes), so every reader sees the same document. What
// differs is the memory: all items and texts of one document come from a few
// blocks that go as a whole when the document has been read, instead of one
// allocation (and one release) per item and text, and numbers are converted
// without the locale lookups.
#include <algorithm>
#include <charconv>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "map_conv_mapdown_detail.h"

namespace v2xmapconv::mapdown::detail {

namespace {

// Blocks stay below the size whose release makes the C library's allocator
// tidy up all its small free chunks (64 KiB), so that a document's blocks come
// from the heap and go back to it cheaply.
constexpr size_t kBlockMin = 4096;
constexpr size_t kBlockMax = 60 * 1024;
// The JSON library refuses arrays and objects nested deeper than this.
constexpr size_t kNestingLimit = CJSON_NESTING_LIMIT;

class Parser {
 public:
  Parser(const unsigned char* text, size_t length, DocumentArena& arena)
      : text_(text), length_(length), arena_(arena) {}

  cJSON* document() {
    // A UTF-8 byte order mark at the start is skipped.
    if (4 < length_ && std::memcmp(text_, "\xEF\xBB\xBF", 3) == 0) pos_ = 3;
    cJSON* root = newItem();
    if (root == nullptr) return nullptr;
    skipBlanks();
    // What follows the value is not looked at.
    return value(root) ? root : nullptr;
  }

 private:
  bool at(size_t index) const { return pos_ + index < length_; }
  unsigned char cur() const { return text_[pos_]; }

  // Blanks are every byte up to 32; at the end of the text the position
  // stays on its last byte (the terminator).
  void skipBlanks() {
    if (!at(0)) return;
    while (at(0) && cur() <= 32) ++pos_;
    if (pos_ == length_) --pos_;
  }

  cJSON* newItem() {
    void* p = arena_.take(sizeof(cJSON), alignof(cJSON));
    return p != nullptr ? new (p) cJSON{} : nullptr;
  }

  bool literal(const char* word, size_t n) const {
    return pos_ + n <= length_ && std::memcmp(text_ + pos_, word, n) == 0;
  }

  bool value(cJSON* item) {
    if (!at(0)) return false;
    switch (cur()) {
      case 'n':
        if (!literal("null", 4)) return false;
        item->type = cJSON_NULL;
        pos_ += 4;
        return true;
      case 'f':
        if (!literal("false", 5)) return false;
        item->type = cJSON_False;
        pos_ += 5;
        return true;
      case 't':
        if (!literal("true", 4)) return false;
        item->type = cJSON_True;
        item->valueint = 1;
        pos_ += 4;
        return true;
      case '"': return string(item);
      case '-':
      case '0':
      case '1':
      case '2':
      case '3':
      case '4':
      case '5':
      case '6':
      case '7':
      case '8':
      case '9': return number(item);
      case '[': return array(item);
      case '{': return object(item);
      default: return false;
    }
  }

  static unsigned hex4(const unsigned char* p) {
    unsigned h = 0;
    for (int i = 0; i < 4; ++i) {
      unsigned char c = p[i];
      unsigned digit = 0;
      if (c >= '0' && c <= '9') {
        digit = c - '0';
      } else if (c >= 'A' && c <= 'F') {
        digit = 10u + c - 'A';
      } else if (c >= 'a' && c <= 'f') {
        digit = 10u + c - 'a';
      } else {
        return 0;  // not a hexadecimal digit: the whole sequence counts as 0
      }
      h = (h << 4) | digit;
    }
    return h;
  }

  // One \uXXXX (or a surrogate pair of two) at p, before end, as UTF-8 at *out.
  // The number of input bytes used, or 0 when the sequence is refused.
  static size_t utf16(const unsigned char* p, const unsigned char* end, unsigned char** out) {
    if (end - p < 6) return 0;
    unsigned long codepoint = hex4(p + 2);
    size_t used = 6;
    if (codepoint >= 0xDC00 && codepoint <= 0xDFFF) return 0;
    if (codepoint >= 0xD800 && codepoint <= 0xDBFF) {
      const unsigned char* second = p + 6;
      if (end - second < 6 || second[0] != '\\' || second[1] != 'u') return 0;
      unsigned low = hex4(second + 2);
      if (low < 0xDC00 || low > 0xDFFF) return 0;
      codepoint = 0x10000 + (((codepoint & 0x3FF) << 10) | (low & 0x3FF));
      used = 12;
    }
    unsigned char* o = *out;
    if (codepoint < 0x80) {
      *o++ = static_cast<unsigned char>(codepoint);
    } else if (codepoint < 0x800) {
      *o++ = static_cast<unsigned char>(0xC0 | (codepoint >> 6));
      *o++ = static_cast<unsigned char>(0x80 | (codepoint & 0x3F));
    } else if (codepoint < 0x10000) {
      *o++ = static_cast<unsigned char>(0xE0 | (codepoint >> 12));
      *o++ = static_cast<unsigned char>(0x80 | ((codepoint >> 6) & 0x3F));
      *o++ = static_cast<unsigned char>(0x80 | (codepoint & 0x3F));
    } else {
      *o++ = static_cast<unsigned char>(0xF0 | (codepoint >> 18));
      *o++ = static_cast<unsigned char>(0x80 | ((codepoint >> 12) & 0x3F));
      *o++ = static_cast<unsigned char>(0x80 | ((codepoint >> 6) & 0x3F));
      *o++ = static_cast<unsigned char>(0x80 | (codepoint & 0x3F));
    }
    *out = o;
    return used;
  }

  // A quoted text at the position into item->valuestring.
  bool string(cJSON* item) {
    if (!at(0) || cur() != '"') return false;
    // The closing quote: the first one that no backslash escapes.
    size_t end = pos_ + 1;
    size_t escapes = 0;
    for (;;) {
      while (end < length_ && text_[end] != '"' && text_[end] != '\\') ++end;
      if (end >= length_ || text_[end] == '"') break;
      if (end + 1 >= length_) return false;
      ++escapes;
      end += 2;
    }
    if (end >= length_) return false;
    char* out = static_cast<char*>(arena_.take(end - pos_ - escapes + 1, 1));
    if (out == nullptr) return false;
    const unsigned char* p = text_ + pos_ + 1;
    const unsigned char* stop = text_ + end;
    unsigned char* o = reinterpret_cast<unsigned char*>(out);
    if (escapes == 0) {  // the usual case: the text as it stands
      size_t n = static_cast<size_t>(stop - p);
      std::memcpy(o, p, n);
      o += n;
      p = stop;
    }
    while (p < stop) {
      const unsigned char* run = p;
      while (p < stop && *p != '\\') ++p;
      std::memcpy(o, run, static_cast<size_t>(p - run));
      o += p - run;
      if (p >= stop) break;
      size_t used = 2;
      switch (p[1]) {
        case 'b': *o++ = '\b'; break;
        case 'f': *o++ = '\f'; break;
        case 'n': *o++ = '\n'; break;
        case 'r': *o++ = '\r'; break;
        case 't': *o++ = '\t'; break;
        case '"':
        case '\\':
        case '/': *o++ = p[1]; break;
        case 'u':
          used = utf16(p, stop, &o);
          if (used == 0) return false;
          break;
        default: return false;
      }
      p += used;
    }
    *o = '\0';
    item->type = cJSON_String;
    item->valuestring = out;
    pos_ = end + 1;
    return true;
  }

  // A number: the whole run of number characters, converted as far as it
  // makes a number.
  bool number(cJSON* item) {
    size_t n = 0;
    while (at(n)) {
      unsigned char c = text_[pos_ + n];
      if (!((c >= '0' && c <= '9') || c == '+' || c == '-' || c == 'e' || c == 'E' || c == '.')) break;
      ++n;
    }
    const char* first = reinterpret_cast<const char*>(text_ + pos_);
    double value = 0;
    size_t used = 0;
    std::from_chars_result r = std::from_chars(first, first + n, value);
    if (r.ec == std::errc()) {
      used = static_cast<size_t>(r.ptr - first);
    } else {
      // Beyond the range of a double (or nothing to read): the C library's
      // conversion decides, on a terminated copy.
      std::string copy(first, n);
      char* after = nullptr;
      value = std::strtod(copy.c_str(), &after);
      used = static_cast<size_t>(after - copy.c_str());
    }
    if (used == 0) return false;
    item->valuedouble = value;
    if (value >= INT_MAX) {
      item->valueint = INT_MAX;
    } else if (value <= static_cast<double>(INT_MIN)) {
      item->valueint = INT_MIN;
    } else {
      item->valueint = static_cast<int>(value);
    }
    item->type = cJSON_Number;
    pos_ += used;
    return true;
  }

  // Items of an array or members of an object, separated by commas, up to the
  // closing bracket; each appended to item's children in order.
  template <typename ReadOne>
  bool members(cJSON* item, int type, unsigned char close, ReadOne readOne) {
    if (depth_ >= kNestingLimit) return false;
    ++depth_;
    ++pos_;
    skipBlanks();
    cJSON* head = nullptr;
    cJSON* last = nullptr;
    if (!(at(0) && cur() == close)) {
      if (!at(0)) return false;
      for (;;) {
        cJSON* child = newItem();
        if (child == nullptr) return false;
        if (head == nullptr) {
          head = child;
        } else {
          last->next = child;
          child->prev = last;
        }
        last = child;
        if (!readOne(child)) return false;
        skipBlanks();
        if (!(at(0) && cur() == ',')) break;
        ++pos_;
        skipBlanks();
      }
      if (!at(0) || cur() != close) return false;
    }
    --depth_;
    if (head != nullptr) head->prev = last;
    item->type = type;
    item->child = head;
    ++pos_;
    return true;
  }

  bool array(cJSON* item) {
    return members(item, cJSON_Array, ']', [this](cJSON* child) { return value(child); });
  }

  bool object(cJSON* item) {
    return members(item, cJSON_Object, '}', [this](cJSON* child) {
      if (!string(child)) return false;
      skipBlanks();
      child->string = child->valuestring;
      child->valuestring = nullptr;
      if (!at(0) || cur() != ':') return false;
      ++pos_;
      skipBlanks();
      return value(child);
    });
  }

  const unsigned char* text_;
  size_t length_;  // with the terminator
  size_t pos_ = 0;
  size_t depth_ = 0;
  DocumentArena& arena_;
};

}  // namespace

DocumentArena::~DocumentArena() {
  while (blocks_ != nullptr) {
    Block* next = blocks_->next;
    std::free(blocks_);
    blocks_ = next;
  }
}

void* DocumentArena::takeFromNewBlock(size_t size, size_t align) {
  size_t want = size + sizeof(Block) + align;
  size_t blockSize = std::max(want, std::min(kBlockMax, std::max(kBlockMin, hint_)));
  auto* block = static_cast<Block*>(std::malloc(blockSize));
  if (block == nullptr) return nullptr;
  block->next = blocks_;
  block->size = blockSize;
  blocks_ = block;
  cur_ = reinterpret_cast<char*>(block) + sizeof(Block);
  left_ = blockSize - sizeof(Block);
  return take(size, align);
}

cJSON* parseDocument(const char* text, DocumentArena& arena) {
  if (text == nullptr) return nullptr;
  size_t length = std::strlen(text) + 1;
  // A map document holds about one item (64 bytes) for every 12 bytes of
  // text, and its keys and texts: one block for a typical message.
  arena.sizeHint(length * 6 + kBlockMin);
  Parser parser(reinterpret_cast<const unsigned char*>(text), length, arena);
  return parser.document();
}

}  // namespace v2xmapconv::mapdown::detail
