// SPDX-License-Identifier: Apache-2.0
// The commands about what a still carries beside its video: trailer records, XMP properties, the camera's debug info.

#include "Commands.h"

#include "Destination.h"
#include "Inputs.h"
#include "Text.h"

#include "PublishedPhoto.h"
#include "QRTDataInfo.h"
#include "io/ImageMetaWriter.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>
#include <string_view>

namespace motionphoto {

using namespace android::lumo;

namespace {

using FilePtr = std::shared_ptr<MediaFile>;

constexpr char STANDARD_STREAM[] = "-";

// Data in and out. ----------------------------------------------------------------------------------------------------

/// What --data names, or the text itself.
std::vector<unsigned char> dataOf(Arguments const& args) {
    if (args.data.empty())
        return {args.value.begin(), args.value.end()};
    std::ifstream file;
    if (args.data != STANDARD_STREAM) {
        openFile(args.data, Access::READ); // says why it cannot be
        file.open(args.data, std::ios::binary);
    }
    auto& stream = args.data == STANDARD_STREAM ? std::cin : file;
    std::vector<unsigned char> data{std::istreambuf_iterator<char>(stream), {}};
    if (isCutOff(stream))
        throw Failure(ExitCode::BAD_INPUT, args.data, "cannot be read");
    return data;
}

/// Into -o, or to standard output where there is none.
Outcome give(Arguments const& args, Input const& input, Photo const& photo, std::string_view data) {
    if (args.out.empty() || args.out == STANDARD_STREAM)
        return {Outcome::Kind::DONE, ExitCode::DONE, std::string(data), ""};
    return Destination(args, input, input.relative).edit(photo, [&](FilePtr const& output) {
        if (output->write(std::string(data)) != static_cast<ssize_t>(data.size()))
            throw systemFailure(ExitCode::WRITE_FAILED, args.out, "fail to write");
        return true;
    });
}

ExitCode giveEach(Arguments const& args, std::function<std::string(Photo const&)> const& dataOfPhoto) {
    return forEachInput(
        args,
        [&](Input const& input) {
            Photo const photo(input.path, Access::READ);
            return give(args, input, photo, guarded(input.path, [&] { return dataOfPhoto(photo); }));
        },
        Summary::NO);
}

/// The photo's copy, or the photo itself, for editors that work in place.
FilePtr copied(Photo const& photo, FilePtr const& output) {
    if (output == nullptr)
        return photo.file;
    copyWhole(photo, output);
    return output;
}

std::string asText(ByteBuffer const& data) {
    return {reinterpret_cast<char const*>(data.data()), data.size()};
}

// Trailer. ------------------------------------------------------------------------------------------------------------

[[noreturn]] void failNoRecord(Arguments const& args, Photo const& photo) {
    photo.failAbsent("has no record '" + args.key + "'; motionphoto trailer list shows those it has");
}

/// Runs the change on the trailer's editor and commits it: the photo's own one where XMP counts the trailer's bytes to
/// say where a video is.
bool editTrailer(Photo const& photo, FilePtr const& output, std::function<void(QRTEdit&)> const& change) {
    if (photo.hasClaim() && XMPInfo::parse(photo.file)->isNotEmpty()) {
        auto const edit = photo.view()->edit();
        change(edit->getQRTEdit());
        edit->getQRTEdit().makeDirty();
        try {
            output != nullptr ? edit->commit(output) : edit->commit();
        } catch (Error const& error) {
            requireOtherThanRoom(photo, error);
            throw;
        }
        return true;
    }
    for (auto const& record : QRTInfo::parse(photo.file)->getRecords()) {
        if (record.type == qrt::TYPE_MOTION_PHOTO_DATA && record.hasSubInfo)
            throw Failure(ExitCode::BAD_INPUT, photo.path(),
                          "the record of the video has sub-info: written again, its video would not be found");
    }
    auto const edit = QRTInfo::parse(copied(photo, output))->edit();
    change(*edit);
    edit->makeDirty();
    edit->commit();
    return true;
}

/// The views follow no pointer beside "mpv1".
void requireVideoFound(Photo const& photo, int32_t type, std::vector<unsigned char> const& data) {
    static constexpr std::string_view INSIDE = "mpv1";
    bool const saysInside = type == qrt::TYPE_MOTION_PHOTO_VERSION && data.size() >= INSIDE.size() &&
                            std::equal(INSIDE.begin(), INSIDE.end(), data.begin());
    if (!saysInside || !photo.hasClaim() || photo.file->mimeType() != MediaDefs::MimeType::IMAGE_HEIC)
        return;
    auto const inside = QRTInfo::parse(photo.file)->getDataPositionLength(qrt::TYPE_MOTION_PHOTO_DATA);
    if (inside.first != photo.video.position)
        throw Failure(ExitCode::BAD_INPUT, photo.path(),
                      "version mpv1 says that the video stands inside the trailer, where it does not stand: it would "
                      "not be found any more; give mpv3");
}

/// Of two types under one name it takes --type to say which.
std::optional<QRTDataInfo> recordOf(Arguments const& args, QRTInfo const& trailer) {
    std::optional<QRTDataInfo> found;
    for (auto const& record : trailer.getRecords()) {
        if (record.name != args.key || (args.type != 0 && record.type != args.type))
            continue;
        if (found && found->type != record.type)
            throw Failure(ExitCode::USAGE, "",
                          "the trailer has '" + args.key + "' as type " + std::to_string(found->type) + " and " +
                              std::to_string(record.type) + "; --type says which");
        if (!found)
            found = record;
    }
    return found;
}

// XMP. ----------------------------------------------------------------------------------------------------------------

struct Name {
    std::string schema; ///< the namespace's URI
    std::string path;   ///< without the prefix
};

/// "dc:title" taken apart; the prefix is the packet's, one of the published formats', or a common one.
Name nameOf(Arguments const& args, XMPInfo const& xmp) {
    static constexpr std::array<std::pair<std::string_view, std::string_view>, 12> COMMON = {{
        {"GCamera", xmp_ns::CAMERA},
        {"Container", xmp_ns::CONTAINER},
        {"Item", xmp_ns::ITEM},
        {"hdrgm", xmp_ns::HDR_GAIN_MAP},
        {"dc", "http://purl.org/dc/elements/1.1/"},
        {"xmp", "http://ns.adobe.com/xap/1.0/"},
        {"xmpMM", "http://ns.adobe.com/xap/1.0/mm/"},
        {"xmpRights", "http://ns.adobe.com/xap/1.0/rights/"},
        {"photoshop", "http://ns.adobe.com/photoshop/1.0/"},
        {"tiff", "http://ns.adobe.com/tiff/1.0/"},
        {"exif", "http://ns.adobe.com/exif/1.0/"},
        {"aux", "http://ns.adobe.com/exif/1.0/aux/"},
    }};
    auto const colon = args.key.find(':');
    if (colon == std::string::npos || colon == 0 || colon + 1 == args.key.size())
        throw Failure(ExitCode::USAGE, "",
                      "'" + escaped(args.key) + "' is no property; write it with its prefix, as xmp:Rating");
    std::string const prefix = args.key.substr(0, colon), path = args.key.substr(colon + 1);
    for (auto const& [schema, name] : xmp.getProperties()) {
        if (name.starts_with(prefix + ":"))
            return {schema, path};
    }
    for (auto const& [common, schema] : COMMON) {
        if (common == prefix)
            return {std::string(schema), path};
    }
    throw Failure(ExitCode::USAGE, "", "the prefix '" + escaped(prefix) + "' is not known and not used in the packet");
}

/// Also a property of no text.
bool holds(XMPInfo const& xmp, Name const& name) {
    auto const properties = xmp.getProperties();
    return std::any_of(properties.begin(), properties.end(), [&](auto const& each) {
        return each.first == name.schema && each.second.substr(each.second.find(':') + 1) == name.path;
    });
}

/// A path that the packet does not take is the user's, the packet is good.
void changeProperty(Arguments const& args, std::function<void()> const& change) {
    try {
        change();
    } catch (Error const& error) {
        if (error.code() != Error::Code::XMP)
            throw;
        throw Failure(ExitCode::USAGE, "",
                      "'" + escaped(args.key) + "' cannot be changed so: " + std::string(withoutSource(error.what())));
    }
}

/// A HEIC's packet may outgrow the room it has: then more is made, where the image can be written anew.
bool editXmp(Photo const& photo, FilePtr const& output, std::function<void(XMPEdit&)> const& change) {
    auto const file = copied(photo, output);
    size_t size = 0;
    auto const commit = [&] {
        auto const edit = XMPInfo::parse(file)->edit();
        change(*edit);
        size = edit->serializeToBuffer().size();
        edit->commit();
    };
    try {
        commit();
    } catch (Error const& error) {
        requireOtherThanRoom(photo, error);
        if (error.code() != Error::Code::TOO_BIG || file->mimeType() != MediaDefs::MimeType::IMAGE_HEIC)
            throw;
        try {
            ImageMetaWriter::of(file)->reserveXMP(static_cast<unsigned>(size));
        } catch (Error const& refusal) {
            requireOtherThanRoom(photo, refusal);
            throw;
        }
        commit();
    }
    return true;
}

} // namespace

ExitCode trailerList(Arguments const& args) {
    return giveEach(args, [&](Photo const& photo) {
        std::string text;
        auto const records = QRTInfo::parse(photo.file)->getRecords();
        if (records.empty())
            photo.requireReadable();
        for (auto const& record : records)
            text += escaped(photo.path()) + "\t" + std::to_string(record.type) + "\t" + escaped(record.name) + "\t" +
                    std::to_string(record.dataPosition) + "\t" + std::to_string(record.dataPayload) + "\n";
        return text;
    });
}

ExitCode trailerGet(Arguments const& args) {
    return giveEach(args, [&](Photo const& photo) {
        auto const trailer = QRTInfo::parse(photo.file);
        auto const record = recordOf(args, *trailer);
        if (!record)
            failNoRecord(args, photo);
        return asText(trailer->getData(record->type, record->name));
    });
}

ExitCode trailerPut(Arguments const& args) {
    auto const data = dataOf(args);
    return editEach(args, [&](Photo const& photo, FilePtr const& output) {
        return editTrailer(photo, output, [&](QRTEdit& edit) {
            auto const record = recordOf(args, edit);
            int const type = args.type != 0 ? args.type : record ? record->type : 0;
            if (type == 0)
                throw Failure(ExitCode::USAGE, "", "a new record needs its type: --type N");
            if (type == qrt::TYPE_MOTION_PHOTO_DATA)
                throw Failure(ExitCode::USAGE, "", "that record is the video; motionphoto add puts one in");
            requireVideoFound(photo, type, data);
            edit.putData(type, args.key, ByteBuffer(data));
        });
    });
}

ExitCode trailerRemove(Arguments const& args) {
    return editEach(args, [&](Photo const& photo, FilePtr const& output) {
        auto const trailer = QRTInfo::parse(photo.file);
        auto const last = trailer->getDataCount() == 1 ? recordOf(args, *trailer) : std::nullopt;
        if (last && last->type != qrt::TYPE_MOTION_PHOTO_DATA) { // an editor writes no trailer without records
            published::removeTrailer(photo.file, output);
            return true;
        }
        return editTrailer(photo, output, [&](QRTEdit& edit) {
            auto const record = recordOf(args, edit);
            if (!record)
                failNoRecord(args, photo);
            if (record->type == qrt::TYPE_MOTION_PHOTO_DATA)
                throw Failure(ExitCode::USAGE, "", "that record is the video; motionphoto remove takes it out");
            edit.removeData(record->type, record->name);
        });
    });
}

ExitCode xmpGet(Arguments const& args) {
    return giveEach(args, [&](Photo const& photo) {
        auto const xmp = XMPInfo::parse(photo.file);
        auto const name = nameOf(args, *xmp);
        auto const value = xmp->getProperty(name.schema, name.path);
        if (value.empty() && !holds(*xmp, name))
            photo.failAbsent("has no property " + args.key);
        return value + "\n";
    });
}

ExitCode xmpSet(Arguments const& args) {
    return editEach(args, [&](Photo const& photo, FilePtr const& output) {
        return editXmp(photo, output, [&](XMPEdit& edit) {
            auto const name = nameOf(args, edit);
            changeProperty(args, [&] { edit.setProperty(name.schema, name.path, args.value); });
        });
    });
}

ExitCode xmpRemove(Arguments const& args) {
    return editEach(args, [&](Photo const& photo, FilePtr const& output) {
        return editXmp(photo, output, [&](XMPEdit& edit) {
            auto const name = nameOf(args, edit);
            if (edit.getProperty(name.schema, name.path).empty() && !holds(edit, name))
                photo.failAbsent("has no property " + args.key);
            changeProperty(args, [&] { edit.removeProperty(name.schema, name.path); });
        });
    });
}

ExitCode xmpDump(Arguments const& args) {
    return giveEach(args, [&](Photo const& photo) {
        auto const xmp = XMPInfo::parse(photo.file);
        if (!xmp->isNotEmpty())
            photo.requireReadable();
        auto const packet = xmp->serializeToBuffer();
        return std::string(packet.begin(), packet.end()) + "\n";
    });
}

ExitCode debugInfoGet(Arguments const& args) {
    return giveEach(args, [&](Photo const& photo) {
        auto const block = blocksOf(photo.file)->getCameraDebugInfo();
        if (block.type == MediaDefs::MetaType::NONE)
            photo.failAbsent("has no debug info");
        return block.toTypedData<std::string>();
    });
}

ExitCode debugInfoPut(Arguments const& args) {
    auto const data = dataOf(args);
    if (data.empty())
        throw Failure(ExitCode::USAGE, args.data, "is empty, and no debug info");
    return editEach(args, [&](Photo const& photo, FilePtr const& output) {
        if (photo.file->mimeType() == MediaDefs::MimeType::IMAGE_JPEG && !args.force)
            throw Failure(ExitCode::BAD_INPUT, photo.path(),
                          "is a JPEG, behind whose debug info this library finds neither XMP nor a video any more; "
                          "--force writes it all the same");
        ImageMetaWriter::of(copied(photo, output))->writeCameraDebugInfo(data);
        return true;
    });
}

ExitCode debugInfoRemove(Arguments const& args) {
    return editEach(args, [&](Photo const& photo, FilePtr const& output) {
        ImageMetaWriter::of(copied(photo, output))->removeCameraDebugInfo();
        return true;
    });
}

} // namespace motionphoto
