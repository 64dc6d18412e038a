// The tool's colour conversion against the textbook full-range BT.601 weights: the end-to-end
// tests in test_cli.py convert pictures both ways, which a consistently wrong matrix survives.
#include <gtest/gtest.h>

#include <algorithm>

#include "color.h"
#include "image.h"

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

// Every Exif orientation, read from little-endian TIFF data, on a 3x2 picture numbered 0 to 5
// row by row: the pixels as they must come out, row by row.
TEST(Picture, ExifOrientations) {
    const uint8_t expected[9][6] = {{},
                                    {0, 1, 2, 3, 4, 5},
                                    {2, 1, 0, 5, 4, 3},   // mirrored left to right
                                    {5, 4, 3, 2, 1, 0},   // turned 180 degrees
                                    {3, 4, 5, 0, 1, 2},   // mirrored top to bottom
                                    {0, 3, 1, 4, 2, 5},   // mirrored across the diagonal
                                    {3, 0, 4, 1, 5, 2},   // turned clockwise
                                    {5, 2, 4, 1, 3, 0},   // mirrored across the other diagonal
                                    {2, 5, 1, 4, 0, 3}};  // turned anticlockwise
    picture p = make_picture(3, 2, 3);
    for (size_t i = 0; i < p.pixels.size(); ++i)
        p.pixels[i] = static_cast<uint8_t>(i / 3);
    for (uint8_t o = 1; o <= 8; ++o) {
        const uint8_t tiff[] = {'I', 'I', '*', 0, 8, 0, 0, 0, 1, 0, 0x12,
                                1,   3,   0,   1, 0, 0, 0, o, 0, 0, 0};
        ASSERT_EQ(exif_orientation(tiff, sizeof tiff), o);
        const picture q = orient_picture(p, o);
        EXPECT_EQ(q.width, o >= 5 ? 2 : 3) << int(o);
        for (int k = 0; k < 6; ++k)
            EXPECT_EQ(q.pixels[3 * k], expected[o][k])
                << "orientation " << int(o) << ", pixel " << k;
    }
}
