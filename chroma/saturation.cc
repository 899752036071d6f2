// Saturation: the distance of chroma samples from neutral 128 scaled by a gain,
// in place; and the exported 16-byte block copy.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "include/tavo_lumo_hdr.h"
#include "platform/arm_float.h"
#include "pool/band_jobs.h"

namespace tavo {
namespace {

struct SaturationBand {
  uint8_t* plane;
  int32_t width;
  int32_t rows;
  float gain;
};

// v = (c - 128) * gain in single precision, clamped to -128 ... 127, shifted
// back by 128 and truncated; a NaN passes the clamp and converts to 0.
inline uint8_t saturate_sample(uint8_t c, float gain) {
  float v = static_cast<float>(c - 128) * gain;
  v = v < -128.0f ? -128.0f : v;
  v = v > 127.0f ? 127.0f : v;
  return static_cast<uint8_t>(arm::to_u32(v + 128.0f));
}

}  // namespace
}  // namespace tavo

extern "C" TAVO_HDR_EXPORT void saturation(uint8_t* plane, int32_t width, int32_t rows, float gain) {
  if (width < 1 || rows < 1) return;
  const ptrdiff_t samples = static_cast<ptrdiff_t>(width) * rows;
  for (ptrdiff_t i = 0; i < samples; ++i) plane[i] = tavo::saturate_sample(plane[i], gain);
}

extern "C" TAVO_HDR_EXPORT int32_t saturation_parameter(void* record) {
  const auto& a = tavo::band_payload<tavo::SaturationBand>(record);
  saturation(a.plane, a.width, a.rows, a.gain);
  tavo::band_done(record);
  return 0;
}

// Four bands of rows/4 rows, the last taking the rest.
extern "C" TAVO_HDR_EXPORT uint32_t saturation_process(uint8_t* plane, int32_t width, int32_t rows,
                                                       float gain) {
  const tavo::BandSplit split = tavo::split_rows(rows, tavo::SplitRule::kFour);
  tavo::run_bands<tavo::SaturationBand>(split.bands, saturation_parameter,
                                        [&](int32_t b, tavo::SaturationBand& a) {
    a = tavo::SaturationBand{plane + static_cast<ptrdiff_t>(split.first(b)) * width, width,
                             split.rows(b), gain};
  });
  return 0;
}

// Copies src[0..15] over dst[0..15] once for every byte of n rounded down to a
// multiple of 16, without advancing, then bytes (n & ~15) ... n-1 one by one.
// For n >= 32 the bytes in between are left untouched: a kept quirk of this
// export. Each 16-byte copy goes through a register, so overlapping blocks
// give the same bytes as the repeated copies; apart ones need a single copy.
extern "C" TAVO_HDR_EXPORT void memcpy_neon(void* dst, const void* src, int32_t n) {
  auto* d = static_cast<unsigned char*>(dst);
  const auto* s = static_cast<const unsigned char*>(src);
  const int32_t whole = n & ~15;
  if (n >= 16) {
    const auto da = reinterpret_cast<uintptr_t>(d), sa = reinterpret_cast<uintptr_t>(s);
    const bool apart = da + 16 <= sa || sa + 16 <= da;
    const int32_t repeats = apart ? 1 : whole;
    for (int32_t i = 0; i < repeats; ++i) {
      unsigned char block[16];
      memcpy(block, s, 16);
      memcpy(d, block, 16);
    }
  }
  for (int32_t k = whole < 0 ? 0 : whole; k < n; ++k) d[k] = s[k];
}
