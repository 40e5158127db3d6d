// SPDX-License-Identifier: Apache-2.0
#include "Text.h"

#include "Failure.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

#include <unistd.h>

namespace motionphoto {

std::string escaped(std::string const& text) {
    auto const isPlain = [](char c) { return c >= ' ' && c < 0x7F; };
    auto const rest = std::find_if_not(text.begin(), text.end(), isPlain); // most texts are plain to their end
    std::string result(text.begin(), rest);
    for (auto i = static_cast<size_t>(rest - text.begin()); i < text.size(); ++i) {
        auto const byte = static_cast<unsigned char>(text[i]);
        // Above 0x7F only the control characters that UTF-8 begins with C2.
        bool const high = byte == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) < 0xA0;
        if (byte >= ' ' && byte != 0x7F && !high) {
            result += text[i];
            continue;
        }
        char code[8];
        std::snprintf(code, sizeof code, "\\x%02x", high ? static_cast<unsigned char>(text[++i]) : byte);
        result += code;
    }
    return result;
}

std::string grouped(uint64_t number) {
    std::string digits = std::to_string(number);
    for (size_t end = digits.size(); end > 3; end -= 3)
        digits.insert(end - 3, 1, ',');
    return digits;
}

int64_t microseconds(std::string const& text) {
    constexpr double MOST = 9e15; // whole microseconds up to here, some 285 years
    char* end = nullptr;
    double const number = std::strtod(text.c_str(), &end);
    std::string const unit = end;
    double const factor = unit == "s" || unit.empty() ? 1e6 : unit == "ms" ? 1e3 : unit == "us" ? 1 : 0;
    if (end == text.c_str() || factor == 0 || !(number >= 0) || number * factor > MOST)
        throw Failure(ExitCode::USAGE, "", "'" + text + "' is no time; write 1.2s, 1200ms or 1200000us");
    return std::llround(number * factor);
}

char const* lineStart() {
    static bool const isTerminal = isatty(STDERR_FILENO) != 0;
    return isTerminal ? "\r\033[K" : "";
}

} // namespace motionphoto
