// SPDX-License-Identifier: Apache-2.0
#include "MovieNote.h"

#include "CheckedFile.h"

#include <cstdio>

namespace android::lumo {

namespace {

constexpr char OPEN[] = " open";

} // namespace

std::string MovieNote::text() const {
    return "major_brand=" + brand + " length=" + std::to_string(length) + " stored=" + std::to_string(stored) +
           (isOpen ? OPEN : "");
}

std::optional<MovieNote> MovieNote::parse(std::string const& text) {
    char brand[5] = {};
    unsigned length = 0, stored = 0;
    // The brand's four characters may be blanks: "%c" takes them.
    if (std::sscanf(text.c_str(), "major_brand=%4c length=%u stored=%u", brand, &length, &stored) != 3)
        return std::nullopt;
    MovieNote const note{brand, length, stored, text.ends_with(OPEN)};
    return note.text() == text ? std::optional(note) : std::nullopt;
}

std::optional<MovieNote> MovieNote::in(MediaFile const& file, QRTDataInfo const& record) {
    if (record.name != qrt::NAME_MOTION_PHOTO_INFO || record.dataPayload >= MAX_SIZE)
        return std::nullopt;
    auto const bytes = checked::readAt(file, record.dataPosition, record.dataPayload);
    return parse({reinterpret_cast<char const*>(bytes.data()), bytes.size()});
}

} // namespace android::lumo
