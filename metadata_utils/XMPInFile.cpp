// SPDX-License-Identifier: Apache-2.0
#include "XMPInFile.h"

#include "CheckedFile.h"
#include "Text.h"
#include "XMPKept.h"
#include "io/ImageMetaReader.h"

#include <algorithm>
#include <string_view>
#include <utility>

namespace android::lumo {

namespace {

/// Packets end with some hundreds of blanks.
std::string withoutBlanksBehind(std::string text) {
    text.resize(lumo::withoutBlanksBehind(text, [](char c) { return isBlank(c) || c == '\0'; }).size());
    return text;
}

/// Blocks up to this size are read without asking for the file's size: what a JPEG's segment holds.
constexpr uint32_t SMALL_BLOCK = 65536;

/// The bytes of a block that lie in the file.
std::string textOf(MediaFile const& file, Metadata const& block) {
    uint64_t const begin = uint64_t{block.position} + block.offset;
    uint64_t end = uint64_t{block.position} + block.payload;
    if (end > begin + SMALL_BLOCK)
        end = std::min<uint64_t>(end, file.size());
    if (begin >= end || end > UINT32_MAX)
        return {};
    std::string bytes(static_cast<size_t>(end - begin), '\0');
    bytes.resize(checked::readUpTo(file, begin, bytes.data(), bytes.size()));
    return withoutBlanksBehind(std::move(bytes));
}

} // namespace

XMPInFile::XMPInFile(std::shared_ptr<MediaFile> const& source) : file(source) {
    take(look());
}

XMPInFile::Found XMPInFile::look() const {
    Found found;
    auto const all = ImageMetaReader::of(file, ParseMode::LAZY)->findAllXMP();
    if (!all.empty())
        found.room = {all.front().payload, all.front().offset};
    for (auto const& block : all) {
        auto text = textOf(*file, block);
        if (!text.empty())
            found.blocks.push_back({block.position, block.payload - block.offset, std::move(text)});
    }
    return found;
}

void XMPInFile::requireNotTorn(ErrorAt at) const {
    if (isTorn)
        throw at.as(Error::Code::CHANGED,
                    *file)("the file has changed since it was read: a commit that made room for XMP failed");
}

void XMPInFile::requireUnchanged(ErrorAt at) {
    requireNotTorn(at);
    auto found = look();
    if (!isWhole(found.blocks))
        throw at.as(Error::Code::CHANGED, *file)("XMP changed since it was read");
    take(std::move(found)); // the same packets, where they stand now
}

void XMPInFile::take(Found found) {
    blocks = std::move(found.blocks);
    room = found.room;
}

void XMPInFile::requireRoomToRetry(std::function<size_t()> const& size, ErrorAt at) const {
    if (isInterrupted && (blocks.empty() || size() > blocks.back().size))
        throw at.as(Error::Code::CHANGED,
                    *file)("XMP changed since it was read: a commit that needs room for it failed");
}

void XMPInFile::copyFileTo(std::shared_ptr<MediaFile> const& target) {
    checked::requireAddressable(*file);
    requireUnchanged();
    requireKeepable();
    checked::truncate(*target, 0);
    checked::seek(*target, 0);
    checked::reserve(*target, file->size());
    checked::copy(file, target, 0, file->size());
}

void XMPInFile::roomOpened() {
    forget();
    take(look());
}

/// What was found out about packets that are no longer there.
void XMPInFile::forget() {
    last.reset();
    others.clear();
    isKeepable = false;
}

std::string const& XMPInFile::packet() const {
    static std::string const none;
    return blocks.empty() ? none : blocks.back().text;
}

std::shared_ptr<XMPPacket> const& XMPInFile::parsed() {
    if (last == nullptr)
        last = parseXMPPacket(packet());
    return last;
}

void XMPInFile::requireKeepable(ErrorAt at) {
    if (isKeepable || blocks.empty())
        return;
    if (auto const lost = lostByParsing(blocks.back().text, *parsed()); !lost.empty())
        throw at.as(Error::Code::UNSUPPORTED, *file)("an edit would lose %s from the XMP", lost.c_str());
    others.clear();
    std::vector<std::shared_ptr<XMPPacket>> known{parsed()};
    for (size_t i = 0; i + 1 < blocks.size(); ++i) {
        std::shared_ptr<XMPPacket> const other = parseXMPPacket(blocks[i].text);
        if (auto const lost = lostByParsing(blocks[i].text, *other); !lost.empty())
            throw at.as(Error::Code::UNSUPPORTED, *file)("an edit would lose %s from XMP packet %zu", lost.c_str(), i);
        addMergeable(other, known, at);
        known.push_back(other);
    }
    isKeepable = true;
}

void XMPInFile::addMergeable(std::shared_ptr<XMPPacket> const& other,
                             std::vector<std::shared_ptr<XMPPacket>> const& known, ErrorAt at) {
    for (auto const& [schema, name] : other->properties()) {
        bool isNew = true;
        for (auto const& each : known) {
            if (!each->has(schema, name))
                continue;
            isNew = false;
            if (each->textOf(schema, name) != other->textOf(schema, name))
                throw at.as(Error::Code::UNSUPPORTED, *file)("%zu XMP packets that differ in %s", blocks.size(),
                                                             name.c_str());
        }
        if (isNew)
            others.push_back({other, schema, name});
    }
}

void XMPInFile::mergeInto(XMPPacket& packet) const {
    for (auto const& [other, schema, name] : others) {
        if (!packet.has(schema, name))
            packet.copy(*other, schema, name);
    }
}

bool XMPInFile::isWhole(std::vector<Block> const& found) const {
    // Written over in place, it stands where it stood, and nothing else has moved.
    if (isInterrupted)
        return file->size() == sizeBefore && found.size() == 1 && blocks.size() == 1 &&
               found[0].position == blocks[0].position && found[0].size == blocks[0].size;
    return std::equal(found.begin(), found.end(), blocks.begin(), blocks.end(),
                      [](Block const& a, Block const& b) { return a.text == b.text; });
}

void XMPInFile::write(MediaFile const& handle, std::string const& text, std::function<void()> const& commit) {
    sizeBefore = handle.size();
    auto const changesBefore = handle.changes();
    try {
        commit();
    } catch (...) {
        // A reservation that failed may have grown the file in part, and nobody may have cut it back.
        isInterrupted |= handle.changes() != changesBefore || handle.size() != sizeBefore;
        isTorn |= isInterrupted && (blocks.empty() || text.size() > blocks.back().size);
        throw;
    }
    isInterrupted = false;
    forget();
    isKeepable = true; // written by the toolkit, read by the toolkit
    blocks = {{0, 0, withoutBlanksBehind(text)}};
}

} // namespace android::lumo
