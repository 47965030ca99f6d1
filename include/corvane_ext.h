/*
 * corvane_ext.h - what a client that reads ordinary files needs beyond the 18
 * functions of corvane.h: options on a decoder session, the pictures still
 * held by the decoder at the end of a stream, and the decoder's sharpen stage.
 *
 * Nothing here changes what any function of corvane.h does for a session on
 * which no option was set. Compiles as C (C99 or later) and as C++.
 */
#ifndef CORVANE_EXT_H
#define CORVANE_EXT_H

#include <stdint.h>

#include "corvane.h"

#ifdef __cplusplus
extern "C" {
#endif

/* The library's version, "MAJOR.MINOR.PATCH". */
CORVANE_API const char* corvane_version(void);

/* While a session is settling, look for sequence parameter set 0 in every NAL
 * unit of a packet, not only in the one at its start: packets that open with an
 * access unit delimiter or an SEI (as most encoders write them) settle too. */
#define CORVANE_OPTION_PARAMETERS_ANYWHERE 0x1u
/* Write every row of every picture, the bottom one included, on every road. */
#define CORVANE_OPTION_FULL_PICTURE 0x2u
/* Decode as the standard says: slice edges deblocked in multi-slice H.264.
 * Takes effect at the next decoder set-up. */
#define CORVANE_OPTION_CONFORMANT 0x4u
/* Frame threads as well as slice threads: more pictures a second from files,
 * each coming out a few packets later (corvane_codec_drain gives the rest).
 * Takes effect at the next decoder set-up. */
#define CORVANE_OPTION_FRAME_THREADS 0x8u

/* Replaces the session's options with `options`, a combination of the flags
 * above; 0 is the designed behaviour. Options survive H264CodecReset and
 * H264CodecResetEx. 0, or ResultBadArgument for a null session or an unknown
 * flag (the options are then left as they were). */
CORVANE_API int32_t corvane_codec_set_options(CodecHandle session, uint32_t options);

/* End of stream: delivers one picture still held by the decoder a call, on the
 * roads of the last decompress call (the caller's buffer when `outSize` is large
 * enough, else the frame callback) with its filter mode and header. 1 when a
 * picture was delivered; 0 when none is left, and the session is then as after
 * H264CodecReset (callback and options kept); a negative ResultCode on failure:
 * ResultBadArgument for a null session or header, ResultBufferTooSmall when the
 * picture fits neither road (it is kept for the next call). A decompress call
 * in the middle of a drain drops the pictures not yet drained. */
CORVANE_API int32_t corvane_codec_drain(CodecHandle session, BITMAPINFOHEADER* header, uint8_t* out,
                                        int32_t outSize);

/* H.264 with the sharpen stage: every picture sharpened with the fixed 3 x 3
 * mask (twice each byte less an eighth of its eight neighbours, borders
 * replicated) on its way out; otherwise as H264CodecDecompress. A drain after
 * it delivers sharpened pictures too. */
CORVANE_API int32_t corvane_codec_decompress_sharpen(CodecHandle session, const uint8_t* data,
                                                     int32_t size, BITMAPINFOHEADER* header,
                                                     uint8_t* out, int32_t outSize);

#ifdef __cplusplus
}
#endif

#endif /* CORVANE_EXT_H */
