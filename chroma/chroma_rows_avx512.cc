// Chroma rows with AVX-512 (BW, VBMI). The grouped rule takes 64 samples a
// step (32 V,U pairs, whose results one byte permute splits): the frames'
// weights are looked up 64 at a time by byte permutes in the table's low- and
// high-byte planes, two frames at a time multiplied and summed into 32-bit
// lanes, and divided through the ARM reciprocal estimate and step emulated
// here (the estimate's fraction from its 256-entry table by the same
// permutes). The last groups of a row run masked; the exact rule of the tail
// is scalar code of this file.

// GCC 12's AVX-512 intrinsics start their results from a self-initialised
// "undefined" vector, which its flow analysis reports as maybe uninitialised.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#include <immintrin.h>

#include "chroma/chroma_rows.h"
#include "platform/arm_float.h"

namespace tavo {
namespace {

// 256 bytes in four registers, looked up by byte permutes: bit 7 of an index
// picks the upper 128 entries.
struct ByteTable {
  __m512i q[4];
  explicit ByteTable(const uint8_t* bytes) {
#pragma GCC unroll 4
    for (int k = 0; k < 4; ++k) q[k] = _mm512_loadu_si512(bytes + 64 * k);
  }
  __m512i operator()(__m512i index) const {
    return _mm512_mask_blend_epi8(_mm512_movepi8_mask(index), _mm512_permutex2var_epi8(q[0], index, q[1]),
                                  _mm512_permutex2var_epi8(q[2], index, q[3]));
  }
};

// The fraction bits of the ARM reciprocal estimate (platform/arm_float.h) by
// the top 8 fraction bits of its operand.
struct EstimateFractions {
  alignas(64) uint8_t bytes[256];
  constexpr EstimateFractions() : bytes{} {
    for (uint32_t i = 0; i < 256; ++i) bytes[i] = static_cast<uint8_t>(arm::recip_estimate_u9(256 + i));
  }
};
constexpr EstimateFractions kEstimateFractions;

struct Tables {
  ByteTable low, high, estimate;
  explicit Tables(const ChromaWeights& t) : low(t.low), high(t.high), estimate(kEstimateFractions.bytes) {}
};

// r0 * FRECPS(x, r0) with r0 = FRECPE(x), for lanes of zero or a positive
// normal float up to 2^32 (the unsigned sums converted). A zero lane gets
// about 2^127 instead of infinity: the chroma quotient of either is 0.5 for
// S = 0 and beyond 2^32 for any other S, the same result.
inline __m512 refined_reciprocal(__m512 x, const ByteTable& fractions) {
  const __m512i bits = _mm512_castps_si512(x);
  const __m512i exponent = _mm512_and_si512(bits, _mm512_set1_epi32(0x7f800000));
  const __m512i fraction = _mm512_and_si512(fractions(_mm512_srli_epi32(bits, 15)), _mm512_set1_epi32(0xff));
  const __m512 r0 = _mm512_castsi512_ps(
      _mm512_or_si512(_mm512_sub_epi32(_mm512_set1_epi32(253 << 23), exponent), _mm512_slli_epi32(fraction, 15)));
  return _mm512_mul_ps(r0, _mm512_fnmadd_ps(x, r0, _mm512_set1_ps(2.0f)));
}

// 0.5 + r1(W) * S, unsigned truncation (beyond 2^32 saturating), low 16 bits
// saturated to 255. Sums of positive weights give 0 ... 256, which the
// narrowing packs saturate alone.
template <bool kPositive>
inline __m512i quotient(__m512i w_sum, __m512i s_sum, const ByteTable& fractions) {
  const __m512 r1 = refined_reciprocal(_mm512_cvtepu32_ps(w_sum), fractions);
  const __m512 q = _mm512_add_ps(_mm512_set1_ps(0.5f), _mm512_mul_ps(r1, _mm512_cvtepu32_ps(s_sum)));
  const __m512i v = _mm512_cvttps_epu32(q);
  if constexpr (kPositive) return v;
  return _mm512_min_epu32(_mm512_and_si512(v, _mm512_set1_epi32(0xffff)), _mm512_set1_epi32(255));
}

// The grouped rule for 64 samples, load(f) giving frame f's. Two frames at a
// time: their bytes interleaved are the indices of the look-ups, whose words
// [w_f, w_g] and the samples' words [c_f, c_g] give S and W by one multiply-add
// each (with an odd count, the last frame's partner is zero and not counted
// in W). The sums run in unpack order: group j holds samples 4j ... 4j+3 of
// each 128-bit lane.
template <int kFrames, bool kPositive, class Load>
[[gnu::always_inline]] inline __m512i grouped64(const Tables& t, int32_t frames, Load load) {
  const __m512i zero = _mm512_setzero_si512();
  __m512i w_sum[4] = {}, s_sum[4] = {};
#pragma GCC unroll 4
  for (int32_t f = 0; f < frames; f += 2) {
    const bool pair = f + 1 < frames;
    const __m512i first = load(f), second = pair ? load(f + 1) : zero;
    const __m512i counted = pair ? _mm512_set1_epi16(1) : _mm512_set1_epi32(1);  // words [1, 1] or [1, 0]
#pragma GCC unroll 4
    for (int h = 0; h < 2; ++h) {
      const __m512i c = h ? _mm512_unpackhi_epi8(first, second) : _mm512_unpacklo_epi8(first, second);
      const __m512i low = t.low(c), high = t.high(c);
#pragma GCC unroll 4
      for (int u = 0; u < 2; ++u) {
        const int j = 2 * h + u;
        const __m512i w = u ? _mm512_unpackhi_epi8(low, high) : _mm512_unpacklo_epi8(low, high);
        const __m512i samples = u ? _mm512_unpackhi_epi8(c, zero) : _mm512_unpacklo_epi8(c, zero);
        const __m512i s = _mm512_madd_epi16(w, samples), wt = _mm512_madd_epi16(w, counted);
        s_sum[j] = f == 0 ? s : _mm512_add_epi32(s_sum[j], s);
        w_sum[j] = f == 0 ? wt : _mm512_add_epi32(w_sum[j], wt);
      }
    }
  }
  __m512i q[4];
#pragma GCC unroll 4
  for (int j = 0; j < 4; ++j) q[j] = quotient<kPositive>(w_sum[j], s_sum[j], t.estimate);
  // Groups 0, 1 then 2, 3 into words, then bytes: each lane's sixteen in order.
  return _mm512_packus_epi16(_mm512_packus_epi32(q[0], q[1]), _mm512_packus_epi32(q[2], q[3]));
}

// Masks of the first n bytes, n < 64.
inline __mmask64 first_bytes(int32_t n) { return (uint64_t{1} << n) - 1; }

template <int kFrames, bool kPositive>
void plane_row(const ChromaRowArgs& row, uint8_t* out, int32_t width) {
  const Tables t(*row.weights);
  const ChromaFrames<kFrames> frames(row);
  const int32_t grouped = width / 8 * 8;
  int32_t x = 0;
  for (; x + 64 <= grouped; x += 64) {
    _mm512_storeu_si512(out + x, grouped64<kFrames, kPositive>(
                                     t, frames.count(), [&](int32_t f) { return _mm512_loadu_si512(frames[f] + x); }));
  }
  if (x < grouped) {
    const __mmask64 m = first_bytes(grouped - x);
    _mm512_mask_storeu_epi8(out + x, m, grouped64<kFrames, kPositive>(t, frames.count(), [&](int32_t f) {
                              return _mm512_maskz_loadu_epi8(m, frames[f] + x);
                            }));
  }
  chroma_exact_tail<kFrames>(row, out, grouped, width);
}

template <int kFrames, bool kPositive>
void pair_row(const ChromaRowArgs& row, uint8_t* out_u, uint8_t* out_v, int32_t pairs) {
  const Tables t(*row.weights);
  const ChromaFrames<kFrames> frames(row);
  // The samples run in pair order; the first bytes of the 32 results, then
  // their second bytes.
  alignas(64) static constexpr uint8_t kSplit[64] = {0,  2,  4,  6,  8,  10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30,
                                                     32, 34, 36, 38, 40, 42, 44, 46, 48, 50, 52, 54, 56, 58, 60, 62,
                                                     1,  3,  5,  7,  9,  11, 13, 15, 17, 19, 21, 23, 25, 27, 29, 31,
                                                     33, 35, 37, 39, 41, 43, 45, 47, 49, 51, 53, 55, 57, 59, 61, 63};
  const __m512i split = _mm512_load_si512(kSplit);
  const int32_t grouped = pairs / 8 * 8;
  int32_t p = 0;
  for (; p + 32 <= grouped; p += 32) {
    const __m512i vu = _mm512_permutexvar_epi8(split, grouped64<kFrames, kPositive>(t, frames.count(), [&](int32_t f) {
                                                 return _mm512_loadu_si512(frames[f] + 2 * static_cast<ptrdiff_t>(p));
                                               }));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out_v + p), _mm512_castsi512_si256(vu));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(out_u + p), _mm512_extracti64x4_epi64(vu, 1));
  }
  if (p < grouped) {
    const __mmask64 m = first_bytes(2 * (grouped - p));
    const __m512i vu =
        _mm512_permutexvar_epi8(split, grouped64<kFrames, kPositive>(t, frames.count(), [&](int32_t f) {
                                  return _mm512_maskz_loadu_epi8(m, frames[f] + 2 * static_cast<ptrdiff_t>(p));
                                }));
    const auto half = static_cast<__mmask32>(first_bytes(grouped - p));
    _mm256_mask_storeu_epi8(out_v + p, half, _mm512_castsi512_si256(vu));
    _mm256_mask_storeu_epi8(out_u + p, half, _mm512_extracti64x4_epi64(vu, 1));
  }
  chroma_pair_exact_tail<kFrames>(row, out_u, out_v, grouped, pairs);
}

}  // namespace

void ChromaRow_AVX512(const ChromaRowArgs& row, uint8_t* out, int32_t width) {
  const bool positive = row.weights->positive;
  if (row.frames == 3) {
    positive ? plane_row<3, true>(row, out, width) : plane_row<3, false>(row, out, width);
  } else {
    positive ? plane_row<0, true>(row, out, width) : plane_row<0, false>(row, out, width);
  }
}

void ChromaPairRow_AVX512(const ChromaRowArgs& row, uint8_t* out_u, uint8_t* out_v, int32_t pairs) {
  const bool positive = row.weights->positive;
  if (row.frames == 3) {
    positive ? pair_row<3, true>(row, out_u, out_v, pairs) : pair_row<3, false>(row, out_u, out_v, pairs);
  } else {
    positive ? pair_row<0, true>(row, out_u, out_v, pairs) : pair_row<0, false>(row, out_u, out_v, pairs);
  }
}

void InitChromaRows_AVX512(ChromaRows* rows) {
  rows->plane = ChromaRow_AVX512;
  rows->pairs = ChromaPairRow_AVX512;
}

}  // namespace tavo
