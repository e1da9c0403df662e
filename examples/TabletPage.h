#pragma once

#include <string>
#include <vector>

#include <cairo.h>

namespace Demo {

// The page the host shows on the viewer's hand-held tablet: a title, the measurements with their lengths,
// four buttons and a status line, drawn with Cairo into a BGRA image (Cairo's ARGB32 in memory order on a
// little-endian machine, rows top first, stride exactly 4 bytes a pixel).
//
// Input follows the tablet's events in page pixels: a pointer move highlights the button under it, and a
// button acts only when pressed and released on that same button, so sliding off a button cancels it. The
// page redraws lazily: render() draws only when something shown has changed.
//
// Owned by the host view; render thread only.
class TabletPage {
public:
    enum class Action { None, DeleteLast, PointSizeUp, PointSizeDown, ToggleStreaming };

    struct Rect {
        int x, y, width, height;
        bool contains(int px, int py) const {
            return px >= x && py >= y && px < x + width && py < y + height;
        }
    };

    static constexpr int WIDTH = 512;
    static constexpr int HEIGHT = 512;
    // 0xRRGGBB
    static constexpr unsigned BACKGROUND = 0xF4F1EA;
    static constexpr unsigned BUTTON = 0x2F5D8C;
    static constexpr unsigned BUTTON_HOVER = 0x4A86C5;
    static constexpr unsigned BUTTON_PRESSED = 0x1C3A5A;

    TabletPage();
    TabletPage(const TabletPage&) = delete;
    TabletPage& operator=(const TabletPage&) = delete;
    ~TabletPage();

    // One line a measurement, e.g. "2.35 m", in the host's order.
    void setMeasurements(std::vector<std::string> lengths);
    void setStatus(std::string text);
    void setPointSize(int size);
    void setStreamingPaused(bool paused);

    void pointerMove(int x, int y, bool up);
    // up = false is the press, up = true the release; returns the action a completed click triggers.
    Action button(int x, int y, bool up);

    // Draws the page when it changed since the last call and returns true; false leaves the image as it is.
    bool render();
    const unsigned char* pixels() const;

    static Rect buttonRect(Action action);

private:
    static Action actionAt(int x, int y);
    void draw();
    void change() { dirty = true; }

    cairo_surface_t* surface;
    std::vector<std::string> lines;
    std::string status;
    int pointSize = 1;
    bool paused = false;
    Action hovered = Action::None;
    Action pressed = Action::None;
    bool dirty = true;
};

} // namespace Demo
