// Bad input, half-built trees, other frame kinds, short buffers and threads.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "codec_test_util.h"

using namespace codectest;

namespace {

TEST(CodecRobustness, EveryTruncationOfEveryVectorFailsCleanly) {
  for (const char* hex : {kD1, kD2, kD3, kD4, kMap528}) {
    const Bytes full = fromHex(hex);
    for (size_t len = 0; len < full.size(); len++) {
      Frame f;
      asn_dec_rval_t rv = decode(Bytes(full.begin(), full.begin() + static_cast<std::ptrdiff_t>(len)), f);
      ASSERT_NE(rv.code, RC_OK) << "length " << len << " of " << full.size();
      EXPECT_LE(rv.consumed, len);
      EXPECT_STRNE(v2x_asn_last_error(), "");
    }
  }
}

TEST(CodecRobustness, HalfBuiltTreeFreesWholeAndDoesNotEncode) {
  Frame f(newMap(1, 1, 0, 0));
  Node_t* node = f.map().nodes.list.array[0];
  node->name = make<DescriptiveName_t>();  // empty string
  node->inLinks = make<LinkList>();
  Link_t* link = add(*node->inLinks, make<Link_t>());
  link->points = make<PointList>();
  add(*link->points, make<RoadPoint_t>());  // one point, no alternative chosen
  Lane_t* lane = add(link->lanes, make<Lane_t>());
  lane->laneAttributes = make<LaneAttributes>();  // laneType still NOTHING
  lane->maneuvers = make<AllowedManeuvers_t>();   // no bits at all
  lane->connectsTo = make<ConnectsToList>();      // empty list
  asn_enc_rval_t er = asn_encode_to_buffer(nullptr, ATS_UNALIGNED_BASIC_PER, &asn_DEF_MessageFrame, f.p, nullptr, 0);
  EXPECT_EQ(er.encoded, -1);
  EXPECT_STRNE(v2x_asn_last_error(), "");
  // The frame is released by Frame's single free call; the sanitizer build
  // reports anything left behind.
}

TEST(CodecRobustness, OtherFrameKindsFailToDecode) {
  // A safety message: frame index 0 followed by its body.
  Bytes bsm = {0x00, 0x7f, 0x12, 0x34, 0x56, 0x78, 0x9a, 0xbc, 0xde, 0xf0, 0x0c, 0x35,
               0x10, 0x40, 0x5e, 0x5d, 0x1a, 0x2b, 0x3c, 0x4d, 0x00, 0x00, 0x11, 0x22};
  Frame f;
  asn_dec_rval_t rv = decode(bsm, f);
  EXPECT_EQ(rv.code, RC_FAIL);
  EXPECT_LT(rv.consumed, bsm.size());
  ASSERT_NE(f.p, nullptr);
  EXPECT_EQ(f->present, MessageFrame_PR_bsmFrame);

  // An extension alternative this module does not know.
  BitWriter w;
  w.put(1, 1).put(1, 7).put(2, 8).put(0xABCD, 16);
  Frame g;
  EXPECT_EQ(decode(w.bytes, g).code, RC_FAIL);

  // Trailing bytes behind a valid map.
  Bytes d1 = fromHex(kD1);
  d1.push_back(0);
  Frame h;
  EXPECT_EQ(decode(d1, h).code, RC_FAIL);
}

TEST(CodecRobustness, ShortBufferGetsThePrefixAndTheFullLength) {
  Frame f;
  const Bytes map = fromHex(kMap528);
  ASSERT_EQ(decode(map, f).code, RC_OK);
  for (size_t capacity : {size_t{0}, size_t{1}, map.size() - 1, map.size()}) {
    SCOPED_TRACE(capacity);
    Bytes buf(capacity + 16, 0xEE);
    asn_enc_rval_t er =
        asn_encode_to_buffer(nullptr, ATS_UNALIGNED_BASIC_PER, &asn_DEF_MessageFrame, f.p, buf.data(), capacity);
    EXPECT_EQ(er.encoded, static_cast<ssize_t>(map.size()));
    EXPECT_TRUE(std::equal(buf.begin(), buf.begin() + static_cast<std::ptrdiff_t>(capacity), map.begin()));
    EXPECT_TRUE(std::all_of(buf.begin() + static_cast<std::ptrdiff_t>(capacity), buf.end(),
                            [](uint8_t c) { return c == 0xEE; }));
  }
}

// The generated descriptors rewrite themselves on every call; the codec
// layer's lock keeps concurrent callers apart. Under ThreadSanitizer this test
// reports a data race as soon as any codec call runs without the lock.
TEST(CodecRobustness, ThreadsDecodingEncodingAndFreeingAtOnce) {
  const Bytes map = fromHex(kMap528);
  std::atomic<int> wrong{0};
  auto work = [&] {
    for (int i = 0; i < 20; i++) {
      Frame f;
      if (decode(map, f).code != RC_OK || encode(asn_DEF_MessageFrame, f.p) != map) wrong++;
      f.map().nodes.list.array[0]->refPos.lat = 900000002;  // out of range: refused by the check
      if (v2x_asn_check_constraints(&asn_DEF_MessageFrame, f.p, nullptr, nullptr) == 0) wrong++;
      if (!xer(f.p).empty()) wrong++;  // the XER encoder checks too
    }
  };
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; t++) threads.emplace_back(work);
  for (auto& t : threads) t.join();
  EXPECT_EQ(wrong.load(), 0);
}

}  // namespace
