// SPDX-License-Identifier: Apache-2.0
// The commands, in the order of the help.

#include "CommandLine.h"

#include "Commands.h"

#include <CLI/CLI.hpp>

namespace motionphoto {

namespace {

using App = CLI::App;

constexpr bool REQUIRED = true;

void stills(App& app, Arguments& args) {
    app.add_option("PATH", args.paths, "JPEG or HEIC stills, with -r folders of them");
}

void stillsAndClips(App& app, Arguments& args) {
    app.add_option("PATH", args.paths, "Stills and clips, with -r folders of them");
}

auto oneStill(char const* name) {
    return [=](App& app, Arguments& args) {
        app.add_option_function<std::string>(
               name, [&args](std::string const& path) { args.paths = {path}; }, "JPEG or HEIC still")
            ->required();
    };
}

void clip(App& app, Arguments& args) {
    app.add_option("VIDEO", args.video, "MP4 or QuickTime movie")->required();
}

void selection(App& app, Arguments& args) {
    auto* const group = app.add_option_group("Which files");
    group->add_flag("-r,--recursive", args.recursive, "All stills of the folders given, and of those in them");
    group->add_option("--files-from", args.filesFrom, "Names from FILE, one a line; - is standard input")
        ->type_name("FILE");
    group->add_flag("-0,--null", args.zeroSeparated, "The names of --files-from end with a zero byte");
}

void run(App& app, Arguments& args) {
    auto* const group = app.add_option_group("How");
    group->add_option("-j,--jobs", args.jobs, "Files worked on at a time; a core each when not given")
        ->type_name("N")
        ->check(CLI::Range(1U, Arguments::MOST_JOBS));
    group->add_flag("-n,--dry-run", args.dryRun, "Look at everything and write nothing; say what would be written");
    group->add_flag("-q,--quiet", args.quiet, "No progress and no summary");
}

void newFile(App& app, Arguments& args) {
    auto* const group = app.add_option_group("Where the result goes");
    group->add_option("-o,--output", args.out, "File to write")->type_name("OUT");
    group->add_option("-d,--directory", args.folder, "Folder for files of the same names; made when missing")
        ->type_name("DIR");
    group->add_flag("--skip-existing", args.skipExisting, "Leave an output that is there already, and go on");
    group->add_flag("--force", args.force, "Replace an output that is there; follow links, part hard links");
    group->add_flag_callback(
        "--no-preserve", [&args] { args.preserve = false; },
        "Do not keep times, owner, mode and attributes (user.*) of the still");
}

void anyOutput(App& app, Arguments& args) {
    newFile(app, args);
    app.add_flag("--in-place", args.inPlace,
                 "Replace the still when the result is whole; --in-place=bytes edits the file's own bytes, which a "
                 "failure in the middle may leave damaged");
}

auto moment(std::string const& further) {
    return [further](App& app, Arguments& args) {
        auto* const at =
            app.add_option("--at", args.at, "The still's moment in the video: 1.2s, 1200ms, 1200000us" + further)
                ->type_name("TIME");
        app.add_option_function<std::string>(
               "--timestamp-us", [&args](std::string const& us) { args.at = us + "us"; }, "The same in microseconds")
            ->type_name("N")
            ->excludes(at);
    };
}

/// A flag or an option of one command.
auto flag(char const* name, bool Arguments::*set, char const* purpose) {
    return [=](App& app, Arguments& args) { app.add_flag(name, args.*set, purpose); };
}

auto option(char const* name, std::string Arguments::*set, char const* type, char const* purpose,
            bool isRequired = false) {
    return [=](App& app, Arguments& args) {
        app.add_option(name, args.*set, purpose)->type_name(type)->required(isRequired);
    };
}

auto names(char const* purpose) {
    return
        [=](App& app, Arguments& args) { app.add_option("--name", args.nameTemplate, purpose)->capture_default_str(); };
}

/// Sets of options, one after the other.
template<class... Sets>
auto all(Sets... sets) {
    return [=](App& app, Arguments& args) { (sets(app, args), ...); };
}

auto const EDITING = all(selection, anyOutput, run);
/// A command that changes each still, or one thing of it.
auto const CHANGING = all(stills, EDITING);
auto const MAKING = all(selection, newFile);
auto const TAKING_CLIP =
    all(oneStill("STILL"), clip, moment(" or auto, as the clip names it"),
        flag("--keep-brand", &Arguments::keepBrand, "Refuse a clip whose brand would have to change"), anyOutput, run);

auto jsonLines(char const* purpose) {
    return flag("--json", &Arguments::json, purpose);
}

std::vector<Command> videoCommands() {
    return {
        {"add",
         "Give a still a video, in place of the one it has",
         TAKING_CLIP,
         add,
         {"add still.jpg clip.mp4 -o photo.jpg", "add still.heic clip.mov --at 1.2s --in-place"}},
        {"replace",
         "Exchange the video of a motion photo",
         TAKING_CLIP,
         replace,
         {"replace photo.jpg other.mp4 -o new.jpg"}},
        {"remove",
         "Take the video out of motion photos",
         CHANGING,
         remove,
         {"remove photo.jpg -o still.jpg", "remove -r Camera/ -d Stills/ --skip-existing"},
         "Everything else stays as it is; motionphoto still leaves no empty XMP behind."},
        {"still",
         "The still alone, as if it had never moved",
         CHANGING,
         still,
         {"still photo.jpg -o still.jpg", "still -r Camera/ -d Stills/"},
         "XMP that told of the video alone goes too."},
        {"set",
         "Set the still's moment in the video",
         all(stills, moment(""), EDITING),
         set,
         {"set photo.jpg --at 0.8s --in-place"}},
        {"extract",
         "Copy the video of motion photos into files",
         all(stills, MAKING, names("Names below -d: {stem} of the photo, {ext} of the clip"), run),
         extract,
         {"extract photo.jpg -o clip.mp4", "extract -r Camera/ -d Clips/", "extract photo.jpg -o - | ffprobe -"}},
        {"join",
         "Make motion photos of stills and clips that belong together, by content identifier or name",
         all(stillsAndClips, MAKING, run),
         join,
         {"join IMG_1.HEIC IMG_1.MOV -d Joined/", "join -r Export/ -d Joined/ --skip-existing"}},
        {"split",
         "Still and clip of motion photos as files of their own",
         all(stills, MAKING, names("Names of the clips: {stem} of the photo, {ext} of the clip"), run),
         split,
         {"split -r Camera/ -d Parts/"}},
        {"carry",
         "Give an edited still the motion of the photo it was made from",
         all(oneStill("PHOTO"),
             option("--into", &Arguments::edited, "EDITED", "The edited still, of the same type", REQUIRED), newFile,
             run),
         carry,
         {"carry photo.jpg --into edited.jpg -o moving.jpg"}},
    };
}

std::vector<Command> formatCommands() {
    return {
        {"check",
         "Say which rules photos keep and break (docs/rules.md); 0 sound, 1 no video, 3 damaged",
         all(stills, selection, jsonLines("An object a line (docs/json.md)"), run),
         check,
         {"check photo.jpg", "check -r Camera/ --json"}},
        {"convert",
         "Between the form with a trailer and the published form that ends with the video",
         all(stills, option("--to", &Arguments::form, "FORM", "trailer or published", REQUIRED),
             flag("--drop-records", &Arguments::dropRecords, "To published: drop the trailer's other records"),
             EDITING),
         convert,
         {"convert photo.jpg --to published -o shared.jpg", "convert -r Camera/ --to trailer -d Converted/"}},
        {"repair",
         "Make what a photo says of its video agree with the video there is",
         all(stills,
             flag("--drop-orphans", &Arguments::dropOrphans,
                  "Take a movie out that nothing claims, instead of claiming it"),
             EDITING),
         repair,
         {"repair photo.jpg -o repaired.jpg", "repair -r Camera/ --in-place"}},
    };
}

auto const FORCE = flag("--force", &Arguments::force, "Replace an output that is there");

/// The word that says which thing of a still is meant, in front of the stills.
auto key(char const* name, char const* purpose) {
    return [=](App& app, Arguments& args) { app.add_option(name, args.key, purpose)->required(); };
}

void recordType(App& app, Arguments& args) {
    app.add_option("--type", args.type, "The record's type; of one that is there it is known")
        ->type_name("N")
        ->check(CLI::Range(1, 0xFFFF));
}

auto const RECORD = all(key("RECORD", "The record's name, as trailer list shows it"), recordType);
auto const PROPERTY = key("PROPERTY", "The property with its prefix: xmp:Rating");

void value(App& app, Arguments& args) {
    app.add_option("VALUE", args.value, "Its text")->required();
}

/// A command that prints, or with -o writes, one thing of each still.
auto const READING =
    all(stills, selection, option("-o,--output", &Arguments::out, "OUT", "Into a file instead of standard output"),
        FORCE, run);
auto const DATA = option("--data", &Arguments::data, "FILE", "File with the data; - is standard input", REQUIRED);

void recordData(App& app, Arguments& args) {
    option("--data", &Arguments::data, "FILE", "File with the data; - is standard input")(app, args);
    app.add_option("--text", args.value, "The data itself")->type_name("TEXT")->excludes("--data");
}

std::vector<Command> recordCommands() {
    return {
        {"trailer list",
         "The trailer's records: file, type, name, position, size",
         READING,
         trailerList,
         {"trailer list photo.jpg"}},
        {"trailer get",
         "The data of a record",
         all(RECORD, READING),
         trailerGet,
         {"trailer get MotionPhoto_Version photo.jpg"}},
        {"trailer put",
         "Add a record or replace its data",
         all(RECORD, recordData, CHANGING),
         trailerPut,
         {"trailer put Note --type 4000 --text 'by the sea' photo.jpg --in-place"}},
        {"trailer remove",
         "Take a record out",
         all(RECORD, CHANGING),
         trailerRemove,
         {"trailer remove Note photo.jpg --in-place"}},
        {"xmp get", "The value of a property", all(PROPERTY, READING), xmpGet, {"xmp get xmp:Rating photo.jpg"}},
        {"xmp set",
         "Set a simple property",
         all(PROPERTY, value, CHANGING),
         xmpSet,
         {"xmp set xmp:Rating 5 photo.jpg --in-place"}},
        {"xmp remove",
         "Take a property out",
         all(PROPERTY, CHANGING),
         xmpRemove,
         {"xmp remove xmp:Rating photo.jpg --in-place"}},
        {"xmp dump", "The packet", READING, xmpDump, {"xmp dump photo.jpg | xmllint --format -"}},
        {"debug-info get", "The camera's debug info", READING, debugInfoGet, {"debug-info get photo.jpg -o info.bin"}},
        {"debug-info put",
         "Add or replace the camera's debug info",
         all(DATA, CHANGING),
         debugInfoPut,
         {"debug-info put photo.jpg --data info.bin --in-place"}},
        {"debug-info remove",
         "Take the camera's debug info out",
         CHANGING,
         debugInfoRemove,
         {"debug-info remove -r Camera/ --in-place"}},
    };
}

std::vector<Command> infoCommands() {
    return {
        {"info",
         "Say what files are and carry",
         all(stills, selection, jsonLines("An object a line, failures included (docs/json.md)"),
             flag("--list", &Arguments::list, "A line a file"), run),
         info,
         {"info photo.jpg", "info --json -r Camera/ | jq -r 'select(.motionPhoto) | .file'"}},
        {"map",
         "Draw a photo's bytes to scale",
         all(oneStill("PHOTO"), option("--svg", &Arguments::svg, "OUT", "As a drawing"),
             option("--html", &Arguments::html, "OUT", "As a page with still and video"), FORCE),
         map,
         {"map photo.jpg", "map photo.jpg --html photo.html"}},
    };
}

} // namespace

std::vector<Command> const& commands() {
    static std::vector<Command> const all = [] {
        std::vector<Command> result;
        for (auto family : {infoCommands, videoCommands, formatCommands, recordCommands}) {
            for (auto& command : family())
                result.push_back(std::move(command));
        }
        return result;
    }();
    return all;
}

} // namespace motionphoto
