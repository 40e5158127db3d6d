// SPDX-License-Identifier: Apache-2.0
#include "XMPText.h"

#include "XMPError.h"

#include <algorithm>

namespace android::lumo::xmp_text {

namespace {

/// Steps of a property path. Each nests up to two elements in the packet, whose reader follows 100 in large packets.
constexpr auto MAX_PATH_STEPS = 40;

bool isXMLChar(uint32_t c) {
    if (c < 0x20)
        return c == '\t' || c == '\n' || c == '\r';
    return c <= 0xD7FF || (c >= 0xE000 && c <= 0xFFFD) || (c >= 0x10000 && c <= 0x10FFFF);
}

/// Bytes of the sequence that `lead` begins, 0 when no sequence begins so.
size_t sequenceLength(uint8_t lead) {
    if (lead < 0x80)
        return 1;
    if (lead >= 0xC2 && lead <= 0xDF)
        return 2;
    if (lead >= 0xE0 && lead <= 0xEF)
        return 3;
    return lead >= 0xF0 && lead <= 0xF4 ? 4 : 0;
}

/// The character of a sequence of `length` bytes; one that is malformed or longer than needed gives no XML character.
uint32_t decode(std::string_view bytes, size_t length) {
    constexpr uint32_t LEAD_BITS[] = {0, 0x7F, 0x1F, 0x0F, 0x07};
    constexpr uint32_t SMALLEST[] = {0, 0, 0x80, 0x800, 0x10000};
    auto c = static_cast<uint8_t>(bytes[0]) & LEAD_BITS[length];
    for (size_t i = 1; i < length; ++i) {
        auto const next = static_cast<uint8_t>(bytes[i]);
        if ((next & 0xC0) != 0x80)
            return 0;
        c = c << 6 | (next & 0x3F);
    }
    return c >= SMALLEST[length] ? c : 0;
}

/// What the toolkit throws for such text; it keeps the pointer to its message.
XMPError refusal(Error const& error, XMP_Int32 id, char const* reason) {
    return {error.what(), XMP_Error(id, reason)};
}

constexpr char NO_TEXT[] = "not UTF-8 text that XML can carry";

} // namespace

bool isXMLText(std::string_view text) {
    while (!text.empty()) {
        auto const length = sequenceLength(static_cast<uint8_t>(text[0]));
        if (length == 0 || length > text.size() || !isXMLChar(decode(text, length)))
            return false;
        text.remove_prefix(length);
    }
    return true;
}

void requireValue(std::string const& value, std::string const& name, ErrorAt at) {
    if (!isXMLText(value))
        throw refusal(at("value of %s is %s", name.c_str(), NO_TEXT), kXMPErr_BadUnicode, NO_TEXT);
}

void requireName(std::string const& name, ErrorAt at) {
    if (!isXMLText(name))
        throw refusal(at("name is %s", NO_TEXT), kXMPErr_BadUnicode, NO_TEXT);
}

void requirePath(std::string const& path, ErrorAt at) {
    requireName(path, at);
    if (std::count_if(path.begin(), path.end(), [](char c) { return c == '/' || c == '['; }) > MAX_PATH_STEPS)
        throw refusal(at("property path has too many steps"), kXMPErr_BadXPath, "too many steps");
}

} // namespace android::lumo::xmp_text
