// The decoder's calls below itself, watched and failed one at a time through
// its table of calls: every failure of set-up and conversion gives its result,
// keeps no lock, leaves the session ready for the next packet (whose pictures
// are FFmpeg's own), and leaks nothing (the sanitizer build checks that).
// Set-up runs its steps in order, "H264initMutex" only inside the session's
// lock, and a running session makes its conversion context and filter scratch
// once.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "decoder/decoding.h"
#include "decoder/session.h"

namespace corvane::decoder {
namespace {

using Log = std::vector<std::string>;

// Logs every call of the table by name; the first call of `failName` fails
// without reaching the real one. Single-threaded: only the test's thread
// calls the table.
struct Watch {
  static inline Log log;
  static inline std::string failName;
  static inline int sessionHeld = 0, initHeld = 0, orderViolations = 0;

  static bool Note(const std::string& entry) {
    log.push_back(entry);
    if (entry.substr(0, entry.find(' ')) != failName) return false;
    failName.clear();
    return true;
  }
  static Log Take(bool withLocks = true) {
    Log taken;
    for (const std::string& e : log)
      if (withLocks || e.find("lock") == std::string::npos) taken.push_back(e);
    log.clear();
    return taken;
  }

  static const AVCodec* FindDecoder(const char* name) {
    return Note(std::string("findDecoder ") + name) ? nullptr : RealCalls().findDecoder(name);
  }
  static AVCodecContext* AllocContext(const AVCodec* codec) {
    return Note("allocContext") ? nullptr : RealCalls().allocContext(codec);
  }
  static int OpenCodec(AVCodecContext* c, const AVCodec* codec, AVDictionary** options) {
    // What set-up asks of the decoder before it opens it.
    const bool asked = c->thread_count == 0 && (c->thread_type & FF_THREAD_SLICE) &&
                       (c->flags & AV_CODEC_FLAG_OUTPUT_CORRUPT) &&
                       (c->flags2 & AV_CODEC_FLAG2_SHOW_ALL);
    if (Note(asked ? "openCodec" : "openCodec unconfigured")) return AVERROR(ENOMEM);
    return RealCalls().openCodec(c, codec, options);
  }
  static void FreeContext(AVCodecContext** context) {
    if (*context) Note("freeContext");
    RealCalls().freeContext(context);
  }
  static AVFrame* AllocFrame() { return Note("allocFrame") ? nullptr : RealCalls().allocFrame(); }
  static AVPacket* AllocPacket() {
    return Note("allocPacket") ? nullptr : RealCalls().allocPacket();
  }
  static SwsContext* GetSwsContext(int sw, int sh, AVPixelFormat sf, int dw, int dh,
                                   AVPixelFormat df, int flags, SwsFilter* a, SwsFilter* b,
                                   const double* p) {
    if (Note("getSwsContext")) return nullptr;
    return RealCalls().getSwsContext(sw, sh, sf, dw, dh, df, flags, a, b, p);
  }
  static int Scale(SwsContext* c, const uint8_t* const src[], const int srcStride[], int y, int h,
                   uint8_t* const dst[], const int dstStride[]) {
    if (Note("scale")) return AVERROR(EINVAL);
    return RealCalls().scale(c, src, srcStride, y, h, dst, dstStride);
  }
  static PrimitiveStatus MedianBufferSize(ImageSize r, ImageSize m, PixelType t, int32_t c,
                                          int32_t* size) {
    return Note("medianBufferSize") ? StatusSize : RealCalls().medianBufferSize(r, m, t, c, size);
  }
  static PrimitiveStatus SharpenBufferSize(ImageSize r, int32_t m, PixelType t, PixelType d,
                                           int32_t c, int32_t* size) {
    return Note("sharpenBufferSize") ? StatusSize
                                     : RealCalls().sharpenBufferSize(r, m, t, d, c, size);
  }
  static void Wait(platform::Mutex* m) {
    RealCalls().waitMutex(m);
    const bool init = m == InitMutex();
    if (init && sessionHeld == 0) ++orderViolations;  // only ever inside a session's lock
    ++(init ? initHeld : sessionHeld);
    Note(init ? "lock init" : "lock session");
  }
  static void Release(platform::Mutex* m) {
    const bool init = m == InitMutex();
    if (!init && sessionHeld == 1 && initHeld > 0) ++orderViolations;  // ... and given back first
    --(init ? initHeld : sessionHeld);
    Note(init ? "unlock init" : "unlock session");
    RealCalls().releaseMutex(m);
  }
};

constexpr DecoderCalls kWatched{
    &Watch::FindDecoder,      &Watch::AllocContext,      &Watch::OpenCodec,     &Watch::FreeContext,
    &Watch::AllocFrame,       &Watch::AllocPacket,       &Watch::GetSwsContext, &Watch::Scale,
    &Watch::MedianBufferSize, &Watch::SharpenBufferSize, &Watch::Wait,          &Watch::Release,
};

const test::StreamRecipe& kBaseline = test::kStreams[0];  // H.264, 176 pixels a row
const test::StreamRecipe& kHevc = test::kStreams[1];
const test::StreamRecipe& kOdd = test::kStreams[3];  // H.264 4:4:4, 175 pixels a row

// A test clip, and FFmpeg's pictures of it as a session decodes them: one a
// packet, plain or filtered in the mode given.
struct Clip {
  Clip(const test::StreamRecipe& recipe, int32_t mode)
      : codecId(recipe.codecId), mode(mode), packets(test::LoadPackets(recipe)) {
    pictures = test::ReferenceDecode(packets, codecId, true, false);
    for (test::Picture& p : pictures)
      p = mode == ModeMedian ? test::Median3x3(p) : mode == ModeSharpen ? test::Sharpen3x3(p) : p;
  }
  int32_t codecId, mode;
  std::vector<test::Packet> packets;
  std::vector<test::Picture> pictures;
};

// What the pictures that come out must be, and how many came out wrong.
const test::Picture* g_expected = nullptr;
int g_rows = 0;
int g_delivered = 0, g_wrong = 0;

void Check(const uint8_t* pixels, int width, int height) {
  ++g_delivered;
  if (!g_expected || width != g_expected->width || height != g_expected->height ||
      test::FirstDifferingRow(pixels, g_expected->bgr.data(), width, g_rows) != -1)
    ++g_wrong;
}

void OnPicture(const CodecFrameRecord* r) { Check(r->pixels, r->width, r->height); }

// Packet `n` into a buffer of one picture, or with `callback` through the
// frame callback; a picture that comes out is checked.
int32_t Feed(CodecSession* session, const Clip& clip, size_t n, bool callback = false) {
  const test::Picture& picture = clip.pictures[n];
  g_expected = &picture;
  // The plain road leaves the last row to the caller.
  g_rows = clip.mode != ModePlain ? picture.height : picture.height - 1;
  std::vector<uint8_t> out(callback ? 0 : picture.bgr.size());
  BITMAPINFOHEADER header{};
  SetFrameCallback(session, OnPicture);
  const test::Packet& packet = clip.packets[n];
  const int32_t result =
      CodecDecompress(session, packet.data(), static_cast<int32_t>(packet.size()), &header,
                      out.data(), static_cast<int32_t>(out.size()), clip.mode, clip.codecId);
  if (!callback && header.biSize == sizeof header && result == 0)
    Check(out.data(), header.biWidth, header.biHeight);
  return result;
}

// The whole clip from its first packet: every picture FFmpeg's own.
void ExpectWholeClip(CodecSession* session, const Clip& clip) {
  g_delivered = g_wrong = 0;
  for (size_t n = 0; n < clip.packets.size(); ++n) EXPECT_EQ(Feed(session, clip, n), 0) << n;
  EXPECT_EQ(g_delivered, static_cast<int>(clip.packets.size()));
  EXPECT_EQ(g_wrong, 0);
}

class DecoderSeam : public ::testing::Test {
 protected:
  // The library's load makes the set-up lock; this test links the objects
  // without the load.
  static void SetUpTestSuite() {
    if (!InitMutex()) CreateInitMutex();
  }
  void SetUp() override {
    Watch::Take();
    Watch::failName.clear();
    Watch::orderViolations = 0;
    SetDecoderCallsForTesting(&kWatched);
  }
  void TearDown() override {
    SetDecoderCallsForTesting(nullptr);
    EXPECT_EQ(Watch::orderViolations, 0);
    EXPECT_EQ(Watch::sessionHeld + Watch::initHeld, 0) << "a lock was not given back";
  }
};

TEST_F(DecoderSeam, SetUpRunsItsStepsInOrderUnderTheSessionLockThenTheInitLock) {
  const Clip clip(kBaseline, ModePlain);
  CodecSession* session = OpenSession();
  // A packet without parameters leaves the session binding, and the next call
  // sets up again, releasing the decoder the first one made.
  EXPECT_EQ(Feed(session, clip, 1), ResultNoParameters);
  EXPECT_EQ(Feed(session, clip, 0), 0);
  const Log setUp = {"lock session", "lock init",  "findDecoder h264", "allocContext",
                     "openCodec",    "allocFrame", "allocPacket",      "unlock init"};
  Log again = setUp;
  again.insert(again.begin() + 3, "freeContext");
  Log log = Watch::Take();
  ASSERT_GE(log.size(), 18u);
  EXPECT_EQ(Log(log.begin(), log.begin() + 8), setUp);
  EXPECT_EQ(log[8], "unlock session");
  EXPECT_EQ(Log(log.begin() + 9, log.begin() + 18), again);
  EXPECT_EQ(log.back(), "unlock session");

  // Settled: the next call takes the session's lock alone.
  EXPECT_EQ(Feed(session, clip, 1), 0);
  log = Watch::Take();
  EXPECT_EQ(std::count(log.begin(), log.end(), "lock init"), 0);
  EXPECT_EQ(log.front(), "lock session");
  // A reset and a close take both; the close finds no decoder to free.
  EXPECT_EQ(ResetSession(session), 1);
  EXPECT_EQ(Watch::Take(),
            Log({"lock session", "lock init", "freeContext", "unlock init", "unlock session"}));
  EXPECT_EQ(CloseSession(session), 1);
  EXPECT_EQ(Watch::Take(), Log({"lock session", "lock init", "unlock init", "unlock session"}));
}

TEST_F(DecoderSeam, EachFailedSetUpStepGivesItsResultAndTheNextCallStartsOver) {
  const struct {
    const char* call;
    int32_t result;
  } failures[] = {{"findDecoder", ResultDecoderUnavailable},
                  {"allocContext", ResultDecoderUnavailable},
                  {"openCodec", ResultDecoderUnavailable},
                  {"allocFrame", ResultNoResource},
                  {"allocPacket", ResultNoResource}};
  for (const test::StreamRecipe* spec : {&kBaseline, &kHevc}) {
    const Clip clip(*spec, ModePlain);
    for (const auto& f : failures) {
      SCOPED_TRACE(std::string(spec->file) + " " + f.call);
      CodecSession* session = OpenSession();
      Watch::failName = f.call;
      std::vector<uint8_t> out(clip.pictures[0].bgr.size(), 0x5A);
      const BITMAPINFOHEADER untouched = test::Filled(0xEE, false);
      BITMAPINFOHEADER header = untouched;
      const test::Packet& packet = clip.packets[0];
      EXPECT_EQ(
          CodecDecompress(session, packet.data(), static_cast<int32_t>(packet.size()), &header,
                          out.data(), static_cast<int32_t>(out.size()), ModePlain, clip.codecId),
          f.result);
      // Nothing written; the session binding to the new codec.
      EXPECT_EQ(std::memcmp(&header, &untouched, sizeof header), 0);
      EXPECT_EQ(out, std::vector<uint8_t>(out.size(), 0x5A));
      EXPECT_TRUE(session->needsInit);
      EXPECT_EQ(session->codecId.load(), clip.codecId);
      EXPECT_EQ(Watch::sessionHeld + Watch::initHeld, 0);
      ExpectWholeClip(session, clip);
      EXPECT_EQ(CloseSession(session), 1);
    }
  }
}

// A set-up that failed left its codec bound: the other codec's call resets the
// session (a lock cycle of its own) before it sets up anew.
TEST_F(DecoderSeam, AFailedSetUpThenTheOtherCodecResetsFirst) {
  const Clip h264(kBaseline, ModePlain), hevc(kHevc, ModePlain);
  for (const std::string failing : {"findDecoder", "openCodec"}) {
    SCOPED_TRACE(failing);
    CodecSession* session = OpenSession();
    Watch::failName = failing;
    EXPECT_EQ(Feed(session, h264, 0), ResultDecoderUnavailable);
    EXPECT_EQ(session->codecId.load(), CodecH264);
    Watch::Take();
    ExpectWholeClip(session, hevc);
    const Log log = Watch::Take();
    Log reset = {"lock session", "lock init", "unlock init", "unlock session"};
    // Only the open that failed left a context behind.
    if (failing == "openCodec") reset.insert(reset.begin() + 2, "freeContext");
    ASSERT_GT(log.size(), reset.size() + 2);
    EXPECT_EQ(Log(log.begin(), log.begin() + reset.size()), reset);
    EXPECT_EQ(log[reset.size() + 2], "findDecoder hevc");
    EXPECT_EQ(CloseSession(session), 1);
  }
}

TEST_F(DecoderSeam, EachFailedConversionStepGivesNoResourceAndTheNextPictureIsWhole) {
  const struct {
    const char* call;
    int32_t mode;
  } failures[] = {{"getSwsContext", ModePlain},     {"scale", ModePlain},
                  {"getSwsContext", ModeMedian},    {"scale", ModeMedian},
                  {"medianBufferSize", ModeMedian}, {"sharpenBufferSize", ModeSharpen}};
  // 175 pixels a row go through scratch rows, 176 straight to the destination.
  for (const test::StreamRecipe* spec : {&kBaseline, &kOdd}) {
    for (const auto& f : failures) {
      const Clip clip(*spec, f.mode);
      for (const bool callback : {false, true}) {
        SCOPED_TRACE(std::string(spec->file) + " " + f.call + (callback ? " callback" : "") +
                     (f.mode == ModeMedian ? " median" : ""));
        CodecSession* session = OpenSession();
        g_delivered = g_wrong = 0;
        Watch::failName = f.call;
        EXPECT_EQ(Feed(session, clip, 0, callback), ResultNoResource);
        EXPECT_EQ(g_delivered, 0);
        EXPECT_EQ(Feed(session, clip, 1, callback), 0);
        EXPECT_EQ(Feed(session, clip, 2, callback), 0);
        EXPECT_EQ(g_delivered, 2);
        EXPECT_EQ(g_wrong, 0);
        EXPECT_EQ(CloseSession(session), 1);
      }
    }
  }
}

// Into the caller's buffer a session makes its conversion context and filter
// scratch with its first picture and keeps them; the callback's road makes a
// context a picture. The other filter stage makes its own scratch. A reset
// starts both over.
TEST_F(DecoderSeam, ContextAndScratchAreMadeOncePerSetUpAndStage) {
  const Clip clips[] = {Clip(kBaseline, ModeMedian), Clip(kBaseline, ModeSharpen)};
  for (const bool callback : {false, true}) {
    SCOPED_TRACE(callback ? "callback" : "buffer");
    CodecSession* session = OpenSession();
    for (int round = 0; round < 2; ++round) {
      for (const Clip& clip : clips) {
        for (size_t n = 0; n < 4; ++n) EXPECT_EQ(Feed(session, clip, n, callback), 0);
        const Log log = Watch::Take(false);
        if (&clip == clips || callback) {
          EXPECT_EQ(std::count(log.begin(), log.end(), "getSwsContext"), callback ? 4 : 1);
        }
        const char* sizing = &clip == clips ? "medianBufferSize" : "sharpenBufferSize";
        EXPECT_EQ(std::count(log.begin(), log.end(), sizing), 1) << sizing;
      }
      ResetSession(session);
    }
    EXPECT_EQ(CloseSession(session), 1);
  }
}

}  // namespace
}  // namespace corvane::decoder
