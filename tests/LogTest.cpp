#include <gtest/gtest.h>

#include <cwchar>
#include <string>
#include <thread>
#include <vector>

#include "platform/Log.h"
#include "tests/support/LogCapture.h"

TEST(Log, StringsFollowTheWideConventions) {
    EXPECT_EQ(VR::formatLine(L"PC2 paused = %s\n", L"true"), L"PC2 paused = true\n");
    EXPECT_EQ(VR::formatLine(L"HMD: %hs '%hs'", "Vendor", "Model"), L"HMD: Vendor 'Model'");
    // Narrow text is UTF-8.
    EXPECT_EQ(VR::formatLine(L"[%hs]", "Gr\xC3\xBC\xC3\x9F\x65 \xE6\xB5\x8B\xE9\x87\x8F \xF0\x9F\x98\x80"),
              L"[Gr\u00FC\u00DFe \u6D4B\u91CF \U0001F600]");
    EXPECT_EQ(VR::formatLine(L"%ls|%S|%c|%hc", L"wide", "narrow", L'\u00E9', 'n'), L"wide|narrow|\u00E9|n");
    EXPECT_EQ(VR::formatLine(L"[%6s][%-6hs][%.2s]", L"ab", "cd", L"efgh"), L"[    ab][cd    ][ef]");
    EXPECT_EQ(VR::formatLine(L"%hs", static_cast<const char*>(nullptr)), L"(null)");
}

TEST(Log, NumbersFormatAsInPrintf) {
    EXPECT_EQ(VR::formatLine(L"HMD (%d x %d @ %g Hz)", 2160, 1200, 89.5), L"HMD (2160 x 1200 @ 89.5 Hz)");
    EXPECT_EQ(VR::formatLine(L"%f %.2f %e", 1.5, 2.0 / 3.0, 12345.0), L"1.500000 0.67 1.234500e+04");
    EXPECT_EQ(VR::formatLine(L"%x %X %#x %o %u", 255u, 255u, 255u, 8u, 4000000000u),
              L"ff FF 0xff 10 4000000000");
    EXPECT_EQ(VR::formatLine(L"[%5d][%-5d][%05d][%+d]", 42, 42, 42, 42), L"[   42][42   ][00042][+42]");
    EXPECT_EQ(VR::formatLine(L"%lld %I64d %zu %ld", -9000000000LL, 9000000000LL, std::size_t{7}, -3L),
              L"-9000000000 9000000000 7 -3");
    EXPECT_EQ(VR::formatLine(L"100%% of %d%%", 5), L"100% of 5%");
    // Widths and precisions from the arguments consume them, keeping later arguments in step.
    EXPECT_EQ(VR::formatLine(L"[%*d][%-*hs][%.*s][%.*f]|%d", 4, 7, 3, "a", 2, L"wxyz", 1, 2.0 / 3.0, 9),
              L"[   7][a  ][wx][0.7]|9");
}

TEST(Log, LongLinesAreKeptWhole) {
    const std::string longText(5000, 'x');
    const std::wstring line = VR::formatLine(L"<%hs>", longText.c_str());
    EXPECT_EQ(line, L"<" + std::wstring(5000, L'x') + L">");

    // Wide numbers too: a width or a value beyond any fixed scratch buffer.
    EXPECT_EQ(VR::formatLine(L"%1200d", 7), std::wstring(1199, L' ') + L"7");
    const std::wstring huge = VR::formatLine(L"%.1f", 1e300);
    EXPECT_EQ(huge.size(), 303u);
    EXPECT_EQ(huge.substr(0, 2), L"10");
    EXPECT_EQ(huge.substr(huge.size() - 2), L".0");
}

TEST(Log, SinkReceivesEveryLineFromEveryThread) {
    constexpr int THREADS = 4;
    constexpr int LINES = 500;
    std::vector<std::wstring> lines;
    {
        OrvelTest::LogCapture log;
        std::vector<std::thread> threads;
        for (int t = 0; t < THREADS; ++t) {
            threads.emplace_back([t] {
                for (int i = 0; i < LINES; ++i) {
                    VR::logLine(L"thread %d line %d %hs\n", t, i, "done");
                }
            });
        }
        for (auto& thread : threads) {
            thread.join();
        }
        lines = log.lines();
    }
    ASSERT_EQ(lines.size(), static_cast<std::size_t>(THREADS * LINES));
    std::vector<int> next(THREADS, 0);
    for (const std::wstring& line : lines) {
        int t = -1;
        int i = -1;
        ASSERT_EQ(std::swscanf(line.c_str(), L"thread %d line %d", &t, &i), 2)
            << std::string(line.begin(), line.end());
        ASSERT_TRUE(t >= 0 && t < THREADS);
        EXPECT_EQ(i, next[t]++) << "lines of one thread arrive in order";
        EXPECT_EQ(line, VR::formatLine(L"thread %d line %d done\n", t, i));
    }
}
