#include "align/warp_rows.h"

namespace tavo {

void WidenX16Row_C(const uint8_t* src, uint16_t* dst, int32_t n) {
  for (int32_t j = 0; j < n; ++j) dst[j] = static_cast<uint16_t>(src[j] << 4);
}

void SplitPairsRow_C(const uint8_t* src, uint8_t* odd, uint8_t* even, int32_t n) {
  for (int32_t j = 0; j < n; ++j) {
    even[j] = src[2 * j];
    odd[j] = src[2 * j + 1];
  }
}

void MergePairsRow_C(const uint8_t* odd, const uint8_t* even, uint8_t* dst, int32_t n) {
  merge_pairs_from(odd, even, dst, 0, n);
}

}  // namespace tavo
