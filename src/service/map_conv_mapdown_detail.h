// Map download, private to its source files: the shared reading steps that
// the readers of nodes, links, lanes and points are built from.
#ifndef MAP_CONV_MAPDOWN_DETAIL_H
#define MAP_CONV_MAPDOWN_DETAIL_H

#include <BIT_STRING.h>
#include <DescriptiveName.h>
#include <asn_SET_OF.h>
#include <cjson/cJSON.h>
#include <constr_TYPE.h>
#include <limits.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <type_traits>

#include "map_conv_mapdown.h"
#include "map_conv_mapdown_observer.h"
#include "v2x_asn_codec.h"
#include "v2xlog.h"

namespace v2xmapconv::mapdown::detail {

// The module's log tag ("DOWN"), shared by its source files.
extern v2xlog_config_t g_curTag;

constexpr double kDegreeScale = 10000000.0;
constexpr double kMetreScale = 10.0;

template <typename T>
T* newRecord() {
  return static_cast<T*>(std::calloc(1, sizeof(T)));
}

// Releases a record that a failing reader allocated but did not append.
template <typename T>
void dropRecord(asn_TYPE_descriptor_t& td, T* record) {
  if (record != nullptr) ASN_STRUCT_FREE(td, record);
}

// A real (degrees, metres) times its unit factor, truncated toward zero. A
// product beyond the range of long (64 bits, or 32 on 32-bit ARM) saturates,
// so the range check rejects it.
inline long scaleTrunc(double value, double factor) {
  constexpr double kLimit = sizeof(long) >= 8 ? 9.2e18 : 2147483647.0;
  double scaled = value * factor;
  if (std::isnan(scaled)) return 0;
  if (scaled >= kLimit) return LONG_MAX;
  if (scaled <= -kLimit) return LONG_MIN;
  return static_cast<long>(scaled);
}

// The item's integer view (the JSON library's int, saturated by it), widened.
inline long intView(const cJSON* item) { return static_cast<long>(item->valueint); }
inline long degreesView(const cJSON* item) { return scaleTrunc(item->valuedouble, kDegreeScale); }
inline long metresView(const cJSON* item) { return scaleTrunc(item->valuedouble, kMetreScale); }
inline long wholeView(const cJSON* item) { return scaleTrunc(item->valuedouble, 1.0); }

using View = long (*)(const cJSON*);

// The member of object under key: the first whose name equals key when the
// case of letters is ignored, as cJSON_GetObjectItem finds it. Null when
// there is none (also for a null object, or an item that is no object).
inline cJSON* member(const cJSON* object, const char* key) {
  if (object == nullptr || key == nullptr) return nullptr;
  auto fold = [](unsigned char c) { return static_cast<unsigned char>(c >= 'A' && c <= 'Z' ? c | 0x20 : c); };
  const unsigned char first = fold(static_cast<unsigned char>(key[0]));
  for (cJSON* item = object->child; item != nullptr; item = item->next) {
    const unsigned char* name = reinterpret_cast<const unsigned char*>(item->string);
    if (name == nullptr || fold(name[0]) != first) continue;
    const unsigned char* k = reinterpret_cast<const unsigned char*>(key);
    size_t i = 0;
    while (k[i] != '\0' && fold(name[i]) == fold(k[i])) ++i;
    if (k[i] == '\0' && name[i] == '\0') return item;
  }
  return nullptr;
}

// While a document is read, whether its trace lines are on: asked once at the
// start of the document (a level changed meanwhile applies from the next one).
// Readers called on their own ask every time.
struct DocumentScope {
  bool active;
  bool trace;
};
extern thread_local constinit DocumentScope t_document;

inline bool traceOn() { return t_document.active ? t_document.trace : v2xlog_IsEnabled(&g_curTag, 7); }

// The readers' entry and exit traces (the lines of V2XLOG_START / V2XLOG_END).
#define MAPDOWN_TRACE_START()                                                                                      \
  do {                                                                                                             \
    if (::v2xmapconv::mapdown::detail::traceOn())                                                                  \
      v2xlog_Print(&::v2xmapconv::mapdown::detail::g_curTag, 7, "%s:%s:%d:%s start", __FILE__, __func__, __LINE__, \
                   __func__);                                                                                      \
  } while (0)
#define MAPDOWN_TRACE_END(ret)                                                                                \
  do {                                                                                                        \
    if (::v2xmapconv::mapdown::detail::traceOn())                                                             \
      v2xlog_Print(&::v2xmapconv::mapdown::detail::g_curTag, 7, "%s:%s:%d:%s end ret=%d", __FILE__, __func__, \
                   __LINE__, __func__, static_cast<int>(ret));                                                \
  } while (0)

// The text of a key that must hold a JSON string; anything else counts as absent.
const char* textItem(const cJSON* json, const char* key);
// Copies at most size-1 characters and always terminates.
void copyText(char* dst, size_t size, const char* src);
// The leading decimal number of a text (optional blanks and sign), modulo 256.
uint8 leadingNumberMod256(const char* text);
// Builds a bit string of `bits` bits from value into a new record stored at *target.
int32 newBitString(long value, int8 bits, BIT_STRING_t** target);

// ---------------------------------------------------------------- shared reading steps
//
// The steps below do the work of the named readers. Their log lines carry the
// name of the reader they work for (and the place of the call), as if that
// reader had written them: the log is searched by the reader names.

struct Caller {
  // Implicit on purpose: a reader passes __func__ and the call's place comes
  // along (the builtins in a default argument are evaluated at the call).
  Caller(const char* reader, const char* at = __builtin_FILE(), int line = __builtin_LINE())
      : name(reader), file(at), line(line) {}
  const char* name;
  const char* file;
  int line;
};

void say(const Caller& caller, int32 level, const char* fmt, ...) __attribute__((format(printf, 3, 4)));

constexpr int32 kNoCode = -1;

// One way a step fails: the error line, the result, and the download error
// code recorded before the line (if any).
struct Fault {
  const char* text;
  int32 ret;
  int32 code = kNoCode;
};

// The observer of the readers on this thread, if any.
extern thread_local constinit MapDownObserver* t_observer;

// Where a fault is, for the observer: the object that lacks key, or (key
// null) the item at fault, with the type whose range it left.
struct Where {
  const cJSON* item = nullptr;
  const char* key = nullptr;
  const asn_TYPE_descriptor_t* type = nullptr;
};

// Records the fault's code (if any), logs its line and returns its result.
int32 report(const Caller& caller, const Fault& fault, const Where& where = {});
// The same for a sub-reader's failure that the caller passes on.
int32 passOn(const Caller& caller, const Fault& fault);

// A sub-reader's result; a failure is reported and passed on as it is.
inline int32 checked(const Caller& caller, int32 ret, const char* text, int32 code = kNoCode) {
  return ret == 0 ? 0 : passOn(caller, {text, ret, code});
}

// The range check of a message-set type, and how a value outside it is
// reported. The value stays in the record either way. No check: anything goes.
struct Bound {
  asn_constr_check_f* check;
  const asn_TYPE_descriptor_t* type;
  Fault outside;
};

// item: the JSON item the value comes from.
inline int32 checkBound(const Caller& caller, const Bound& bound, const long* value, const cJSON* item) {
  if (bound.check == nullptr || bound.check(nullptr, value, nullptr, nullptr) == 0) return 0;
  return report(caller, bound.outside, {item, nullptr, bound.type});
}

// ---------------------------------------------------------------- values of the wrong JSON type
//
// A text where a number belongs, a number where a text belongs, a fraction
// where an integer belongs: the reference reading takes the item's number or
// text view regardless (a text reads as 0, a fraction is truncated, a number
// in a text key counts as absent). The observer hears of every such value in
// both profiles; under the field profile it is a fault of its key.

// What is wrong with the JSON type of item when the key wants a number (an
// integer when integer is set), or null when nothing is.
const char* misfitNumber(const cJSON* item, bool integer);

// Reports a value of the wrong type (item; what: misfitNumber's words;
// readAs: what the reading takes instead). fault: how it fails under the field
// profile, its code the holder's (see t_holderCode) when it has none of its own.
// The result the reader gives for it: fault.ret under the field profile, else 0.
int32 reportMisfit(const Caller& caller, const cJSON* item, const char* what, const char* readAs, Fault fault,
                   const asn_TYPE_descriptor_t* type = nullptr);

// The number of item through view into *value, its type and range checked.
// wrongType: how a wrong type fails under the field profile when the key has
// no range (a key with a range fails as a value out of it).
inline int32 viewNumber(const Caller& caller, const cJSON* item, View view, long* value, const Fault& wrongType,
                        const Bound& bound = {}) {
  *value = view(item);
  if (const char* what = misfitNumber(item, view == intView)) {
    char readAs[24];
    std::snprintf(readAs, sizeof(readAs), "%ld", *value);
    const int32 ret =
        reportMisfit(caller, item, what, readAs, bound.check != nullptr ? bound.outside : wrongType, bound.type);
    if (ret != 0) return ret;
  }
  return checkBound(caller, bound, value, item);
}

// A key without a code of its own, not needed by its reader: a wrong type is
// logged (under the field profile) and the reading goes on.
constexpr Fault kMisfitGoesOn = {nullptr, 0};

// While a node reference is read, the code of the key that holds it (the
// node's "id", a link's "upstreamNodeId"), which a wrong type in the
// reference records under the field profile.
extern thread_local constinit int32 t_holderCode;

// A number the reader needs under key, viewed into *target and range-checked.
// *real, when given, gets the value as sent. A wrong type under the field
// profile fails as a value out of range, or (no range) as an absent key.
inline int32 readNumber(const Caller& caller, cJSON* json, const char* key, long* target, const Fault& missing,
                        View view = intView, const Bound& bound = {}, double* real = nullptr) {
  const cJSON* item = member(json, key);
  if (item == nullptr) return report(caller, missing, {json, key});
  if (real != nullptr) *real = item->valuedouble;
  return viewNumber(caller, item, view, target, missing, bound);
}

// Allocates the optional record *field when it is still empty.
template <typename T>
bool ensureRecord(T** field) {
  if (*field == nullptr) *field = newRecord<T>();
  return *field != nullptr;
}

// An optional item: when present, read(item, record) fills the optional
// record *field, allocated first if needed. An absent item changes nothing.
template <typename T, typename Read>
int32 withRecord(const Caller& caller, cJSON* item, T** field, const Fault& noMemory, Read read) {
  if (item == nullptr) return 0;
  if (!ensureRecord(field)) return report(caller, noMemory);
  return read(item, *field);
}

// An optional number (item may be null) into the optional field *field.
inline int32 readOptionalNumber(const Caller& caller, cJSON* item, long** field, const Fault& noMemory,
                                View view = intView, const Bound& bound = {}) {
  return withRecord(caller, item, field, noMemory, [&](const cJSON* found, long* value) {
    return viewNumber(caller, found, view, value, kMisfitGoesOn, bound);
  });
}

// A node reference the reader needs under key. A reference without its own
// "id" keeps 0; its holder is still read.
// holderCode: the code a wrong type inside it records (see t_holderCode).
int32 readReference(const Caller& caller, cJSON* json, const char* key, NodeReferenceID* id, const Fault& missing,
                    int32 holderCode = kNoCode);

// How an array walk fails: an element that cannot be allocated, one that
// cannot be appended.
struct ElementFaults {
  Fault noMemory;
  Fault notAdded;
};

constexpr Fault kNotAdded = {"ASN_SEQUENCE_ADD faild \n", -4};

// Reads each item of array (null: none) into a new element appended to set,
// in the array's order (the items are walked as a list, not looked up by
// index). The first failing element ends the walk and is released; the
// elements before it stay.
template <typename Set, typename ReadOne>
int32 readElements(const Caller& caller, cJSON* array, Set* set, asn_TYPE_descriptor_t& td, const ElementFaults& faults,
                   ReadOne readOne) {
  using Element = std::remove_pointer_t<std::remove_pointer_t<decltype(set->array)>>;
  if (array == nullptr) return 0;
  int32 ret = 0;
  for (cJSON* item = array->child; item != nullptr && ret == 0; item = item->next) {
    Element* element = newRecord<Element>();
    if (element == nullptr) return report(caller, faults.noMemory);
    if ((ret = readOne(item, element)) == 0 && asn_set_add(set, element) != 0) ret = report(caller, faults.notAdded);
    if (ret != 0) {
      if (t_observer != nullptr) t_observer->onDropped(item);
      dropRecord(td, element);
    }
  }
  return ret;
}

// An array (null: absent) read into the optional list record *list.
template <typename List, typename ReadOne>
int32 readList(const Caller& caller, cJSON* array, List** list, const Fault& noList, asn_TYPE_descriptor_t& td,
               const ElementFaults& faults, ReadOne readOne) {
  return withRecord(caller, array, list, noList, [&](cJSON* found, List* record) {
    return readElements(caller, found, &record->list, td, faults, readOne);
  });
}

// Memory of one parsed document: its JSON items and texts come from a few
// blocks, released together with the arena.
class DocumentArena {
 public:
  DocumentArena() = default;
  ~DocumentArena();
  DocumentArena(const DocumentArena&) = delete;
  DocumentArena& operator=(const DocumentArena&) = delete;
  // size bytes aligned to align; null when memory is exhausted.
  void* take(size_t size, size_t align) {
    size_t skip = (align - reinterpret_cast<uintptr_t>(cur_) % align) % align;
    if (cur_ == nullptr || skip + size > left_) return takeFromNewBlock(size, align);
    void* p = cur_ + skip;
    cur_ += skip + size;
    left_ -= skip + size;
    return p;
  }
  // The size of the blocks to come (within fixed bounds).
  void sizeHint(size_t bytes) { hint_ = bytes; }

 private:
  struct Block {
    Block* next;
    size_t size;
  };
  Block* blocks_ = nullptr;
  char* cur_ = nullptr;
  size_t left_ = 0;
  size_t hint_ = 0;

  void* takeFromNewBlock(size_t size, size_t align);
};

// Parses a zero-terminated JSON text into a tree that lives in arena: the
// same tree, item for item, as cJSON_Parse gives, or null where cJSON_Parse
// gives null. The tree is never passed to cJSON_Delete.
cJSON* parseDocument(const char* text, DocumentArena& arena);

// The download error code back to ERROR_CODE_NONE, without a trace line.
void resetErrorCode();

// The name of a node or link: the text's bytes without terminator.
int32 readName(const char* reader, cJSON* json, DescriptiveName_t** name, const char* what);

}  // namespace v2xmapconv::mapdown::detail

#endif
