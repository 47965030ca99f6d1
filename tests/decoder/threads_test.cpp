// Sessions decode in parallel: four sessions on four threads at once give the
// pictures each gives alone.
#include <gtest/gtest.h>

#include <thread>

#include "decoder/decoding.h"

namespace corvane::test {
namespace {

TEST(ParallelSessions, FourThreadsGiveTheSamePicturesAsAlone) {
  const StreamSpec* specs[] = {&kBaseline176, &kHigh320, &kHevc176, &kOdd175x143};
  constexpr size_t kStreams = std::size(specs);
  constexpr int kRounds = 3;
  std::vector<Packet> packets[kStreams];
  std::vector<Picture> expected[kStreams];
  for (size_t t = 0; t < kStreams; ++t) {
    packets[t] = LoadPackets(*specs[t]);
    expected[t] = ExpectedPictures(packets[t], specs[t]->codecId);
  }
  Delivered got[kStreams][kRounds];
  std::vector<std::thread> threads;
  for (size_t t = 0; t < kStreams; ++t) {
    threads.emplace_back([&, t] {
      CodecHandle session = H264CodecOpen();
      // Each round starts over after a reset, so that set-ups and
      // tear-downs of all threads overlap with the others' decoding.
      for (Delivered& round : got[t]) {
        H264CodecReset(session);
        round = DecodeAll(session, DecompressFor(specs[t]->codecId), packets[t], specs[t]->width,
                          specs[t]->height);
      }
      H264CodecClose(session);
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (size_t t = 0; t < kStreams; ++t)
    for (const Delivered& round : got[t]) {
      SCOPED_TRACE(specs[t]->file);
      EXPECT_EQ(ComparePictures(round.pictures, expected[t]), "");
      EXPECT_EQ(round.lastRowOverwritten + round.badHeaders, 0);
    }
}

}  // namespace
}  // namespace corvane::test
