#include "XMPInFile.h"

#include "CheckedFile.h"
#include "io/ImageMetaReader.h"

#include <algorithm>
#include <string_view>

namespace android::lumo {

namespace {

constexpr std::string_view BLANKS("\0 \t\r\n", 5);

std::string withoutBlanksBehind(std::string_view text) {
    return std::string(text.substr(0, text.find_last_not_of(BLANKS) + 1));
}

/// The bytes of a block that lie in the file.
std::string textOf(MediaFile const& file, Metadata const& block) {
    uint64_t const begin = uint64_t{block.position} + block.offset, end = uint64_t{block.position} + block.payload;
    uint64_t const last = std::min<uint64_t>(end, file.size());
    if (begin >= last || end > UINT32_MAX)
        return {};
    auto const bytes = checked::readAt(file, static_cast<uint32_t>(begin), static_cast<uint32_t>(last - begin));
    return withoutBlanksBehind({reinterpret_cast<char const*>(bytes.data()), bytes.size()});
}

} // namespace

XMPInFile::XMPInFile(std::shared_ptr<MediaFile> const& source) : file(source), blocks(readBlocks()) {}

std::vector<XMPInFile::Block> XMPInFile::readBlocks() const {
    std::vector<Block> found;
    for (auto const& block : ImageMetaReader::of(file, ParseMode::LAZY)->findAllXMP()) {
        auto text = textOf(*file, block);
        if (!text.empty())
            found.push_back({block.position, block.payload, std::move(text)});
    }
    return found;
}

void XMPInFile::requireUnchanged(ErrorAt at) {
    auto found = readBlocks();
    if (!isWhole(found))
        throw at.as(Error::Code::CHANGED, *file)("XMP changed since it was read");
    blocks = std::move(found); // the same packets, where they stand now
}

void XMPInFile::roomOpened() {
    blocks = readBlocks();
}

bool XMPInFile::isWhole(std::vector<Block> const& found) const {
    // Written over in place, it stands where it stood, and nothing else has moved.
    if (isInterrupted)
        return file->size() == sizeBefore && found.size() == 1 && blocks.size() == 1 &&
               found[0].position == blocks[0].position && found[0].size == blocks[0].size;
    return std::equal(found.begin(), found.end(), blocks.begin(), blocks.end(),
                      [](Block const& a, Block const& b) { return a.text == b.text; });
}

void XMPInFile::write(MediaFile const& handle, std::function<std::string()> const& commit) {
    sizeBefore = handle.size();
    auto const changesBefore = handle.changes();
    std::string text;
    try {
        text = commit();
    } catch (...) {
        isInterrupted |= handle.changes() != changesBefore;
        throw;
    }
    isInterrupted = false;
    blocks = {{0, 0, withoutBlanksBehind(text)}};
}

} // namespace android::lumo
