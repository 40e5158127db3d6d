// SPDX-License-Identifier: Apache-2.0
// The commands about a photo's form: which rules it keeps, from one form to the other, and back to where it agrees with
// itself.

#include "Commands.h"

#include "Destination.h"
#include "InfoReport.h"
#include "JsonLine.h"
#include "PutClip.h"
#include "Text.h"

#include "PhotoCheck.h"
#include "PublishedPhoto.h"

#include <sstream>

namespace motionphoto {

using namespace android::lumo;

namespace {

using FilePtr = std::shared_ptr<MediaFile>;

char const* nameOf(PhotoCheck::Verdict verdict) {
    switch (verdict) {
    case PhotoCheck::Verdict::SOUND:
        return "sound";
    case PhotoCheck::Verdict::NONE:
        return "none";
    default:
        return "damaged";
    }
}

std::string asText(std::string const& path, PhotoCheck const& result) {
    std::string text = escaped(path) + ": " + nameOf(result.verdict) + "\n";
    for (auto const& finding : result.findings) {
        text += std::string("  ") + PhotoCheck::nameOf(finding.rule->severity) + " " + finding.rule->id;
        text += finding.offset > 0 ? " at " + grouped(finding.offset) : "";
        text += ": expected " + escaped(finding.expected) + ", found " + escaped(finding.found);
        text += finding.rule->isPublished ? "\n" : " (a rule of this library)\n";
    }
    return text;
}

std::string asJson(std::string const& path, PhotoCheck const& result) {
    Json findings = Json::array();
    for (auto const& finding : result.findings)
        findings.push_back({{"rule", finding.rule->id},
                            {"severity", PhotoCheck::nameOf(finding.rule->severity)},
                            {"published", finding.rule->isPublished},
                            {"offset", finding.offset},
                            {"expected", finding.expected},
                            {"found", finding.found}});
    return jsonLine(path, {{"verdict", nameOf(result.verdict)}, {"findings", findings}});
}

Outcome checkOne(Arguments const& args, Input const& input) {
    Photo const photo(input.path, Access::READ);
    auto const result = guarded(input.path, [&] { return PhotoCheck::run(photo.file); });
    auto const text = args.json ? asJson(input.path, result) : asText(input.path, result);
    switch (result.verdict) {
    case PhotoCheck::Verdict::SOUND:
        return {Outcome::Kind::DONE, ExitCode::DONE, text, ""};
    case PhotoCheck::Verdict::NONE:
        return {Outcome::Kind::WITHOUT_VIDEO, args.recursive ? ExitCode::DONE : ExitCode::NO_MOTION_PHOTO, text, ""};
    default:
        return {Outcome::Kind::FAILED, ExitCode::BAD_INPUT, text, ""};
    }
}

} // namespace

ExitCode check(Arguments const& args) {
    return forEachInput(
        args,
        [&](Input const& input) {
            try {
                return checkOne(args, input);
            } catch (Failure const& failure) {
                return failedReport(args, input.path, failure);
            }
        },
        Summary::YES);
}

ExitCode convert(Arguments const& args) {
    if (args.form != "trailer" && args.form != "published")
        throw Failure(ExitCode::USAGE, "", "give the form: --to trailer or --to published");
    return editEach(args, [&](Photo const& photo, FilePtr const& output) {
        photo.requireVideo();
        auto const result = args.form == "trailer" ? published::toTrailer(photo.file, output)
                                                   : published::toPublished(photo.file, args.dropRecords, output);
        if (auto const changes = changesOf(result.brand, result.filler); args.form == "trailer" && !changes.empty())
            note(args, photo.path(), changes);
        if (!result.dropped.empty()) {
            std::string names;
            for (auto const& name : result.dropped)
                names += (names.empty() ? "" : ", ") + escaped(name);
            note(args, photo.path(), "dropped the records " + names);
        }
        return true;
    });
}

ExitCode repair(Arguments const& args) {
    return editEach(args, [&](Photo const& photo, FilePtr const& output) {
        auto const result = Repair::run(photo.file, {args.dropOrphans}, output);
        std::string text;
        for (auto const& line : result.done)
            text += lineStart() + escaped(photo.path()) + ": " + escaped(line) + "\n";
        if (result.after.verdict == PhotoCheck::Verdict::DAMAGED)
            text += lineStart() + ("still " + asText(photo.path(), result.after));
        if (!args.quiet)
            std::fputs(text.c_str(), stderr);
        if (!result.isChanged() && result.after.verdict == PhotoCheck::Verdict::DAMAGED &&
            !result.after.video.isSound())
            throw Failure(ExitCode::BAD_INPUT, photo.path(),
                          "nothing can be repaired without a whole video; it stays as it is");
        return result.isChanged() || !args.isInPlace();
    });
}

} // namespace motionphoto
