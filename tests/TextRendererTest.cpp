#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/support/Messages.h"
#include "text/Bitmap.h"
#include "text/TextRenderer.h"
#include "vr/LibrarySettings.h"

namespace {

constexpr unsigned MARGIN_X = 10;
constexpr unsigned MARGIN_Y = 6;
constexpr unsigned PIXEL_SIZE = 40;

struct Size {
    unsigned width = 0;
    unsigned height = 0;
};

// The extent of the covered pixels, with y counted down from the top as the renderer's callers count it.
struct Coverage {
    unsigned count = 0;
    unsigned minX = ~0u;
    unsigned maxX = 0;
    unsigned minY = ~0u;
    unsigned maxY = 0;
};

Coverage coverageOf(const Bitmap& bitmap) {
    Coverage result;
    const auto& bytes = bitmap.bytes();
    for (unsigned row = 0; row < bitmap.getHeight(); ++row) {
        for (unsigned x = 0; x < bitmap.getWidth(); ++x) {
            if (bytes[row * bitmap.getWidth() + x] == 0) {
                continue;
            }
            const unsigned y = bitmap.getHeight() - row;
            ++result.count;
            result.minX = std::min(result.minX, x);
            result.maxX = std::max(result.maxX, x);
            result.minY = std::min(result.minY, y);
            result.maxY = std::max(result.maxY, y);
        }
    }
    return result;
}

TextRenderer makeRenderer(const std::string& suffix = "") {
    return TextRenderer(VR::LibrarySettings::instance().fontPath() + suffix);
}

Size render(TextRenderer& renderer, Bitmap& bitmap, const std::string& text) {
    Size size;
    EXPECT_TRUE(renderer.renderText(bitmap, text, MARGIN_X, MARGIN_Y, PIXEL_SIZE, size.width, size.height));
    return size;
}

Size render(TextRenderer& renderer, const std::string& text) {
    Bitmap scratch(512, 256, 1, {});
    return render(renderer, scratch, text);
}

} // namespace

TEST(TextRenderer, RejectsMissingFont) {
    EXPECT_EQ(OrvelTest::thrownMessage([] { makeRenderer(".missing"); }), "Font file not found");
}

TEST(TextRenderer, ReportsTheSizeOfTheTextWithMargins) {
    TextRenderer renderer = makeRenderer();
    const Size a = render(renderer, "A");
    const Size bc = render(renderer, "BC");
    EXPECT_GT(a.width, 2 * MARGIN_X);
    EXPECT_EQ(a.height, PIXEL_SIZE + 2 * MARGIN_Y);
    // Advances add up along a line; the margins are counted once on each side.
    EXPECT_EQ(render(renderer, "ABC").width - 2 * MARGIN_X,
              (a.width - 2 * MARGIN_X) + (bc.width - 2 * MARGIN_X));

    // Several lines take the widest, whichever comes first; each line feed adds a line, even the last.
    const struct {
        const char* text;
        unsigned width;
        unsigned lines;
    } cases[] = {{"A\nBC", bc.width, 2}, {"BC\nA", bc.width, 2}, {"A\n", a.width, 2}, {"", 2 * MARGIN_X, 1}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        const Size size = render(renderer, c.text);
        EXPECT_EQ(size.width, c.width);
        EXPECT_EQ(size.height, c.lines * PIXEL_SIZE + 2 * MARGIN_Y);
    }

    // No text draws nothing: the bitmap's old pixels stay.
    Bitmap bitmap(64, 64, 1, std::vector<unsigned char>(64 * 64, 77));
    render(renderer, bitmap, "");
    EXPECT_EQ(bitmap.bytes(), std::vector<std::uint8_t>(64 * 64, 77));
}

TEST(TextRenderer, PlacesGlyphsOnBaselineBelowMargin) {
    TextRenderer renderer = makeRenderer();
    Bitmap bitmap(256, 128, 1, {});
    const Size size = render(renderer, bitmap, "H");
    const Coverage h = coverageOf(bitmap);
    ASSERT_GT(h.count, 50u);
    // The first baseline lies marginY + pixelSize below the top; "H" sits on it and has no descender.
    EXPECT_GE(h.maxY + 2, MARGIN_Y + PIXEL_SIZE);
    EXPECT_LE(h.maxY, MARGIN_Y + PIXEL_SIZE);
    EXPECT_GT(h.minY, MARGIN_Y);
    EXPECT_GE(h.minX, MARGIN_X);
    EXPECT_LT(h.maxX, size.width - MARGIN_X);

    // A second line is drawn one pixel size lower, at the left margin again.
    Bitmap twoLines(256, 128, 1, {});
    render(renderer, twoLines, "\nH");
    const Coverage lower = coverageOf(twoLines);
    EXPECT_EQ(lower.minY, h.minY + PIXEL_SIZE);
    EXPECT_EQ(lower.maxY, h.maxY + PIXEL_SIZE);
    EXPECT_EQ(lower.minX, h.minX);
    EXPECT_EQ(lower.count, h.count);
}

TEST(TextRenderer, RendersCjkTextAndGlyphsNoFontHas) {
    TextRenderer renderer = makeRenderer();
    Bitmap bitmap(512, 128, 1, {});
    const Size size = render(renderer, bitmap, "测量 注释 측정 測定");
    const Coverage c = coverageOf(bitmap);
    EXPECT_GT(c.count, 1000u);
    // Ideographs advance about one em each (eleven characters including blanks).
    EXPECT_GT(size.width, 2 * MARGIN_X + 8 * PIXEL_SIZE);
    EXPECT_LT(c.maxX, size.width);

    EXPECT_GE(render(renderer, "\xF4\x8F\xBF\xBD").width, 2 * MARGIN_X); // U+10FFFD, private use: in no font
}

TEST(TextRenderer, MalformedUtf8ThrowsBeforeDrawing) {
    TextRenderer renderer = makeRenderer();
    const std::vector<std::string> malformed{
        "AB\xFF",            // invalid byte
        "AB\xC3",            // truncated sequence
        "AB\xC3(",           // missing continuation
        "AB\xC0\xAF",        // overlong
        "AB\xED\xA0\x80",    // surrogate
        "AB\xF4\x90\x80\x80" // beyond U+10FFFF
    };
    for (const std::string& text : malformed) {
        SCOPED_TRACE(text.size());
        Bitmap bitmap(128, 128, 1, {});
        EXPECT_EQ(OrvelTest::thrownMessage(
                      [&] { renderer.renderText(bitmap, text, MARGIN_X, MARGIN_Y, PIXEL_SIZE); }),
                  "bad conversion");
        EXPECT_EQ(coverageOf(bitmap).count, 0u) << "the valid prefix was drawn";
    }
}

TEST(TextRenderer, MovedRendererKeepsWorking) {
    TextRenderer first = makeRenderer();
    TextRenderer second = std::move(first);
    TextRenderer third = makeRenderer();
    third = std::move(second);
    Bitmap bitmap(64, 64, 1, {});
    EXPECT_TRUE(third.renderText(bitmap, "x", 0, 0, 20));
    EXPECT_GT(coverageOf(bitmap).count, 0u);
}
