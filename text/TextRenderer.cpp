#include "text/TextRenderer.h"

#include <algorithm>
#include <cstddef>
#include <stdexcept>
#include <utility>

#include <ft2build.h>
#include FT_FREETYPE_H

namespace {

// Strict UTF-8 to UTF-32: malformed input (stray or missing continuation bytes, overlong forms,
// surrogates, values beyond U+10FFFF) throws std::range_error, so a label never shows half of a malformed
// string. The standard converters are deprecated and disagree between libraries on what they accept.
std::u32string decodeUtf8(const std::string& text) {
    const auto fail = [] { throw std::range_error("bad conversion"); };
    std::u32string out;
    out.reserve(text.size());
    std::size_t i = 0;
    while (i < text.size()) {
        const unsigned char lead = static_cast<unsigned char>(text[i]);
        std::size_t extra = 0;
        char32_t cp = 0;
        char32_t minimum = 0;
        if (lead < 0x80) {
            cp = lead;
        } else if (lead >= 0xC2 && lead <= 0xDF) {
            extra = 1;
            cp = lead & 0x1F;
            minimum = 0x80;
        } else if ((lead & 0xF0) == 0xE0) {
            extra = 2;
            cp = lead & 0x0F;
            minimum = 0x800;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            extra = 3;
            cp = lead & 0x07;
            minimum = 0x10000;
        } else {
            fail();
        }
        if (text.size() - i <= extra) {
            fail();
        }
        for (std::size_t k = 1; k <= extra; ++k) {
            const unsigned char c = static_cast<unsigned char>(text[i + k]);
            if ((c & 0xC0) != 0x80) {
                fail();
            }
            cp = (cp << 6) | (c & 0x3F);
        }
        if (cp < minimum || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
            fail();
        }
        out.push_back(cp);
        i += extra + 1;
    }
    return out;
}

} // namespace

TextRenderer::TextRenderer(std::string fontPath) {
    FT_Library lib = nullptr;
    if (FT_Init_FreeType(&lib) != 0) {
        FT_Done_FreeType(lib);
        throw std::runtime_error("Couldn't initialize FreeType library object");
    }
    FT_Face loaded = nullptr;
    if (FT_New_Face(lib, fontPath.c_str(), 0, &loaded) != 0) {
        FT_Done_Face(loaded);
        FT_Done_FreeType(lib);
        throw std::runtime_error("Font file not found");
    }
    // Every font we ship has a Unicode map; without one FT_Load_Char falls back to glyph 0 per character.
    FT_Select_Charmap(loaded, FT_ENCODING_UNICODE);
    library = lib;
    face = loaded;
}

TextRenderer::~TextRenderer() {
    release();
}

TextRenderer::TextRenderer(TextRenderer&& other) noexcept
    : library(std::exchange(other.library, nullptr)), face(std::exchange(other.face, nullptr)) {}

TextRenderer& TextRenderer::operator=(TextRenderer&& other) noexcept {
    if (this != &other) {
        release();
        library = std::exchange(other.library, nullptr);
        face = std::exchange(other.face, nullptr);
    }
    return *this;
}

void TextRenderer::release() noexcept {
    if (face != nullptr) {
        FT_Done_Face(face);
        face = nullptr;
    }
    if (library != nullptr) {
        FT_Done_FreeType(library);
        library = nullptr;
    }
}

bool TextRenderer::renderText(Bitmap& bitmap, std::string text, unsigned int marginX, unsigned int marginY,
                              unsigned int pixelSize, unsigned int& width, unsigned int& height) {
    if (FT_Set_Pixel_Sizes(face, 0, pixelSize) != 0) {
        throw std::runtime_error("Couldn't set font pixel sizes");
    }
    const std::u32string codePoints = decodeUtf8(text);

    width = 0;
    unsigned int penX = 0;
    unsigned int lineOffset = 0;
    for (const char32_t codePoint : codePoints) {
        if (codePoint == U'\n') {
            lineOffset += pixelSize;
            width = std::max(width, penX);
            penX = 0;
            continue;
        }
        if (FT_Load_Char(face, codePoint, FT_LOAD_RENDER) != 0) {
            throw std::runtime_error("Couldn't load character");
        }
        const FT_GlyphSlot glyph = face->glyph;
        const FT_Bitmap& coverage = glyph->bitmap;
        // Unsigned wrap-around is intended: a glyph reaching above the bitmap gives huge rows that
        // setPixel drops, and the rows that come back into range land where signed arithmetic puts them.
        const unsigned int top =
            lineOffset - static_cast<unsigned int>(glyph->bitmap_top) + marginY + pixelSize;
        for (unsigned int r = 0; r < coverage.rows; ++r) {
            for (unsigned int c = 0; c < coverage.width; ++c) {
                bitmap.setPixel(marginX + penX + c, top + r, coverage.buffer[c + coverage.width * r]);
            }
        }
        penX += static_cast<unsigned int>(glyph->advance.x >> 6);
    }
    width = std::max(width, penX) + 2 * marginX;
    height = lineOffset + 2 * marginY + pixelSize;
    return true;
}

bool TextRenderer::renderText(Bitmap& bitmap, std::string text, unsigned int marginX, unsigned int marginY,
                              unsigned int pixelSize) {
    unsigned int width = 0;
    unsigned int height = 0;
    return renderText(bitmap, std::move(text), marginX, marginY, pixelSize, width, height);
}
