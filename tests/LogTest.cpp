#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "platform/Log.h"
#include "tests/support/LogCapture.h"

TEST(Log, FormatsTheWidePrintfDialect) {
    // In a wide format %s and %ls are wide, %hs and %S narrow; narrow text is UTF-8.
    const struct {
        std::wstring got;
        std::wstring expected;
    } cases[] = {
        {VR::formatLine(L"HMD: %hs '%hs' %s", "Vendor", "Model", L"#1"), L"HMD: Vendor 'Model' #1"},
        {VR::formatLine(L"[%hs]", "Gr\xC3\xBC\xC3\x9F\x65 \xE6\xB5\x8B\xE9\x87\x8F \xF0\x9F\x98\x80"),
         L"[Gr\u00FC\u00DFe \u6D4B\u91CF \U0001F600]"},
        {VR::formatLine(L"%ls|%S|%c|%hc", L"wide", "narrow", L'\u00E9', 'n'), L"wide|narrow|\u00E9|n"},
        {VR::formatLine(L"[%6s][%-6hs][%.2s]", L"ab", "cd", L"efgh"), L"[    ab][cd    ][ef]"},
        {VR::formatLine(L"%hs", static_cast<const char*>(nullptr)), L"(null)"},
        {VR::formatLine(L"HMD (%d x %d @ %g Hz)", 2160, 1200, 89.5), L"HMD (2160 x 1200 @ 89.5 Hz)"},
        {VR::formatLine(L"%.2f %e %#x %X %u", 2.0 / 3.0, 12345.0, 255u, 255u, 4000000000u),
         L"0.67 1.234500e+04 0xff FF 4000000000"},
        {VR::formatLine(L"%lld %I64d %zu %ld", -9000000000LL, 9000000000LL, std::size_t{7}, -3L),
         L"-9000000000 9000000000 7 -3"},
        {VR::formatLine(L"[%05d][%+d] 100%%", 42, 42), L"[00042][+42] 100%"},
        // Widths and precisions from the arguments consume them, keeping later arguments in step.
        {VR::formatLine(L"[%*d][%-*hs][%.*s][%.*f]|%d", 4, 7, 3, "a", 2, L"wxyz", 1, 2.0 / 3.0, 9),
         L"[   7][a  ][wx][0.7]|9"},
        // Nothing is cut at a fixed scratch size.
        {VR::formatLine(L"<%hs>", std::string(5000, 'x').c_str()), L"<" + std::wstring(5000, L'x') + L">"},
        {VR::formatLine(L"%1200d", 7), std::wstring(1199, L' ') + L"7"},
        {std::to_wstring(VR::formatLine(L"%.1f", 1e300).size()), L"303"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(c.got, c.expected);
    }
}

TEST(Log, SinkReceivesEveryLineFromEveryThreadInOrder) {
    constexpr int THREADS = 4;
    constexpr int LINES = 500;
    OrvelTest::LogCapture log;
    std::vector<std::thread> threads;
    for (int t = 0; t < THREADS; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < LINES; ++i) {
                VR::logLine(L"%d %d\n", t, i);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    const std::vector<std::wstring> lines = log.lines();
    ASSERT_EQ(lines.size(), static_cast<std::size_t>(THREADS * LINES));
    std::vector<int> next(THREADS, 0);
    for (const std::wstring& line : lines) {
        const int t = line[0] - L'0';
        ASSERT_TRUE(t >= 0 && t < THREADS);
        EXPECT_EQ(line, VR::formatLine(L"%d %d\n", t, next[t]++));
    }
}
