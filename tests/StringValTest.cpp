#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "common/StringVal.h"

using Ko_1_1::StringVal;

TEST(StringVal, ConvertsBetweenWideAndUtf8Text) {
    const std::string utf8 =
        "Messung \xC3\xA4\xC3\xB6 \xE6\xB5\x8B\xE9\x87\x8F \xED\x95\x9C \xF0\x9F\x93\x90";
    const struct {
        StringVal* value;
        std::wstring wide;
        std::string utf8;
    } cases[] = {
        {StringVal::constructUtf8(utf8.c_str()), L"Messung \u00E4\u00F6 \u6D4B\u91CF \uD55C \U0001F4D0",
         utf8},
        {StringVal::construct(std::wstring(L"\u00E9t\u00E9")), L"\u00E9t\u00E9", "\xC3\xA9t\xC3\xA9"},
        {StringVal::construct(static_cast<const wchar_t*>(nullptr)), L"", ""},
        // Malformed input is marked, and the text after it is kept.
        {StringVal::constructUtf8("\xE6"
                                  "A \xFF ok\xE6\xB5"),
         L"\uFFFDA \uFFFD ok\uFFFD\uFFFD",
         "\xEF\xBF\xBD"
         "A \xEF\xBF\xBD ok\xEF\xBF\xBD\xEF\xBF\xBD"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.utf8);
        EXPECT_EQ(c.value->refCount(), 1);
        EXPECT_EQ(c.value->stringValue(), c.wide);
        EXPECT_EQ(c.value->toUtf8(), c.utf8);
        c.value->unref();
    }
}

TEST(StringVal, ConcurrentReferencesBalanceOut) {
    StringVal* value = StringVal::construct(L"shared");
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        // Each thread holds one reference of its own and churns further ones on top of it.
        value->ref();
        threads.emplace_back([value] {
            for (int i = 0; i < 20000; ++i) {
                value->ref();
                value->unref();
            }
            value->unref();
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    // Had any thread's unref freed the string early, this count would be read from freed memory.
    EXPECT_EQ(value->refCount(), 1);
    EXPECT_EQ(value->stringValue(), L"shared");
    value->unref();
}
