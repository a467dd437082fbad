// The upload renderer on frames built by hand: exact texts for the cases that
// can go wrong (empty lists, the points/movements rule, lane types without a
// choice, every offset choice, buffers without a terminator, bytes that need
// escaping), and the fast printing against cJSON's own.
#include <MessageFrame.h>
#include <cjson/cJSON.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "../codec/codec_test_util.h"
#include "map_conv_mapup.h"
#include "map_conv_mapup_print.h"
#include "map_conv_profile.h"

namespace {

using codectest::make;
using codectest::setBits;
template <class T, class List>
T* append(List& list) {
  return codectest::add(list, make<T>());
}
// Exactly these bytes, no terminator after them.
template <class S>
S* bytes(const std::vector<uint8_t>& b, int unused = 0) {
  S* s = make<S>();
  s->buf = static_cast<uint8_t*>(std::malloc(b.size()));
  std::memcpy(s->buf, b.data(), b.size());
  s->size = static_cast<int>(b.size());
  if constexpr (std::is_same_v<S, BIT_STRING_t>) s->bits_unused = unused;
  return s;
}
void ref(NodeReferenceID_t& r, long id, long region = -1) {
  r.id = id;
  if (region >= 0) r.region = make<RoadRegulatorID_t>(region);
}
PointList* points(PointList*& list) { return list != nullptr ? list : (list = make<PointList>()); }

struct Frame {
  MessageFrame_t* frame = make<MessageFrame_t>();
  Frame() { frame->present = MessageFrame_PR_mapFrame; }
  ~Frame() {
    V2XAPP_GBMHANDLE h = frame;
    v2xapp_GBMapStrDel(&h);
  }
  Frame(const Frame&) = delete;
  Frame& operator=(const Frame&) = delete;
};

struct Envelope {
  uint8_t slice;
  std::string eTag;
  bool ack;
  std::string seqNum;
};

std::string render(MessageFrame_t* frame, const Envelope& e) {
  v2xcloud_map_data_t up{};
  up.mapSlice = e.slice;
  up.map = frame;
  std::memcpy(up.eTag, e.eTag.data(), std::min(e.eTag.size(), sizeof(up.eTag)));
  up.ack = e.ack;
  std::memcpy(up.seqNum, e.seqNum.data(), std::min(e.seqNum.size(), sizeof(up.seqNum)));
  char* text = v2xmapconv_StructToJson(&up);
  std::string out = text != nullptr ? text : "(null)";
  cJSON_free(text);
  return out;
}

// One intersection with links that show the points/movements rule.
void nodeAndLinks(MessageFrame_t* f) {
  MapData_t& m = f->choice.mapFrame;
  Node_t* node = append<Node_t>(m.nodes);
  node->name = bytes<DescriptiveName_t>({'A', '"', 0x01, 'B'});
  ref(node->id, 7, 1);
  node->refPos.lat = 312800000;
  node->refPos.Long = 1211600000;
  node->refPos.elevation = make<Elevation_t>(46);
  node->inLinks = make<LinkList>();
  // Movements without points are lost; no lanes still gives "lanes": [].
  Link_t* l1 = append<Link_t>(*node->inLinks);
  l1->name = bytes<DescriptiveName_t>({'u', 'p', 0, 'x'});
  ref(l1->upstreamNodeId, 8);
  l1->speedLimits = make<SpeedLimitList>();
  RegulatorySpeedLimit_t* limit = append<RegulatorySpeedLimit_t>(*l1->speedLimits);
  limit->type = 8;
  limit->speed = 555;
  l1->linkWidth = 700;
  l1->movements = make<MovementList>();
  ref(append<Movement_t>(*l1->movements)->remoteIntersection, 9);
  // Points without movements: no "movements".
  Link_t* l2 = append<Link_t>(*node->inLinks);
  ref(l2->upstreamNodeId, 9, 2);
  l2->linkWidth = 350;
  RoadPoint_t* p = append<RoadPoint_t>(*points(l2->points));
  p->posOffset.offsetLL.present = PositionOffsetLL_PR_position_LL1;
  p->posOffset.offsetLL.choice.position_LL1 = {12, -7, {}};
  // Both.
  Link_t* l3 = append<Link_t>(*node->inLinks);
  ref(l3->upstreamNodeId, 10);
  l3->linkWidth = 300;
  p = append<RoadPoint_t>(*points(l3->points));
  p->posOffset.offsetLL.present = PositionOffsetLL_PR_position_LatLon;
  p->posOffset.offsetLL.choice.position_LatLon = {1211600001, 312800002, {}};
  p->posOffset.offsetV = make<VerticalOffset_t>();
  p->posOffset.offsetV->present = VerticalOffset_PR_elevation;
  p->posOffset.offsetV->choice.elevation = 48;
  l3->movements = make<MovementList>();
  ref(append<Movement_t>(*l3->movements)->remoteIntersection, 11, 1);
  Movement_t* mv = append<Movement_t>(*l3->movements);
  ref(mv->remoteIntersection, 12);
  mv->phaseId = make<PhaseID_t>(4);
  // A second node without links or elevation.
  Node_t* n2 = append<Node_t>(m.nodes);
  ref(n2->id, 20);
  n2->refPos.lat = -1;
  n2->refPos.Long = -2;
}

// One link whose lanes show lane types, bit-string texts, connections and a
// point in every offset choice.
void lanes(MessageFrame_t* f) {
  Node_t* node = append<Node_t>(f->choice.mapFrame.nodes);
  ref(node->id, 1);
  node->inLinks = make<LinkList>();
  Link_t* link = append<Link_t>(*node->inLinks);
  ref(link->upstreamNodeId, 2);
  link->linkWidth = 100;

  Lane_t* a = append<Lane_t>(link->lanes);
  a->laneID = 1;
  a->laneAttributes = make<LaneAttributes>();  // lane type without a choice

  Lane_t* b = append<Lane_t>(link->lanes);
  b->laneID = 2;
  b->laneWidth = make<LaneWidth_t>(350);
  b->laneAttributes = make<LaneAttributes>();
  b->laneAttributes->shareWith = bytes<BIT_STRING_t>({0x03, 0xFF}, 6);
  b->laneAttributes->laneType.present = LaneTypeAttributes_PR_bikeLane;
  setBits(b->laneAttributes->laneType.choice.bikeLane, "0000000000000101");
  b->maneuvers = bytes<BIT_STRING_t>({0x80, 0x00}, 4);
  b->connectsTo = make<ConnectsToList>();
  Connection_t* c = append<Connection_t>(*b->connectsTo);
  ref(c->remoteIntersection, 3);
  c->connectingLane = make<ConnectingLane>();
  c->connectingLane->lane = 4;
  c->connectingLane->maneuver = bytes<BIT_STRING_t>({'A', 'B'});  // no zero byte
  c->phaseId = make<PhaseID_t>(5);
  ref(append<Connection_t>(*b->connectsTo)->remoteIntersection, 6, 1);
  b->speedLimits = make<SpeedLimitList>();
  append<RegulatorySpeedLimit_t>(*b->speedLimits)->type = 5;
  for (int k = 1; k <= 8; ++k) {
    RoadPoint_t* p = append<RoadPoint_t>(*points(b->points));
    PositionOffsetLL_t& ll = p->posOffset.offsetLL;
    ll.present = static_cast<PositionOffsetLL_PR>(k % 8);  // 1..7, then none
    if (k == 7) {
      ll.choice.position_LatLon = {1211600000, 312800000, {}};
    } else if (k < 7) {
      ll.choice.position_LL6 = {k, -k, {}};  // same place in every pair
    }
    p->posOffset.offsetV = make<VerticalOffset_t>();
    p->posOffset.offsetV->present = static_cast<VerticalOffset_PR>(k % 8);
    p->posOffset.offsetV->choice.elevation = k == 7 ? 48 : -k;
    if (k == 8) p->posOffset.offsetV->choice.elevation = 0;
  }

  Lane_t* c3 = append<Lane_t>(link->lanes);
  c3->laneID = 3;
  c3->laneAttributes = make<LaneAttributes>();
  c3->laneAttributes->laneType.present = LaneTypeAttributes_PR_vehicle;
  setBits(c3->laneAttributes->laneType.choice.vehicle, "10000000");
  c3->maneuvers = bytes<BIT_STRING_t>({0x00, 0x10}, 4);  // first byte zero: empty text
  c3->connectsTo = make<ConnectsToList>();
  Connection_t* c2 = append<Connection_t>(*c3->connectsTo);
  ref(c2->remoteIntersection, 8);
  c2->connectingLane = make<ConnectingLane>();  // without maneuvers
  c2->connectingLane->lane = 7;
}

struct RenderCase {
  const char* name;
  std::function<void(MessageFrame_t*)> build;
  Envelope envelope;
  std::string expect;
};

TEST(MapUpRender, DocumentTexts) {
  const std::string tag64(64, 'x');
  const std::vector<RenderCase> cases = {
      {"empty node list, full envelope",
       [](MessageFrame_t* f) { f->choice.mapFrame.timeStamp = make<MinuteOfTheYear_t>(5); },
       {3, "E1", true, "12"},
       R"({"mapSlice":"3","map":{"timeStamp":5,"nodes":[]},"eTag":"E1","ack":true,"seqNum":"12"})"},
      {"ack false: neither ack nor seqNum",
       [](MessageFrame_t*) {},
       {0, "", false, "9"},
       R"({"mapSlice":"0","map":{"nodes":[]},"eTag":""})"},
      {"ack with an empty seqNum, eTag filling its field",
       [](MessageFrame_t*) {},
       {255, tag64, true, ""},
       R"({"mapSlice":"255","map":{"nodes":[]},"eTag":")" + tag64 + R"(","ack":true})"},
      {"not a map: no map member",
       [](MessageFrame_t* f) { f->present = MessageFrame_PR_bsmFrame; },
       {0, "E", false, ""},
       R"({"mapSlice":"0","eTag":"E"})"},
      {"nodes and links",
       nodeAndLinks,
       {1, "E", true, "1"},
       R"({"mapSlice":"1","map":{"nodes":[{"name":"A\"\u0001B","id":{"region":1,"id":7},)"
       R"("refPos":{"lon":1211600000,"lat":312800000,"ele":46},"inLinks":[)"
       R"({"name":"up","upstreamNodeId":{"id":8},"speedLimits":[{"type":"8","speed":555}],"linkWidth":700,)"
       R"("lanes":[]},)"
       R"({"upstreamNodeId":{"region":2,"id":9},"linkWidth":350,"points":[{"lon":12,"lat":-7}],"lanes":[]},)"
       R"({"upstreamNodeId":{"id":10},"linkWidth":300,"points":[{"lon":1211600001,"lat":312800002,"ele":48}],)"
       R"("movements":[{"remoteIntersection":{"region":1,"id":11}},{"remoteIntersection":{"id":12},"phaseId":4}],)"
       R"("lanes":[]}]},{"id":{"id":20},"refPos":{"lon":-2,"lat":-1}}]},"eTag":"E","ack":true,"seqNum":"1"})"},
      {"lanes",
       lanes,
       {2, "E", false, ""},
       R"({"mapSlice":"2","map":{"nodes":[{"id":{"id":1},"refPos":{"lon":0,"lat":0},"inLinks":[)"
       R"({"upstreamNodeId":{"id":2},"linkWidth":100,"lanes":[)"
       R"({"laneId":1,"laneAttributes":{"laneType":{"nothing":0}}},)"
       R"({"laneId":2,"laneWidth":350,"laneAttributes":{"shareWith":1023,"laneType":{"bikeLane":5}},"maneuvers":")"
       "\x80"
       R"(","connectsTo":[{"remoteIntersection":{"id":3},"connectingLane":{"laneId":4,"maneuvers":"AB"},)"
       R"("phaseId":5},{"remoteIntersection":{"region":1,"id":6}}],"speedLimits":[{"type":"5","speed":0}],)"
       R"("points":[{"lon":1,"lat":-1,"ele":-1},{"lon":2,"lat":-2,"ele":-2},{"lon":3,"lat":-3,"ele":-3},)"
       R"({"lon":4,"lat":-4,"ele":-4},{"lon":5,"lat":-5,"ele":-5},{"lon":6,"lat":-6,"ele":-6},)"
       R"({"lon":1211600000,"lat":312800000,"ele":48},{"lon":0,"lat":0,"ele":0}]},)"
       R"({"laneId":3,"laneAttributes":{"laneType":{"vehicle":128}},"maneuvers":"",)"
       R"("connectsTo":[{"remoteIntersection":{"id":8},"connectingLane":{"laneId":7}}]}]}]}]},"eTag":"E"})"},
  };
  for (const RenderCase& c : cases) {
    SCOPED_TRACE(c.name);
    Frame f;
    c.build(f.frame);
    EXPECT_EQ(render(f.frame, c.envelope), c.expect);
  }
  EXPECT_EQ(v2xmapconv_StructToJson(nullptr), nullptr);
}

// Under the field profile every byte from 0x80 of a text made from bytes is
// written as its escape: the document is ASCII, so valid UTF-8, and a reader
// gets each byte back as the code point of its value (0xC0 and 0xA0 stay
// apart). The reference profile writes the bytes as they are.
TEST(MapUpRender, FieldWritesHighBytesEscaped) {
  Frame f;
  Node_t* node = append<Node_t>(f.frame->choice.mapFrame.nodes);
  node->name = bytes<DescriptiveName_t>({0xC0, 0xA0, 'x'});
  node->inLinks = make<LinkList>();
  Link_t* link = append<Link_t>(*node->inLinks);
  Lane_t* lane = append<Lane_t>(link->lanes);
  lane->maneuvers = bytes<BIT_STRING_t>({0x80, 0x00}, 4);  // straight ahead allowed
  const std::string tail =
      R"(","id":{"id":0},"refPos":{"lon":0,"lat":0},"inLinks":[{"upstreamNodeId":{"id":0},"linkWidth":0,)"
      R"("lanes":[{"laneId":0,"maneuvers":")";
  const struct {
    map_conv_profile_e profile;
    std::string expect;
  } cases[] = {
      {MAP_CONV_PROFILE_REFERENCE, R"({"mapSlice":"0","map":{"nodes":[{"name":")"
                                   "\xC0\xA0x" +
                                       tail + "\x80" + R"("}]}]}]},"eTag":"E"})"},
      {MAP_CONV_PROFILE_FIELD,
       R"({"mapSlice":"0","map":{"nodes":[{"name":"\u00c0\u00a0x)" + tail + R"(\u0080"}]}]}]},"eTag":"E"})"},
  };
  for (const auto& c : cases) {
    v2xmapconv_SetProfile(c.profile);
    EXPECT_EQ(render(f.frame, {0, "E", false, ""}), c.expect) << v2xmapconv_ProfileName(c.profile);
  }
  v2xmapconv_SetProfile(MAP_CONV_PROFILE_REFERENCE);
}

// The fast printer of a rendering gives the bytes cJSON's own printer gives.
TEST(MapUpRender, FastPrinterPrintsWhatCJsonPrints) {
  cJSON* tree = cJSON_CreateObject();
  cJSON_AddStringToObject(tree, "esc\"\\\b\f\n\r\t\x01\x1f", "q\"b\\s/\x7f\x80\xff\x02");
  cJSON* numbers = cJSON_AddArrayToObject(tree, "n");
  for (double d : {0.0, -0.0, 0.5, -1e15, 1e15, 123456789012345.0, 1e300, 3.0e-7})
    cJSON_AddItemToArray(numbers, cJSON_CreateNumber(d));
  cJSON_AddItemToObject(tree, "", cJSON_CreateRaw("[1, 2]"));
  cJSON_AddNullToObject(tree, "z");
  cJSON_AddFalseToObject(tree, "f");
  cJSON_AddItemToObject(tree, "e", cJSON_CreateObject());
  cJSON_AddArrayToObject(tree, "a");
  char* expect = cJSON_PrintUnformatted(tree);
  char* got = v2xmapconv_PrintUnformatted(tree, 0);
  ASSERT_NE(got, nullptr);
  EXPECT_STREQ(got, expect);
  cJSON_free(got);
  cJSON_free(expect);
  // A raw value without text: cJSON prints nothing, neither does this.
  cJSON* bad = cJSON_AddNullToObject(tree, "bad");
  bad->type = cJSON_Raw;
  EXPECT_EQ(cJSON_PrintUnformatted(tree), nullptr);
  EXPECT_EQ(v2xmapconv_PrintUnformatted(tree, 0), nullptr);
  cJSON_Delete(tree);
}

}  // namespace
