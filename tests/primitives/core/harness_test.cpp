// The harness itself: a guarded image catches a stray write on each side and
// names the very byte, as row(y)[x] of the caller's rows.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "harness/guarded_image.h"

namespace corvane::test {
namespace {

TEST(GuardedImage, NamesTheStrayByteOnEachSide) {
  struct Case {
    bool bottomUp;
    int32_t y, x;  // byte to write, relative to row y of the image
  };
  // Left and right of rows, in the gap between two, above and below.
  for (const Case& c :
       {Case{false, 0, -1}, Case{false, 2, 10}, Case{false, 1, 12}, Case{false, 0, -90},
        Case{false, 3, 90}, Case{true, 3, -1}, Case{true, 0, 10}, Case{true, 0, 90}}) {
    GuardedImage image(ImageLayout{10, 4, 6, c.bottomUp, 3});
    EXPECT_TRUE(image.CheckGuards());
    image.FillValue(0x42);
    EXPECT_TRUE(image.CheckGuards()) << "writes inside the image are fine";
    image.row(c.y)[c.x] = 0;
    const ::testing::AssertionResult r = image.CheckGuards();
    ASSERT_FALSE(r) << c.y << "," << c.x;
    const std::string message = r.message();
    int y = 0, x = 0;
    ASSERT_EQ(std::sscanf(message.c_str() + message.find("row("), "row(%d)[%d]", &y, &x), 2)
        << message;
    EXPECT_EQ(image.row(y) + x, image.row(c.y) + c.x) << message;
  }
}

}  // namespace
}  // namespace corvane::test
