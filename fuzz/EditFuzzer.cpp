// SPDX-License-Identifier: Apache-2.0
// A sequence of commits decoded from the input, on a small still, made in place on one file and into fresh targets on a
// second chain. After each, both give the same bytes or both refuse, and a refusal leaves the file alone. What a file
// must hold is kept by a model and compared by a reader of its own: image, order and data of records, properties,
// video, debug info, and that XMP, trailer and video agree.
#include "FuzzSupport.h"
#include "MotionPhotoEdit.h"
#include "io/HEIFMetaWriter.h"
#include "support/HeicBuilder.h"
#include "support/PhotoParts.h"

#include <algorithm>
#include <array>

using namespace android::lumo;
using namespace android::lumo::fuzz;

namespace {

constexpr char TIFF[] = "http://ns.adobe.com/tiff/1.0/";
constexpr std::array<char const*, 3> PROPERTIES{"Make", "Model", "HostComputer"};
constexpr std::pair<int, char const*> RECORDS[] = {
    {2817, "A"}, {2900, "A"}, {2900, "B"}, {-7, "Note"}, {2610, "MotionPhoto_Info"}};
constexpr int VIDEO = 2608, VIDEO_VERSION = 2609;
constexpr int MAX_COMMITS = 6;

/// Bytes that choose what is done; zeros behind their end.
class Choices {
public:
    Choices(uint8_t const* data, size_t size) : bytes(text(data, size)) {}

    size_t upTo(size_t most) {
        size_t value = next();
        if (most > 255)
            value = value << 8 | next();
        return value % (most + 1);
    }
    template<class List>
    auto const& of(List const& list) {
        return list[upTo(std::size(list) - 1)];
    }
    bool areLeft() const { return at < bytes.size(); }

private:
    uint8_t next() { return at < bytes.size() ? static_cast<uint8_t>(bytes[at++]) : 0; }

    std::string_view bytes;
    size_t at = 0;
};

std::vector<std::string> const& stills() {
    static std::vector<std::string> const made = [] {
        using test::HeicOptions;
        using test::JpegBuilder;
        std::string const packet = test::heicXmp("seed");
        return std::vector<std::string>{
            JpegBuilder().exif().build(),
            JpegBuilder().exif().xmp(packet).segment(0xE2, "ICC").build("scan", "bytes behind"),
            JpegBuilder().exif().xmp(packet).segment(0xE0, "JFIF").exif("MM*").xmp(packet, 3000).build(),
            test::buildHeic({.thumbnail = true, .groups = true, .rotation = 1}),
            test::buildHeic({.xmp = packet, .indexWidth = 4, .mdat = HeicOptions::Mdat::ToEnd}),
            test::buildHeic({.grid = false, .xmp = test::heicXmp("seed", 2000)}),
            test::buildHeic(
                {.alpha = true, .xmp = packet, .furtherBoxes = true, .tail = test::heicBox("free", "cdifdebug")}),
        };
    }();
    return made;
}

/// What a file must hold.
struct Model {
    std::vector<test::TrailerRecord> records; ///< the video's without its data
    std::string video, debugInfo, behind;
    std::vector<std::string> image;
    test::Properties properties;         ///< but those that speak of the video
    std::optional<std::string> time{""}; ///< none: whatever the video's duration is
    // For the commit that is staged.
    int primary = 0;
    bool isCutWhenEmpty = false;

    void put(int type, std::string const& name, std::string const& data) {
        for (auto& record : records) {
            if (record.type == type && record.name == name) {
                record.data = data;
                return;
            }
        }
        records.push_back({type, name, data});
    }

    void dropVideo() {
        std::erase_if(records, [](auto const& each) {
            return each.type == VIDEO || each.type == VIDEO_VERSION || each.name == "MotionPhoto_Info";
        });
        video.clear();
        time = "";
        isCutWhenEmpty = true;
    }

    /// What was staged is written.
    void commit(Model const& before) {
        if (records.empty() && !isCutWhenEmpty)
            records = before.records; // a trailer is not written empty
        auto const first =
            std::find_if(records.begin(), records.end(), [&](auto const& record) { return record.type == primary; });
        if (primary > 0 && first != records.end())
            std::rotate(first, first + 1, records.end());
        primary = 0;
        isCutWhenEmpty = false;
    }

    static Model of(test::PhotoParts const& parts) {
        Model model{parts.trailer.records, parts.video, parts.debugInfo, parts.behind, parts.image, {}};
        for (auto& record : model.records)
            record.data = record.type == VIDEO ? "" : record.data;
        for (auto const& [path, value] : test::propertiesOf(parts.packet())) {
            if (path.starts_with("photos/1.0/camera/MotionPhotoPresentation"))
                model.time = value;
            else if (!path.starts_with("photos/1.0/camera/") && !path.starts_with("photos/1.0/container/"))
                model.properties[path] = value;
        }
        return model;
    }
};

void requireHolds(MemoryFile const& file, Model const& expected) {
    auto const parts = test::takeApart(file.bytes());
    Model const now = Model::of(parts);
    FUZZ_REQUIRE(now.image == expected.image && now.behind == expected.behind);
    FUZZ_REQUIRE(parts.packets.size() == 1 ||
                 (parts.packets.empty() && now.video.empty())); // none is made for a removal
    FUZZ_REQUIRE(now.records == expected.records);
    FUZZ_REQUIRE(now.properties == expected.properties);
    FUZZ_REQUIRE(!expected.time || now.time == expected.time);
    FUZZ_REQUIRE(now.video == expected.video);
    FUZZ_REQUIRE(now.debugInfo == expected.debugInfo);
    FUZZ_REQUIRE(now.video.empty() || parts.faults().empty());
    auto const photo = MotionPhotoInfo::parse(file.open());
    auto const video = photo->getVideo();
    FUZZ_REQUIRE(photo->isValid() == !expected.video.empty());
    FUZZ_REQUIRE(std::string(video->data(), video->data() + video->size()) == expected.video);
}

/// One staged change and what it does to the model.
struct Operation {
    std::function<void(MotionPhotoEdit&)> stage;
    std::function<void(Model&)> effect;
};

Operation videoPut(Choices& input, bool isHeic) {
    // What a JPEG record holds up to 125,000 bytes is read as a pointer, by the format's own doing.
    size_t const size = (isHeic && input.upTo(1) == 0 ? 40 : 125'100) + input.upTo(20);
    std::string const bytes = test::heicBox("ftyp", "mp42") + std::string(size, input.upTo(1) == 0 ? 'V' : 'W');
    auto const file = std::make_shared<MemoryFile>(bytes);
    size_t const way = input.upTo(3);
    auto const stage = [=](MotionPhotoEdit& edit) {
        if (way == 0)
            edit.addVideo(file->open());
        else if (way == 1)
            edit.addVideo(std::make_shared<ByteBuffer>(file->open()->readAllBytes()));
        else if (way == 2)
            edit.addQRTData(VIDEO, "MotionPhoto_Data", file->open()->readAllBytes());
        else
            edit.replaceVideo(file->open());
    };
    return {stage, [=](Model& model) {
                model.video = bytes;
                model.put(VIDEO, "MotionPhoto_Data", "");
                if (isHeic && way == 2)
                    model.put(VIDEO_VERSION, "MotionPhoto_Version", "mpv3");
                model.time = model.time == "" ? std::nullopt : model.time;
                model.isCutWhenEmpty = false;
            }};
}

Operation recordPut(Choices& input) {
    auto const& [type, name] = input.of(RECORDS);
    std::string const data(1 + input.upTo(3000), 'r');
    auto const stage = [=, type = type, name = name](auto& edit) {
        edit.addQRTData(type, name, ByteBuffer(std::vector<uint8_t>(data.begin(), data.end())));
    };
    return {stage, [=, type = type, name = name](Model& model) { model.put(type, name, data); }};
}

Operation recordDropped(std::string const& name) {
    return {[=](auto& edit) { edit.getQRTEdit().removeData(name).makeDirty(); },
            [=](Model& model) {
                auto const found = std::find_if(model.records.begin(), model.records.end(),
                                                [&](auto const& record) { return record.name == name; });
                if (found != model.records.end())
                    model.records.erase(found);
            }};
}

Operation propertySet(std::string const& name, std::string const& value) {
    return {[=](auto& edit) {
                auto& xmp = edit.getXMPEdit();
                value.empty() ? xmp.removeProperty(TIFF, name) : xmp.setProperty(TIFF, name, value);
            },
            [=](Model& model) {
                model.properties["tiff/1.0/" + name] = value;
                std::erase_if(model.properties, [](auto const& each) { return each.second.empty(); });
            }};
}

Operation decode(Choices& input, bool isHeic) {
    switch (input.upTo(9)) {
    case 0:
    case 1:
        return videoPut(input, isHeic);
    case 2:
        return {[](auto& edit) { edit.removeVideo(nullptr); }, [](Model& model) { model.dropVideo(); }};
    case 3:
    case 4:
        return recordPut(input);
    case 5:
        return recordDropped(input.of(RECORDS).second);
    case 6:
        return propertySet(input.of(PROPERTIES), std::string(1 + input.upTo(3000), 'p'));
    case 7:
        return propertySet(input.of(PROPERTIES), "");
    case 8: {
        auto const time = static_cast<long>(input.upTo(50'000));
        return {[=](auto& edit) { edit.setPhotoPresentationTimestampUs(time); },
                [=](Model& model) { model.time = std::to_string(time); }};
    }
    default:
        int const type = input.of(RECORDS).first;
        bool const isFast = input.upTo(1) == 0;
        return {[=](auto& edit) {
                    edit.getQRTEdit().setPrimaryType(type).makeDirty();
                    if (isFast)
                        edit.getQRTEdit().setOption(QRTEdit::Option::WRITE_FAST);
                },
                [=](Model& model) { model.primary = type; }};
    }
}

/// The two chains of files.
class Run {
public:
    explicit Run(std::string const& still)
        : inPlace(still), source(std::make_unique<MemoryFile>(still)), model(Model::of(test::takeApart(still))),
          isHeic(still.substr(4, 4) == "ftyp") {}

    void step(Choices& input) {
        if (isHeic && input.upTo(4) == 0)
            writeDebugInfo(input.upTo(300));
        else
            commit(input);
    }

private:
    void commit(Choices& input) {
        bool const keepsView = input.upTo(1) == 0 && view != nullptr;
        std::vector<Operation> operations;
        Model const before = model;
        for (size_t left = 1 + input.upTo(3); left > 0; --left) {
            operations.push_back(decode(input, isHeic));
            operations.back().effect(model);
        }
        model.commit(before);
        std::string const bytes = inPlace.bytes();
        if (!keepsView)
            view = MotionPhotoInfo::parse(inPlace.open());
        auto const edited = [&](std::shared_ptr<MotionPhotoInfo> const& of, auto commit) {
            return refusal([&] {
                auto const edit = of->edit();
                for (auto const& operation : operations)
                    operation.stage(*edit);
                commit(*edit);
            });
        };
        auto target = std::make_unique<MemoryFile>();
        auto const refused = edited(view, [](auto& edit) { edit.commit(); });
        auto const refusedTarget =
            edited(MotionPhotoInfo::parse(source->open()), [&](auto& edit) { edit.commit(target->open()); });
        FUZZ_REQUIRE(source->bytes() == bytes);
        FUZZ_REQUIRE(refused == refusedTarget);
        if (refused) {
            view = nullptr; // its packet in memory keeps what was staged
            model = before;
            FUZZ_REQUIRE(inPlace.bytes() == bytes);
            return;
        }
        requireHolds(inPlace, model);
        auto const fresh = MotionPhotoInfo::parse(inPlace.open());
        FUZZ_REQUIRE(view->getVideoPosition() == fresh->getVideoPosition());
        FUZZ_REQUIRE(view->getVideoSize() == fresh->getVideoSize() && view->getImageSize() == fresh->getImageSize());
        if (keepsView) { // its packet may name the same things in another order
            requireHolds(*target, model);
            target->assign(inPlace.bytes());
        }
        FUZZ_REQUIRE(inPlace.bytes() == target->bytes());
        source = std::move(target);
    }

    void writeDebugInfo(size_t size) {
        model.debugInfo = std::string(size, 'd');
        for (auto const* file : {&inPlace, source.get()})
            FUZZ_REQUIRE(goesThrough([&] {
                HEIFMetaWriter writer(file->open());
                size == 0 ? writer.removeCameraDebugInfo()
                          : writer.writeCameraDebugInfo({model.debugInfo.begin(), model.debugInfo.end()});
            }));
        view = nullptr; // the file changed behind its back
        auto const parts = test::takeApart(inPlace.bytes());
        FUZZ_REQUIRE(parts.debugInfo == model.debugInfo && parts.image == model.image);
        FUZZ_REQUIRE(model.video.empty() || (parts.video == model.video && parts.faults().empty()));
    }

    MemoryFile inPlace;
    std::unique_ptr<MemoryFile> source;
    Model model;
    bool isHeic;
    std::shared_ptr<MotionPhotoInfo> view;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    Choices input(data, size);
    Run run(input.of(stills()));
    for (int left = MAX_COMMITS; left > 0 && input.areLeft(); --left)
        run.step(input);
    return 0;
}
