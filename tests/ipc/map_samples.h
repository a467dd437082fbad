// Real UPER-encoded MAP messages for the IPC tests, made with the MAP library
// from a small XER text.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "v2xapp_gbmap.h"

namespace v2xtest {

// A MapData with one intersection; msgCnt and the node id tell maps apart.
// Empty when the library cannot make it.
inline std::vector<uint8_t> uperMap(int msgCnt, int nodeId, const std::string& name = "X") {
  std::string xer = "<MessageFrame><mapFrame><msgCnt>" + std::to_string(msgCnt) + "</msgCnt><nodes><Node><name>" +
                    name + "</name><id><id>" + std::to_string(nodeId) +
                    "</id></id><refPos><lat>310000000</lat><long>1210000000</long></refPos></Node></nodes>"
                    "</mapFrame></MessageFrame>";
  V2XAPP_GBMHANDLE h = nullptr;
  std::vector<uint8_t> out(4096);
  uint32_t len = static_cast<uint32_t>(out.size());
  bool ok = v2xapp_GBMapXerDecode(&h, reinterpret_cast<uint8_t*>(xer.data()), static_cast<uint32_t>(xer.size())) == 0 &&
            v2xapp_GBMapUperEncode(h, out.data(), &len) == 0 && len <= out.size();
  if (h != nullptr) v2xapp_GBMapStrDel(&h);
  out.resize(ok ? len : 0);
  return out;
}

// Map items as the stack peer lays them out: each a 16-bit length, then the bytes.
inline std::vector<uint8_t> mapItems(const std::vector<std::vector<uint8_t>>& maps) {
  std::vector<uint8_t> items;
  for (const auto& m : maps) {
    items.push_back(static_cast<uint8_t>(m.size()));
    items.push_back(static_cast<uint8_t>(m.size() >> 8));
    items.insert(items.end(), m.begin(), m.end());
  }
  return items;
}

}  // namespace v2xtest
