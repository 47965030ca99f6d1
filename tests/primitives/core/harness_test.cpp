// The harness itself: a guarded image reports a stray write on each side.
#include <gtest/gtest.h>

#include "harness/guarded_image.h"

namespace corvane::test {
namespace {

TEST(GuardedImage, NamesEachSideOfAStrayWrite) {
  struct Case {
    bool bottomUp;
    int32_t y, x;  // byte to write, relative to row y of the image
    const char* expected;
  };
  for (const Case& c : {Case{false, 0, -1, "left of row 0"}, Case{false, 2, 10, "right of row 2"},
                        Case{false, 1, 12, "left of row 2"}, Case{false, 0, -300, "above"},
                        Case{false, 3, 300, "below"}, Case{true, 3, -1, "left of row 3"},
                        Case{true, 0, 10, "right of row 0"}, Case{true, 0, 300, "below"}}) {
    GuardedImage image(ImageLayout{10, 4, 6, c.bottomUp, 3});
    EXPECT_TRUE(image.CheckGuards());
    image.FillValue(0x42);
    EXPECT_TRUE(image.CheckGuards()) << "writes inside the image are fine";
    image.row(c.y)[c.x] = 0;
    const ::testing::AssertionResult r = image.CheckGuards();
    EXPECT_FALSE(r);
    EXPECT_NE(std::string(r.message()).find(c.expected), std::string::npos)
        << r.message() << " should say " << c.expected;
  }
}

}  // namespace
}  // namespace corvane::test
