// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <string>

namespace android::lumo {

/// The ASCII letters 'A' to 'Z' lowered, whatever the locale.
constexpr char lowered(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

inline std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](char c) { return lowered(c); });
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
