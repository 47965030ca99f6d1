// Eight sessions on eight threads, a thousand packets each, all at once: the
// streams start over at random after resets, after resets from inside the
// frame callback and after a change of codec, and pictures go to the caller's
// buffer or through the callback, plain or filtered. Every picture is FFmpeg's
// own. Under the thread sanitizer this is the decoder's race check.
#include <gtest/gtest.h>

#include <random>
#include <thread>

#include "decoder/decoding.h"

namespace corvane::test {
namespace {

constexpr int kPacketsEach = 1000;

Checked RunSession(const std::vector<Clip>& clips, unsigned seed) {
  std::mt19937 random(seed);
  CodecHandle session = H264CodecOpen();
  const Clip* clip = &clips[random() % clips.size()];
  size_t next = 0;
  for (int fed = 0; fed < kPacketsEach; ++fed) {
    // A stream that ends goes on from its first picture. Now and then, also
    // before its end, another takes over: after a reset of our own, or with
    // the other codec, whose call resets the session by itself.
    if (next == clip->packets.size() || random() % 64 == 0) {
      if (next != clip->packets.size() || random() % 4 == 0) {
        const Clip* previous = clip;
        clip = &clips[random() % clips.size()];
        if (clip->recipe.codecId == previous->recipe.codecId) H264CodecReset(session);
      }
      next = 0;
    }
    const bool callback = random() % 3 == 0;
    t_checked.resetInside = callback && random() % 8 == 0;
    t_checked.next = next;
    t_checked.wrong += FeedChecked(session, *clip, next++, callback) != 0;
    if (t_checked.resetInside) next = 0;
  }
  H264CodecClose(session);
  return t_checked;
}

TEST(DecoderStress, EightSessionsAThousandPacketsEachWithResetsAndCallbacks) {
  // H.264 plain and median, H.265, four slices a picture (work for slice
  // threads), and 4:4:4 of 175 pixels a row.
  const std::vector<Clip> clips = {Clip(kStreams[0]), Clip(kStreams[0], 1), Clip(kStreams[1]),
                                   Clip(kStreams[2]), Clip(kStreams[3])};
  Checked tallies[8];
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t)
    threads.emplace_back([&, t] { tallies[t] = RunSession(clips, 1234u + t); });
  for (std::thread& thread : threads) thread.join();
  for (const Checked& t : tallies)
    EXPECT_EQ(std::pair(t.delivered, t.wrong), std::pair(kPacketsEach, 0));
}

}  // namespace
}  // namespace corvane::test
