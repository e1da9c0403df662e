#pragma once

#include <string>

#include "platform/Export.h"
#include "text/Bitmap.h"

// FreeType's handle types, declared here so that hosts including this header need no FreeType headers.
struct FT_LibraryRec_;
struct FT_FaceRec_;

// Rasterises UTF-8 text as grey-level coverage into a one-component Bitmap with one FreeType font face.
// Each label, annotation and measurement renderer owns its own instance; an instance is used by one thread
// at a time (FreeType objects are not thread-safe).
//
// It owns its FreeType library and face and releases both on destruction. Copying is deleted: a copy would
// share the handles and the two destructors would release them twice. Moving hands the handles over and
// leaves the source empty.
class ORVEL_VR_EXPORT TextRenderer {
public:
    // Throws std::runtime_error when FreeType cannot start or the font file cannot be opened.
    explicit TextRenderer(std::string fontPath);
    ~TextRenderer();

    TextRenderer(const TextRenderer&) = delete;
    TextRenderer& operator=(const TextRenderer&) = delete;
    TextRenderer(TextRenderer&& other) noexcept;
    TextRenderer& operator=(TextRenderer&& other) noexcept;

    // Draws `text` (UTF-8, line feeds start new lines) with its first baseline marginY + pixelSize below
    // the top, overwriting the pixels it covers; the bitmap is not cleared first. Reports the size the text
    // needs including both margins. Throws std::range_error("bad conversion") for malformed UTF-8 before
    // drawing anything, and std::runtime_error when FreeType fails.
    bool renderText(Bitmap& bitmap, std::string text, unsigned int marginX, unsigned int marginY,
                    unsigned int pixelSize, unsigned int& width, unsigned int& height);
    bool renderText(Bitmap& bitmap, std::string text, unsigned int marginX, unsigned int marginY,
                    unsigned int pixelSize);

private:
    void release() noexcept;

    FT_LibraryRec_* library = nullptr;
    FT_FaceRec_* face = nullptr;
};
