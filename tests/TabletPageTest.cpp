#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "examples/TabletPage.h"

namespace {

using Action = Demo::TabletPage::Action;

struct Event {
    enum Kind { Hover, Drag, Press, Release } kind;
    Action at; // None: a point on the page outside every button
};

std::pair<int, int> centreOf(Action action) {
    if (action == Action::None) {
        return {5, 200};
    }
    const Demo::TabletPage::Rect r = Demo::TabletPage::buttonRect(action);
    return {r.x + r.width / 2, r.y + r.height / 2};
}

std::vector<Action> play(Demo::TabletPage& page, const std::vector<Event>& events) {
    std::vector<Action> triggered;
    for (const Event& e : events) {
        const auto [x, y] = centreOf(e.at);
        if (e.kind == Event::Hover || e.kind == Event::Drag) {
            page.pointerMove(x, y, e.kind == Event::Hover);
        } else {
            const Action action = page.button(x, y, e.kind == Event::Release);
            if (action != Action::None) {
                triggered.push_back(action);
            }
        }
    }
    return triggered;
}

// The pixel's bytes in memory order, as the viewer uploads them.
std::vector<unsigned char> pixel(const Demo::TabletPage& page, int x, int y) {
    const unsigned char* p = page.pixels() + (y * Demo::TabletPage::WIDTH + x) * 4;
    return {p[0], p[1], p[2], p[3]};
}

std::vector<unsigned char> bgra(unsigned rgb) {
    return {static_cast<unsigned char>(rgb & 0xFF), static_cast<unsigned char>((rgb >> 8) & 0xFF),
            static_cast<unsigned char>(rgb >> 16), 255};
}

} // namespace

TEST(TabletPage, ActsOnlyOnPressAndReleaseOnTheSameButton) {
    const Action del = Action::DeleteLast, up = Action::PointSizeUp, none = Action::None;
    const struct {
        const char* name;
        std::vector<Event> events;
        std::vector<Action> expected;
    } cases[] = {
        {"click", {{Event::Hover, up}, {Event::Press, up}, {Event::Release, up}}, {up}},
        {"hover alone", {{Event::Hover, del}, {Event::Hover, up}, {Event::Hover, none}}, {}},
        {"release elsewhere", {{Event::Press, del}, {Event::Release, up}}, {}},
        {"dragged off", {{Event::Press, del}, {Event::Drag, none}, {Event::Release, none}}, {}},
        {"dragged off and back",
         {{Event::Press, del}, {Event::Drag, none}, {Event::Drag, del}, {Event::Release, del}},
         {del}},
        {"pressed outside", {{Event::Press, none}, {Event::Drag, up}, {Event::Release, up}}, {}},
        {"release without press", {{Event::Release, up}}, {}},
        {"one click, two releases", {{Event::Press, up}, {Event::Release, up}, {Event::Release, up}}, {up}},
        {"two clicks",
         {{Event::Press, Action::ToggleStreaming},
          {Event::Release, Action::ToggleStreaming},
          {Event::Press, Action::PointSizeDown},
          {Event::Release, Action::PointSizeDown}},
         {Action::ToggleStreaming, Action::PointSizeDown}},
    };
    for (const auto& c : cases) {
        Demo::TabletPage page;
        EXPECT_EQ(play(page, c.events), c.expected) << c.name;
    }
}

TEST(TabletPage, DrawsBgraPixelsOnlyWhenThePageChanged) {
    Demo::TabletPage page;
    page.setMeasurements({"2.35 m", "10.00 m"});
    page.setStatus("Measurement saved");
    ASSERT_TRUE(page.render());
    EXPECT_FALSE(page.render()) << "nothing changed";

    // Byte order blue, green, red, alpha: a test that reads the button's blue as red would catch an RGBA
    // page.
    const Demo::TabletPage::Rect del = Demo::TabletPage::buttonRect(Action::DeleteLast);
    const Demo::TabletPage::Rect up = Demo::TabletPage::buttonRect(Action::PointSizeUp);
    EXPECT_EQ(pixel(page, del.x + 6, del.y + del.height / 2), bgra(Demo::TabletPage::BUTTON));
    EXPECT_EQ(pixel(page, up.x + 6, up.y + up.height / 2), bgra(Demo::TabletPage::BUTTON));
    EXPECT_EQ(pixel(page, 2, Demo::TabletPage::HEIGHT / 2), bgra(Demo::TabletPage::BACKGROUND));

    // Text, title band and buttons cover a good part of the page.
    std::size_t drawn = 0;
    for (int y = 0; y < Demo::TabletPage::HEIGHT; ++y) {
        for (int x = 0; x < Demo::TabletPage::WIDTH; ++x) {
            drawn += pixel(page, x, y) != bgra(Demo::TabletPage::BACKGROUND);
        }
    }
    EXPECT_GT(drawn, std::size_t{Demo::TabletPage::WIDTH * Demo::TabletPage::HEIGHT / 5});

    // Hovering a button redraws it highlighted; moving within it or setting what is shown changes nothing.
    page.pointerMove(up.x + up.width / 2, up.y + 5, true);
    ASSERT_TRUE(page.render());
    EXPECT_EQ(pixel(page, up.x + 6, up.y + up.height / 2), bgra(Demo::TabletPage::BUTTON_HOVER));
    EXPECT_EQ(pixel(page, del.x + 6, del.y + del.height / 2), bgra(Demo::TabletPage::BUTTON));
    page.pointerMove(up.x + up.width / 2 + 3, up.y + 9, true);
    page.setMeasurements({"2.35 m", "10.00 m"});
    EXPECT_FALSE(page.render());
    page.setMeasurements({"2.35 m"});
    EXPECT_TRUE(page.render());
}
