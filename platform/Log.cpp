#include "platform/Log.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cwchar>
#include <mutex>

#include "platform/Platform.h"
#include "platform/Utf.h"

namespace VR {

namespace {

std::mutex& sinkMutex() {
    static std::mutex mutex;
    return mutex;
}

LogSink& installedSink() {
    static LogSink sink;
    return sink;
}

bool isFlag(wchar_t c) {
    return c == L'-' || c == L'+' || c == L' ' || c == L'#' || c == L'0';
}

// Applies the width, precision and '-' flag of a string conversion to already converted text.
void appendPadded(std::wstring& out, std::wstring text, const std::string& spec) {
    bool left = false;
    std::size_t i = 0;
    while (i < spec.size() && isFlag(static_cast<wchar_t>(spec[i]))) {
        left = left || spec[i] == '-';
        ++i;
    }
    int width = 0;
    while (i < spec.size() && spec[i] >= '0' && spec[i] <= '9') {
        width = width * 10 + (spec[i++] - '0');
    }
    if (i < spec.size() && spec[i] == '.') {
        ++i;
        std::size_t precision = 0;
        while (i < spec.size() && spec[i] >= '0' && spec[i] <= '9') {
            precision = precision * 10 + static_cast<std::size_t>(spec[i++] - '0');
        }
        if (text.size() > precision) {
            text.resize(precision);
        }
    }
    const std::size_t pad = width > 0 && text.size() < static_cast<std::size_t>(width)
                                ? static_cast<std::size_t>(width) - text.size()
                                : 0;
    if (!left) {
        out.append(pad, L' ');
    }
    out += text;
    if (left) {
        out.append(pad, L' ');
    }
}

template <typename T> void appendNumber(std::wstring& out, const std::string& spec, T value) {
    char buffer[128];
    const int n = std::snprintf(buffer, sizeof(buffer), spec.c_str(), value);
    if (n <= 0) {
        return;
    }
    if (static_cast<std::size_t>(n) < sizeof(buffer)) {
        out += utf8ToWide(std::string(buffer, static_cast<std::size_t>(n)));
        return;
    }
    // Wide fields and large %f values do not fit the scratch buffer; format again at full length.
    std::string text(static_cast<std::size_t>(n) + 1, '\0');
    std::snprintf(&text[0], text.size(), spec.c_str(), value);
    text.resize(static_cast<std::size_t>(n));
    out += utf8ToWide(text);
}

} // namespace

// The library's log formats are written for the Windows wide printf family, where "%s" and "%c" are wide
// and "%hs" and "%hc" narrow. The C libraries disagree on that, so conversions are done here one by one:
// strings are converted by the library itself (narrow text is taken as UTF-8) and numbers go through the
// narrow printf of the platform, which every C library agrees on.
std::wstring formatWideLine(const wchar_t* format, va_list args) {
    std::wstring out;
    if (format == nullptr) {
        return out;
    }
    const wchar_t* p = format;
    while (*p != 0) {
        if (*p != L'%') {
            out.push_back(*p++);
            continue;
        }
        ++p;
        if (*p == L'%') {
            out.push_back(L'%');
            ++p;
            continue;
        }
        std::string spec = "%";
        while (isFlag(*p)) {
            spec.push_back(static_cast<char>(*p++));
        }
        while ((*p >= L'0' && *p <= L'9') || *p == L'.' || *p == L'*') {
            if (*p == L'*') {
                // Width or precision taken from the arguments; a negative precision counts as none.
                const int value = va_arg(args, int);
                if (value >= 0 || spec.back() != '.') {
                    spec += std::to_string(value);
                } else {
                    spec.pop_back();
                }
                ++p;
                continue;
            }
            spec.push_back(static_cast<char>(*p++));
        }
        std::string length;
        while (*p == L'h' || *p == L'l' || *p == L'L' || *p == L'z' || *p == L'j' || *p == L't' ||
               *p == L'I' || (*p >= L'0' && *p <= L'9' && !length.empty())) {
            length.push_back(static_cast<char>(*p++));
        }
        // Windows' I64 and I32 spell ll and l.
        if (length == "I64") {
            length = "ll";
        } else if (length == "I32" || length == "I") {
            length = "";
        }
        const wchar_t conversion = *p;
        if (conversion == 0) {
            break;
        }
        ++p;
        switch (conversion) {
        case L's':
        case L'S': {
            const bool narrow =
                (conversion == L's' && length == "h") || (conversion == L'S' && length != "l");
            if (narrow) {
                const char* text = va_arg(args, const char*);
                appendPadded(out, utf8ToWide(text ? text : "(null)"), spec.substr(1));
            } else {
                const wchar_t* text = va_arg(args, const wchar_t*);
                appendPadded(out, text ? std::wstring(text) : std::wstring(L"(null)"), spec.substr(1));
            }
            break;
        }
        case L'c':
        case L'C': {
            const int value = va_arg(args, int);
            appendPadded(out, std::wstring(1, static_cast<wchar_t>(value)), spec.substr(1));
            break;
        }
        case L'd':
        case L'i':
        case L'u':
        case L'x':
        case L'X':
        case L'o': {
            const bool isSigned = conversion == L'd' || conversion == L'i';
            spec += length;
            spec.push_back(static_cast<char>(conversion));
            if (length == "ll" || length == "j") {
                if (isSigned) {
                    appendNumber(out, spec, va_arg(args, long long));
                } else {
                    appendNumber(out, spec, va_arg(args, unsigned long long));
                }
            } else if (length == "l") {
                if (isSigned) {
                    appendNumber(out, spec, va_arg(args, long));
                } else {
                    appendNumber(out, spec, va_arg(args, unsigned long));
                }
            } else if (length == "z" || length == "t") {
                appendNumber(out, spec, va_arg(args, std::size_t));
            } else if (isSigned) {
                appendNumber(out, spec, va_arg(args, int));
            } else {
                appendNumber(out, spec, va_arg(args, unsigned int));
            }
            break;
        }
        case L'f':
        case L'F':
        case L'e':
        case L'E':
        case L'g':
        case L'G':
        case L'a':
        case L'A':
            spec.push_back(static_cast<char>(conversion));
            if (length == "L") {
                spec.insert(spec.size() - 1, "L");
                appendNumber(out, spec, va_arg(args, long double));
            } else {
                appendNumber(out, spec, va_arg(args, double));
            }
            break;
        case L'p':
            spec.push_back('p');
            appendNumber(out, spec, va_arg(args, void*));
            break;
        default:
            // Unknown conversions are shown as written rather than guessed at.
            out += utf8ToWide(spec + length);
            out.push_back(conversion);
            break;
        }
    }
    return out;
}

void logLine(const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    const std::wstring line = formatWideLine(format, args);
    va_end(args);

    LogSink sink;
    {
        std::lock_guard<std::mutex> lock(sinkMutex());
        sink = installedSink();
    }
    if (sink) {
        sink(line);
    } else {
        Platform::writeDebugOutput(line);
    }
}

std::wstring formatLine(const wchar_t* format, ...) {
    va_list args;
    va_start(args, format);
    std::wstring line = formatWideLine(format, args);
    va_end(args);
    return line;
}

void setLogSink(LogSink sink) {
    std::lock_guard<std::mutex> lock(sinkMutex());
    installedSink() = std::move(sink);
}

} // namespace VR
