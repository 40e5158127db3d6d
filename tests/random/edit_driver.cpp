// Runs edits for random_edit_test.py: one command a line on standard input, one answer a line, "ok" or "error TEXT".
//
//     still KIND PATH               writes a still of the test builders
//     parse PATH                    a fresh view of a file; edit: an editor of the present view
//     video|memory|replace PATH     remove    time US    fast    primary TYPE
//     record TYPE NAME SIZE LETTER  drop NAME            (data of SIZE times LETTER)
//     set NAME SIZE LETTER          unset NAME           (properties of the TIFF namespace)
//     commit [TARGET]
//     debug PATH SIZE LETTER        undebug PATH         (HEIC camera debug info, past the editor)
#include "MotionPhotoEdit.h"
#include "XMPToolkit.h"
#include "io/HEIFMetaWriter.h"
#include "support/HeicBuilder.h"
#include "support/JpegBuilder.h"

#include <algorithm>
#include <fstream>
#include <functional>
#include <iostream>
#include <map>
#include <sstream>

using namespace android::lumo;

namespace {

constexpr char TIFF[] = "http://ns.adobe.com/tiff/1.0/";

std::string still(std::string const& kind) {
    using test::JpegBuilder;
    std::string const packet = test::heicXmp("seed");
    std::map<std::string, std::string> const made{
        {"jpeg", JpegBuilder().exif().build()},
        {"jpeg-xmp", JpegBuilder().exif().xmp(packet).segment(0xE2, "ICC").build("scan", "bytes behind")},
        {"jpeg-xmps", JpegBuilder().exif().xmp(packet).segment(0xE0, "JFIF").exif("MM*").xmp(packet, 3000).build()},
        {"heic", test::buildHeic({.thumbnail = true, .groups = true, .rotation = 1})},
        {"heic-xmp", test::buildHeic({.alpha = true, .xmp = test::heicXmp("seed", 1500), .freeBoxes = true})},
        {"heic-last", test::buildHeic({.xmp = packet, .indexWidth = 4, .mdat = test::HeicOptions::Mdat::ToEnd})},
        {"heic-single", test::buildHeic({.grid = false, .xmp = test::heicXmp("seed", 3000)})},
    };
    return made.at(kind);
}

class Driver {
public:
    void run(std::string const& line) {
        std::istringstream words(line);
        std::string command;
        words >> command;
        commands.at(command)(words);
    }

private:
    using Words = std::istringstream;

    static std::string word(Words& words) {
        std::string text;
        words >> text;
        return text;
    }
    static int number(Words& words) { return std::stoi(word(words)); }
    static std::string filler(Words& words) {
        auto const size = static_cast<size_t>(number(words));
        return std::string(size, word(words).at(0));
    }
    static ByteBuffer buffer(std::string const& text) {
        return ByteBuffer(std::vector<uint8_t>(text.begin(), text.end()));
    }
    static std::shared_ptr<MediaFile> open(Words& words, std::string const& mode = "rw") {
        return std::make_shared<MediaFile>(word(words), mode);
    }

    void commit(Words& words) {
        std::string const target = word(words);
        auto const finished = std::move(editor); // committed once, whatever comes of it
        if (target.empty())
            finished->commit();
        else
            finished->commit(std::make_shared<MediaFile>(target, "rw"));
    }

    std::shared_ptr<MotionPhotoInfo> view;
    std::shared_ptr<MotionPhotoEdit> editor;
    std::map<std::string, std::function<void(Words&)>> const commands{
        {"still",
         [](Words& w) {
             std::string const kind = word(w);
             std::ofstream(word(w), std::ios::binary) << still(kind);
         }},
        {"parse", [this](Words& w) { view = MotionPhotoInfo::parse(open(w)); }},
        {"edit", [this](Words&) { editor = view->edit(); }},
        {"video", [this](Words& w) { editor->addVideo(open(w, "r")); }},
        {"memory", [this](Words& w) { editor->addVideo(std::make_shared<ByteBuffer>(open(w, "r")->readAllBytes())); }},
        {"replace", [this](Words& w) { editor->replaceVideo(open(w, "r")); }},
        {"remove", [this](Words&) { editor->removeVideo(nullptr); }},
        {"time", [this](Words& w) { editor->setPhotoPresentationTimestampUs(number(w)); }},
        {"fast", [this](Words&) { editor->getQRTEdit().setOption(QRTEdit::Option::WRITE_FAST); }},
        {"primary",
         [this](Words& w) {
             editor->getQRTEdit().setPrimaryType(number(w));
             editor->getQRTEdit().makeDirty();
         }},
        {"record",
         [this](Words& w) {
             int const type = number(w);
             std::string const name = word(w);
             editor->addQRTData(type, name, buffer(filler(w)));
         }},
        {"drop", [this](Words& w) { editor->getQRTEdit().removeData(word(w)).makeDirty(); }},
        {"set",
         [this](Words& w) {
             std::string const name = word(w);
             editor->getXMPEdit().setProperty(TIFF, name, filler(w));
         }},
        {"unset", [this](Words& w) { editor->getXMPEdit().removeProperty(TIFF, word(w)); }},
        {"commit", [this](Words& w) { commit(w); }},
        {"debug",
         [](Words& w) {
             HEIFMetaWriter writer(open(w));
             std::string const data = filler(w);
             writer.writeCameraDebugInfo({data.begin(), data.end()});
         }},
        {"undebug", [](Words& w) { HEIFMetaWriter(open(w)).removeCameraDebugInfo(); }},
    };
};

std::string answerTo(Driver& driver, std::string const& line) {
    std::string text;
    try {
        driver.run(line);
        return "ok";
    } catch (std::exception const& error) {
        text = error.what();
    } catch (XMP_Error const& error) {
        text = error.GetErrMsg();
    }
    std::replace(text.begin(), text.end(), '\n', ' ');
    return "error " + text;
}

} // namespace

int main() {
    Driver driver;
    for (std::string line; std::getline(std::cin, line);)
        std::cout << answerTo(driver, line) << std::endl;
    return 0;
}
