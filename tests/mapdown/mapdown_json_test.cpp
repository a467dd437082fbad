// The reader's own JSON parsing against the JSON library's: for every text the
// same tree (or the same refusal), item for item, so that the readers see the
// document exactly as cJSON_Parse would give it to them.
#include <cjson/cJSON.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "map_conv_mapdown_detail.h"
#include "mapdown_fixture.h"

namespace mapdown_test {
namespace {

using v2xmapconv::mapdown::detail::DocumentArena;
using v2xmapconv::mapdown::detail::parseDocument;

// The first difference between two trees, as a path and a reason; empty when equal.
std::string difference(const cJSON* a, const cJSON* b, const std::string& at = "$") {
  if ((a == nullptr) != (b == nullptr)) return at + ": present in one only";
  if (a == nullptr) return "";
  auto text = [](const char* s) { return s == nullptr ? std::string("<null>") : std::string(s); };
  if (a->type != b->type) return at + ": type " + std::to_string(a->type) + " vs " + std::to_string(b->type);
  if (text(a->string) != text(b->string)) return at + ": key " + text(a->string) + " vs " + text(b->string);
  if (text(a->valuestring) != text(b->valuestring)) return at + ": text differs";
  if (a->valueint != b->valueint) return at + ": valueint " + std::to_string(a->valueint);
  if (std::memcmp(&a->valuedouble, &b->valuedouble, sizeof(double)) != 0) return at + ": valuedouble differs";
  const cJSON* ca = a->child;
  const cJSON* cb = b->child;
  if (ca != nullptr && cb != nullptr) {
    // The first child's prev is the last child in both.
    const cJSON* lastA = ca;
    const cJSON* lastB = cb;
    while (lastA->next != nullptr) lastA = lastA->next;
    while (lastB->next != nullptr) lastB = lastB->next;
    if ((ca->prev == lastA) != (cb->prev == lastB)) return at + ": prev of the first child";
  }
  for (int i = 0; ca != nullptr || cb != nullptr; ++i) {
    std::string d = difference(ca, cb, at + "[" + std::to_string(i) + "]");
    if (!d.empty()) return d;
    ca = ca->next;
    cb = cb->next;
  }
  return "";
}

std::string compare(const std::string& text) {
  cJSON* theirs = cJSON_Parse(text.c_str());
  DocumentArena arena;
  cJSON* ours = parseDocument(text.c_str(), arena);
  std::string d = difference(theirs, ours);
  cJSON_Delete(theirs);
  return d;
}

TEST(MapDownJson, SameTreeAsTheJsonLibrary) {
  const std::string deep = std::string(999, '[') + std::string(999, ']');
  const std::string tooDeep = std::string(1000, '[') + std::string(1000, ']');
  const std::string texts[] = {
      // Literals, byte order mark, what follows the value.
      "", " \t\r\n", "null", "nul", "true false", "truex", "\xEF\xBB\xBF{\"a\":1}", "\xEF\xBB\xBF", "{\"a\":1}trailing",
      // Structure.
      "[1,]", "[,1]", "[ ]", "{ }", "{\"a\" 1}", "{\"a\":1,}", "{a:1}", "{\"Lat\":1,\"lat\":2,\"LAT\":3}", "[1 2]",
      "{\"k\":{\"k\":{\"k\":[{},[],\"\",0]}}}", deep, tooDeep,
      // Strings: escapes, surrogates, control and non-UTF-8 bytes.
      "[\"unterminated]", "[\"escape at end\\", "[\"\\b\\f\\n\\r\\t\\\"\\\\\\/\"]", "[\"\\x\"]",
      "[\"\\u0041\\u00e9\\u20ac\\uD83D\\uDE00\"]", "[\"\\u00zz\"]", "[\"\\u12\\\"\"]", "[\"\\uDC00\"]", "[\"\\uD800\"]",
      "[\"\\uD800\\u0041\"]", "[\"\\uD800x\\uDC00\"]", "[\"\\u0000after\"]", "[\"tab\there\x01\"]",
      "[\"\xC3\xA9\xFF\"]",
      // Numbers.
      "[0,-0,1.5,-1.5e3,1E2,1e+2,1e-2,00012,1.,1.e5,-.5,1e,1e+,1e5e5,1-2,1+2,1.5.5]", "[-]", "[-e5]", "[--1]",
      "[1e400,-1e400,1e-400,-1e-400,4.9e-324,2.2250738585072011e-308]",
      "[1.7976931348623157e308,2147483647,2147483647.5,2147483648,-2147483648,-2147483648.9,-2147483649,12.9,-12.9]",
      "[121.1616818,31.2800157,-0.00000009,180.0000002,35.57,0.1,0.2,0.30000000000000004]",
      "[123456789012345678901234567890123456789012345678901234567890123456789]",
      "[1.2345678901234567890123456789012345678901234567890123456789012345678e5]", "[0x10]", "[+1]", "[.5]"};
  for (const std::string& t : texts) {
    EXPECT_EQ(compare(t), "") << t.substr(0, 80);
  }
}

// Keys are found as cJSON_GetObjectItem finds them: case ignored, the first
// match wins, nothing in arrays and other items.
TEST(MapDownJson, KeyLookupAsTheJsonLibrary) {
  const char* text =
      R"({"Lat":1,"lat":2,"LAT":3,"laneWidth":4,"":5,"l\u0041t":6,"arr":[{"lat":7}],"n":8,"\u00c9":9,"\u00e9":10})";
  cJSON* root = cJSON_Parse(text);
  ASSERT_NE(root, nullptr);
  const char* keys[] = {"lat",       "LAT", "lAt", "la", "latx",     "", "lanewidth",
                        "LANEWIDTH", "arr", "n",   "N",  "\xc3\xa9", "x"};
  for (const cJSON* object : {root, cJSON_GetObjectItem(root, "arr"), cJSON_GetObjectItem(root, "n")}) {
    for (const char* key : keys) {
      EXPECT_EQ(v2xmapconv::mapdown::detail::member(object, key), cJSON_GetObjectItem(object, key)) << key;
    }
  }
  EXPECT_EQ(v2xmapconv::mapdown::detail::member(root, "lat")->valueint, 1);
  cJSON_Delete(root);
}

// The sample maps, and damaged copies of them (bytes removed, doubled or
// replaced by JSON's own characters), read the same way by both parsers.
TEST(MapDownJson, SampleMapsAndDamagedCopies) {
  const std::string alphabet = "{}[]\":,.-+eE0159\\u \"tnf\x01\xC3";
  std::mt19937 rng(20240611);
  for (const char* name : {"map_4x.json", "map_slice1.json", "map_slice2.json", "map_slice3.json"}) {
    const std::string doc = sample(name);
    ASSERT_FALSE(doc.empty());
    EXPECT_EQ(compare(doc), "");
    for (int round = 0; round < 400; ++round) {
      std::string t = doc;
      int edits = 1 + static_cast<int>(rng() % 4);
      for (int e = 0; e < edits; ++e) {
        size_t at = rng() % t.size();
        switch (rng() % 3) {
          case 0: t.erase(at, 1 + rng() % 3); break;
          case 1: t.insert(at, 1, alphabet[rng() % alphabet.size()]); break;
          default: t[at] = alphabet[rng() % alphabet.size()]; break;
        }
        if (t.empty()) t.push_back('{');
      }
      std::string d = compare(t);
      ASSERT_EQ(d, "") << t;
    }
  }
}

}  // namespace
}  // namespace mapdown_test
