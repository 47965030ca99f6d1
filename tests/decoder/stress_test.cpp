// Eight sessions on eight threads, a thousand packets each, all at once: the
// streams start over at random after resets, after resets from inside the
// frame callback and after a change of codec, and pictures go to the caller's
// buffer or through the callback, plain or filtered. Every picture is FFmpeg's
// own. Under the thread sanitizer this is the decoder's race check.
#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>

#include "decoder/decoding.h"

namespace corvane::test {
namespace {

constexpr int kSessions = 8;
constexpr int kPacketsEach = 1000;

struct Stream {
  const StreamRecipe* spec;
  bool median;
  std::vector<Packet> packets;
  std::vector<Picture> expected;
};

// What the frame callback of one thread compares against, and what it does.
struct CallbackTask {
  const Picture* expected = nullptr;
  bool filtered = false;
  bool resetFromInside = false;
  int called = 0;
  int wrong = 0;
};
thread_local CallbackTask t_task;

void OnPicture(const CodecFrameRecord* record) {
  CallbackTask& task = t_task;
  ++task.called;
  const Picture& p = *task.expected;
  const int rows = task.filtered ? p.height : p.height - 1;
  if (record->width != p.width || record->height != p.height ||
      FirstDifferingRow(record->pixels, p.bgr.data(), p.width, rows) != -1)
    ++task.wrong;
  // A callback may reset its own session; the stream then starts over.
  if (task.resetFromInside) H264CodecReset(static_cast<CodecHandle>(record->session));
}

struct Tally {
  int pictures = 0;
  int callbacks = 0;
  int wrong = 0;
  int unexpectedResults = 0;
};

Tally RunSession(const std::vector<Stream>& streams, unsigned seed) {
  std::mt19937 random(seed);
  Tally tally;
  CodecHandle session = H264CodecOpen();
  H264CodecSetCallback(session, OnPicture);
  const Stream* stream = &streams[random() % streams.size()];
  size_t next = 0;
  std::vector<uint8_t> out;
  for (int fed = 0; fed < kPacketsEach; ++fed) {
    // A stream that ends goes on from its first picture, which refers to
    // nothing before it. Now and then, also before its end, another stream
    // takes over: after a reset of our own, or with the other codec, whose
    // call resets the session by itself.
    if (next == stream->packets.size() || random() % 64 == 0) {
      if (next != stream->packets.size() || random() % 4 == 0) {
        const Stream* previous = stream;
        stream = &streams[random() % streams.size()];
        if (stream->spec->codecId == previous->spec->codecId) H264CodecReset(session);
      }
      next = 0;
    }
    const Picture& picture = stream->expected[next];
    const bool callbackRoad = random() % 3 == 0;
    t_task.expected = &picture;
    t_task.filtered = stream->median;
    t_task.resetFromInside = callbackRoad && random() % 8 == 0;
    out.assign(callbackRoad ? 0 : picture.bgr.size(), 0);
    const Packet& packet = stream->packets[next++];
    BITMAPINFOHEADER header{};
    const int before = t_task.called;
    const auto decompress = stream->median ? H264CodecDecompressMedian : For(stream->spec->codecId);
    const int32_t result = decompress(session, packet.data(), static_cast<int32_t>(packet.size()),
                                      &header, out.data(), static_cast<int32_t>(out.size()));
    if (result != 0) ++tally.unexpectedResults;
    ++tally.pictures;
    if (callbackRoad) {
      tally.callbacks += t_task.called - before;
      if (t_task.called == before) ++tally.wrong;
      if (t_task.resetFromInside) next = 0;
    } else if (FirstDifferingRow(out.data(), picture.bgr.data(), picture.width,
                                 stream->median ? picture.height : picture.height - 1) != -1) {
      ++tally.wrong;
    }
  }
  tally.wrong += t_task.wrong;
  H264CodecClose(session);
  return tally;
}

TEST(DecoderStress, EightSessionsAThousandPacketsEachWithResetsAndCallbacks) {
  std::vector<Stream> streams;
  // H.264 plain and median, H.265, H.264 of four slices a picture (work for
  // slice threads), and H.264 4:4:4 of 175 pixels a row.
  for (const auto& [spec, median] : {std::pair{&kStreams[0], false}, std::pair{&kStreams[0], true},
                                     std::pair{&kStreams[1], false}, std::pair{&kStreams[2], false},
                                     std::pair{&kStreams[3], false}}) {
    Stream s{spec, median, LoadPackets(*spec), {}};
    s.expected = ReferenceDecode(s.packets, spec->codecId, true, false);
    if (median)
      for (Picture& p : s.expected) p = Median3x3(p);
    ASSERT_EQ(s.expected.size(), s.packets.size()) << spec->file;
    streams.push_back(std::move(s));
  }
  Tally tallies[kSessions];
  std::vector<std::thread> threads;
  for (int t = 0; t < kSessions; ++t)
    threads.emplace_back([&, t] { tallies[t] = RunSession(streams, 1234u + t); });
  for (std::thread& thread : threads) thread.join();
  for (int t = 0; t < kSessions; ++t) {
    SCOPED_TRACE(t);
    EXPECT_EQ(tallies[t].pictures, kPacketsEach);
    EXPECT_EQ(tallies[t].wrong, 0);
    EXPECT_EQ(tallies[t].unexpectedResults, 0);
    EXPECT_GT(tallies[t].callbacks, 0);
  }
}

}  // namespace
}  // namespace corvane::test
