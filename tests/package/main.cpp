#include <cstdio>
#include <string>

#include "common/LibrarySettings.h"
#include "common/StringVal.h"
#include "text/Bitmap.h"
#include "text/TextRenderer.h"

namespace {

int failures = 0;

void check(bool condition, const char* what) {
    if (!condition) {
        std::fprintf(stderr, "FAILED: %s\n", what);
        ++failures;
    }
}

bool endsWith(const std::string& text, const std::string& suffix) {
    return text.size() >= suffix.size() &&
           text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

} // namespace

int main() {
    const VR::LibrarySettings& settings = VR::LibrarySettings::instance();
    check(!settings.executableFolder().empty(), "the executable folder is known");
    check(settings.fontPath().rfind(settings.executableFolder(), 0) == 0,
          "the font lies under the executable");
    check(endsWith(settings.fontPath(), "NotoSansCJKsc-Regular.otf"), "the font file name");
    check(settings.labelWidth() == 1024 && settings.labelHeight() == 256, "the label size");

    const std::string utf8 = "Messpunkt \xC3\xA4 \xE6\xB5\x8B";
    Ko_1_1::StringVal* value = Ko_1_1::StringVal::constructUtf8(utf8);
    value->ref();
    check(value->refCount() == 2, "references are counted");
    value->unref();
    check(value->toUtf8() == utf8, "UTF-8 round trip");
    check(value->stringValue().size() == 13, "wide length");
    value->unref();

    // The installed font is usable through the exported text classes.
    TextRenderer renderer(ORVEL_INSTALLED_FONT);
    Bitmap bitmap(64, 64, 1, {});
    unsigned width = 0;
    unsigned height = 0;
    check(renderer.renderText(bitmap, "Ok", 2, 2, 20, width, height) && width > 4 && height == 24,
          "text renders");

    if (failures == 0) {
        std::printf("package host: all checks passed\n");
    }
    return failures == 0 ? 0 : 1;
}
