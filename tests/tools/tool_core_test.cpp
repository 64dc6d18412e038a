// The tool's colour conversion against the textbook full-range BT.601 weights: the end-to-end
// tests in test_cli.py convert pictures both ways, which a consistently wrong matrix survives.
#include <gtest/gtest.h>

#include <algorithm>

#include "color.h"

using namespace vtool;

TEST(Color, FullRangeBt601ForKnownColours) {
    const int colours[][3] = {{255, 255, 255}, {0, 0, 0},       {255, 0, 0},     {0, 255, 0},
                              {0, 0, 255},     {128, 128, 128}, {196, 152, 128}, {30, 200, 210}};
    for (const auto& c : colours) {
        picture p = make_picture(2, 2, 3);
        for (int i = 0; i < 12; ++i)
            p.pixels[i] = static_cast<uint8_t>(c[i % 3]);
        const frame f = picture_to_nv21(p);
        const double y = 0.299 * c[0] + 0.587 * c[1] + 0.114 * c[2];
        const double u = 128 + (c[2] - y) / 1.772, v = 128 + (c[0] - y) / 1.402;
        EXPECT_NEAR(f.bytes[0], y, 1.01) << c[0] << "," << c[1] << "," << c[2];
        EXPECT_NEAR(f.bytes[4], std::min(255.0, v), 1.01) << "V of " << c[0] << "," << c[1];
        EXPECT_NEAR(f.bytes[5], std::min(255.0, u), 1.01) << "U of " << c[0] << "," << c[1];
        const picture q = frame_to_picture(f);
        for (int k = 0; k < 3; ++k)
            EXPECT_NEAR(q.pixels[k], c[k], 3) << c[0] << "," << c[1] << "," << c[2];
    }
}
