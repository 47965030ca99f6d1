/*
 * corvane.h - public interface of the Corvane video decode library.
 *
 * Four services behind 18 plain C functions:
 *   - H.264 / H.265 packets decoded into BGR24 pictures (H264Codec*, H265CodecDecompress)
 *   - an optional 3x3 median clean-up of each picture (H264CodecDecompressMedian)
 *   - BGR24 frames drawn on an X11 window, at once or paced by a timer (VideoRender*)
 *   - crop-and-scale of 24-bit bitmaps (BmpReSizeEx)
 *
 * Compiles as C (C99 or later) and as C++. All records are little-endian with no gaps.
 */
#ifndef CORVANE_H
#define CORVANE_H

#include <stdint.h>

#if defined(CORVANE_BUILDING_LIBRARY)
#define CORVANE_API __attribute__((visibility("default")))
#else
#define CORVANE_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The 40-byte bitmap header: output record of the decompress calls, input of
 * VideoRenderFrame (top-down: negative biHeight) and of BmpReSizeEx. */
typedef struct BITMAPINFOHEADER {
  uint32_t biSize;
  int32_t biWidth;
  int32_t biHeight;
  uint16_t biPlanes;
  uint16_t biBitCount;
  uint32_t biCompression;
  uint32_t biSizeImage;
  int32_t biXPelsPerMeter;
  int32_t biYPelsPerMeter;
  uint32_t biClrUsed;
  uint32_t biClrImportant;
} BITMAPINFOHEADER;

/* What a frame callback is given. Record and pixels belong to the library and
 * are valid only until the callback returns. */
typedef struct CodecFrameRecord {
  void* session;     /* the decoder handle */
  int32_t width;     /* biWidth of the header just written */
  int32_t height;    /* biHeight of the header just written */
  int32_t bitCount;  /* 24 */
  int32_t reserved0; /* 0 */
  uint8_t* pixels;   /* BGR24, stride width * 3, top row first */
  int32_t size;      /* bytes in pixels */
  int32_t reserved1; /* 0 */
} CodecFrameRecord;

/* Called on the decoding thread, with the session's lock held, when a picture
 * does not fit the caller's buffer. It may call H264CodecSetCallback or
 * H264CodecReset on its own session, never H264CodecClose. */
typedef void (*FrameCallback)(const CodecFrameRecord* record);

typedef void* CodecHandle;
typedef void* RenderHandle;

/* An X11 window id (XID), pointer-sized like any handle. */
typedef uintptr_t WindowHandle;

/* Results of the exports. Success is 1 for H264CodecReset/ResetEx/Close/GetFormat,
 * BmpReSizeEx and VideoRenderClose; 0 for the others. BmpReSizeEx gives 0 on failure. */
enum ResultCode {
  ResultNotImplemented = -878,
  ResultDecoderUnavailable = -879,
  ResultNoResource = -883,
  ResultBufferTooSmall = -896,
  ResultNoParameters = -899,
  ResultBadArgument = -995,
  ResultDecodeFailed = -996,
  ResultFilterFailed = -999
};

/* Bitmap family */
CORVANE_API int32_t BmpReSize(void);
CORVANE_API int32_t BmpReSizeEx(const BITMAPINFOHEADER* srcHeader, const uint8_t* srcBits,
                                int32_t x, int32_t y, int32_t width, int32_t height,
                                BITMAPINFOHEADER* dstHeader, uint8_t* dstBits);
CORVANE_API int32_t BmpStretchDIB(void);
CORVANE_API int32_t BmpStretchDIBEx(void);
CORVANE_API int32_t BmpStretchDIBEx2(void);

/* Decoder family */
CORVANE_API int32_t H264CodecClose(CodecHandle session);
CORVANE_API int32_t H264CodecDecompress(CodecHandle session, const uint8_t* data, int32_t size,
                                        BITMAPINFOHEADER* header, uint8_t* out, int32_t outSize);
CORVANE_API int32_t H264CodecDecompressMedian(CodecHandle session, const uint8_t* data,
                                              int32_t size, BITMAPINFOHEADER* header, uint8_t* out,
                                              int32_t outSize);
CORVANE_API int32_t H264CodecGetFormat(CodecHandle session);
CORVANE_API CodecHandle H264CodecOpen(void);
CORVANE_API int32_t H264CodecReset(CodecHandle session);
CORVANE_API int32_t H264CodecResetEx(CodecHandle session);
CORVANE_API int32_t H264CodecSetCallback(CodecHandle session, FrameCallback callback);
CORVANE_API int32_t H265CodecDecompress(CodecHandle session, const uint8_t* data, int32_t size,
                                        BITMAPINFOHEADER* header, uint8_t* out, int32_t outSize);

/* Render family. VideoRenderFrame reads arguments 1, 10, 11 and 13; the others are reserved. */
CORVANE_API int32_t VideoRenderClose(RenderHandle session);
CORVANE_API int32_t VideoRenderFrame(WindowHandle window, int32_t reserved2, int32_t reserved3,
                                     int32_t reserved4, int32_t reserved5, int32_t reserved6,
                                     int32_t reserved7, int32_t reserved8, int32_t reserved9,
                                     const uint8_t* pixels, const BITMAPINFOHEADER* header,
                                     int32_t reserved12, RenderHandle session);
CORVANE_API RenderHandle VideoRenderOpen(void);
CORVANE_API int32_t VideoRenderSetFPS(RenderHandle session, int32_t fps);

#ifdef __cplusplus
}
#endif

/* The records cross the library's edge: their layout is fixed. */
#ifdef __cplusplus
static_assert(sizeof(BITMAPINFOHEADER) == 40, "BITMAPINFOHEADER must be 40 bytes");
static_assert(sizeof(CodecFrameRecord) == 40, "CodecFrameRecord must be 40 bytes");
#else
_Static_assert(sizeof(BITMAPINFOHEADER) == 40, "BITMAPINFOHEADER must be 40 bytes");
_Static_assert(sizeof(CodecFrameRecord) == 40, "CodecFrameRecord must be 40 bytes");
#endif

#endif /* CORVANE_H */
