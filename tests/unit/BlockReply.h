// Answers of the camera for tests of the block inquiries and of what is built on them.
#ifndef ZR4410_TESTS_UNIT_BLOCKREPLY_H
#define ZR4410_TESTS_UNIT_BLOCKREPLY_H

#include <map>

#include "tests/support/FakeOs.h"

// A completed inquiry with its data bytes.
inline Bytes Completed(Bytes data) {
  data.insert(data.begin(), {0x90, 0x50});
  data.push_back(0xFF);
  return data;
}

// A copy of a block's data bytes with some of them replaced: With(kBlock, {{11, 0x20}}).
inline Bytes With(Bytes data, const std::map<size_t, uint8_t>& changes) {
  for (const auto& [place, value] : changes) {
    data.at(place) = value;
  }
  return data;
}

#endif
