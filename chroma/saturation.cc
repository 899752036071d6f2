// Saturation: the distance of chroma samples from neutral 128 scaled by a gain,
// in place, and its four-band dispatcher.
#include <cstddef>
#include <cstdint>

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
