// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

namespace android {

/// The media framework's string; a value type. The host's build carries the members that its clients call.
class AString {
public:
    AString() = default;
    AString(char const* text) : mText(text) {}

    char const* c_str() const { return mText.c_str(); }
    size_t size() const { return mText.size(); }
    bool empty() const { return mText.empty(); }

private:
    std::string mText;
};

} // namespace android
