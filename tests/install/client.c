/* A client of the installed library, written as a user would: decodes a raw
 * H.264 stream through the exports, once plain and once with the median
 * clean-up, every picture through the frame callback, and prints the counts.
 * It calls every export, so that a static link takes in the whole library. */
#include <corvane.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static long pictures;

static void OnFrame(const CodecFrameRecord* record) {
  if (record->pixels && record->size == record->width * record->height * 3) ++pictures;
}

/* A NAL unit that opens an access unit once its picture has a slice: an SEI,
 * a parameter set, a delimiter, or a slice whose first macroblock is 0. */
static int OpensAccessUnit(const unsigned char* nal) {
  const int type = nal[0] & 0x1F;
  return (type >= 6 && type <= 9) || ((type == 1 || type == 5) && (nal[1] & 0x80));
}

/* Feeds the stream one access unit a call; the number of pictures delivered. */
static long Decode(CodecHandle session, const unsigned char* data, long size,
                   int32_t (*decompress)(CodecHandle, const uint8_t*, int32_t, BITMAPINFOHEADER*,
                                         uint8_t*, int32_t)) {
  BITMAPINFOHEADER header;
  uint8_t none[1];
  long start = 0, i;
  int slice = 0;
  pictures = 0;
  for (i = 0; i + 3 < size; ++i) {
    if (data[i] != 0 || data[i + 1] != 0 || data[i + 2] != 1) continue;
    if (slice && OpensAccessUnit(data + i + 3)) {
      const long end = i > 0 && data[i - 1] == 0 ? i - 1 : i;
      decompress(session, data + start, (int32_t)(end - start), &header, none, 0);
      start = end;
      slice = 0;
    }
    slice |= (data[i + 3] & 0x1F) == 1 || (data[i + 3] & 0x1F) == 5;
  }
  decompress(session, data + start, (int32_t)(size - start), &header, none, 0);
  return pictures;
}

int main(int argc, char** argv) {
  FILE* file = argc == 2 ? fopen(argv[1], "rb") : NULL;
  unsigned char* data = NULL;
  long size = 0, plain, median;
  CodecHandle codec;
  RenderHandle render;
  BITMAPINFOHEADER src = {40, 16, 16, 1, 24, 0, 16 * 16 * 3, 0, 0, 0, 0};
  BITMAPINFOHEADER dst = {40, 8, 8, 1, 24, 0, 0, 0, 0, 0, 0};
  uint8_t srcBits[16 * 16 * 3] = {0}, dstBits[8 * 8 * 3];
  if (!file) {
    fprintf(stderr, "usage: client FILE.h264\n");
    return 2;
  }
  fseek(file, 0, SEEK_END);
  size = ftell(file);
  rewind(file);
  data = malloc(size);
  if (!data || fread(data, 1, size, file) != (size_t)size) return 2;
  fclose(file);

  codec = H264CodecOpen();
  if (!codec || H264CodecSetCallback(codec, OnFrame) != 0 || H264CodecGetFormat(codec) != 1)
    return 1;
  plain = Decode(codec, data, size, H264CodecDecompress);
  if (H264CodecReset(codec) != 1 || H264CodecResetEx(codec) != 1) return 1;
  median = Decode(codec, data, size, H264CodecDecompressMedian);
  if (H265CodecDecompress(NULL, data, 4, &dst, dstBits, 0) != ResultBadArgument) return 1;
  if (H264CodecClose(codec) != 1) return 1;

  render = VideoRenderOpen();
  if (!render || VideoRenderSetFPS(render, 25) != 0) return 1;
  if (VideoRenderFrame(0, 0, 0, 0, 0, 0, 0, 0, 0, NULL, NULL, 0, render) != 0) return 1;
  if (VideoRenderClose(render) != 1) return 1;

  if (BmpReSizeEx(&src, srcBits, 0, 0, 16, 16, &dst, dstBits) != 1) return 1;
  if (BmpReSize() + BmpStretchDIB() + BmpStretchDIBEx() + BmpStretchDIBEx2() !=
      4 * ResultNotImplemented)
    return 1;
  printf("pictures %ld median %ld\n", plain, median);
  free(data);
  return 0;
}
