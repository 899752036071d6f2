// Small deterministic test frames: three exposures of a smooth scene with
// texture, integer arithmetic only, so every architecture makes the same bytes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tavo::test {

// Frames 0, 1, 2: dark, normal, bright exposures of one scene, W*H*3/2 bytes
// each, chroma laid out as `layout` names ("YVU420_SEMIPLANAR" interleaves
// V,U; anything else is planar).
std::vector<std::vector<uint8_t>> bracket(int32_t width, int32_t height, const std::string& layout,
                                          uint32_t seed);

// FNV-1a of a byte buffer, for checksums recorded in tests.
uint64_t fnv1a(const std::vector<uint8_t>& bytes);

}  // namespace tavo::test
