// Chroma rows with AVX2: the grouped rule with weights gathered from the
// table, wrapping 32-bit lane sums, and the division through the emulated ARM
// reciprocal estimate and step; the exact rule for the tail in scalar code.
// Tables whose weights all lie in 1 ... 32767 take sixteen samples a step:
// their sums stay positive and unwrapped, so they convert to float directly
// and the quotient needs no saturation.
#include <immintrin.h>

#include "chroma/chroma_rows.h"
#include "platform/arm_float_avx2.h"

namespace tavo {
namespace {

// ---- Any table: eight samples a step ----------------------------------------

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

// Samples (pairs) `from` ... count-1, from and count multiples of eight.
void plane_groups_any(const ChromaRowArgs& row, uint8_t* out, int32_t from, int32_t count) {
  for (int32_t x = from; x < count; x += 8) {
    Sums sums;
    for (int32_t f = 0; f < row.frames; ++f) {
      const auto* p = reinterpret_cast<const __m128i*>(row.src[f] + row.offset + x);
      sums.add(row.weights->w, bytes_to_lanes(_mm_loadl_epi64(p)));
    }
    store_grouped(sums, out + x);
  }
}

void pair_groups_any(const ChromaRowArgs& row, uint8_t* out_u, uint8_t* out_v, int32_t from, int32_t pairs) {
  // First bytes of the pairs to the low half, second bytes to the high half.
  const __m128i split = _mm_setr_epi8(0, 2, 4, 6, 8, 10, 12, 14, 1, 3, 5, 7, 9, 11, 13, 15);
  for (int32_t p = from; p < pairs; p += 8) {
    Sums u, v;
    for (int32_t f = 0; f < row.frames; ++f) {
      const auto* at = reinterpret_cast<const __m128i*>(row.src[f] + row.offset + 2 * static_cast<ptrdiff_t>(p));
      const __m128i vu = _mm_shuffle_epi8(_mm_loadu_si128(at), split);
      v.add(row.weights->w, bytes_to_lanes(vu));
      u.add(row.weights->w, bytes_to_lanes(_mm_srli_si128(vu, 8)));
    }
    store_grouped(u, out_u + p);
    store_grouped(v, out_v + p);
  }
}

// ---- Positive weights: sixteen samples a step --------------------------------

// Sums of sixteen samples, lanes in unpack order (set 0: samples 0-3 and 8-11,
// set 1: samples 4-7 and 12-15). Weights of at most 32767 times samples of at
// most 255 are whole 16-bit products.
struct PositiveSums {
  __m256i w[2] = {_mm256_setzero_si256(), _mm256_setzero_si256()};
  __m256i s[2] = {_mm256_setzero_si256(), _mm256_setzero_si256()};
  // Adds sixteen samples given as bytes.
  [[gnu::always_inline]] void add(const int32_t* weights, __m128i bytes) {
    const __m256i c = _mm256_cvtepu8_epi16(bytes);
    const __m256i lanes[2] = {_mm256_unpacklo_epi16(c, _mm256_setzero_si256()),
                              _mm256_unpackhi_epi16(c, _mm256_setzero_si256())};
    for (int k = 0; k < 2; ++k) {
      const __m256i w_f = _mm256_i32gather_epi32(weights, lanes[k], 4);
      w[k] = _mm256_add_epi32(w[k], w_f);
      s[k] = _mm256_add_epi32(s[k], _mm256_madd_epi16(w_f, lanes[k]));
    }
  }
};

// 0.5 + r1(W) * S for W in [1, 2^31) and S in [0, 2^31): Q is at least 0.5
// and below 2^31, so truncation is the unsigned conversion; the quotient is
// below 2^16, so its low 16 bits are itself.
inline __m256i positive_quotient(__m256i w_sum, __m256i s_sum) {
  const __m256 r1 = arm::avx2::refined_reciprocal_of_positive(_mm256_cvtepi32_ps(w_sum));
  const __m256 q = _mm256_add_ps(_mm256_set1_ps(0.5f), _mm256_mul_ps(r1, _mm256_cvtepi32_ps(s_sum)));
  return _mm256_cvttps_epi32(q);
}

// The sixteen results as bytes in sample order, saturated to 255.
inline void store_positive(const PositiveSums& sums, uint8_t* out) {
  const __m256i words =
      _mm256_packus_epi32(positive_quotient(sums.w[0], sums.s[0]), positive_quotient(sums.w[1], sums.s[1]));
  const __m128i bytes = _mm_packus_epi16(_mm256_castsi256_si128(words), _mm256_extracti128_si256(words, 1));
  _mm_storeu_si128(reinterpret_cast<__m128i*>(out), bytes);
}

template <int kFrames>
[[gnu::always_inline]] inline void plane_step_positive(const ChromaFrames<kFrames>& frames, const int32_t* weights,
                                                       uint8_t* out, int32_t x) {
  PositiveSums sums;
  const int32_t n = frames.count();
#pragma GCC unroll 4
  for (int32_t f = 0; f < n; ++f) {
    sums.add(weights, _mm_loadu_si128(reinterpret_cast<const __m128i*>(frames[f] + x)));
  }
  store_positive(sums, out + x);
}

template <int kFrames>
[[gnu::always_inline]] inline void pair_step_positive(const ChromaFrames<kFrames>& frames, const int32_t* weights,
                                                      uint8_t* out_u, uint8_t* out_v, int32_t p) {
  // Per 128-bit half: the first bytes of its eight pairs, then the second.
  const __m256i split = _mm256_setr_epi8(0, 2, 4, 6, 8, 10, 12, 14, 1, 3, 5, 7, 9, 11, 13, 15,
                                         0, 2, 4, 6, 8, 10, 12, 14, 1, 3, 5, 7, 9, 11, 13, 15);
  PositiveSums u, v;
  const int32_t n = frames.count();
#pragma GCC unroll 4
  for (int32_t f = 0; f < n; ++f) {
    const auto* at = reinterpret_cast<const __m256i*>(frames[f] + 2 * static_cast<ptrdiff_t>(p));
    // Sixteen first bytes in the low half, sixteen second bytes in the high half.
    const __m256i vu = _mm256_permute4x64_epi64(_mm256_shuffle_epi8(_mm256_loadu_si256(at), split), 0xd8);
    v.add(weights, _mm256_castsi256_si128(vu));
    u.add(weights, _mm256_extracti128_si256(vu, 1));
  }
  store_positive(u, out_u + p);
  store_positive(v, out_v + p);
}

// Steps of sixteen while they fit for positive tables, eights for the rest of
// the grouped samples, then the exact rule.
template <int kFrames>
void plane_row(const ChromaRowArgs& row, uint8_t* out, int32_t width) {
  const ChromaFrames<kFrames> frames(row);
  const int32_t grouped = width / 8 * 8;
  int32_t x = 0;
  if (row.weights->positive) {
    for (; x + 16 <= grouped; x += 16) plane_step_positive(frames, row.weights->w, out, x);
  }
  plane_groups_any(row, out, x, grouped);
  chroma_exact_tail<kFrames>(row, out, grouped, width);
}

template <int kFrames>
void pair_row(const ChromaRowArgs& row, uint8_t* out_u, uint8_t* out_v, int32_t pairs) {
  const ChromaFrames<kFrames> frames(row);
  const int32_t grouped = pairs / 8 * 8;
  int32_t p = 0;
  if (row.weights->positive) {
    for (; p + 16 <= grouped; p += 16) pair_step_positive(frames, row.weights->w, out_u, out_v, p);
  }
  pair_groups_any(row, out_u, out_v, p, grouped);
  chroma_pair_exact_tail<kFrames>(row, out_u, out_v, grouped, pairs);
}

}  // namespace

void ChromaRow_AVX2(const ChromaRowArgs& row, uint8_t* out, int32_t width) {
  if (row.frames == 3) {
    plane_row<3>(row, out, width);
  } else {
    plane_row<0>(row, out, width);
  }
}

void ChromaPairRow_AVX2(const ChromaRowArgs& row, uint8_t* out_u, uint8_t* out_v, int32_t pairs) {
  if (row.frames == 3) {
    pair_row<3>(row, out_u, out_v, pairs);
  } else {
    pair_row<0>(row, out_u, out_v, pairs);
  }
}

void InitChromaRows_AVX2(ChromaRows* rows) {
  rows->plane = ChromaRow_AVX2;
  rows->pairs = ChromaPairRow_AVX2;
}

}  // namespace tavo
