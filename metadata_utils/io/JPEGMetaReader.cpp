#include "JPEGMetaReader.h"

#include "CheckedFile.h"
#include "JPEGSegments.h"
#include "Log.h"

#include <algorithm>
#include <array>
#include <exception>
#include <span>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "JPEGMetaReader";

constexpr uint16_t LAST_NON_MARKER = 0xFEFF; ///< the highest two bytes that do not begin with FF
constexpr uint16_t FILL = 0xFFFF;
constexpr uint32_t IDENTIFYING_BYTES = 32; ///< of a payload, enough to tell what it is
constexpr std::pair<int32_t, int32_t> NOT_FOUND{-1, -1};

/// One read call at the current position; nothing where it fails.
uint32_t readSome(MediaFile const& file, uint8_t* bytes, uint32_t n) {
    return static_cast<uint32_t>(std::max<ssize_t>(file.read(bytes, n), 0));
}

/// Marker and length of a segment; markers that end the search may stand where no length follows.
struct Head {
    uint32_t position = 0; ///< of the marker, behind any fill bytes
    uint16_t marker = 0;
    uint16_t length = 0;

    bool endsSearch() const {
        return marker <= LAST_NON_MARKER || marker == jpeg::START_OF_SCAN || marker == jpeg::END_OF_IMAGE;
    }
};

/// The file's bytes a block at a time: segments smaller than a block are stepped over without a system call.
class Window {
public:
    /// Begins at the file's current position, which is `position`.
    Window(MediaFile const& source, uint32_t position) : file(source), start(position) { fill(); }

    /// The bytes of a segment's header at `position`, which never goes back; fewer where the file ends.
    std::span<uint8_t const> header(uint32_t position) {
        if (uint64_t{position - start} + jpeg::HEADER_SIZE > count) {
            checked::seek(file, position);
            start = position;
            fill();
        }
        uint32_t const offset = position - start;
        return {bytes.data() + offset, std::min(count - offset, jpeg::HEADER_SIZE)};
    }

private:
    void fill() { count = readSome(file, bytes.data(), static_cast<uint32_t>(bytes.size())); }

    MediaFile const& file;
    uint32_t start;
    uint32_t count = 0;
    std::array<uint8_t, 4096> bytes;
};

/// The head of the segment at `position`, behind any fill bytes.
Head readHead(Window& window, uint32_t position) {
    auto bytes = window.header(position);
    while (position <= INT32_MAX && bytes.size() >= jpeg::MARKER_SIZE && jpeg::bigEndian(bytes.data()) == FILL)
        bytes = window.header(++position);
    if (bytes.size() < jpeg::MARKER_SIZE)
        throw ErrorAt()("fail to read bytes: %zu, expected %zu", bytes.size(), size_t{jpeg::MARKER_SIZE});
    Head head{position, jpeg::bigEndian(bytes.data()), 0};
    if (head.endsSearch())
        return head;
    if (bytes.size() < jpeg::HEADER_SIZE)
        throw ErrorAt()("fail to read bytes: %zu, expected %zu", bytes.size() - jpeg::MARKER_SIZE,
                        size_t{jpeg::LENGTH_SIZE});
    head.length = jpeg::bigEndian(bytes.data() + jpeg::MARKER_SIZE);
    return head;
}

std::pair<MediaDefs::MetaType, uint64_t> resolveApp1(std::string const& payloadStart) {
    if (payloadStart.starts_with(jpeg::XMP_IDENTIFIER)) {
        LOGD("found xmp");
        return {MediaDefs::MetaType::XMP, jpeg::XMP_IDENTIFIER_SIZE};
    }
    if (payloadStart.starts_with("Exif")) {
        LOGD("found exif");
        return {MediaDefs::MetaType::EXIF, 0};
    }
    return {MediaDefs::MetaType::NONE, 0};
}

std::pair<MediaDefs::MetaType, uint64_t> resolveApp4(std::string const&) {
    return {MediaDefs::MetaType::CDIF, 0};
}

std::string joined(std::vector<int> const& numbers) {
    std::string text;
    for (int const number : numbers)
        text.append(text.empty() ? "" : " ").append(std::to_string(number));
    return text;
}

} // namespace

JPEGMetaReader::JPEGMetaReader(std::shared_ptr<MediaFile> const& source, ParseMode parseMode)
    : ImageMetaReader(source, parseMode) {
    init();
}

JPEGMetaReader::~JPEGMetaReader() {
    LOGI("~JPEGMetaReader");
}

void JPEGMetaReader::init() {
    LOGI("init E");
    metaTypeResolvers = {{jpeg::APP1, resolveApp1}, {jpeg::APP4, resolveApp4}};
    if (mode == ParseMode::EAGER && !parseMetadata())
        throw ErrorAt()("fail to parse");
    LOGI("init X");
}

Metadata JPEGMetaReader::getXMP() {
    return getMeta(MediaDefs::MetaType::XMP);
}

Metadata JPEGMetaReader::getExif() {
    return getMeta(MediaDefs::MetaType::EXIF);
}

Metadata JPEGMetaReader::getCameraDebugInfo() {
    return getMeta(MediaDefs::MetaType::CDIF);
}

std::vector<Metadata> JPEGMetaReader::findAllXMP() {
    Metadata const xmp = getXMP();
    return xmp.type == MediaDefs::MetaType::NONE ? std::vector<Metadata>() : std::vector{xmp};
}

Metadata JPEGMetaReader::getMeta(MediaDefs::MetaType type) {
    if (mode == ParseMode::LAZY && metas.empty())
        parseMetadata();
    auto const found = metas.find(type);
    return found == metas.end() ? Metadata{} : found->second;
}

bool JPEGMetaReader::parseMetadata() {
    try {
        jpeg::seekBehindStart(*file);
        for (;;) {
            auto const [n, at] = findNextAppNMarker({1, 4});
            if (at < 1) {
                if (file->position(0) != 0)
                    throw ErrorAt()("Failed to set file position to 0");
                return true;
            }
            auto const marker = static_cast<uint16_t>(jpeg::APP0 + n);
            Metadata const meta = parseMetadata(marker);
            LOGD("marker: 0x%x, meta: %s", marker, meta.toString().c_str());
            if (meta.type != MediaDefs::MetaType::NONE)
                metas[meta.type] = meta;
            file->skipNBytes(meta.payload);
        }
    } catch (std::exception const& exception) {
        LOGE("fail to parse meta from jpeg: %s", exception.what());
        return false;
    }
}

std::pair<int32_t, int32_t> JPEGMetaReader::findNextAppNMarker(std::vector<int> const& wanted) {
    LOGI("findNextAppNMarker E: %s", joined(wanted).c_str());
    try {
        uint32_t position = file->position();
        Window window(*file, position);
        for (;;) {
            Head const head = readHead(window, position);
            if (head.marker <= LAST_NON_MARKER)
                LOGI("invalid marker: 0x%x", head.marker);
            if (head.endsSearch())
                break;
            LOGD("marker: 0x%x, len: %zu", head.marker, size_t{head.length});
            if (head.length < jpeg::LENGTH_SIZE || head.position > INT32_MAX)
                break;
            if (head.marker >= jpeg::APP1 && head.marker <= jpeg::APP4) {
                int32_t const n = head.marker & 7;
                LOGD("appN: %d", n);
                if (std::find(wanted.begin(), wanted.end(), n) != wanted.end()) {
                    checked::seek(*file, head.position);
                    return {n, static_cast<int32_t>(head.position)};
                }
            }
            position = head.position + jpeg::MARKER_SIZE + head.length;
        }
    } catch (std::exception const& exception) {
        LOGE("fail to find next appN marker: %s", exception.what());
    }
    LOGI("findNextAppNMarker X");
    return NOT_FOUND;
}

Metadata JPEGMetaReader::parseMetadata(uint16_t marker) {
    LOGD("parseMetadata");
    try {
        uint32_t const position = file->position() + jpeg::HEADER_SIZE;
        std::array<uint8_t, jpeg::HEADER_SIZE + IDENTIFYING_BYTES> bytes;
        uint32_t const count = readSome(*file, bytes.data(), bytes.size());
        if (count < jpeg::HEADER_SIZE)
            throw ErrorAt()("fail to read bytes: %zu, expected %zu", size_t{count}, size_t{jpeg::HEADER_SIZE});
        if (file->position(position) != position)
            throw ErrorAt()("Failed to restore file position to %zu", size_t{position});
        uint16_t const length = jpeg::bigEndian(bytes.data() + jpeg::MARKER_SIZE);
        if (length < jpeg::LENGTH_SIZE)
            throw ErrorAt()("segment length %zu is too small", size_t{length});
        uint32_t const payload = length - jpeg::LENGTH_SIZE;
        std::string const strBuf(reinterpret_cast<char const*>(bytes.data()) + jpeg::HEADER_SIZE,
                                 std::min<size_t>(count - jpeg::HEADER_SIZE, payload));
        LOGD("strBuf: %s", strBuf.c_str());
        auto const resolver = metaTypeResolvers.find(marker);
        if (resolver == metaTypeResolvers.end())
            return {};
        auto const [type, offset] = resolver->second(strBuf);
        return {type, position, payload, static_cast<uint32_t>(offset), loader};
    } catch (std::exception const& exception) {
        LOGE("fail to parseMetadata: %s", exception.what());
        return {};
    }
}

Metadata JPEGMetaReader::findXMPApp1Marker() {
    jpeg::seekBehindStart(*file);
    for (;;) {
        if (findNextAppNMarker({1}).second < 1)
            return {};
        Metadata const meta = parseMetadata(jpeg::APP1);
        if (meta.type == MediaDefs::MetaType::XMP) {
            LOGI("found xmp meta: %s", meta.toString().c_str());
            return meta;
        }
        file->skipNBytes(meta.payload);
    }
}

} // namespace android::lumo
