// Drawing on RGB pictures for the demo's figures: rectangles, pasting, scaling, and text in a
// small built-in 5x7 bitmap font (upper-case letters, digits and the few signs the labels use).
#ifndef VANTOR_TOOLS_DRAW_H
#define VANTOR_TOOLS_DRAW_H

#include <stdint.h>

#include <string>

#include "image.h"

namespace vtool {

struct colour {
    uint8_t r, g, b;
};

constexpr int glyph_width = 5;
constexpr int glyph_height = 7;

// Width in pixels of `text` drawn at `scale` (each font pixel a scale x scale square, one
// column of space after each character).
int text_width(const std::string& text, int scale);
// Draws `text` with its top left corner at (x, y), clipped to the picture. Lower-case letters
// are drawn as capitals; a character the font lacks is drawn as a hollow box.
void draw_text(picture& p, int x, int y, const std::string& text, int scale, colour c);

void fill_rect(picture& p, int x, int y, int width, int height, colour c);
// Copies `src` (RGB) into `dst` (RGB) with its top left corner at (x, y), clipped.
void paste(picture& dst, const picture& src, int x, int y);
// The picture resized to width x height through libyuv, averaging when it shrinks.
picture scale_picture(const picture& p, int width, int height);

}  // namespace vtool

#endif
