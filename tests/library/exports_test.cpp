// The shared object as a client loads it: exactly the 18 exports and the
// extensions of corvane_ext.h under a versioned soname, the named mutexes made at load, the results
// the exports give without a session, and one layout of the records in C and C++.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstddef>
#include <fstream>
#include <iterator>

#include "corvane.h"

namespace {

std::string Shell(const std::string& command) {
  std::string output;
  FILE* pipe = popen(command.c_str(), "r");
  for (char chunk[4096]; size_t n = fread(chunk, 1, sizeof chunk, pipe);) output.append(chunk, n);
  return pclose(pipe), output;
}

TEST(SharedObject, ExportsTheEighteenFunctionsAndTheExtensionsUnderAVersionedSoname) {
  // Every defined dynamic symbol but the version node itself (type A).
  EXPECT_EQ(Shell("nm -D --defined-only '" CORVANE_SO_PATH "' | awk '$2 != \"A\" { print $3 }' |"
                  " sed 's/@.*//' | LC_ALL=C sort | tr '\\n' ' '"),
            "BmpReSize BmpReSizeEx BmpStretchDIB BmpStretchDIBEx BmpStretchDIBEx2 H264CodecClose "
            "H264CodecDecompress H264CodecDecompressMedian H264CodecGetFormat H264CodecOpen "
            "H264CodecReset H264CodecResetEx H264CodecSetCallback H265CodecDecompress "
            "VideoRenderClose VideoRenderFrame VideoRenderOpen VideoRenderSetFPS "
            "corvane_codec_decompress_sharpen corvane_codec_drain corvane_codec_set_options "
            "corvane_median corvane_resize corvane_sharpen corvane_version corvane_warp "
            "corvane_warp_quad ");
  EXPECT_EQ(Shell("objdump -p '" CORVANE_SO_PATH "' | awk '$1 == \"SONAME\" { print $2 }'"),
            "libcorvane.so.0\n");
  // The shared objects behind the process-wide named mutexes are mapped here.
  std::ifstream maps("/proc/self/maps");
  const std::string mapped((std::istreambuf_iterator<char>(maps)), {});
  for (const char* name : {"H264initMutex", "RenderInitMutex", "LogMutex"})
    EXPECT_NE(mapped.find("/dev/shm/corvane." + std::to_string(getuid()) + "." + name),
              std::string::npos)
        << name;
}

TEST(SharedObject, ResultsWithoutASession) {
  BITMAPINFOHEADER header{};
  uint8_t byte = 0;
  CodecHandle session = H264CodecOpen();  // never decoded: nothing to release, nothing to read
  EXPECT_EQ(std::vector<int32_t>(
                {H264CodecClose(nullptr), H264CodecReset(nullptr), H264CodecResetEx(nullptr),
                 H264CodecGetFormat(nullptr), H264CodecSetCallback(nullptr, nullptr),
                 H264CodecDecompress(nullptr, &byte, 1, &header, &byte, 1),
                 H264CodecDecompressMedian(nullptr, &byte, 1, &header, &byte, 1),
                 H265CodecDecompress(nullptr, &byte, 1, &header, &byte, 1), BmpReSize(),
                 BmpStretchDIB(), BmpStretchDIBEx(), BmpStretchDIBEx2(),
                 H264CodecGetFormat(session), H264CodecSetCallback(session, nullptr),
                 H264CodecReset(session), H264CodecResetEx(session), H264CodecClose(session)}),
            std::vector<int32_t>({ResultBadArgument, ResultBadArgument, ResultBadArgument,
                                  ResultBadArgument, ResultBadArgument, ResultBadArgument,
                                  ResultBadArgument, ResultBadArgument, ResultNotImplemented,
                                  ResultNotImplemented, ResultNotImplemented, ResultNotImplemented,
                                  1, 0, 1, 1, 1}));
  EXPECT_EQ(header.biSize, 0u);
}

// The same layout as header_c.c holds the C compiler to.
static_assert(sizeof(BITMAPINFOHEADER) == 40 && sizeof(CodecFrameRecord) == 40 &&
              offsetof(CodecFrameRecord, pixels) == 24 && offsetof(CodecFrameRecord, size) == 32 &&
              offsetof(BITMAPINFOHEADER, biXPelsPerMeter) == 24 &&
              offsetof(BITMAPINFOHEADER, biClrImportant) == 36);

}  // namespace
