// Eight sessions on eight threads at once, streams starting over at random
// after resets (some from inside the callback) and codec changes, on both
// roads: every picture FFmpeg's. Under the thread sanitizer, the race check.
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
    // Now and then another stream takes over: after our reset, or with the
    // other codec, whose call resets the session by itself.
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
