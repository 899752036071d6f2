// Grouped chroma rule, eight samples per step with AVX2: weights gathered from
// the table, wrapping 32-bit lane sums, and the division through the emulated
// ARM reciprocal estimate and step.
#include <immintrin.h>

#include "chroma/chroma_rows.h"
#include "platform/arm_float_avx2.h"

namespace tavo {
namespace {

struct Sums {
  __m256i w = _mm256_setzero_si256();
  __m256i s = _mm256_setzero_si256();
  // Adds eight samples (32-bit lanes of 0 ... 255).
  void add(const int32_t* weights, __m256i c) {
    const __m256i w_f = _mm256_i32gather_epi32(weights, c, 4);
    w = _mm256_add_epi32(w, w_f);
    s = _mm256_add_epi32(s, _mm256_mullo_epi32(w_f, c));
  }
};

inline __m256i bytes_to_lanes(__m128i b) { return _mm256_cvtepu8_epi32(b); }

// 0.5 + r1(W) * S, unsigned conversion, low 16 bits saturated to 255; the
// eight results stored as bytes.
inline void store_grouped(const Sums& sums, uint8_t* out) {
  const __m256 w = arm::avx2::u32_to_float(sums.w);
  const __m256 s = arm::avx2::u32_to_float(sums.s);
  const __m256 q = _mm256_add_ps(_mm256_set1_ps(0.5f), _mm256_mul_ps(arm::avx2::refined_reciprocal(w), s));
  __m256i v = _mm256_and_si256(arm::avx2::to_u32(q), _mm256_set1_epi32(0xffff));
  v = _mm256_min_epu32(v, _mm256_set1_epi32(255));
  const __m128i words = _mm_packus_epi32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
  _mm_storel_epi64(reinterpret_cast<__m128i*>(out), _mm_packus_epi16(words, words));
}

}  // namespace

void ChromaGroups_AVX2(const ChromaRowArgs& row, uint8_t* out, int32_t count) {
  for (int32_t x = 0; x < count; x += 8) {
    Sums sums;
    for (int32_t f = 0; f < row.frames; ++f) {
      const auto* p = reinterpret_cast<const __m128i*>(row.src[f] + row.offset + x);
      sums.add(row.weights, bytes_to_lanes(_mm_loadl_epi64(p)));
    }
    store_grouped(sums, out + x);
  }
}

void ChromaPairGroups_AVX2(const ChromaRowArgs& row, uint8_t* out_u, uint8_t* out_v, int32_t pairs) {
  // First bytes of the pairs to the low half, second bytes to the high half.
  const __m128i split = _mm_setr_epi8(0, 2, 4, 6, 8, 10, 12, 14, 1, 3, 5, 7, 9, 11, 13, 15);
  for (int32_t p = 0; p < pairs; p += 8) {
    Sums u, v;
    for (int32_t f = 0; f < row.frames; ++f) {
      const auto* at = reinterpret_cast<const __m128i*>(row.src[f] + row.offset + 2 * static_cast<ptrdiff_t>(p));
      const __m128i vu = _mm_shuffle_epi8(_mm_loadu_si128(at), split);
      v.add(row.weights, bytes_to_lanes(vu));
      u.add(row.weights, bytes_to_lanes(_mm_srli_si128(vu, 8)));
    }
    store_grouped(u, out_u + p);
    store_grouped(v, out_v + p);
  }
}

}  // namespace tavo
