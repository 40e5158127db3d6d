// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <string>
#include <string_view>

namespace android::lumo {

/// The ASCII letters 'A' to 'Z' lowered, whatever the locale.
constexpr char lowered(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

inline std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](char c) { return lowered(c); });
    return text;
}

/// As XML has it.
constexpr bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

/// The text without the blanks behind it, of which there may be thousands; the caller says what is one.
template<class IsBlank>
std::string_view withoutBlanksBehind(std::string_view text, IsBlank isOne) {
    constexpr std::string_view MANY = "                ";
    while (!text.empty() && isOne(text.back()))
        text.remove_suffix(text.ends_with(MANY) ? MANY.size() : 1);
    return text;
}

/// Texts joined by single spaces, for log lines.
template<class Range>
std::string join(Range const& texts) {
    std::string joined;
    for (std::string const& text : texts) {
        if (!joined.empty())
            joined += ' ';
        joined += text;
    }
    return joined;
}

} // namespace android::lumo
