// SPDX-License-Identifier: Apache-2.0
#include "Session.h"

#include "PublishedPhoto.h"
#include "XMPPacket.h"
#include "heif/HeicParts.h"
#include "io/ImageMetaWriter.h"
#include "support/Attempt.h"
#include "support/JpegBuilder.h"

namespace android::lumo::test {

Desk::Desk(TempDir const& folder, std::string const& before) : dir(folder) {
    writeBytes(path("still"), before);
    for (auto const* name : {"target", "second"})
        writeBytes(path(name), "");
    still = test::open(path("still"));
    target = test::open(path("target"));
    second = test::open(path("second"));
}

Files Desk::files() const {
    Files all;
    for (auto const* name : {"still", "target", "second"})
        all[name] = bytesOf(path(name));
    return all;
}

std::string differences(Files const& files, Files const& wanted) {
    std::string text;
    for (auto const& [name, bytes] : wanted) {
        if (files.at(name) != bytes)
            text += name + " has " + std::to_string(files.at(name).size()) + " bytes, not these " +
                    std::to_string(bytes.size()) + "; ";
    }
    return text;
}

Files outcome(Scenario const& scenario) {
    TempDir const dir;
    Desk desk(dir, scenario.before);
    for (auto const& step : scenario.prepare(desk))
        returns(step);
    return desk.files();
}

namespace {

auto const skipExisting = std::filesystem::copy_options::skip_existing;

/// An edit of the view that View::parse makes.
template<class View, class Edit>
Prepare committed(bool intoTarget, std::function<void(Edit&)> const& stage) {
    return [=](Desk& desk) -> std::vector<Step> {
        auto const view = View::parse(desk.still);
        std::shared_ptr<Edit> const edit = view->edit();
        stage(*edit);
        auto const target = desk.target;
        return {[=] { (void)view, intoTarget ? edit->commit(target) : edit->commit(); }};
    };
}

Prepare writer(std::function<void(ImageMetaWriter&)> const& write) {
    return [=](Desk& desk) -> std::vector<Step> {
        auto const file = desk.still;
        return {[=] { write(*ImageMetaWriter::of(file)); }};
    };
}

template<class View>
Prepare transferred(std::string const& from) {
    return [source = std::make_shared<TempFile>(from)](Desk& desk) -> std::vector<Step> {
        auto const view = View::parse(source->open("r"));
        auto const file = desk.still;
        return {[=] { view->transferTo(file, skipExisting); }};
    };
}

/// A still prepared as the output's source, then another one.
Prepare preparedTwice(std::string const& first, std::string const& second, Stage const& stage) {
    return [=, one = std::make_shared<TempFile>(first),
            two = std::make_shared<TempFile>(second)](Desk& desk) -> std::vector<Step> {
        std::shared_ptr<MotionPhotoEdit> const edit = MotionPhotoInfo::parse(desk.still)->edit();
        stage(*edit);
        auto const commit = [=](TempFile const& still, File const& target) {
            edit->setOutputSource(still.open("r"));
            edit->commit(target);
        };
        return {[=, file = desk.target] { commit(*one, file); }, [=, file = desk.second] { commit(*two, file); }};
    };
}

std::string edited(std::string const& before, Prepare const& prepare) {
    return outcome({"", "", before, prepare}).at("still");
}

/// A motion photo without a trailer.
std::string publishedWith(std::string const& before, TempFile const& video) {
    return edited(before, [&](Desk& desk) -> std::vector<Step> {
        return {[&, photo = desk.still] { published::addVideo(photo, video.open("r")); }};
    });
}

/// The same as phones of the first generation tell of one.
std::string microVideo(JpegBuilder const& still, std::string const& video) {
    std::string packet = heicXmp("first");
    packet.insert(packet.find("dc:source"), "xmlns:GCamera=\"http://ns.google.com/photos/1.0/camera/\" "
                                            "GCamera:MicroVideo=\"1\" GCamera:MicroVideoOffset=\"" +
                                                std::to_string(video.size()) + "\" ");
    return JpegBuilder(still).xmp(packet).build(std::string(2000, 's')) + video;
}

/// What the operations start from and put in.
struct Material {
    TempFile clip{bytesOf(SAMPLES_DIR "/clip.mp4")};
    TempFile video{videoOf(126'000, 3)}, other{videoOf(125'500, 5)}, small{videoOf(3000, 7)};

    Stage const add = [&](auto& e) { e.addVideo(video.open("r")); };
    Stage const addSmall = [&](auto& e) { e.addVideo(small.open("r")).addQRTData(2817, "Other", filler(70, 'o')); };
    Stage const replace = [&](auto& e) { e.replaceVideo(other.open("r")); };
    Stage const replaceByClip = [&](auto& e) { e.replaceVideo(clip.open("r")); };
    Stage const remove = [](auto& e) { e.removeVideo(nullptr); };
    Stage const record = [](auto& e) { e.addQRTData(2900, "Note", filler(600, 'n')); };
    Stage const property = [](auto& e) { e.getXMPEdit().setProperty(TIFF, "Make", "m"); };
    Stage const timestamp = [](auto& e) { e.setPhotoPresentationTimestampUs(1234567); };

    JpegBuilder const exif = JpegBuilder().exif();
    std::string const scan = std::string(2000, 's');
    std::string const jpeg = exif.build(scan);
    std::string const tight = JpegBuilder(exif).xmp(heicXmp("tight")).build(scan);
    std::string const split = JpegBuilder(exif).xmp(heicXmp("tight\" dc:format=\"f")).xmp(heicXmp("tight")).build(scan);
    std::string const motion = edited(edited(tight, script("c", add)),
                                      script("c", [](auto& e) { e.addQRTData(2817, "Other", filler(70, 'o')); }));
    std::string const pointed = jpeg + pattern(500) + trailerBytes({videoRecord(pointerTo(jpeg.size(), 500))});
    std::string const led =
        jpeg + clip.bytes() + trailerBytes({videoRecord(pointerTo(jpeg.size(), clip.bytes().size()))});
    std::string const far =
        JpegBuilder().segment(0xE0, pattern(50'000)).segment(0xE0, pattern(50'000, 2)).segment(0xE4, "old").build(scan);
    std::string const heic = buildHeic();
    std::string const roomy = buildHeic({.xmp = heicXmp("roomy", 3000)});
    std::string const heicMotion = edited(roomy, script("c", addSmall));
    std::string const records = JpegBuilder(exif).xmp(heicXmp("tight")).build(scan) +
                                trailerBytes({{2817, "Other", pattern(70)}, {2816, "Large", pattern(126'000)}});
    std::string const heicRecords =
        roomy + qrtdBox(trailerBytes({{2816, "Large", pattern(3000)}, {2817, "Other", "o"}}));
    std::string const heicVideo = edited(roomy, script("c", replace));
    std::string const hidden = HeicParts{roomy}.build("ITV");
    std::string const published = publishedWith(tight, clip), heicPublished = publishedWith(roomy, clip);
    std::string const micro = microVideo(exif, clip.bytes());
    std::string const toEnd = buildHeic({.xmp = heicXmp("roomy", 3000), .mdat = HeicOptions::Mdat::ToEnd});
};

// One operation. ------------------------------------------------------------------------------------------------------

void addPhotoEdits(Material const& m, std::vector<Scenario>& all) {
    using Row = std::tuple<char const*, char const*, std::string const&, Stage const&>;
    constexpr char made[] = "video or record, XMP room made", fits[] = "video or record, XMP fits";
    for (auto const& [name, row, before, stage] : std::initializer_list<Row>{
             {"JPEG, video added", made, m.jpeg, m.add},
             {"JPEG, video added to XMP without room", made, m.tight, m.add},
             {"JPEG, video added to two packets", made, m.split, m.add},
             {"JPEG, video replaced", fits, m.motion, m.replace},
             {"JPEG, video replaced by a playable one", fits, m.motion, m.replaceByClip},
             {"JPEG, video removed", fits, m.motion, m.remove},
             {"JPEG, record added", fits, m.motion, m.record},
             {"JPEG, record beside a pointed video", "pointed video, XMP room made", m.led, m.record},
             {"JPEG, timestamp", "XMP, fits", m.motion, m.timestamp},
             {"HEIC, video added", fits, m.roomy, m.addSmall},
             {"HEIC, video added without XMP", made, m.heic, m.addSmall},
             {"HEIC, video replaced", fits, m.heicMotion, m.replace},
             {"HEIC, video removed", fits, m.heicMotion, m.remove},
             {"HEIC, video removed, no record left", fits, m.heicVideo, m.remove},
             {"HEIC, record added", fits, m.heicMotion, m.record},
             {"HEIC, timestamp", "XMP, fits", m.heicMotion, m.timestamp},
             {"HEIC, hidden trailer, record added", "video or record, hidden trailer", m.hidden, m.record},
             {"HEIC, hidden trailer, video removed", "video or record, hidden trailer", m.hidden, m.remove},
             {"HEIC, last box open, video added", fits, m.toEnd, m.addSmall},
         }) {
        std::string const kind = std::string(name).substr(0, 4) + ": ";
        all.push_back({name, kind + row, before, script("c", stage)});
        all.push_back({name + std::string(", into a target"), "", before, script("t", stage)});
    }
}

void addTrailerEdits(Material const& m, std::vector<Scenario>& all) {
    for (bool const intoTarget : {false, true}) {
        auto const add = [&](char const* name, std::string const& before, QRTEdit::Option option, bool isShorter) {
            auto const stage = [=, &m](QRTEdit& edit) {
                edit.setOption(option).removeData("Other");
                if (!isShorter)
                    edit.putData(2900, "Note", filler(600, 'n')).putData(2901, "File", m.small.open("r"));
            };
            all.push_back({name + std::string(intoTarget ? ", into a target" : ""), intoTarget ? "" : "trailer", before,
                           committed<QRTInfo, QRTEdit>(intoTarget, stage)});
        };
        using enum QRTEdit::Option;
        add("trailer of a JPEG in order", m.records, WRITE_IN_ORDER, false);
        add("trailer of a JPEG fast", m.records, WRITE_FAST, false);
        add("trailer of a JPEG shorter", m.records, WRITE_FAST, true);
        add("trailer of a HEIC in order", m.heicRecords, WRITE_IN_ORDER, false);
        add("trailer of a HEIC shorter", m.heicRecords, WRITE_FAST, true);
        add("trailer behind an open last box", m.toEnd, WRITE_IN_ORDER, false);
    }
}

/// In place only.
void addOthers(Material const& m, std::vector<Scenario>& all) {
    auto const xmp = [](size_t size) {
        return committed<XMPInfo, XMPEdit>(
            false, [=](XMPEdit& edit) { edit.setProperty(TIFF, "Model", std::string(size, 'm')); });
    };
    auto const reserve = writer([](auto& w) { w.reserveXMP(2000); });
    auto const debugIn = writer([](auto& w) { w.writeCameraDebugInfo(std::vector<unsigned char>(500, 'd')); });
    Prepare const emptyOut = [](Desk& desk) -> std::vector<Step> {
        return {[photo = desk.still] { published::removeEmptyXMP(photo); }};
    };
    std::string const none = XMPPacket().serialize(), bare = JpegBuilder(m.exif).xmp(none, 1300).build(m.scan);
    auto const debugOut = writer([](auto& w) { w.removeCameraDebugInfo(); });
    std::string const fits = "JPEG: video or record, XMP room made", made = "HEIC: video or record, XMP room made";
    all.insert(
        all.end(),
        {
            {"JPEG, photo transferred", fits, m.tight, transferred<MotionPhotoInfo>(m.motion), {}, false},
            {"HEIC, photo transferred", made, m.heic, transferred<MotionPhotoInfo>(m.heicMotion), {}, false},
            {"trailer transferred", "trailer", m.tight, transferred<QRTInfo>(m.motion), {}, false},
            {"JPEG, XMP transferred", "JPEG: XMP, room made", m.tight, transferred<XMPInfo>(m.motion), {}, false},
            {"JPEG, XMP", "JPEG: XMP, fits", m.motion, xmp(10)},
            {"JPEG, long XMP", "JPEG: XMP, room made", m.motion, xmp(2000)},
            {"JPEG, XMP room", "JPEG: XMP, room made", m.motion, reserve, {}, false},
            {"JPEG, XMP room before a pointer", "JPEG: XMP, room made", m.pointed, reserve, {}, false},
            {"JPEG, debug info", "JPEG: debug info in", m.motion, debugIn, {}, false},
            {"JPEG, debug info before a pointer", "JPEG: debug info in", m.pointed, debugIn, {}, false},
            {"JPEG, debug info out", "JPEG: debug info out", m.far, debugOut, {}, false},
            {"JPEG, empty XMP out", "JPEG: empty XMP out", bare, emptyOut, {}, false},
            {"HEIC, empty XMP out", "HEIC: empty XMP out", buildHeic({.xmp = none}), emptyOut, {}, false},
            {"HEIC, XMP", "HEIC: XMP, fits", m.heicMotion, xmp(10)},
            {"HEIC, XMP room", "HEIC: XMP room", m.heicMotion, reserve, {}, false},
            {"HEIC, debug info", "HEIC: debug info in", m.heicMotion, debugIn, {}, false},
            {"HEIC, debug info without a trailer", "HEIC: debug info in", m.heic, debugIn, {}, false},
            {"HEIC, debug info out", "HEIC: debug info out", edited(m.heicMotion, debugIn), debugOut, {}, false},
            {"HEIC, debug info behind an open last box", "HEIC: debug info in", m.toEnd, debugIn, {}, false},
            {"HEIC, before a hidden trailer", "HEIC: debug info in, hidden trailer", m.hidden, debugIn, {}, false},
        });
}

// Several steps. ------------------------------------------------------------------------------------------------------

decltype(Scenario::complaint) leaves(Files const& wanted) {
    return [=](Files const& files) { return differences(files, wanted); };
}

std::string claimsNoVideo(Files const& files) {
    return files.at("still").find("MotionPhoto=\"1\"") == std::string::npos ? "" : "a video is claimed";
}

/// A commit again: what it must leave is what fresh editors leave that do each part once.
void addSecondCommits(Material const& m, std::vector<Scenario>& all) {
    using Row = std::tuple<char const*, std::string const&, Stage const&>;
    for (auto const& [name, before, stage] : std::initializer_list<Row>{
             {"JPEG, video added", m.tight, m.add},
             {"JPEG, video removed", m.motion, m.remove},
             {"HEIC, video added", m.roomy, m.addSmall},
             {"HEIC, video added without XMP", m.heic, m.addSmall},
             {"HEIC, video replaced", m.heicMotion, m.replace},
             {"HEIC, video removed", m.heicMotion, m.remove},
             {"HEIC, hidden trailer, video removed", m.hidden, m.remove},
             {"JPEG, published, record added", m.published, m.record},
             {"JPEG, first generation, record added", m.micro, m.record},
             {"HEIC, published, record added", m.heicPublished, m.record},
         }) {
        std::string const after = edited(before, script("c", stage));
        auto const add = [&, &what = name, &from = before, &staged = stage](char const* then, char const* letters,
                                                                            Files const& wanted) {
            all.push_back({std::string(what) + then, "", from, script(letters, staged), leaves(wanted)});
        };
        add(" and committed again", "cc", {{"still", after}});
        add(" and the trailer committed first", "qc", {{"still", after}});
        add(" and the XMP committed first", "xc", {{"still", after}});
        add(" and the trailer into a target first", "Qc", {{"still", after}});
        add(" into a target and again", "tc", {{"still", before}, {"target", after}});
        add(" into two targets", "ts", {{"still", before}, {"target", after}, {"second", after}});
        add(" in place, then into a target", "ct", {{"still", after}, {"target", after}});
    }
}

void addSeveralEditors(Material const& m, std::vector<Scenario>& all) {
    auto const add = [&](char const* name, std::string const& before, char const* letters, Stage const& stage,
                         Stage const& then, decltype(Scenario::complaint) const& complaint) {
        all.push_back({name, "", before, script(letters, stage, then), complaint});
    };
    auto const saying = [](std::string const& one, std::string const& two) {
        return [=](Files const& files) {
            std::string const& still = files.at("still");
            return still.find(one) != still.npos && still.find(two) != still.npos ? "" : "a change is missing";
        };
    };
    auto const only = [](std::string const& before, Stage const& one) {
        return leaves({{"still", edited(before, script("c", one))}});
    };
    // The second trailer editor of a view is refused, and so is every editor of a view whose file changed.
    add("JPEG, record by a second editor", m.tight, "cd", m.add, m.record, only(m.tight, m.add));
    add("HEIC, record by a second editor", m.roomy, "cd", m.addSmall, m.record, only(m.roomy, m.addSmall));
    add("HEIC, XMP by a second editor", m.heicMotion, "cd", m.property, m.timestamp,
        saying("tiff:Make=\"m\"", "=\"1234567\""));
    add("JPEG, record by a second view", m.tight, "cv", m.add, m.record, only(m.tight, m.add));
    add("HEIC, record by a second view", m.roomy, "cv", m.addSmall, m.record, only(m.roomy, m.addSmall));
    add("JPEG, XMP by a second view", m.motion, "cv", m.property, m.timestamp, only(m.motion, m.property));
    add("HEIC, XMP by a second view", m.heicMotion, "cv", m.property, m.timestamp, only(m.heicMotion, m.property));
    for (auto const& [name, before] : {std::pair("JPEG", m.motion), std::pair("HEIC", m.heicMotion)}) {
        std::string const longer = before + "written by another program";
        std::string changed = before;
        changed[changed.find("dc:source=\"") + 11] = '#';
        add((name + std::string(", grown meanwhile")).c_str(), before, "oc", m.record, {}, leaves({{"still", longer}}));
        add((name + std::string(", XMP changed meanwhile")).c_str(), before, "yc", m.property, {},
            leaves({{"still", changed}}));
        add((name + std::string(", emptied meanwhile")).c_str(), before, "ec", m.replace, {}, leaves({{"still", ""}}));
    }
    for (auto const& [name, before] : {std::pair("JPEG", m.motion), std::pair("HEIC", m.heicMotion)}) {
        add((name + std::string(", record after a removal")).c_str(), before, "cl", m.remove, m.record, claimsNoVideo);
        add((name + std::string(", XMP after a removal")).c_str(), before, "cl", m.remove, m.property, claimsNoVideo);
    }
    Stage const withXmp = [&](auto& e) {
        m.record(e);
        m.property(e);
    };
    add("JPEG, trailer alone into a target", m.motion, "Q", withXmp, {}, leaves({{"still", m.motion}}));
    add("HEIC, trailer alone into a target", m.heicMotion, "Q", withXmp, {}, leaves({{"still", m.heicMotion}}));
    add("JPEG, XMP alone into a target", m.motion, "X", m.property, {}, leaves({{"still", m.motion}}));
    add("HEIC, XMP alone into a target", m.heicMotion, "X", m.property, {}, leaves({{"still", m.heicMotion}}));
}

void addPrepared(Material const& m, std::vector<Scenario>& all) {
    auto const property = [](std::string const& file, char const* name) {
        return edited(file, committed<XMPInfo, XMPEdit>(
                                false, [=](XMPEdit& e) { e.setProperty(TIFF, name, "of a prepared still"); }));
    };
    for (auto const& [name, before, still] :
         {std::tuple("JPEG", m.motion, m.tight), std::tuple("HEIC", m.heicMotion, m.roomy),
          std::tuple("JPEG, published", m.published, m.tight), std::tuple("HEIC, published", m.heicPublished, m.roomy),
          std::tuple("JPEG, onto a published one", m.motion, m.published)}) {
        std::string const one = property(still, "Make"), two = property(still, "Model");
        auto const alone = outcome({"", "", before, preparedTwice(two, two, m.record)});
        all.push_back({name + std::string(", two prepared stills"), "", before, preparedTwice(one, two, m.record),
                       leaves({{"still", before}, {"second", alone.at("target")}})});
    }
}

} // namespace

std::vector<Scenario> const& scenarios() {
    static Material const material;
    static std::vector<Scenario> const all = [] {
        std::vector<Scenario> made;
        for (auto* const add :
             {addPhotoEdits, addTrailerEdits, addOthers, addSecondCommits, addSeveralEditors, addPrepared})
            add(material, made);
        return made;
    }();
    return all;
}

} // namespace android::lumo::test
