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

TAVO_HDR_EXPORT int32_t pool_init(int32_t max_thread_num);
TAVO_HDR_EXPORT int32_t pool_add_worker(void* (*routine)(void*), void* arg);
TAVO_HDR_EXPORT int32_t pool_destroy(void);
TAVO_HDR_EXPORT void* thread_routine(void* arg);

/* ---- Frame alignment --------------------------------------------------- */

TAVO_HDR_EXPORT uint32_t loadImg(const uint8_t* luma, int32_t width, int32_t height,
                                 uint8_t* threshold_out, int32_t frame_index);
TAVO_HDR_EXPORT uint32_t loadImg_process(const uint8_t* const* frames, int32_t width,
                                         int32_t height, uint8_t* thresholds_out);
TAVO_HDR_EXPORT int32_t loadImg_parameter(void* record);
TAVO_HDR_EXPORT void imageCrop(int32_t width, int32_t height, int32_t* crop_width_out,
                               int32_t* crop_height_out, int32_t x0, int32_t y0, int32_t x2,
                               int32_t y2, int32_t* origins_out);
TAVO_HDR_EXPORT void image_resize(const uint8_t* src, uint8_t* dst, int32_t src_width,
                                  int32_t src_height, int32_t dst_width, int32_t dst_height,
                                  const char* layout);

TAVO_HDR_EXPORT uint32_t wltDecompose(const uint8_t* src, uint8_t* approx_out,
                                      uint8_t* bitmap_out, uint8_t* mask_out, int32_t width,
                                      int32_t rows, int32_t threshold);
TAVO_HDR_EXPORT uint32_t wltDecompose_process(const uint8_t* src, int32_t width, int32_t height,
                                              uint8_t* approx_out, int32_t threshold,
                                              uint8_t* bitmap_out, uint8_t* mask_out);
TAVO_HDR_EXPORT int32_t wltDecompose_parameter(void* record);

TAVO_HDR_EXPORT uint32_t GetExpShift(const uint8_t* frame_luma, uint32_t levels,
                                     uint8_t threshold, uint8_t** moving_approx,
                                     uint8_t** ref_bitmap, uint8_t** ref_mask,
                                     uint8_t** moving_bitmap, uint8_t** moving_mask,
                                     const int32_t* widths, const int32_t* heights,
                                     int16_t* shift_out);
TAVO_HDR_EXPORT uint32_t imageAffine_xor_and(const uint8_t* moving_mask,
                                             const uint8_t* moving_bitmap,
                                             const uint8_t* ref_bitmap, const uint8_t* ref_mask,
                                             int32_t width, int32_t rows, int32_t x, int32_t y,
                                             uint32_t* count, int32_t band_index);
TAVO_HDR_EXPORT uint32_t imageAffine_xor_and_process(const uint8_t* moving_mask,
                                                     const uint8_t* moving_bitmap,
                                                     const uint8_t* ref_bitmap,
                                                     const uint8_t* ref_mask, int32_t width,
                                                     int32_t height, int32_t x, int32_t y,
                                                     uint32_t* count_out);
TAVO_HDR_EXPORT int32_t imageAffine_xor_and_parameter(void* record);

TAVO_HDR_EXPORT uint32_t imageAffine(const uint8_t* src, uint16_t* dst, uint32_t src_stride,
                                     int32_t width, int32_t rows, int32_t xs, int32_t ys);
TAVO_HDR_EXPORT uint32_t imageAffine_process(const uint8_t* src, uint16_t* dst,
                                             uint32_t src_stride, uint32_t width, int32_t height,
                                             uint32_t xs, uint32_t ys);
TAVO_HDR_EXPORT int32_t imageAffine_parameter(void* record);
TAVO_HDR_EXPORT uint32_t imageAffine_uv(const uint8_t* src, uint8_t* dst_odd, uint8_t* dst_even,
                                        uint32_t src_stride, uint32_t width, int32_t rows,
                                        uint32_t xs, uint32_t ys);
TAVO_HDR_EXPORT uint32_t imageAffine_uv_process(const uint8_t* src, uint8_t* dst_odd,
                                                uint8_t* dst_even, uint32_t src_stride,
                                                uint32_t width, int32_t height, uint32_t xs,
                                                uint32_t ys);
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

/* Gaussian weight tables over entries start ... end-1 (at least one entry),
 * 1024 meaning 1.0; the _c form stores 1025 minus the rounded weight. */
TAVO_HDR_EXPORT int32_t weight_Initialize(uint16_t* table, float sigma, int32_t center,
                                          uint32_t start, int32_t end);
TAVO_HDR_EXPORT int32_t weight_Initialize_c(uint16_t* table, float sigma, int32_t center,
                                            uint32_t start, int32_t end);

TAVO_HDR_EXPORT int32_t pyramid_gaussian_down_sample_uint8(uint16_t** pointers,
                                                           const int32_t* band_widths,
                                                           const int32_t* band_rows,
                                                           int32_t band, int32_t bands);
TAVO_HDR_EXPORT int32_t pyramid_gaussian_down_sample_uint8_process(uint16_t** level_table,
                                                                   uint32_t level,
                                                                   const int32_t* widths,
                                                                   const int32_t* heights);
TAVO_HDR_EXPORT int32_t pyramid_gaussian_down_sample_uint8_parameter(void* record);

TAVO_HDR_EXPORT int32_t pyramid_laplacian_down_sample(int16_t* out, uint16_t** pointers,
                                                      const int32_t* band_widths,
                                                      const int32_t* band_rows, int32_t band,
                                                      int32_t bands);
TAVO_HDR_EXPORT int32_t pyramid_laplacian_down_sample_process(int16_t** lap_table,
                                                              uint16_t** gauss_table,
                                                              uint32_t level,
                                                              const int32_t* widths,
                                                              const int32_t* heights,
                                                              int32_t levels);
TAVO_HDR_EXPORT int32_t pyramid_laplacian_down_sample_parameter(void* record);

TAVO_HDR_EXPORT uint32_t fusion_pyramid(int16_t* out, const uint16_t* lut, int16_t** lap_rows,
                                        uint16_t** gauss_rows, int32_t width, int32_t rows,
                                        int32_t frames, int32_t band_index, int32_t band_count);
TAVO_HDR_EXPORT int32_t fusion_pyramid_process(int16_t** out_levels, const uint16_t* lut,
                                               int16_t*** lap_pyramids,
                                               uint16_t*** gauss_pyramids,
                                               const int32_t* widths, const int32_t* heights,
                                               int32_t level, uint32_t frames);
TAVO_HDR_EXPORT int32_t fusion_pyramid_parameter(void* record);

TAVO_HDR_EXPORT int32_t pyramid_reconstruct_y(uint8_t* out_y, int16_t** planes,
                                              const int32_t* widths, const int32_t* rows,
                                              int32_t level, int32_t band_index,
                                              int32_t band_count);
TAVO_HDR_EXPORT uint32_t pyramid_reconstruct_y_process(uint8_t* out_y, int16_t** levels,
                                                       const int32_t* widths,
                                                       const int32_t* heights, int32_t level);
TAVO_HDR_EXPORT int32_t pyramid_reconstruct_y_parameter(void* record);

/* ---- Chroma fusion and colour ------------------------------------------ */

TAVO_HDR_EXPORT uint32_t fusionUV_plane(const uint8_t** src, uint8_t* out, const uint16_t* lut,
                                        int32_t src_stride, int32_t width, int32_t rows);
TAVO_HDR_EXPORT uint32_t fusionUV_semiplane(const uint8_t** src, uint8_t* out_u, uint8_t* out_v,
                                            const uint16_t* lut, int32_t src_stride,
                                            int32_t pairs, int32_t rows);
TAVO_HDR_EXPORT uint32_t fusionUV_plane_process(const uint8_t* const* frames, uint8_t* out_u,
                                                uint8_t* out_v, const uint16_t* lut,
                                                int32_t src_stride, int32_t src_rows,
                                                int32_t width, int32_t rows,
                                                const int32_t* crop);
TAVO_HDR_EXPORT uint32_t fusionUV_semiplane_process(const uint8_t* const* frames,
                                                    uint8_t* out_u, uint8_t* out_v,
                                                    const uint16_t* lut, int32_t src_stride,
                                                    int32_t src_height, int32_t out_width,
                                                    int32_t rows, const int32_t* crop);
TAVO_HDR_EXPORT int32_t fusionUV_plane_parameter(void* record);
TAVO_HDR_EXPORT int32_t fusionUV_semiplane_parameter(void* record);

TAVO_HDR_EXPORT uint32_t fusionUV(const uint8_t** src, uint8_t* out, const uint16_t* lut,
                                  int32_t width, int32_t rows, int32_t frames);
TAVO_HDR_EXPORT uint32_t fusionUV_process(const uint8_t** src, uint8_t* out,
                                          const uint16_t* lut, int32_t width, int32_t rows,
                                          int32_t frames, const uint8_t* const* const* extra);
TAVO_HDR_EXPORT int32_t fusionUV_parameter(void* record);
TAVO_HDR_EXPORT uint32_t FusionOnLayer(int16_t*** lap_pyramids, uint8_t*** gauss_pyramids,
                                       int16_t* out, uint16_t* table, int32_t width,
                                       int32_t height, int32_t level, int32_t frames,
                                       float sigma);

TAVO_HDR_EXPORT void saturation(uint8_t* plane, int32_t width, int32_t rows, float gain);
TAVO_HDR_EXPORT uint32_t saturation_process(uint8_t* plane, int32_t width, int32_t rows,
                                            float gain);
TAVO_HDR_EXPORT int32_t saturation_parameter(void* record);
TAVO_HDR_EXPORT void memcpy_neon(void* dst, const void* src, int32_t n);

#ifdef __cplusplus
}
#endif

#endif /* TAVO_LUMO_HDR_H */
