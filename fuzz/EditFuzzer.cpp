// A sequence of commits decoded from the input, on a small still, made in place on one file and into fresh targets on a
// second chain. After each: both give the same bytes or both refuse; a refusal leaves the file alone; what was staged
// is read back; records, XMP properties and image that nobody named are as they were.
#include "FuzzSupport.h"
#include "MotionPhotoEdit.h"
#include "io/HEIFMetaReader.h"
#include "io/HEIFMetaWriter.h"
#include "support/HeicBuilder.h"
#include "support/JpegBuilder.h"

#include <array>
#include <fuzzer/FuzzedDataProvider.h>
#include <map>
#include <set>
#include <vector>

using namespace android::lumo;
using namespace android::lumo::fuzz;

namespace {

constexpr char TIFF[] = "http://ns.adobe.com/tiff/1.0/";
constexpr char const* PROPERTIES[] = {"Make", "Model", "HostComputer"};
constexpr char const* NAMES[] = {"A", "B", "Note"};
constexpr int TYPES[] = {1, 2900, -3};

std::vector<std::string> const& stills() {
    static std::vector<std::string> const made = [] {
        using test::HeicOptions;
        using test::JpegBuilder;
        std::string const packet = test::heicXmp("seed");
        std::string const debugInfo = test::heicBox("free", "cdifdebug");
        return std::vector<std::string>{
            JpegBuilder().exif().build(),
            JpegBuilder().exif().xmp(packet).build(),
            JpegBuilder().exif().xmp(packet).segment(0xE0, "JFIF").xmp(packet).exif().build("scan", "bytes behind"),
            test::buildHeic({.xmp = test::heicXmp("seed", 2000)}),
            test::buildHeic({.thumbnail = true, .groups = true, .mdat = HeicOptions::Mdat::ToEnd}),
            test::buildHeic({.grid = false, .xmp = test::heicXmp("seed", 2000)}),
            test::buildHeic({.alpha = true, .xmp = packet, .tail = debugInfo}),
        };
    }();
    return made;
}

std::string video(size_t size, char filler) {
    return test::heicBox("ftyp", "mp42") + std::string(size, filler);
}

/// What a view says about everything an edit may not lose.
struct Content {
    std::multimap<std::string, std::string> records; ///< by name; without the pointer, which moves
    std::map<std::string, std::string> properties;
    std::vector<std::string> image; ///< segments, or the coded pictures and the Exif
    std::string video;
    std::string debugInfo;
};

std::string textOf(ByteBuffer const& bytes) {
    return {reinterpret_cast<char const*>(bytes.data()), bytes.size()};
}

std::vector<std::string> imageOf(MemoryFile const& file, bool isHeic) {
    std::vector<std::string> parts;
    if (!isHeic) {
        std::string const bytes = file.bytes();
        for (auto const& segment : test::segmentsOf(bytes)) {
            if (segment.code == 0xDA)
                parts.push_back(segment.payload.substr(0, segment.payload.find("\xFF\xD9")));
            else if (!segment.isXmp() && segment.payload.find_first_not_of(' ') != std::string::npos)
                parts.push_back(static_cast<char>(segment.code) + segment.payload);
        }
        return parts;
    }
    HEIFMetaReader reader(file.open(), ParseMode::LAZY);
    parts.push_back(reader.getExif().toTypedData<std::string>());
    auto const cover = reader.getCoverImageId();
    auto ids = reader.getItemIds(cover, 16);
    ids.push_back(static_cast<uint32_t>(cover));
    for (auto const id : ids) {
        std::vector<uint8_t> frame;
        reader.getImageFrame(static_cast<int>(id), frame, 1 << 20);
        parts.emplace_back(frame.begin(), frame.end());
    }
    return parts;
}

Content contentOf(MemoryFile const& file, bool isHeic) {
    Content content;
    auto const photo = MotionPhotoInfo::parse(file.open());
    std::string const bytes = file.bytes();
    for (auto const& record : photo->getQRTInfo()->getRecords()) {
        if (record.type != qrt::TYPE_MOTION_PHOTO_DATA && record.type != qrt::TYPE_MOTION_PHOTO_VERSION)
            content.records.emplace(record.name, std::to_string(record.type) +
                                                     bytes.substr(record.dataPosition, record.dataPayload));
    }
    for (auto const& [schema, path] : photo->getXMPInfo()->getProperties()) {
        if (schema != xmp_ns::CAMERA)
            content.properties[path] = photo->getXMPInfo()->getProperty(schema, path);
    }
    content.image = imageOf(file, isHeic);
    content.video = textOf(*photo->getVideo());
    FUZZ_REQUIRE(photo->isValid() == !content.video.empty());
    if (isHeic)
        content.debugInfo =
            HEIFMetaReader(file.open(), ParseMode::LAZY).getCameraDebugInfo().toTypedData<std::string>();
    return content;
}

/// One commit's operations, and what they do to the content.
class Batch {
public:
    Batch(FuzzedDataProvider& input, bool isHeic) {
        for (auto left = input.ConsumeIntegralInRange(1, 4); left > 0; --left)
            add(input, isHeic);
    }

    void stage(MotionPhotoEdit& edit) const {
        for (auto const& operation : operations)
            operation(edit);
    }
    void expect(Content& content) const {
        auto const before = content.records;
        for (auto const& effect : effects)
            effect(content);
        // A trailer that loses its last record stays, unless the video was what it was there for.
        if (content.records.empty() && content.video.empty() && !isCutWhenEmpty)
            content.records = before;
    }

private:
    using Operation = std::function<void(MotionPhotoEdit&)>;
    using Effect = std::function<void(Content&)>;

    void push(Operation operation, Effect effect) {
        operations.push_back(std::move(operation));
        effects.push_back(std::move(effect));
    }

    void add(FuzzedDataProvider& input, bool isHeic);
    void addVideo(FuzzedDataProvider& input, bool isHeic);
    void addRecord(FuzzedDataProvider& input);

    std::vector<Operation> operations;
    std::vector<Effect> effects;
    bool isCutWhenEmpty = false;
};

void Batch::add(FuzzedDataProvider& input, bool isHeic) {
    switch (input.ConsumeIntegralInRange(0, 7)) {
    case 0:
        return addVideo(input, isHeic);
    case 1:
        isCutWhenEmpty = true;
        return push([](auto& edit) { edit.removeVideo(nullptr); }, [](auto& content) { content.video.clear(); });
    case 2:
    case 3:
        return addRecord(input);
    case 4: {
        std::string const name = input.PickValueInArray(NAMES);
        return push([=](auto& edit) { edit.getQRTEdit().removeData(name).makeDirty(); },
                    [=](auto& content) {
                        if (auto const found = content.records.find(name); found != content.records.end())
                            content.records.erase(found);
                    });
    }
    case 5: {
        std::string const name = input.PickValueInArray(PROPERTIES);
        std::string const value(input.ConsumeIntegralInRange<size_t>(1, 3000), 'p');
        return push([=](auto& edit) { edit.getXMPEdit().setProperty(TIFF, name, value); },
                    [=](auto& content) { content.properties["tiff:" + name] = value; });
    }
    case 6: {
        std::string const name = input.PickValueInArray(PROPERTIES);
        return push([=](auto& edit) { edit.getXMPEdit().removeProperty(TIFF, name); },
                    [=](auto& content) { content.properties.erase("tiff:" + name); });
    }
    default:
        long const timestamp = input.ConsumeIntegral<int32_t>();
        return push([=](auto& edit) { edit.setPhotoPresentationTimestampUs(timestamp); }, [](auto&) {});
    }
}

void Batch::addVideo(FuzzedDataProvider& input, bool isHeic) {
    // What a JPEG record holds up to 125,000 bytes is read as a pointer, by the format's own doing.
    size_t const size = (isHeic && input.ConsumeBool() ? 40 : 125100) + input.ConsumeIntegralInRange<size_t>(0, 20);
    std::string const bytes = video(size, input.ConsumeBool() ? 'V' : 'W');
    auto const way = input.ConsumeIntegralInRange(0, 2);
    auto const file = std::make_shared<MemoryFile>(bytes);
    isCutWhenEmpty = false;
    push(
        [=](auto& edit) {
            if (way == 0)
                edit.addVideo(file->open());
            else if (way == 1)
                edit.addVideo(std::make_shared<ByteBuffer>(file->open()->readAllBytes()));
            else
                edit.replaceVideo(file->open());
        },
        [=](auto& content) { content.video = bytes; });
}

/// Replaces the record that matches both, or appends one. Three types under three names: the name alone is unique only
/// when each has its type.
void Batch::addRecord(FuzzedDataProvider& input) {
    auto const index = input.ConsumeIntegralInRange<size_t>(0, 2);
    std::string const name = NAMES[index];
    int const type = TYPES[index];
    std::string const data(input.ConsumeIntegralInRange<size_t>(1, 600), 'r');
    bool const isFast = input.ConsumeBool();
    push(
        [=](auto& edit) {
            edit.addQRTData(type, name, ByteBuffer(std::vector<uint8_t>(data.begin(), data.end())));
            if (isFast)
                edit.getQRTEdit().setOption(QRTEdit::Option::WRITE_FAST);
        },
        [=](auto& content) {
            content.records.erase(name);
            content.records.emplace(name, std::to_string(type) + data);
        });
}

void print(Content const& content) {
    for (auto const& [name, record] : content.records)
        std::fprintf(stderr, "  record %s %.8s [%zu]\n", name.c_str(), record.c_str(), record.size());
    for (auto const& [path, value] : content.properties)
        std::fprintf(stderr, "  %s=%.20s [%zu]\n", path.c_str(), value.c_str(), value.size());
    std::fprintf(stderr, "  video [%zu] debug info [%zu]\n", content.video.size(), content.debugInfo.size());
}

void requireEqual(Content const& now, Content const& expected) {
    if (now.records != expected.records || now.properties != expected.properties || now.video != expected.video ||
        now.debugInfo != expected.debugInfo) {
        std::fprintf(stderr, "read:\n");
        print(now);
        std::fprintf(stderr, "expected:\n");
        print(expected);
    }
    FUZZ_REQUIRE(now.records == expected.records);
    FUZZ_REQUIRE(now.properties == expected.properties);
    FUZZ_REQUIRE(now.image == expected.image);
    FUZZ_REQUIRE(now.video == expected.video);
    FUZZ_REQUIRE(now.debugInfo == expected.debugInfo);
}

/// The two chains of files.
class Run {
public:
    explicit Run(std::string const& still, bool heic)
        : inPlace(still), source(std::make_unique<MemoryFile>(still)), isHeic(heic), content(contentOf(inPlace, heic)) {
    }

    void commit(FuzzedDataProvider& input) {
        bool const keepsView = input.ConsumeBool() && view != nullptr;
        Batch const batch(input, isHeic);
        std::string const before = inPlace.bytes();
        if (!keepsView)
            view = MotionPhotoInfo::parse(inPlace.open());
        auto const refused = refusal([&] {
            auto const edit = view->edit();
            batch.stage(*edit);
            edit->commit();
        });
        auto target = std::make_unique<MemoryFile>("what the target held");
        auto const refusedTarget = refusal([&] {
            auto const edit = MotionPhotoInfo::parse(source->open())->edit();
            batch.stage(*edit);
            edit->commit(target->open());
        });
        FUZZ_REQUIRE(source->bytes() == before);
        FUZZ_REQUIRE(refused == refusedTarget);
        if (refused) {
            view = nullptr; // its packet in memory keeps what was staged
            FUZZ_REQUIRE(inPlace.bytes() == before);
            return;
        }
        batch.expect(content);
        requireEqual(contentOf(inPlace, isHeic), content);
        if (keepsView) { // its packet may name the same things in another order
            requireEqual(contentOf(*target, isHeic), content);
            target->assign(inPlace.bytes());
        }
        FUZZ_REQUIRE(inPlace.bytes() == target->bytes());
        source = std::move(target);
    }

    void writeDebugInfo(size_t size) {
        std::string const debugInfo(size, 'd');
        for (auto const* file : {&inPlace, source.get()})
            FUZZ_REQUIRE(goesThrough([&] {
                HEIFMetaWriter writer(file->open());
                size == 0 ? writer.removeCameraDebugInfo()
                          : writer.writeCameraDebugInfo({debugInfo.begin(), debugInfo.end()});
            }));
        content.debugInfo = debugInfo;
        view = nullptr; // the file changed behind its back
        requireEqual(contentOf(inPlace, isHeic), content);
    }

private:
    MemoryFile inPlace;
    std::unique_ptr<MemoryFile> source;
    bool isHeic;
    Content content;
    std::shared_ptr<MotionPhotoInfo> view;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    FuzzedDataProvider input(data, size);
    auto const& still = stills()[input.ConsumeIntegralInRange<size_t>(0, stills().size() - 1)];
    bool const isHeic = still.substr(4, 4) == "ftyp";
    Run run(still, isHeic);
    for (int left = 4; left > 0 && input.remaining_bytes() > 0; --left) {
        if (isHeic && input.ConsumeProbability<float>() < 0.2F)
            run.writeDebugInfo(input.ConsumeIntegralInRange<size_t>(0, 300));
        else
            run.commit(input);
    }
    return 0;
}
