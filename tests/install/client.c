/* A client of the installed library: counts the pictures of a raw H.264 stream
 * decoded plain and with the median clean-up, and calls every export, so that a
 * static link takes in the whole library. */
#include <corvane.h>
#include <stdio.h>
#include <stdlib.h>

typedef int32_t (*Decompress)(CodecHandle, const uint8_t*, int32_t, BITMAPINFOHEADER*, uint8_t*,
                              int32_t);
static long pictures;

static void OnFrame(const CodecFrameRecord* record) {
  pictures += record->pixels && record->size == record->width * record->height * 3;
}

/* An access unit ends before a SEI, parameter set, delimiter or first slice
 * that follows a slice. */
static long Decode(CodecHandle session, const unsigned char* data, long size, Decompress call) {
  BITMAPINFOHEADER header;
  uint8_t none[1];
  long start = 0, i;
  int slice = 0;
  pictures = 0;
  for (i = 0; i + 4 < size; ++i) {
    const int type = data[i + 3] & 0x1F, first = (type == 1 || type == 5) && data[i + 4] & 0x80;
    if (data[i] != 0 || data[i + 1] != 0 || data[i + 2] != 1) continue;
    if (slice && ((type >= 6 && type <= 9) || first)) {
      const long end = i - (i > 0 && data[i - 1] == 0);
      call(session, data + start, (int32_t)(end - start), &header, none, 0);
      start = end, slice = 0;
    }
    slice |= type == 1 || type == 5;
  }
  call(session, data + start, (int32_t)(size - start), &header, none, 0);
  return pictures;
}

int main(int argc, char** argv) {
  FILE* file = argc == 2 ? fopen(argv[1], "rb") : NULL;
  long size = 0, plain, median;
  unsigned char* data;
  CodecHandle codec = H264CodecOpen();
  RenderHandle render = VideoRenderOpen();
  BITMAPINFOHEADER src = {40, 16, 16, 1, 24, 0, 16 * 16 * 3, 0, 0, 0, 0};
  BITMAPINFOHEADER dst = {40, 8, 8, 1, 24, 0, 0, 0, 0, 0, 0};
  uint8_t srcBits[16 * 16 * 3] = {0}, dstBits[8 * 8 * 3];
  if (!file || fseek(file, 0, SEEK_END) != 0 || (size = ftell(file)) <= 0) return 2;
  rewind(file);
  if (!(data = malloc(size)) || fread(data, 1, size, file) != (size_t)size) return 2;
  fclose(file);
  if (!codec || H264CodecSetCallback(codec, OnFrame) != 0 || H264CodecGetFormat(codec) != 1)
    return 1;
  plain = Decode(codec, data, size, H264CodecDecompress);
  if (H264CodecReset(codec) != 1 || H264CodecResetEx(codec) != 1) return 1;
  median = Decode(codec, data, size, H264CodecDecompressMedian);
  if (H265CodecDecompress(NULL, data, 4, &dst, dstBits, 0) != ResultBadArgument ||
      H264CodecClose(codec) != 1 || !render || VideoRenderSetFPS(render, 25) != 0 ||
      VideoRenderFrame(0, 0, 0, 0, 0, 0, 0, 0, 0, NULL, NULL, 0, render) != 0 ||
      VideoRenderClose(render) != 1 ||
      BmpReSizeEx(&src, srcBits, 0, 0, 16, 16, &dst, dstBits) != 1 ||
      BmpReSize() + BmpStretchDIB() + BmpStretchDIBEx() + BmpStretchDIBEx2() !=
          4 * ResultNotImplemented)
    return 1;
  printf("pictures %ld median %ld\n", plain, median);
  free(data);
  return 0;
}
