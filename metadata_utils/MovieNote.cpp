// SPDX-License-Identifier: Apache-2.0
#include "MovieNote.h"

#include "CheckedFile.h"
#include "MotionPhotoEdit.h"
#include "MovieBoxes.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>

namespace android::lumo {

namespace {

constexpr char OPEN[] = " open";

std::string markText(uint32_t mark) {
    char text[16] = {};
    std::snprintf(text, sizeof(text), " moov=%08" PRIx32, mark);
    return text;
}

} // namespace

/// FNV-1a of 32 bits.
uint32_t MovieNote::markOf(MediaFile const& file, uint32_t position, uint32_t length) {
    constexpr uint32_t ENOUGH = 64 * 1024;
    auto const moov = movie::findBox(file, position, position + length, boxType("moov"));
    if (!moov)
        return 0;
    auto const bytes = checked::readAt(file, moov->content(), std::min(ENOUGH, moov->end() - moov->content()));
    uint32_t mark = 2166136261U;
    for (size_t i = 0; i < bytes.size(); ++i)
        mark = (mark ^ bytes.data()[i]) * 16777619U;
    return std::max(mark, 1U);
}

bool MovieNote::isAbout(MediaFile const& file, uint32_t position) const {
    return mark == 0 || mark == markOf(file, position, length);
}

std::string MovieNote::text() const {
    return "major_brand=" + brand + " length=" + std::to_string(length) + " stored=" + std::to_string(stored) +
           (mark != 0 ? markText(mark) : "") + (isOpen ? OPEN : "");
}

std::optional<MovieNote> MovieNote::parse(std::string const& text) {
    char brand[5] = {};
    unsigned length = 0, stored = 0, mark = 0;
    // The brand's four characters may be blanks: "%c" takes them.
    if (std::sscanf(text.c_str(), "major_brand=%4c length=%u stored=%u moov=%x", brand, &length, &stored, &mark) < 3)
        return std::nullopt;
    MovieNote const note{brand, length, stored, text.ends_with(OPEN), mark};
    return note.text() == text ? std::optional(note) : std::nullopt;
}

std::optional<MovieNote> MovieNote::in(MediaFile const& file, QRTDataInfo const& record) {
    if (record.name != qrt::NAME_MOTION_PHOTO_INFO || record.dataPayload >= MAX_SIZE)
        return std::nullopt;
    auto const bytes = checked::readAt(file, record.dataPosition, record.dataPayload);
    return parse({reinterpret_cast<char const*>(bytes.data()), bytes.size()});
}

bool MovieNote::clear(MotionPhotoEdit& edit) {
    auto const trailer = edit.getQRTInfo();
    if (!trailer->containsKey(qrt::NAME_MOTION_PHOTO_INFO, false))
        return true;
    auto const [position, size] = trailer->getDataPositionLength(TYPE, qrt::NAME_MOTION_PHOTO_INFO);
    if (size == 0 || size >= MAX_SIZE)
        return false;
    auto const bytes = trailer->getData(TYPE, qrt::NAME_MOTION_PHOTO_INFO);
    if (!parse({reinterpret_cast<char const*>(bytes.data()), bytes.size()}))
        return false;
    edit.getQRTEdit().removeData(TYPE, qrt::NAME_MOTION_PHOTO_INFO);
    return true;
}

void MovieNote::stage(MotionPhotoEdit& edit) const {
    if (clear(edit))
        edit.addQRTData(TYPE, qrt::NAME_MOTION_PHOTO_INFO, ByteBuffer().put(text()));
}

} // namespace android::lumo
