// The main part of a wavelet row with AVX-512, 128 input columns (64 outputs)
// a step; a last run of fewer by masked loads and stores. The 16-bit means are
// narrowed in order by one two-register byte permute; the mask by one compare,
// as a - lo (wrapping) lies above hi - lo exactly when a lies outside [lo, hi].
#include <immintrin.h>

#include "align/wavelet_rows.h"

namespace tavo {
namespace {

// Byte 2i of the pair (bytes 0 ... 63 of the first register, 64 ... 127 of
// the second): the low bytes of the 16-bit lanes, in order.
constexpr auto kLowBytes = [] {
  struct {
    alignas(64) uint8_t v[64];
  } t{};
  for (int i = 0; i < 64; ++i) t.v[i] = static_cast<uint8_t>(2 * i);
  return t;
}();

// Means of the 2x2 blocks of 64 input columns, as 32 16-bit lanes.
inline __m512i block_means(__m512i top, __m512i bottom) {
  const __m512i ones = _mm512_set1_epi8(1);
  return _mm512_srli_epi16(_mm512_add_epi16(_mm512_maddubs_epi16(top, ones), _mm512_maddubs_epi16(bottom, ones)), 2);
}

// The lowest `count` bits set (none for count <= 0).
inline __mmask64 low_bits(int32_t count) {
  return count >= 64 ? ~__mmask64{0} : count <= 0 ? 0 : (__mmask64{1} << count) - 1;
}

}  // namespace

void WaveletMainRow_AVX512(const uint8_t* top, const uint8_t* bottom, uint8_t* approx,
                           uint8_t* bitmap, uint8_t* mask, int32_t blocks, int32_t threshold) {
  const __m512i t = _mm512_set1_epi8(static_cast<char>(threshold));
  const int32_t lo = threshold < 4 ? 0 : threshold - 4, hi = threshold > 251 ? 255 : threshold + 4;
  const __m512i low = _mm512_set1_epi8(static_cast<char>(lo)), span = _mm512_set1_epi8(static_cast<char>(hi - lo));
  const __m512i one = _mm512_set1_epi8(1), order = _mm512_load_si512(kLowBytes.v);
  // The outputs from `out` on (64, or the last fewer), their inputs from 2 out on.
  auto step = [&](int32_t out, int32_t outputs) {
    const int32_t in = 2 * out;
    const __mmask64 first = low_bits(2 * outputs), second = low_bits(2 * outputs - 64), stored = low_bits(outputs);
    const __m512i a = _mm512_permutex2var_epi8(
        block_means(_mm512_maskz_loadu_epi8(first, top + in), _mm512_maskz_loadu_epi8(first, bottom + in)), order,
        block_means(_mm512_maskz_loadu_epi8(second, top + in + 64), _mm512_maskz_loadu_epi8(second, bottom + in + 64)));
    _mm512_mask_storeu_epi8(approx + out, stored, a);
    _mm512_mask_storeu_epi8(bitmap + out, stored, _mm512_maskz_mov_epi8(_mm512_cmpgt_epu8_mask(a, t), one));
    _mm512_mask_storeu_epi8(mask + out, stored,
                            _mm512_movm_epi8(_mm512_cmpgt_epu8_mask(_mm512_sub_epi8(a, low), span)));
  };
  const int32_t outputs = 8 * blocks;
  int32_t out = 0;
  for (; out + 64 <= outputs; out += 64) step(out, 64);
  if (out < outputs) step(out, outputs - out);
}

}  // namespace tavo
