// The shared object as a client loads it: exactly the 18 exports and the
// extensions of corvane_ext.h, a versioned soname, the named mutexes made at
// load, the results every export gives without a session.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstddef>
#include <cstdio>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include "corvane.h"

extern "C" int CorvaneHeaderRecordSizeC(void);
extern "C" int CorvaneHeaderPixelsOffsetC(void);

namespace {

std::string Shell(const std::string& command) {
  std::string output;
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) return output;
  char chunk[4096];
  while (size_t n = fread(chunk, 1, sizeof(chunk), pipe)) output.append(chunk, n);
  pclose(pipe);
  return output;
}

TEST(SharedObject, ExportsTheEighteenFunctionsAndTheExtensions) {
  // Every defined dynamic symbol but the version node itself (type A).
  const std::string all =
      Shell("nm -D --defined-only '" CORVANE_SO_PATH "' | awk '$2 != \"A\" { print $3 }'");
  std::set<std::string> got;
  std::istringstream lines(all);
  for (std::string name; std::getline(lines, name);) got.insert(name.substr(0, name.find('@')));
  const std::set<std::string> expected = {"BmpReSize",
                                          "BmpReSizeEx",
                                          "BmpStretchDIB",
                                          "BmpStretchDIBEx",
                                          "BmpStretchDIBEx2",
                                          "H264CodecClose",
                                          "H264CodecDecompress",
                                          "H264CodecDecompressMedian",
                                          "H264CodecGetFormat",
                                          "H264CodecOpen",
                                          "H264CodecReset",
                                          "H264CodecResetEx",
                                          "H264CodecSetCallback",
                                          "H265CodecDecompress",
                                          "VideoRenderClose",
                                          "VideoRenderFrame",
                                          "VideoRenderOpen",
                                          "VideoRenderSetFPS",
                                          "corvane_codec_drain",
                                          "corvane_codec_set_options",
                                          "corvane_version"};
  EXPECT_EQ(got, expected);
}

TEST(SharedObject, SonameCarriesTheMajorVersion) {
  const std::string soname =
      Shell("objdump -p '" CORVANE_SO_PATH "' | awk '$1 == \"SONAME\" { print $2 }'");
  EXPECT_EQ(soname, "libcorvane.so.0\n");
}

// Loading the library made (or opened) its process-wide named mutexes: the
// shared objects behind them are mapped into this process.
TEST(SharedObject, LoadCreatedTheNamedMutexes) {
  std::ifstream maps("/proc/self/maps");
  const std::string mapped((std::istreambuf_iterator<char>(maps)), {});
  for (const char* name : {"H264initMutex", "LogMutex"}) {
    const std::string path = "/dev/shm/corvane." + std::to_string(getuid()) + "." + name;
    EXPECT_EQ(access(path.c_str(), F_OK), 0) << path;
    EXPECT_NE(mapped.find(path), std::string::npos) << path << " not mapped";
  }
}

TEST(SharedObject, NullHandlesAreRefused) {
  BITMAPINFOHEADER header{};
  uint8_t byte = 0;
  EXPECT_EQ(H264CodecClose(nullptr), ResultBadArgument);
  EXPECT_EQ(H264CodecReset(nullptr), ResultBadArgument);
  EXPECT_EQ(H264CodecResetEx(nullptr), ResultBadArgument);
  EXPECT_EQ(H264CodecSetCallback(nullptr, nullptr), ResultBadArgument);
  EXPECT_EQ(H264CodecGetFormat(nullptr), ResultBadArgument);
  EXPECT_EQ(H264CodecDecompress(nullptr, &byte, 1, &header, &byte, 1), ResultBadArgument);
  EXPECT_EQ(H264CodecDecompressMedian(nullptr, &byte, 1, &header, &byte, 1), ResultBadArgument);
  EXPECT_EQ(H265CodecDecompress(nullptr, &byte, 1, &header, &byte, 1), ResultBadArgument);
  EXPECT_EQ(VideoRenderFrame(0, 0, 0, 0, 0, 0, 0, 0, 0, &byte, &header, 0, nullptr),
            ResultBadArgument);
  EXPECT_EQ(VideoRenderSetFPS(nullptr, 25), ResultBadArgument);
  EXPECT_EQ(VideoRenderClose(nullptr), 1);
  EXPECT_EQ(header.biSize, 0u);
}

TEST(SharedObject, FixedResults) {
  EXPECT_EQ(BmpReSize(), ResultNotImplemented);
  EXPECT_EQ(BmpStretchDIB(), ResultNotImplemented);
  EXPECT_EQ(BmpStretchDIBEx(), ResultNotImplemented);
  EXPECT_EQ(BmpStretchDIBEx2(), ResultNotImplemented);
  // A session that never decoded: nothing to release, nothing to read.
  CodecHandle session = H264CodecOpen();
  ASSERT_NE(session, nullptr);
  EXPECT_EQ(H264CodecGetFormat(session), 1);
  EXPECT_EQ(H264CodecSetCallback(session, nullptr), 0);
  EXPECT_EQ(H264CodecReset(session), 1);
  EXPECT_EQ(H264CodecResetEx(session), 1);
  EXPECT_EQ(H264CodecClose(session), 1);
}

// The records have one layout on both sides of the edge, in C as in C++.
TEST(PublicHeader, SameRecordsInCAndCxx) {
  EXPECT_EQ(CorvaneHeaderRecordSizeC(), 80);
  EXPECT_EQ(CorvaneHeaderPixelsOffsetC(), 24);
  EXPECT_EQ(offsetof(CodecFrameRecord, pixels), 24u);
  EXPECT_EQ(offsetof(CodecFrameRecord, size), 32u);
  EXPECT_EQ(offsetof(BITMAPINFOHEADER, biXPelsPerMeter), 24u);
  EXPECT_EQ(offsetof(BITMAPINFOHEADER, biClrImportant), 36u);
}

}  // namespace
