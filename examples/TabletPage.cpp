#include "examples/TabletPage.h"

#include <stdexcept>

namespace Demo {
namespace {

constexpr int MARGIN = 16;
constexpr int TITLE_HEIGHT = 56;
constexpr int ROW_HEIGHT = 26;
constexpr int LIST_TOP = TITLE_HEIGHT + 10;
constexpr int MAX_ROWS = 8;
constexpr int BUTTON_HEIGHT = 56;
constexpr int WIDE_TOP = 316;
constexpr int SMALL_TOP = WIDE_TOP + BUTTON_HEIGHT + 12;
constexpr int SMALL_WIDTH = (TabletPage::WIDTH - 4 * MARGIN) / 3;
constexpr int STATUS_TOP = SMALL_TOP + BUTTON_HEIGHT + 14;

void colour(cairo_t* cr, unsigned rgb) {
    cairo_set_source_rgb(cr, ((rgb >> 16) & 0xFF) / 255.0, ((rgb >> 8) & 0xFF) / 255.0, (rgb & 0xFF) / 255.0);
}

void roundedRect(cairo_t* cr, const TabletPage::Rect& r, double radius) {
    const double x0 = r.x, y0 = r.y, x1 = r.x + r.width, y1 = r.y + r.height;
    const double quarter = 1.5707963267948966;
    cairo_new_sub_path(cr);
    cairo_arc(cr, x1 - radius, y0 + radius, radius, -quarter, 0.0);
    cairo_arc(cr, x1 - radius, y1 - radius, radius, 0.0, quarter);
    cairo_arc(cr, x0 + radius, y1 - radius, radius, quarter, 2.0 * quarter);
    cairo_arc(cr, x0 + radius, y0 + radius, radius, 2.0 * quarter, 3.0 * quarter);
    cairo_close_path(cr);
}

void font(cairo_t* cr, double size, bool bold) {
    cairo_select_font_face(cr, "sans-serif", CAIRO_FONT_SLANT_NORMAL,
                           bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cr, size);
}

void text(cairo_t* cr, const std::string& line, double x, double baseline) {
    cairo_move_to(cr, x, baseline);
    cairo_show_text(cr, line.c_str());
}

double textWidth(cairo_t* cr, const std::string& line) {
    cairo_text_extents_t extents;
    cairo_text_extents(cr, line.c_str(), &extents);
    return extents.x_advance;
}

} // namespace

TabletPage::TabletPage() : surface(cairo_image_surface_create(CAIRO_FORMAT_ARGB32, WIDTH, HEIGHT)) {
    // The viewer takes the pixels as one tightly packed block; ARGB32 rows are always whole pixels, but
    // the check keeps that assumption visible.
    if (cairo_surface_status(surface) != CAIRO_STATUS_SUCCESS ||
        cairo_image_surface_get_stride(surface) != WIDTH * 4) {
        cairo_surface_destroy(surface);
        throw std::runtime_error("the tablet page's image could not be made");
    }
}

TabletPage::~TabletPage() {
    cairo_surface_destroy(surface);
}

void TabletPage::setMeasurements(std::vector<std::string> lengths) {
    if (lengths != lines) {
        lines = std::move(lengths);
        change();
    }
}

void TabletPage::setStatus(std::string textLine) {
    if (textLine != status) {
        status = std::move(textLine);
        change();
    }
}

void TabletPage::setPointSize(int size) {
    if (size != pointSize) {
        pointSize = size;
        change();
    }
}

void TabletPage::setStreamingPaused(bool pausedNow) {
    if (pausedNow != paused) {
        paused = pausedNow;
        change();
    }
}

TabletPage::Rect TabletPage::buttonRect(Action action) {
    switch (action) {
    case Action::DeleteLast:
        return {MARGIN, WIDE_TOP, WIDTH - 2 * MARGIN, BUTTON_HEIGHT};
    case Action::PointSizeUp:
        return {MARGIN, SMALL_TOP, SMALL_WIDTH, BUTTON_HEIGHT};
    case Action::PointSizeDown:
        return {2 * MARGIN + SMALL_WIDTH, SMALL_TOP, SMALL_WIDTH, BUTTON_HEIGHT};
    case Action::ToggleStreaming:
        return {3 * MARGIN + 2 * SMALL_WIDTH, SMALL_TOP, SMALL_WIDTH, BUTTON_HEIGHT};
    case Action::None:
        break;
    }
    return {0, 0, 0, 0};
}

TabletPage::Action TabletPage::actionAt(int x, int y) {
    for (const Action action :
         {Action::DeleteLast, Action::PointSizeUp, Action::PointSizeDown, Action::ToggleStreaming}) {
        if (buttonRect(action).contains(x, y)) {
            return action;
        }
    }
    return Action::None;
}

void TabletPage::pointerMove(int x, int y, bool) {
    // A move with the trigger held (up = false) is a drag: the highlight follows it, and the pressed button
    // stays armed so that coming back onto it before the release still clicks.
    const Action under = actionAt(x, y);
    if (under != hovered) {
        hovered = under;
        change();
    }
}

TabletPage::Action TabletPage::button(int x, int y, bool up) {
    const Action under = actionAt(x, y);
    Action clicked = Action::None;
    if (!up) {
        pressed = under;
    } else {
        if (pressed != Action::None && pressed == under) {
            clicked = under;
        }
        pressed = Action::None;
    }
    hovered = under;
    change();
    return clicked;
}

bool TabletPage::render() {
    if (!dirty) {
        return false;
    }
    draw();
    dirty = false;
    return true;
}

const unsigned char* TabletPage::pixels() const {
    return cairo_image_surface_get_data(surface);
}

void TabletPage::draw() {
    cairo_t* cr = cairo_create(surface);
    colour(cr, BACKGROUND);
    cairo_paint(cr);

    colour(cr, 0x26323E);
    cairo_rectangle(cr, 0, 0, WIDTH, TITLE_HEIGHT);
    cairo_fill(cr);
    colour(cr, 0xFFFFFF);
    font(cr, 26, true);
    text(cr, "Measurements", MARGIN, 37);
    const std::string count = std::to_string(lines.size());
    colour(cr, 0xB8C4D0);
    font(cr, 18, false);
    text(cr, count, WIDTH - MARGIN - textWidth(cr, count), 36);

    // The newest measurements matter most while measuring, so a long list shows its tail.
    const std::size_t shown = lines.size() > MAX_ROWS ? MAX_ROWS - 1 : lines.size();
    const std::size_t first = lines.size() - shown;
    int row = 0;
    if (lines.empty()) {
        colour(cr, 0x7A7A7A);
        font(cr, 16, false);
        text(cr, "No measurements yet: aim and pull the trigger", MARGIN, LIST_TOP + 22);
        text(cr, "on two points.", MARGIN, LIST_TOP + 22 + ROW_HEIGHT);
    } else if (first > 0) {
        colour(cr, 0x7A7A7A);
        font(cr, 16, false);
        text(cr, "... " + std::to_string(first) + " earlier", MARGIN, LIST_TOP + 20);
        row = 1;
    }
    for (std::size_t i = first; i < lines.size(); ++i, ++row) {
        const double top = LIST_TOP + row * ROW_HEIGHT;
        if (i % 2 == 0) {
            colour(cr, 0xE8E3D8);
            cairo_rectangle(cr, MARGIN - 6, top + 2, WIDTH - 2 * MARGIN + 12, ROW_HEIGHT);
            cairo_fill(cr);
        }
        colour(cr, 0x7A7A7A);
        font(cr, 16, false);
        text(cr, std::to_string(i + 1), MARGIN, top + 21);
        colour(cr, 0x1E1E1E);
        font(cr, 17, true);
        text(cr, lines[i], WIDTH - MARGIN - textWidth(cr, lines[i]), top + 21);
    }

    const struct {
        Action action;
        std::string label;
    } buttons[] = {{Action::DeleteLast, "Delete last measurement"},
                   {Action::PointSizeUp, "Point size +"},
                   {Action::PointSizeDown, "Point size -"},
                   {Action::ToggleStreaming, paused ? "Resume streaming" : "Pause streaming"}};
    for (const auto& b : buttons) {
        const Rect r = buttonRect(b.action);
        const bool down = pressed == b.action && hovered == b.action;
        colour(cr, down ? BUTTON_PRESSED : hovered == b.action ? BUTTON_HOVER : BUTTON);
        roundedRect(cr, r, 6.0);
        cairo_fill(cr);
        colour(cr, 0xFFFFFF);
        // Labels shrink rather than spill over the edge ("Resume streaming" is the longest).
        double size = b.action == Action::DeleteLast ? 19 : 15;
        font(cr, size, true);
        while (size > 9 && textWidth(cr, b.label) > r.width - 12) {
            font(cr, --size, true);
        }
        text(cr, b.label, r.x + (r.width - textWidth(cr, b.label)) / 2, r.y + r.height / 2 + size * 0.36);
    }

    colour(cr, 0xC9C2B4);
    cairo_rectangle(cr, 0, STATUS_TOP, WIDTH, 1);
    cairo_fill(cr);
    colour(cr, 0x1E1E1E);
    font(cr, 16, false);
    text(cr, status, MARGIN, STATUS_TOP + 30);
    const std::string state = "Point size " + std::to_string(pointSize) + (paused ? "  |  paused" : "");
    colour(cr, 0x5A5A5A);
    font(cr, 14, false);
    text(cr, state, WIDTH - MARGIN - textWidth(cr, state), STATUS_TOP + 30);

    cairo_destroy(cr);
    cairo_surface_flush(surface);
}

} // namespace Demo
