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

// The covered pixels' count and extent, with y counted down from the top as the renderer's callers count it.
struct Coverage {
    unsigned count = 0;
    unsigned minX = ~0u, maxX = 0, minY = ~0u, maxY = 0;
};

Coverage coverageOf(const Bitmap& bitmap) {
    Coverage c;
    for (unsigned row = 0; row < bitmap.getHeight(); ++row) {
        for (unsigned x = 0; x < bitmap.getWidth(); ++x) {
            if (bitmap.bytes()[row * bitmap.getWidth() + x] != 0) {
                const unsigned y = bitmap.getHeight() - row;
                ++c.count;
                c.minX = std::min(c.minX, x);
                c.maxX = std::max(c.maxX, x);
                c.minY = std::min(c.minY, y);
                c.maxY = std::max(c.maxY, y);
            }
        }
    }
    return c;
}

class TextRendererTest : public ::testing::Test {
protected:
    // The width and height the renderer reports for the text.
    std::pair<unsigned, unsigned> render(const std::string& text, Bitmap& bitmap) {
        unsigned width = 0;
        unsigned height = 0;
        EXPECT_TRUE(renderer.renderText(bitmap, text, MARGIN_X, MARGIN_Y, PIXEL_SIZE, width, height));
        return {width, height};
    }
    std::pair<unsigned, unsigned> render(const std::string& text) {
        Bitmap scratch(512, 256, 1, {});
        return render(text, scratch);
    }

    TextRenderer renderer{VR::LibrarySettings::instance().fontPath()};
};

} // namespace

TEST(TextRendererFont, RejectsMissingFont) {
    EXPECT_EQ(
        OrvelTest::thrownMessage([] { TextRenderer(VR::LibrarySettings::instance().fontPath() + ".x"); }),
        "Font file not found");
}

TEST_F(TextRendererTest, ReportsTheSizeOfTheTextWithMargins) {
    const unsigned a = render("A").first;
    const unsigned bc = render("BC").first;
    EXPECT_GT(a, 2 * MARGIN_X);
    // Advances add up along a line; the margins are counted once on each side.
    EXPECT_EQ(render("ABC").first + 2 * MARGIN_X, a + bc);
    // Several lines take the widest, whichever comes first; each line feed adds a line, even the last.
    const struct {
        const char* text;
        unsigned width;
        unsigned lines;
    } cases[] = {{"A", a, 1}, {"A\nBC", bc, 2}, {"BC\nA", bc, 2}, {"A\n", a, 2}, {"", 2 * MARGIN_X, 1}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(render(c.text), std::make_pair(c.width, c.lines * PIXEL_SIZE + 2 * MARGIN_Y));
    }
}

TEST_F(TextRendererTest, PlacesGlyphsOnBaselineBelowMargin) {
    Bitmap bitmap(256, 128, 1, {});
    const unsigned width = render("H", bitmap).first;
    const Coverage h = coverageOf(bitmap);
    ASSERT_GT(h.count, 50u);
    // The first baseline lies marginY + pixelSize below the top; "H" sits on it and has no descender.
    EXPECT_GE(h.maxY + 2, MARGIN_Y + PIXEL_SIZE);
    EXPECT_LE(h.maxY, MARGIN_Y + PIXEL_SIZE);
    EXPECT_GT(h.minY, MARGIN_Y);
    EXPECT_GE(h.minX, MARGIN_X);
    EXPECT_LT(h.maxX, width - MARGIN_X);

    // A second line is drawn one pixel size lower, at the left margin again.
    Bitmap twoLines(256, 128, 1, {});
    render("\nH", twoLines);
    const Coverage lower = coverageOf(twoLines);
    EXPECT_EQ(lower.minY, h.minY + PIXEL_SIZE);
    EXPECT_EQ(lower.minX, h.minX);
    EXPECT_EQ(lower.count, h.count);
}

TEST_F(TextRendererTest, RendersCjkText) {
    Bitmap bitmap(512, 128, 1, {});
    const unsigned width = render("测量 注释 측정 測定", bitmap).first;
    // Ideographs advance about one em each (eleven characters including blanks).
    EXPECT_GT(width, 2 * MARGIN_X + 8 * PIXEL_SIZE);
    EXPECT_GT(coverageOf(bitmap).count, 1000u);
    EXPECT_LT(coverageOf(bitmap).maxX, width);
}

TEST_F(TextRendererTest, MalformedUtf8ThrowsBeforeDrawing) {
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
