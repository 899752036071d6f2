// Portable pyramid rows: the reference every instruction-set variant matches.
// Border samples go through the per-sample formulas of the header; the inner
// loops are plain so that the compiler can vectorise them.
#include "fusion/pyramid_rows.h"

#include "platform/cpu.h"

namespace tavo {
namespace {

template <class Sample>
void ReduceH_C(const Sample* src, int32_t src_width, uint16_t* dst, int32_t dst_width) {
  dst[0] = reduce_column(src, src_width, dst_width, 0);
  reduce_h_tail(src, src_width, dst, dst_width, 1);
}

void ReduceV_C(const uint16_t* const* rows, uint16_t* dst, int32_t width) {
  const uint16_t* r0 = rows[0];
  const uint16_t* r1 = rows[1];
  const uint16_t* r2 = rows[2];
  const uint16_t* r3 = rows[3];
  const uint16_t* r4 = rows[4];
  for (int32_t x = 0; x < width; ++x) dst[x] = reduce_tap(r0[x], r1[x], r2[x], r3[x], r4[x]);
}

// Fine positions 0 and 1, the pairs (2k, 2k + 1) for k = 1 ... while both lie
// before the last two, then the rest with the right-border rule.
template <class Sample>
void ExpandH_C(const Sample* coarse, int32_t coarse_width, uint16_t* fine, int32_t fine_width) {
  const int32_t head = fine_width < 2 ? fine_width : 2;
  for (int32_t x = 0; x < head; ++x) fine[x] = expand_column(coarse, coarse_width, fine_width, x);
  const int32_t pairs_end = (fine_width - 2) / 2;  // pairs k with 2k + 1 < fine_width - 2
  for (int32_t k = 1; k < pairs_end; ++k) {
    const int32_t l = coarse[k - 1], c = coarse[k], r = coarse[k + 1];
    fine[2 * k] = static_cast<uint16_t>(expand_even(l, c, r));
    fine[2 * k + 1] = static_cast<uint16_t>(expand_odd(c, r));
  }
  const int32_t tail = pairs_end > 1 ? 2 * pairs_end : head;
  for (int32_t x = tail; x < fine_width; ++x) {
    fine[x] = expand_column(coarse, coarse_width, fine_width, x);
  }
}

void LaplacianEven_C(const uint16_t* gauss, const uint16_t* above, const uint16_t* centre,
                     const uint16_t* below, int16_t* out, int32_t width) {
  for (int32_t x = 0; x < width; ++x) {
    out[x] = laplacian_sample(gauss[x], expand_even(above[x], centre[x], below[x]));
  }
}

void LaplacianOdd_C(const uint16_t* gauss, const uint16_t* centre, const uint16_t* below,
                    int16_t* out, int32_t width) {
  for (int32_t x = 0; x < width; ++x) {
    out[x] = laplacian_sample(gauss[x], expand_odd(centre[x], below[x]));
  }
}

template <bool kLuma>
void collapse_even_row(int16_t* level, const uint16_t* above, const uint16_t* centre,
                       const uint16_t* below, uint8_t* luma, int32_t width) {
  for (int32_t x = 0; x < width; ++x) {
    const int16_t r = collapse_sample(level[x], expand_even(above[x], centre[x], below[x]));
    level[x] = r;
    if constexpr (kLuma) luma[x] = luma_of_sample(r);
  }
}

template <bool kLuma>
void collapse_odd_row(int16_t* level, const uint16_t* centre, const uint16_t* below, uint8_t* luma,
                      int32_t width) {
  for (int32_t x = 0; x < width; ++x) {
    const int16_t r = collapse_sample(level[x], expand_odd(centre[x], below[x]));
    level[x] = r;
    if constexpr (kLuma) luma[x] = luma_of_sample(r);
  }
}

void CollapseEven_C(int16_t* level, const uint16_t* above, const uint16_t* centre,
                    const uint16_t* below, uint8_t* luma, int32_t width) {
  if (luma != nullptr) {
    collapse_even_row<true>(level, above, centre, below, luma, width);
  } else {
    collapse_even_row<false>(level, above, centre, below, luma, width);
  }
}

void CollapseOdd_C(int16_t* level, const uint16_t* centre, const uint16_t* below, uint8_t* luma,
                   int32_t width) {
  if (luma != nullptr) {
    collapse_odd_row<true>(level, centre, below, luma, width);
  } else {
    collapse_odd_row<false>(level, centre, below, luma, width);
  }
}

}  // namespace

const PyramidRows PyramidRows_C = {
    ReduceH_C<uint16_t>, ReduceH_C<uint8_t>, ReduceV_C,      ReduceV_C,     ExpandH_C<uint16_t>,
    ExpandH_C<int16_t>,  LaplacianEven_C,    LaplacianOdd_C, CollapseEven_C, CollapseOdd_C,
};

const PyramidRows& SelectPyramidRows() {
  const PyramidRows* rows = &PyramidRows_C;
#if defined(__x86_64__)
  if (platform::TestCpuFlag(platform::kCpuHasAVX2)) rows = &PyramidRows_AVX2;
#endif
#if defined(__aarch64__)
  if (platform::TestCpuFlag(platform::kCpuHasNEON)) rows = &PyramidRows_NEON;
#endif
  return *rows;
}

}  // namespace tavo
