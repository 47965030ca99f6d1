// Sessions decode in parallel: four sessions on four threads at once give the
// pictures each gives alone.
#include <gtest/gtest.h>

#include <thread>

#include "decoder/decoding.h"

namespace corvane::test {
namespace {

TEST(ParallelSessions, FourThreadsGiveTheSamePicturesAsAlone) {
    const StreamSpec* specs[] = {&kBaseline176, &kHigh320, &kHevc176, &kOdd175x143};
    std::vector<std::vector<Packet>> packets;
    std::vector<std::vector<Picture>> expected;
    for (const StreamSpec* spec : specs) {
        packets.push_back(LoadPackets(*spec));
        expected.push_back(ExpectedPictures(packets.back(), spec->codecId));
    }

    constexpr int kRounds = 3;
    std::vector<Delivered> got(std::size(specs) * kRounds);
    std::vector<std::thread> threads;
    for (size_t t = 0; t < std::size(specs); ++t) {
        threads.emplace_back([&, t] {
            CodecHandle session = H264CodecOpen();
            // Each round starts the stream over after a reset, so that set-ups
            // and tear-downs of all threads overlap with the others' decoding.
            for (int round = 0; round < kRounds; ++round) {
                H264CodecReset(session);
                got[t * kRounds + round] = DecodeAll(session, specs[t]->codecId, packets[t],
                                                     specs[t]->width, specs[t]->height);
            }
            H264CodecClose(session);
        });
    }
    for (std::thread& thread : threads) thread.join();

    for (size_t t = 0; t < std::size(specs); ++t)
        for (int round = 0; round < kRounds; ++round) {
            SCOPED_TRACE(std::string(specs[t]->file) + " round " + std::to_string(round));
            const Delivered& d = got[t * kRounds + round];
            EXPECT_EQ(CompareAllButLastRow(d.pictures, expected[t]), "");
            EXPECT_EQ(d.lastRowOverwritten, 0);
        }
}

}  // namespace
}  // namespace corvane::test
