// Pyramid rows with AVX2, byte for byte the portable rows for every 16-bit
// input; each row's vector steps run in the shapes of fusion/pyramid_rows_any.h,
// the portable code doing the rest.
//
// Reduce: sums of the 1-4-6-4-1 filter need 20 bits, so they are formed in
// 32-bit lanes. A 256-bit load of sixteen samples seen as eight 32-bit lanes
// holds an even sample in the low half and the next odd one in the high half
// of each lane, which de-interleaves the source row for free.
//
// Expand: the two phases are formed in 16-bit lanes without any widening by
// halving averages, exact for all inputs:
//   (c + r + 1) >> 1             = avg(c, r)
//   (l + 6c + r + 4) >> 3        = avg(havg(havg(l, r), c), c)
// where avg rounds up and havg rounds down; each halving drops a bit that the
// final shift would drop anyway. Signed samples go through the same unsigned
// averages after flipping their sign bit (an offset of 32768 that every
// average keeps).
//
// Collapse: r = L + v with L signed and v unsigned is clamped to 0 ... 4080 in
// 16-bit lanes by offsetting L by 32768: L + 32768 + v saturates at 65535,
// which lies above 4080 + 32768, so clamping the offset sum to
// [32768, 36848] and removing the offset gives the exact clamp.
#include <immintrin.h>

#include "fusion/pyramid_rows_any.h"

namespace tavo {
namespace {

inline __m256i load16(const void* p) { return _mm256_loadu_si256(static_cast<const __m256i*>(p)); }
inline void store16(void* p, __m256i v) { _mm256_storeu_si256(static_cast<__m256i*>(p), v); }

// (a + b) >> 1 for unsigned 16-bit lanes without overflow.
inline __m256i havg(__m256i a, __m256i b) {
  return _mm256_add_epi16(_mm256_and_si256(a, b), _mm256_srli_epi16(_mm256_xor_si256(a, b), 1));
}

// Even phase of the expansion: (l + 6c + r + 4) >> 3.
inline __m256i expand_even16(__m256i l, __m256i c, __m256i r) {
  return _mm256_avg_epu16(havg(havg(l, r), c), c);
}

// (a + 4b + 6c + 4d + e + 8) >> 4 in 32-bit lanes.
inline __m256i reduce32(__m256i a, __m256i b, __m256i c, __m256i d, __m256i e) {
  const __m256i outer = _mm256_add_epi32(a, e);
  const __m256i inner = _mm256_slli_epi32(_mm256_add_epi32(b, d), 2);
  const __m256i centre = _mm256_add_epi32(_mm256_slli_epi32(c, 2), _mm256_slli_epi32(c, 1));
  const __m256i sum = _mm256_add_epi32(_mm256_add_epi32(outer, inner), centre);
  return _mm256_srli_epi32(_mm256_add_epi32(sum, _mm256_set1_epi32(8)), 4);
}

// Stores the even and odd phases of sixteen coarse positions as 32 fine
// samples.
inline void store_interleaved(uint16_t* fine, __m256i even, __m256i odd) {
  const __m256i lo = _mm256_unpacklo_epi16(even, odd);
  const __m256i hi = _mm256_unpackhi_epi16(even, odd);
  store16(fine, _mm256_permute2x128_si256(lo, hi, 0x20));
  store16(fine + 16, _mm256_permute2x128_si256(lo, hi, 0x31));
}

// kBias flips the sign bit of signed samples around the unsigned averages.
template <int kBias, class Sample>
void expand_h(const Sample* coarse, int32_t coarse_width, uint16_t* fine, int32_t fine_width) {
  const __m256i bias = _mm256_set1_epi16(static_cast<int16_t>(kBias));
  expand_h_any<16>(coarse, coarse_width, fine, fine_width, [&](int32_t k) {
    const __m256i l = _mm256_xor_si256(load16(coarse + k - 1), bias);
    const __m256i c = _mm256_xor_si256(load16(coarse + k), bias);
    const __m256i r = _mm256_xor_si256(load16(coarse + k + 1), bias);
    store_interleaved(fine + 2 * k, _mm256_xor_si256(expand_even16(l, c, r), bias),
                      _mm256_xor_si256(_mm256_avg_epu16(c, r), bias));
  });
}

// level[x] = clamp(level[x] + v, 0, 4080) for sixteen samples; with kLuma also
// the 8-bit luma (r + 8) >> 4.
template <bool kLuma>
inline void collapse16(int16_t* level, __m256i v, uint8_t* luma) {
  const __m256i offset = _mm256_set1_epi16(static_cast<int16_t>(0x8000));
  const __m256i top = _mm256_set1_epi16(static_cast<int16_t>(0x8000 + kLumaFixedMax));
  __m256i s = _mm256_adds_epu16(_mm256_xor_si256(load16(level), offset), v);
  s = _mm256_min_epu16(_mm256_max_epu16(s, offset), top);
  const __m256i r = _mm256_xor_si256(s, offset);
  store16(level, r);
  if constexpr (kLuma) {
    const __m256i y = _mm256_srli_epi16(_mm256_add_epi16(r, _mm256_set1_epi16(8)), 4);
    const __m256i bytes = _mm256_permute4x64_epi64(_mm256_packus_epi16(y, y), 0x08);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(luma), _mm256_castsi256_si128(bytes));
  }
}

}  // namespace

void ReduceH_AVX2(const uint16_t* src, int32_t src_width, uint16_t* dst, int32_t dst_width) {
  const __m256i low = _mm256_set1_epi32(0xffff);
  reduce_h_any<8>(src, src_width, dst, dst_width, [&](int32_t j) {
    const __m256i v0 = load16(src + 2 * j - 2);
    const __m256i v1 = load16(src + 2 * j);
    const __m256i v2 = load16(src + 2 * j + 2);
    const __m256i r =
        reduce32(_mm256_and_si256(v0, low), _mm256_srli_epi32(v0, 16), _mm256_and_si256(v1, low),
                 _mm256_srli_epi32(v1, 16), _mm256_and_si256(v2, low));
    const __m256i packed = _mm256_permute4x64_epi64(_mm256_packus_epi32(r, r), 0x08);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(dst + j), _mm256_castsi256_si128(packed));
  });
}

// Luma rows: sixteen outputs from three overlapping loads seen as 16-bit
// lanes, whose low bytes are the even samples and high bytes the odd ones;
// the tap sums of 8-bit samples fit 16-bit lanes.
void ReduceHLuma_AVX2(const uint8_t* src, int32_t src_width, uint16_t* dst, int32_t dst_width) {
  const __m256i low = _mm256_set1_epi16(0xff);
  reduce_h_any<16>(src, src_width, dst, dst_width, [&](int32_t j) {
    const __m256i v0 = load16(src + 2 * j - 2);
    const __m256i v1 = load16(src + 2 * j);
    const __m256i v2 = load16(src + 2 * j + 2);
    const __m256i centre = _mm256_and_si256(v1, low);
    const __m256i outer = _mm256_add_epi16(_mm256_and_si256(v0, low), _mm256_and_si256(v2, low));
    const __m256i inner = _mm256_add_epi16(_mm256_srli_epi16(v0, 8), _mm256_srli_epi16(v1, 8));
    const __m256i six = _mm256_add_epi16(_mm256_slli_epi16(centre, 2), _mm256_add_epi16(centre, centre));
    store16(dst + j, _mm256_add_epi16(_mm256_add_epi16(outer, _mm256_slli_epi16(inner, 2)), six));
  });
}

void ReduceV_AVX2(const uint16_t* const* rows, uint16_t* dst, int32_t width) {
  const uint16_t* r0 = rows[0];
  const uint16_t* r1 = rows[1];
  const uint16_t* r2 = rows[2];
  const uint16_t* r3 = rows[3];
  const uint16_t* r4 = rows[4];
  const __m256i zero = _mm256_setzero_si256();
  reduce_v_any<16>(rows, dst, width, [&](int32_t x) {
    const __m256i v[5] = {load16(r0 + x), load16(r1 + x), load16(r2 + x), load16(r3 + x),
                          load16(r4 + x)};
    // Widening against zero within each 128-bit half; packing back restores
    // the order.
    __m256i lo[5], hi[5];
    for (int i = 0; i < 5; ++i) {
      lo[i] = _mm256_unpacklo_epi16(v[i], zero);
      hi[i] = _mm256_unpackhi_epi16(v[i], zero);
    }
    const __m256i rlo = reduce32(lo[0], lo[1], lo[2], lo[3], lo[4]);
    const __m256i rhi = reduce32(hi[0], hi[1], hi[2], hi[3], hi[4]);
    store16(dst + x, _mm256_packus_epi32(rlo, rhi));
  });
}

// Pyramid rows of at most 4080: the sums in 16-bit lanes.
void ReduceVPyramid_AVX2(const uint16_t* const* rows, uint16_t* dst, int32_t width) {
  const uint16_t* r0 = rows[0];
  const uint16_t* r1 = rows[1];
  const uint16_t* r2 = rows[2];
  const uint16_t* r3 = rows[3];
  const uint16_t* r4 = rows[4];
  reduce_v_any<16>(rows, dst, width, [&](int32_t x) {
    const __m256i outer = _mm256_add_epi16(load16(r0 + x), load16(r4 + x));
    const __m256i inner = _mm256_slli_epi16(_mm256_add_epi16(load16(r1 + x), load16(r3 + x)), 2);
    const __m256i centre = _mm256_mullo_epi16(load16(r2 + x), _mm256_set1_epi16(6));
    const __m256i sum = _mm256_add_epi16(_mm256_add_epi16(outer, inner), centre);
    store16(dst + x, _mm256_srli_epi16(_mm256_add_epi16(sum, _mm256_set1_epi16(8)), 4));
  });
}

void ExpandHUnsigned_AVX2(const uint16_t* coarse, int32_t coarse_width, uint16_t* fine, int32_t fine_width) {
  expand_h<0>(coarse, coarse_width, fine, fine_width);
}

void ExpandHSigned_AVX2(const int16_t* coarse, int32_t coarse_width, uint16_t* fine, int32_t fine_width) {
  expand_h<0x8000>(coarse, coarse_width, fine, fine_width);
}

void LaplacianEven_AVX2(const uint16_t* gauss, const uint16_t* above, const uint16_t* centre,
                        const uint16_t* below, int16_t* out, int32_t width) {
  const int32_t x = whole_vectors<16>(width, [&](int32_t x) {
    const __m256i e = expand_even16(load16(above + x), load16(centre + x), load16(below + x));
    store16(out + x, _mm256_sub_epi16(load16(gauss + x), e));
  });
  LaplacianEven_C(gauss + x, above + x, centre + x, below + x, out + x, width - x);
}

void LaplacianOdd_AVX2(const uint16_t* gauss, const uint16_t* centre, const uint16_t* below,
                       int16_t* out, int32_t width) {
  const int32_t x = whole_vectors<16>(width, [&](int32_t x) {
    const __m256i e = _mm256_avg_epu16(load16(centre + x), load16(below + x));
    store16(out + x, _mm256_sub_epi16(load16(gauss + x), e));
  });
  LaplacianOdd_C(gauss + x, centre + x, below + x, out + x, width - x);
}

void CollapseEven_AVX2(int16_t* level, const uint16_t* above, const uint16_t* centre,
                       const uint16_t* below, uint8_t* luma, int32_t width) {
  const int32_t body = collapse_vectors<16>(width, luma != nullptr, [&](auto with_luma, int32_t x) {
    const __m256i v = expand_even16(load16(above + x), load16(centre + x), load16(below + x));
    collapse16<decltype(with_luma)::value>(level + x, v, with_luma ? luma + x : nullptr);
  });
  CollapseEven_C(level + body, above + body, centre + body, below + body, luma != nullptr ? luma + body : nullptr,
                 width - body);
}

void CollapseOdd_AVX2(int16_t* level, const uint16_t* centre, const uint16_t* below, uint8_t* luma,
                      int32_t width) {
  const int32_t body = collapse_vectors<16>(width, luma != nullptr, [&](auto with_luma, int32_t x) {
    collapse16<decltype(with_luma)::value>(level + x, _mm256_avg_epu16(load16(centre + x), load16(below + x)),
                                           with_luma ? luma + x : nullptr);
  });
  CollapseOdd_C(level + body, centre + body, below + body, luma != nullptr ? luma + body : nullptr, width - body);
}

}  // namespace tavo
