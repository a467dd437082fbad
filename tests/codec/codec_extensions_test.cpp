// Extension additions of SEQUENCEs: a decoder that does not know an addition
// skips its open type, whatever its length (fragmented ones included) and
// however many there are; a bitmap that disagrees with the open types after
// it is refused. Known additions (the node's lane-level links and prohibited
// zone) still decode and encode byte for byte next to unknown ones.
#include <gtest/gtest.h>

#include <functional>

#include "codec_test_util.h"

using namespace codectest;

namespace {

// Length determinant of an open type's octets, fragmented above 16K.
void putOpenType(BitWriter& w, size_t octets, uint8_t fill) {
  size_t left = octets;
  for (;;) {
    if (left >= 16384) {
      const size_t m = left / 16384 < 4 ? left / 16384 : 4;
      w.put(0xC0 | m, 8);
      for (size_t i = 0; i < m * 16384; i++) w.put(fill, 8);
      left -= m * 16384;
      continue;
    }
    if (left < 128)
      w.put(left, 8);
    else
      w.put(0x8000 | left, 16);
    for (size_t i = 0; i < left; i++) w.put(fill, 8);
    return;
  }
}

// Normally small length of an extension bitmap.
void putBitmapLength(BitWriter& w, size_t n) {
  if (n <= 64)
    w.put(n - 1, 7);
  else
    w.put(1, 1).put(n, 8);  // n < 128 here
}

// Writes what follows a SEQUENCE's root when its extension bit is set.
using ExtBlock = std::function<void(BitWriter&)>;

// D1 with the given extension parts for its node and its map (none: the
// extension bit is 0).
Bytes d1With(const ExtBlock& node, const ExtBlock& map) {
  BitWriter w;
  w.put(0, 1).put(1, 3);             // frame root, mapFrame
  w.put(map ? 1 : 0, 1).put(0, 1);   // MapData extension bit, no timeStamp
  w.put(1, 7).put(0, 5);             // msgCnt 1, one node
  w.put(node ? 1 : 0, 1).put(0, 2);  // Node extension bit, no name, no inLinks
  w.put(0, 1).put(1, 16);            // id 1, no region
  w.put(0, 1).put(397870006 + 900000000L, 31).put(1165119042 + 1799999999L, 32);
  if (node) node(w);
  if (map) map(w);
  return w.bytes;
}

// One extension block: bitmap bits as given, then an open type of each length
// (0xA5 octets) for as many set bits as there are lengths.
ExtBlock block(const std::string& bitmap, const std::vector<size_t>& lengths) {
  return [bitmap, lengths](BitWriter& w) {
    putBitmapLength(w, bitmap.size());
    for (char b : bitmap) w.put(b == '1', 1);
    for (size_t len : lengths) putOpenType(w, len, 0xA5);
  };
}

Bytes withoutLastOctet(Bytes b) {
  b.pop_back();
  return b;
}

// The node's prohibited zone of D4 (bitmap "01") followed by unknown bits.
ExtBlock zoneThen(const std::string& unknownBits, size_t unknownLength) {
  return [unknownBits, unknownLength](BitWriter& w) {
    const Bytes d4 = fromHex(kD4);
    putBitmapLength(w, 2 + unknownBits.size());
    w.put(1, 2);  // inLinks-ex absent, prohibitedzone present
    for (char b : unknownBits) w.put(b == '1', 1);
    // D4's open type (length octet 0x10 and 16 octets) follows 102 bits of
    // root, 7 of bitmap length and 2 of bitmap.
    for (size_t bit = 111; bit < 111 + 17 * 8; bit++) w.put((d4[bit / 8] >> (7 - bit % 8)) & 1, 1);
    if (unknownLength > 0) putOpenType(w, unknownLength, 0x5A);
  };
}

// Two nodes written bit by bit from random values; the same with the first
// node's extension bit set.
const char* const kTwoNodes = "1530d9a3890096fedff0be3a59ee6438b3b30800006656ad7e0452851328184fc0004cc941f97385356820";
const char* const kTwoNodesFlipped =
    "1530d9a38b0096fedff0be3a59ee6438b3b30800006656ad7e0452851328184fc0004cc941f97385356820";

TEST(CodecExtensions, UnknownAdditionsAreSkippedAndBadBitmapsRefused) {
  struct Case {
    const char* what;
    Bytes frame;
    const char* decodesTo;  // null: refused
  };
  const Case cases[] = {
      // Frames of the report: D1 with additions of MapData.
      {"two octets", fromHex("1808000005356fb2dac2f08104040a9694"), kD1},
      {"three octets", fromHex("1808000005356fb2dac2f08104040e969694"), kD1},
      {"two additions of three octets", fromHex("1808000005356fb2dac2f081040e074b4b4a074b4b4a"), kD1},
      {"bitmap of two, one open type", fromHex("1808000005356fb2dac2f081040e074b4b4a"), nullptr},
      {"long-form bitmap length 0", fromHex("1808000005356fb2dac2f0810600"), nullptr},
      // Lengths around the length determinant's forms.
      {"one octet", d1With(nullptr, block("1", {1})), kD1},
      {"127 and 128 octets", d1With(nullptr, block("11", {127, 128})), kD1},
      {"16383 octets", d1With(nullptr, block("1", {16383})), kD1},
      {"16384 octets: a fragment and an empty rest", d1With(nullptr, block("1", {16384})), kD1},
      {"65536 + 5 octets: four-block fragment", d1With(nullptr, block("1", {65541})), kD1},
      {"three fragments of 16K and a rest", d1With(nullptr, block("1", {3 * 16384 + 7})), kD1},
      {"65-bit bitmap (long form), first and last set",
       d1With(nullptr, block("1" + std::string(63, '0') + "1", {2, 5})), kD1},
      {"set bits between clear ones", d1With(nullptr, block("0101", {4, 1})), kD1},
      {"empty open type", d1With(nullptr, block("1", {0})), nullptr},
      {"no bit set", d1With(nullptr, block("000", {})), nullptr},
      {"fragment of five blocks",
       d1With(nullptr,
              [](BitWriter& w) {
                putBitmapLength(w, 1);
                w.put(1, 1).put(0xC5, 8);
                for (int i = 0; i < 5 * 16384; i++) w.put(0, 8);
                w.put(0, 8);
              }),
       nullptr},
      {"open type longer than the frame", withoutLastOctet(d1With(nullptr, block("1", {3}))), nullptr},
      // Two nodes; then the first node's extension bit set without additions:
      // the bitmap would be read from the second node's bits.
      {"two nodes", fromHex(kTwoNodes), kTwoNodes},
      {"first node's extension bit flipped", fromHex(kTwoNodesFlipped), nullptr},
      // Additions of the node: unknown ones beside the known two.
      {"node: unknown third addition", d1With(block("001", {9}), nullptr), kD1},
      {"node: zone and an unknown addition", d1With(zoneThen("1", 20), nullptr), kD4},
      {"node: zone, then a clear and a set unknown bit", d1With(zoneThen("01", 2), nullptr), kD4},
      {"node: zone, unknown bit without its open type", d1With(zoneThen("1", 0), nullptr), nullptr},
      {"node and map additions", d1With(block("0011", {3, 300}), block("1", {2})), kD1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Frame f;
    asn_dec_rval_t rv = decode(c.frame, f);
    if (c.decodesTo == nullptr) {
      EXPECT_NE(rv.code, RC_OK);
      EXPECT_STRNE(v2x_asn_last_error(), "");
    } else {
      EXPECT_EQ(rv.code, RC_OK) << v2x_asn_last_error();
      if (rv.code == RC_OK) {
        EXPECT_EQ(toHex(encode(asn_DEF_MessageFrame, f.p)), c.decodesTo);
      }
    }
  }
}

}  // namespace
