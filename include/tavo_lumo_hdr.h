/*
 * libtavo_lumo_hdr: fuses three differently exposed YUV 4:2:0 frames of one
 * scene into one high-dynamic-range frame of the same size and layout.
 *
 * Life of the library: tavo_hdr_pool_init() once, then any number of
 * HDR_Function() calls (one at a time; calls from several threads queue up),
 * tavo_hdr_set_stop_flag() at any time from any thread, tavo_hdr_pool_destroy()
 * at the end. A destroy (or another init) that arrives during a capture waits
 * for the capture to end. Results are 0 for success, -1 for failure and, for a
 * capture, 1 when the camera asked it to stop; a capture returns 0 only when
 * every byte of its output was computed.
 *
 * Frames are W x H luma bytes followed by W x H / 2 chroma bytes, laid out as
 * named by the layout string: "YUV420_PLANAR" (U plane, then V plane) or
 * "YVU420_SEMIPLANAR" (interleaved V,U pairs).
 *
 * Beside the entry points the library exports its image operations. Every
 * parallel operation X has a dispatcher X_process, which cuts the image into
 * bands and runs them on the worker pool, and a job body X_parameter. The
 * dispatchers share one set of band records; calls from several threads, and
 * calls beside a running capture, run one after another.
 */
#ifndef TAVO_LUMO_HDR_H
#define TAVO_LUMO_HDR_H

#include <stdint.h>

#if defined(__GNUC__)
#define TAVO_HDR_EXPORT __attribute__((visibility("default")))
#else
#define TAVO_HDR_EXPORT
#endif

/* Frame sizes a capture accepts: the width a multiple of 8 and at least
 * TAVO_HDR_MIN_WIDTH, the height even and at least TAVO_HDR_MIN_HEIGHT, and
 * width * height at most TAVO_HDR_MAX_PIXELS. Every such size fits the 32-bit
 * byte counts of the pipeline; 6286088 x 34, one pixel more, is the smallest
 * whose pyramid block does not. */
#define TAVO_HDR_MIN_WIDTH 8
#define TAVO_HDR_MIN_HEIGHT 2
#define TAVO_HDR_MAX_PIXELS 213726991

/* The library's version, written here only: the build, the packages, the
 * pkg-config file and the Python module take it from these lines.
 * TAVO_HDR_VERSION is one number to compare at compile time
 * (MAJOR * 1000000 + MINOR * 10000 + PATCH * 100 + TWEAK: 4.2.2.1 is 4020201),
 * TAVO_HDR_VERSION_STRING the text ("4.2.2.1"). */
#define TAVO_HDR_VERSION_MAJOR 4
#define TAVO_HDR_VERSION_MINOR 2
#define TAVO_HDR_VERSION_PATCH 2
#define TAVO_HDR_VERSION_TWEAK 1
#define TAVO_HDR_VERSION                                                           \
  (TAVO_HDR_VERSION_MAJOR * 1000000 + TAVO_HDR_VERSION_MINOR * 10000 +             \
   TAVO_HDR_VERSION_PATCH * 100 + TAVO_HDR_VERSION_TWEAK)
#define TAVO_HDR_TEXT_(x) #x
#define TAVO_HDR_TEXT(x) TAVO_HDR_TEXT_(x)
#define TAVO_HDR_VERSION_STRING                                                    \
  TAVO_HDR_TEXT(TAVO_HDR_VERSION_MAJOR) "." TAVO_HDR_TEXT(TAVO_HDR_VERSION_MINOR) "." \
  TAVO_HDR_TEXT(TAVO_HDR_VERSION_PATCH) "." TAVO_HDR_TEXT(TAVO_HDR_VERSION_TWEAK)

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Entry points ------------------------------------------------------ */

/* Logs the version banner (property "buildtime", default "yes") and starts the
 * four workers. 0, or -1 when the pool could not be created. */
TAVO_HDR_EXPORT int32_t tavo_hdr_pool_init(void);
/* Stops and joins the workers. 0, or -1 when there was nothing to destroy or a
 * join failed. */
TAVO_HDR_EXPORT int32_t tavo_hdr_pool_destroy(void);
/* 1 asks a running capture to stop at its next stage end; 0 re-arms. The
 * library never clears the flag. */
TAVO_HDR_EXPORT void tavo_hdr_set_stop_flag(int32_t flag);

/* One capture: frame1 is the reference exposure, out receives the fused frame.
 * Note the order: height before width. Width must be a multiple of 8, height
 * even. 0 done, 1 stopped by the camera, -1 failure or time limit exceeded. */
TAVO_HDR_EXPORT int32_t HDR_Function(const uint8_t* frame0, const uint8_t* frame1,
                                     const uint8_t* frame2, uint8_t* out, int32_t height,
                                     int32_t width, const char* layout);
/* The pipeline behind HDR_Function: registration, fusion, resize. */
TAVO_HDR_EXPORT int32_t GetAlignImg(const uint8_t* const* frames, int32_t width, int32_t height,
                                    int32_t nframes, uint8_t* out, const char* layout);

/* ---- Worker pool ------------------------------------------------------- */

/* Starts max_thread_num workers (the library uses 4); 0, or -1 on failure. */
TAVO_HDR_EXPORT int32_t pool_init(int32_t max_thread_num);
/* Queues one job routine(arg) for the workers; always 0. */
TAVO_HDR_EXPORT int32_t pool_add_worker(void* (*routine)(void*), void* arg);
/* Stops and joins the workers; -1 when destruction had begun or a join failed. */
TAVO_HDR_EXPORT int32_t pool_destroy(void);
/* Body of one worker; arg points at its core number (int32). */
TAVO_HDR_EXPORT void* thread_routine(void* arg);

/* ---- Frame alignment --------------------------------------------------- */

/* Registration threshold of one frame: a percentile of the histogram of its
 * width x height luma bytes, into *threshold_out. Always 0. */
TAVO_HDR_EXPORT uint32_t loadImg(const uint8_t* luma, int32_t width, int32_t height,
                                 uint8_t* threshold_out, int32_t frame_index);
/* loadImg for three luma planes as three pool jobs, into thresholds_out[3]. */
TAVO_HDR_EXPORT uint32_t loadImg_process(const uint8_t* const* frames, int32_t width,
                                         int32_t height, uint8_t* thresholds_out);
/* Job body of loadImg_process: one frame's threshold. */
TAVO_HDR_EXPORT int32_t loadImg_parameter(void* record);
/* Crop window the three frames share given the shifts (x0, y0) of frame 0 and
 * (x2, y2) of frame 2: its even size, and six origins (x, y per frame). */
TAVO_HDR_EXPORT void imageCrop(int32_t width, int32_t height, int32_t* crop_width_out,
                               int32_t* crop_height_out, int32_t x0, int32_t y0, int32_t x2,
                               int32_t y2, int32_t* origins_out);
/* Nearest-neighbour scaling of a src_width x src_height frame with planar
 * chroma into a dst_width x dst_height frame in the named layout (interleaved
 * V,U for "YVU420_SEMIPLANAR", planar for any other), on the calling thread. */
TAVO_HDR_EXPORT void image_resize(const uint8_t* src, uint8_t* dst, int32_t src_width,
                                  int32_t src_height, int32_t dst_width, int32_t dst_height,
                                  const char* layout);

/* One level of 2x2 averaging of `rows` rows of width luma bytes into the
 * ceil(width/2)-wide approximation, threshold bitmap (0/1) and validity mask
 * (0/255). Always 0. */
TAVO_HDR_EXPORT uint32_t wltDecompose(const uint8_t* src, uint8_t* approx_out,
                                      uint8_t* bitmap_out, uint8_t* mask_out, int32_t width,
                                      int32_t rows, int32_t threshold);
/* wltDecompose of a width x height plane in bands on the pool. */
TAVO_HDR_EXPORT uint32_t wltDecompose_process(const uint8_t* src, int32_t width, int32_t height,
                                              uint8_t* approx_out, int32_t threshold,
                                              uint8_t* bitmap_out, uint8_t* mask_out);
/* Job body of wltDecompose_process: one band of rows. */
TAVO_HDR_EXPORT int32_t wltDecompose_parameter(void* record);

/* Shift of a moving frame against the reference, searched coarse to fine over
 * `levels` levels of w x h byte planes; x, y in level-1 pixels into
 * shift_out[2]. Always 0. */
TAVO_HDR_EXPORT uint32_t GetExpShift(const uint8_t* frame_luma, uint32_t levels,
                                     uint8_t threshold, uint8_t** moving_approx,
                                     uint8_t** ref_bitmap, uint8_t** ref_mask,
                                     uint8_t** moving_bitmap, uint8_t** moving_mask,
                                     const int32_t* widths, const int32_t* heights,
                                     int16_t* shift_out);
/* Adds to *count one point for every pixel of a band, moving planes shifted by
 * (x, y), whose bitmaps differ or that either mask marks untrusted. Always 0. */
TAVO_HDR_EXPORT uint32_t imageAffine_xor_and(const uint8_t* moving_mask,
                                             const uint8_t* moving_bitmap,
                                             const uint8_t* ref_bitmap, const uint8_t* ref_mask,
                                             int32_t width, int32_t rows, int32_t x, int32_t y,
                                             uint32_t* count, int32_t band_index);
/* The mismatch count of a width x height level pair, in bands, into
 * *count_out. */
TAVO_HDR_EXPORT uint32_t imageAffine_xor_and_process(const uint8_t* moving_mask,
                                                     const uint8_t* moving_bitmap,
                                                     const uint8_t* ref_bitmap,
                                                     const uint8_t* ref_mask, int32_t width,
                                                     int32_t height, int32_t x, int32_t y,
                                                     uint32_t* count_out);
/* Job body of imageAffine_xor_and_process: one band's partial count. */
TAVO_HDR_EXPORT int32_t imageAffine_xor_and_parameter(void* record);

/* Crop of 8-bit luma from (xs, ys) of a src_stride plane into width x rows
 * 16-bit samples of luma x 16 (stride width). Always 0. */
TAVO_HDR_EXPORT uint32_t imageAffine(const uint8_t* src, uint16_t* dst, uint32_t src_stride,
                                     int32_t width, int32_t rows, int32_t xs, int32_t ys);
/* imageAffine of width x height samples in bands on the pool. */
TAVO_HDR_EXPORT uint32_t imageAffine_process(const uint8_t* src, uint16_t* dst,
                                             uint32_t src_stride, uint32_t width, int32_t height,
                                             uint32_t xs, uint32_t ys);
/* Job body of imageAffine_process: one band of rows. */
TAVO_HDR_EXPORT int32_t imageAffine_parameter(void* record);
/* Crop of interleaved chroma pairs from byte (xs, ys) of a src_stride plane:
 * odd bytes into dst_odd, even bytes into dst_even, width bytes a row each. */
TAVO_HDR_EXPORT uint32_t imageAffine_uv(const uint8_t* src, uint8_t* dst_odd, uint8_t* dst_even,
                                        uint32_t src_stride, uint32_t width, int32_t rows,
                                        uint32_t xs, uint32_t ys);
/* imageAffine_uv of `height` rows in bands on the pool. */
TAVO_HDR_EXPORT uint32_t imageAffine_uv_process(const uint8_t* src, uint8_t* dst_odd,
                                                uint8_t* dst_even, uint32_t src_stride,
                                                uint32_t width, int32_t height, uint32_t xs,
                                                uint32_t ys);
/* Job body of imageAffine_uv_process: one band of rows. */
TAVO_HDR_EXPORT int32_t imageAffine_uv_parameter(void* record);

/* ---- Luma exposure fusion ---------------------------------------------- */

/* Level count of a fusion pyramid: index of the highest set bit of min(W, H),
 * 0 when that is below 1. */
TAVO_HDR_EXPORT int32_t pyramid_level(uint8_t* out_levels, int32_t width, int32_t height);
/* Level sizes: entry 0 is the size itself, each next entry the previous one
 * halved and rounded up. */
TAVO_HDR_EXPORT int32_t pyramid_size(int32_t* widths, int32_t* heights, int32_t width,
                                     int32_t height, int32_t levels);

/* Fuses the frames inside the crop window (width x height, offsets: column and
 * row of the window in each frame) into out, with planar chroma. */
TAVO_HDR_EXPORT int32_t pyrFuse(const uint8_t* const* frames, uint32_t frame_count,
                                uint32_t stride, uint32_t frame_height, int32_t width,
                                int32_t height, const int32_t* offsets, uint8_t* out,
                                const char* layout);

/* Exposure weight table: the truncated Gaussian of entries start ... end-1
 * (at least one entry) around center, 2 sigma^2 = sigma, 1024 meaning 1.0. */
TAVO_HDR_EXPORT int32_t weight_Initialize(uint16_t* table, float sigma, int32_t center,
                                          uint32_t start, int32_t end);
/* The chroma form: 1025 minus the rounded Gaussian, so never 0. */
TAVO_HDR_EXPORT int32_t weight_Initialize_c(uint16_t* table, float sigma, int32_t center,
                                            uint32_t start, int32_t end);

/* One band of the 1-4-6-4-1 reduction of a 16-bit Gaussian level into the
 * next: pointers = {source row, destination row}, widths and rows in pairs
 * {level l, level l+1}. 0, or -1 when its scratch is not allocated. */
TAVO_HDR_EXPORT int32_t pyramid_gaussian_down_sample_uint8(uint16_t** pointers,
                                                           const int32_t* band_widths,
                                                           const int32_t* band_rows,
                                                           int32_t band, int32_t bands);
/* Builds Gaussian level+1 of a level table from level `level`, in bands. */
TAVO_HDR_EXPORT int32_t pyramid_gaussian_down_sample_uint8_process(uint16_t** level_table,
                                                                   uint32_t level,
                                                                   const int32_t* widths,
                                                                   const int32_t* heights);
/* Job body of pyramid_gaussian_down_sample_uint8_process. */
TAVO_HDR_EXPORT int32_t pyramid_gaussian_down_sample_uint8_parameter(void* record);

/* One band of a Laplacian level: Gaussian level l minus the expansion of level
 * l+1 (pointers = {fine row, coarse row}) into signed 16-bit out. 0 or -1. */
TAVO_HDR_EXPORT int32_t pyramid_laplacian_down_sample(int16_t* out, uint16_t** pointers,
                                                      const int32_t* band_widths,
                                                      const int32_t* band_rows, int32_t band,
                                                      int32_t bands);
/* Builds Laplacian level `level` of one frame from its Gaussian levels. */
TAVO_HDR_EXPORT int32_t pyramid_laplacian_down_sample_process(int16_t** lap_table,
                                                              uint16_t** gauss_table,
                                                              uint32_t level,
                                                              const int32_t* widths,
                                                              const int32_t* heights,
                                                              int32_t levels);
/* Job body of pyramid_laplacian_down_sample_process. */
TAVO_HDR_EXPORT int32_t pyramid_laplacian_down_sample_parameter(void* record);

/* One band of blending: `frames` signed 16-bit Laplacian rows weighted by
 * exposure (lut) x contrast of the 16-bit Gaussian rows into out, magnitude
 * clamped to 4080 (255 x 16). Always 0. */
TAVO_HDR_EXPORT uint32_t fusion_pyramid(int16_t* out, const uint16_t* lut, int16_t** lap_rows,
                                        uint16_t** gauss_rows, int32_t width, int32_t rows,
                                        int32_t frames, int32_t band_index, int32_t band_count);
/* Blends level `level` of `frames` pyramids into out_levels[level], in bands. */
TAVO_HDR_EXPORT int32_t fusion_pyramid_process(int16_t** out_levels, const uint16_t* lut,
                                               int16_t*** lap_pyramids,
                                               uint16_t*** gauss_pyramids,
                                               const int32_t* widths, const int32_t* heights,
                                               int32_t level, uint32_t frames);
/* Job body of fusion_pyramid_process. */
TAVO_HDR_EXPORT int32_t fusion_pyramid_parameter(void* record);

/* One band of collapse: fine level plus the expansion of the coarse level,
 * clamped to 0 ... 4080, in place; at level 0 also 8-bit luma into out_y. */
TAVO_HDR_EXPORT int32_t pyramid_reconstruct_y(uint8_t* out_y, int16_t** planes,
                                              const int32_t* widths, const int32_t* rows,
                                              int32_t level, int32_t band_index,
                                              int32_t band_count);
/* Collapses fused level `level` + 1 into level `level` (and out_y at 0). */
TAVO_HDR_EXPORT uint32_t pyramid_reconstruct_y_process(uint8_t* out_y, int16_t** levels,
                                                       const int32_t* widths,
                                                       const int32_t* heights, int32_t level);
/* Job body of pyramid_reconstruct_y_process. */
TAVO_HDR_EXPORT int32_t pyramid_reconstruct_y_parameter(void* record);

/* ---- Chroma fusion and colour ------------------------------------------ */

/* Fuses `rows` rows of three 8-bit chroma planes (stride src_stride) into out
 * (stride width), weighted by the chroma table lut[256]. Always 0. */
TAVO_HDR_EXPORT uint32_t fusionUV_plane(const uint8_t** src, uint8_t* out, const uint16_t* lut,
                                        int32_t src_stride, int32_t width, int32_t rows);
/* Fuses three planes of V,U pairs (stride src_stride) into out_u and out_v
 * (`pairs` samples a row each). Always 0. */
TAVO_HDR_EXPORT uint32_t fusionUV_semiplane(const uint8_t** src, uint8_t* out_u, uint8_t* out_v,
                                            const uint16_t* lut, int32_t src_stride,
                                            int32_t pairs, int32_t rows);
/* Planar chroma of three frames (U, V planes of src_stride x src_rows), each
 * read from its crop origin in crop[6], into width x rows planes, in bands. */
TAVO_HDR_EXPORT uint32_t fusionUV_plane_process(const uint8_t* const* frames, uint8_t* out_u,
                                                uint8_t* out_v, const uint16_t* lut,
                                                int32_t src_stride, int32_t src_rows,
                                                int32_t width, int32_t rows,
                                                const int32_t* crop);
/* Semi-planar chroma of three src_stride x src_height frames, each read from
 * its crop origin, into out_width/2 x rows U and V planes, in bands. */
TAVO_HDR_EXPORT uint32_t fusionUV_semiplane_process(const uint8_t* const* frames,
                                                    uint8_t* out_u, uint8_t* out_v,
                                                    const uint16_t* lut, int32_t src_stride,
                                                    int32_t src_height, int32_t out_width,
                                                    int32_t rows, const int32_t* crop);
/* Job body of fusionUV_plane_process: U then V of its rows. */
TAVO_HDR_EXPORT int32_t fusionUV_plane_parameter(void* record);
/* Job body of fusionUV_semiplane_process. */
TAVO_HDR_EXPORT int32_t fusionUV_semiplane_parameter(void* record);

/* fusionUV_plane for `frames` planes that share the stride width. */
TAVO_HDR_EXPORT uint32_t fusionUV(const uint8_t** src, uint8_t* out, const uint16_t* lut,
                                  int32_t width, int32_t rows, int32_t frames);
/* fusionUV of three planes in four bands; extra's pointers ride along unused. */
TAVO_HDR_EXPORT uint32_t fusionUV_process(const uint8_t** src, uint8_t* out,
                                          const uint16_t* lut, int32_t width, int32_t rows,
                                          int32_t frames, const uint8_t* const* const* extra);
/* Job body of fusionUV_process. */
TAVO_HDR_EXPORT int32_t fusionUV_parameter(void* record);
/* Blends level `level` (width x height) of `frames` 8-bit Gaussian and 16-bit
 * Laplacian pyramids into out on the calling thread; rebuilds table[256] over
 * the level's range and remaps the Laplacian samples (0 ... 255) in place. */
TAVO_HDR_EXPORT uint32_t FusionOnLayer(int16_t*** lap_pyramids, uint8_t*** gauss_pyramids,
                                       int16_t* out, uint16_t* table, int32_t width,
                                       int32_t height, int32_t level, int32_t frames,
                                       float sigma);

/* Scales width x rows chroma bytes' distance from 128 by gain, in place. */
TAVO_HDR_EXPORT void saturation(uint8_t* plane, int32_t width, int32_t rows, float gain);
/* saturation in four bands of rows/4 rows on the pool. Always 0. */
TAVO_HDR_EXPORT uint32_t saturation_process(uint8_t* plane, int32_t width, int32_t rows,
                                            float gain);
/* Job body of saturation_process. */
TAVO_HDR_EXPORT int32_t saturation_parameter(void* record);
/* Copies src[0..15] to dst[0..15] (when n >= 16) and bytes (n & ~15) ... n-1;
 * the bytes in between are not copied. */
TAVO_HDR_EXPORT void memcpy_neon(void* dst, const void* src, int32_t n);

#ifdef __cplusplus
}
#endif

#endif /* TAVO_LUMO_HDR_H */
