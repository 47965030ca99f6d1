// The decoder's calls below itself, watched and failed one at a time through
// its table of calls: the order of set-up, its locks, failures that leave the
// session ready (and leak nothing: the sanitizer build checks that), and reuse.
#include <gtest/gtest.h>

#include <utility>

#include "decoder/decoding.h"
#include "decoder/session.h"

namespace corvane::decoder {
namespace {

using Log = std::vector<std::string>;

// Logs every call of the table by name; the first call of `failName` fails
// without reaching the real one. Only the test's thread calls the table.
struct Watch {
  static inline Log log;
  static inline std::string failName;
  static inline int sessionHeld = 0, initHeld = 0, orderViolations = 0;

  static bool Note(const std::string& entry) {
    log.push_back(entry);
    return entry.substr(0, entry.find(' ')) == failName && (failName.clear(), true);
  }
  static Log Take() { return std::exchange(log, {}); }
  // "H264initMutex" only ever inside a session's lock, and given back first.
  static void Wait(platform::Mutex* m) {
    RealCalls().waitMutex(m);
    const bool init = m == InitMutex();
    orderViolations += init && sessionHeld == 0;
    ++(init ? initHeld : sessionHeld);
    Note(init ? "lock init" : "lock session");
  }
  static void Release(platform::Mutex* m) {
    const bool init = m == InitMutex();
    orderViolations += !init && sessionHeld == 1 && initHeld > 0;
    --(init ? initHeld : sessionHeld);
    Note(init ? "unlock init" : "unlock session");
    RealCalls().releaseMutex(m);
  }
};

// The real call of that name, or `failed` when it is the one to fail.
#define WATCHED(call, failed) \
  [](auto... a) { return Watch::Note(#call) ? failed : RealCalls().call(a...); }
const DecoderCalls kWatched{[](const char* name) {
                              return Watch::Note(std::string("findDecoder ") + name)
                                         ? nullptr
                                         : RealCalls().findDecoder(name);
                            },
                            WATCHED(allocContext, nullptr),
                            [](AVCodecContext* c, const AVCodec* codec, AVDictionary** options) {
                              // What set-up asks of the decoder before it opens it.
                              const bool asked = c->thread_count == 0 &&
                                                 (c->thread_type & FF_THREAD_SLICE) &&
                                                 (c->flags & AV_CODEC_FLAG_OUTPUT_CORRUPT) &&
                                                 (c->flags2 & AV_CODEC_FLAG2_SHOW_ALL);
                              return Watch::Note(asked ? "openCodec" : "openCodec unconfigured")
                                         ? AVERROR(ENOMEM)
                                         : RealCalls().openCodec(c, codec, options);
                            },
                            [](AVCodecContext** context) {
                              if (*context) Watch::Note("freeContext");
                              RealCalls().freeContext(context);
                            },
                            WATCHED(allocFrame, nullptr),
                            WATCHED(allocPacket, nullptr),
                            WATCHED(getSwsContext, nullptr),
                            WATCHED(scale, AVERROR(EINVAL)),
                            WATCHED(medianBufferSize, StatusSize),
                            WATCHED(sharpenBufferSize, StatusSize),
                            &Watch::Wait,
                            &Watch::Release};
#undef WATCHED

using test::Clip;
using test::ExpectClipFrom;
using test::FeedChecked;
using test::t_checked;
const test::StreamRecipe& kBaseline = test::kStreams[0];  // H.264, 176 pixels a row
const test::StreamRecipe& kHevc = test::kStreams[1];
const test::StreamRecipe& kOdd = test::kStreams[3];  // H.264 4:4:4, 175 pixels a row

class DecoderSeam : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!InitMutex()) CreateInitMutex();  // the library's load makes it; the archive has no load
    Watch::Take(), Watch::failName.clear(), Watch::orderViolations = 0;
    SetDecoderCallsForTesting(&kWatched);
  }
  void TearDown() override {
    SetDecoderCallsForTesting(nullptr);
    EXPECT_EQ(Watch::orderViolations, 0);
    EXPECT_EQ(Watch::sessionHeld + Watch::initHeld, 0) << "a lock was not given back";
  }
};

TEST_F(DecoderSeam, SetUpRunsItsStepsInOrderUnderTheSessionLockThenTheInitLock) {
  const Clip clip(kBaseline);
  CodecHandle session = H264CodecOpen();
  // A packet without parameters leaves the session binding, and the next call
  // sets up again, releasing the decoder the first one made.
  EXPECT_EQ(FeedChecked(session, clip, 1, false), ResultNoParameters);
  EXPECT_EQ(FeedChecked(session, clip, 0, false), 0);
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
  EXPECT_EQ(FeedChecked(session, clip, 1, false), 0);
  log = Watch::Take();
  EXPECT_EQ(std::count(log.begin(), log.end(), "lock init"), 0);
  EXPECT_EQ(log.front(), "lock session");
  // A reset and a close take both; the close finds no decoder to free.
  EXPECT_EQ(H264CodecReset(session), 1);
  EXPECT_EQ(Watch::Take(),
            Log({"lock session", "lock init", "freeContext", "unlock init", "unlock session"}));
  EXPECT_EQ(H264CodecClose(session), 1);
  EXPECT_EQ(Watch::Take(), Log({"lock session", "lock init", "unlock init", "unlock session"}));
}

// A failed set-up writes nothing and the next call starts over; a failed
// conversion delivers nothing and the next picture is whole, on either road.
TEST_F(DecoderSeam, EachFailedCallGivesItsResultAndTheSessionDecodesOn) {
  // Set-up's five calls, conversion's two, then each filter stage's sizing.
  // clang-format off
  const std::pair<std::string, int32_t> failures[] = {
      {"findDecoder", ResultDecoderUnavailable}, {"allocContext", ResultDecoderUnavailable},
      {"openCodec", ResultDecoderUnavailable}, {"allocFrame", ResultNoResource},
      {"allocPacket", ResultNoResource}, {"getSwsContext", ResultNoResource},
      {"scale", ResultNoResource}, {"medianBufferSize", ResultNoResource},
      {"sharpenBufferSize", ResultNoResource}};
  // clang-format on
  // 175 pixels a row go through scratch rows, 176 straight to the destination.
  for (const Clip& clip : {Clip(kBaseline), Clip(kBaseline, 1), Clip(kBaseline, 2), Clip(kHevc),
                           Clip(kOdd), Clip(kOdd, 1), Clip(kOdd, 2)})
    for (size_t f = 0; f < std::size(failures); ++f)
      for (const bool callback : {false, true}) {
        const auto& [call, result] = failures[f];
        if (f >= 7 && clip.filter != int(f) - 6) continue;
        SCOPED_TRACE(std::string(clip.recipe.file) + " filter " + std::to_string(clip.filter) +
                     " " + call + (callback ? " callback" : ""));
        CodecHandle session = H264CodecOpen();
        Watch::failName = call;
        t_checked = {};
        BITMAPINFOHEADER header = test::Filled(0xEE, false);
        EXPECT_EQ(FeedChecked(session, clip, 0, callback, &header), result);
        EXPECT_EQ(t_checked.delivered, 0);
        EXPECT_TRUE(f >= 5 || header == test::Filled(0xEE, false));
        ExpectClipFrom(session, clip, f < 5 ? 0 : 1, callback);
        EXPECT_EQ(H264CodecClose(session), 1);
      }
}

// A set-up that failed left its codec bound: the other codec's call resets the
// session (a lock cycle of its own) before it sets up anew.
TEST_F(DecoderSeam, AFailedSetUpThenTheOtherCodecResetsFirst) {
  const Clip h264(kBaseline), hevc(kHevc);
  for (const std::string failing : {"findDecoder", "openCodec"}) {
    SCOPED_TRACE(failing);
    CodecHandle session = H264CodecOpen();
    Watch::failName = failing;
    EXPECT_EQ(FeedChecked(session, h264, 0, false), ResultDecoderUnavailable);
    Watch::Take();
    ExpectClipFrom(session, hevc, 0);
    const Log log = Watch::Take();
    Log reset = {"lock session", "lock init", "unlock init", "unlock session"};
    // Only the open that failed left a context behind.
    if (failing == "openCodec") reset.insert(reset.begin() + 2, "freeContext");
    ASSERT_GT(log.size(), reset.size() + 2);
    EXPECT_EQ(Log(log.begin(), log.begin() + reset.size()), reset);
    EXPECT_EQ(log[reset.size() + 2], "findDecoder hevc");
    EXPECT_EQ(H264CodecClose(session), 1);
  }
}

// The conversion context and each stage's scratch, made once a set-up into the
// caller's buffer; the callback's road makes a context a picture.
TEST_F(DecoderSeam, ContextAndScratchAreMadeOncePerSetUpAndStage) {
  const Clip clips[] = {Clip(kBaseline, 1), Clip(kBaseline, 2)};
  for (const bool callback : {false, true}) {
    SCOPED_TRACE(callback ? "callback" : "buffer");
    CodecHandle session = H264CodecOpen();
    for (int round = 0; round < 2; ++round) {
      for (const Clip& clip : clips) {
        for (size_t n = 0; n < 4; ++n) EXPECT_EQ(FeedChecked(session, clip, n, callback), 0);
        const Log log = Watch::Take();
        if (clip.filter == 1 || callback) {
          EXPECT_EQ(std::count(log.begin(), log.end(), "getSwsContext"), callback ? 4 : 1);
        }
        const char* sizing = clip.filter == 1 ? "medianBufferSize" : "sharpenBufferSize";
        EXPECT_EQ(std::count(log.begin(), log.end(), sizing), 1) << sizing;
      }
      H264CodecReset(session);
    }
    EXPECT_EQ(H264CodecClose(session), 1);
  }
}

}  // namespace
}  // namespace corvane::decoder
