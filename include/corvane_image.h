/*
 * corvane_image.h - the image primitives of Corvane for any client: median, sharpen, warp and
 * crop-and-scale on images the client owns.
 *
 * Each call resolves the code path for the processor as the library does, asks the primitive's
 * sizing entry, allocates the scratch itself, and returns the primitive's own status: 0 done,
 * negative a refusal with nothing written, positive a warning. An allocation that fails gives
 * CORVANE_STATUS_NO_MEMORY. A format that a primitive does not serve is refused with
 * CORVANE_STATUS_PIXEL_TYPE before anything is read. Calls are thread-safe and reentrant;
 * images must not overlap.
 *
 * Compiles as C (C99 or later) and as C++.
 */
#ifndef CORVANE_IMAGE_H
#define CORVANE_IMAGE_H

#include <stdint.h>

#include "corvane.h" /* CORVANE_API */

#ifdef __cplusplus
extern "C" {
#endif

/* Statuses a client meets most; the rest are the primitives' own negative codes. */
#define CORVANE_STATUS_OK 0
#define CORVANE_STATUS_SIZE (-6)         /* an empty image or rectangle, sizes that differ */
#define CORVANE_STATUS_NULL_POINTER (-8) /* a null image, data or argument pointer */
#define CORVANE_STATUS_NO_MEMORY (-9)    /* the scratch could not be allocated */
#define CORVANE_STATUS_STEP (-16)        /* a row step too small for the width */
#define CORVANE_STATUS_INTERPOLATION (-23)
#define CORVANE_STATUS_MASK_SIZE (-33)
#define CORVANE_STATUS_PIXEL_TYPE (-59) /* a format the primitive does not serve */
#define CORVANE_STATUS_BORDER (-225)

typedef enum corvane_format {
  CORVANE_8U_C3 = 1,  /* three 8-bit channels (BGR)                      */
  CORVANE_8U_C4 = 2,  /* four 8-bit channels, all four filtered          */
  CORVANE_8U_C4K = 3, /* four 8-bit channels, the fourth kept as in dst  */
  CORVANE_16U_C3 = 4,
  CORVANE_16U_C4 = 5,
  CORVANE_16U_C4K = 6,
  CORVANE_16S_C3 = 7,
  CORVANE_16S_C4 = 8,
  CORVANE_16S_C4K = 9
} corvane_format;

typedef struct corvane_image {
  void* data;     /* pixel (0, 0) */
  int32_t step;   /* bytes from one row to the next */
  int32_t width;  /* pixels */
  int32_t height; /* rows */
  int32_t format; /* corvane_format */
} corvane_image;

typedef struct corvane_rect {
  int32_t x, y, width, height;
} corvane_rect;

#define CORVANE_BORDER_REPLICATE 1
#define CORVANE_BORDER_CONSTANT 6 /* border value: one element per channel */

/* Exact per-channel median of any odd maskWidth x maskHeight over the whole of src into dst
   (same size and format); neighbours outside the image are made by the border rule. */
CORVANE_API int32_t corvane_median(const corvane_image* src, const corvane_image* dst,
                                   int32_t maskWidth, int32_t maskHeight, int32_t border,
                                   const void* borderValue);

/* The fixed 3 x 3 sharpen, CORVANE_8U_C3. */
CORVANE_API int32_t corvane_sharpen(const corvane_image* src, const corvane_image* dst,
                                    int32_t border, const void* borderValue);

#define CORVANE_INTER_NEAREST 1
#define CORVANE_INTER_LINEAR 2
#define CORVANE_INTER_CUBIC 4
#define CORVANE_INTER_CATMULL_ROM 6
#define CORVANE_SMOOTH_EDGE 0x80000000u

/* The warp of srcRect of src into dstRect of dst through the eight forward coefficients of the
   library's bilinear form (x' = c0*x*y + c1*x + c2*y + c3, y' = c4*x*y + c5*x + c6*y + c7);
   c0 = c4 = 0 is the affine road. CORVANE_8U_C3. */
CORVANE_API int32_t corvane_warp(const corvane_image* src, corvane_rect srcRect,
                                 const corvane_image* dst, corvane_rect dstRect,
                                 const double coeffs[8], uint32_t interpolation);

/* The same, with srcRect mapped onto a quad of dst (corners in order), coefficients computed by
   the library. */
CORVANE_API int32_t corvane_warp_quad(const corvane_image* src, corvane_rect srcRect,
                                      const corvane_image* dst, const double quad[4][2],
                                      uint32_t interpolation);

/* Crop srcRect out of src and scale it to the whole of dst, at any size. CORVANE_8U_C3. */
CORVANE_API int32_t corvane_resize(const corvane_image* src, corvane_rect srcRect,
                                   const corvane_image* dst, uint32_t interpolation);

#ifdef __cplusplus
}
#endif

#endif /* CORVANE_IMAGE_H */
