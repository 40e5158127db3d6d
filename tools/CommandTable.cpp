// SPDX-License-Identifier: Apache-2.0
// The commands, in the order of the help.

#include "CommandLine.h"

#include "Commands.h"

#include <CLI/CLI.hpp>

namespace motionphoto {

namespace {

using App = CLI::App;

void stills(App& app, Arguments& args) {
    app.add_option("PATH", args.paths, "JPEG or HEIC stills, with -r folders of them");
}

void oneStill(App& app, Arguments& args, char const* name = "STILL") {
    app.add_option_function<std::string>(
           name, [&args](std::string const& path) { args.paths = {path}; }, "JPEG or HEIC still")
        ->required();
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
        ->check(CLI::PositiveNumber);
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
        "Do not keep times, owner, mode and attributes of the still");
}

void anyOutput(App& app, Arguments& args) {
    newFile(app, args);
    app.add_flag("--in-place", args.inPlace,
                 "Replace the still when the result is whole; --in-place=bytes edits the file's own bytes");
}

void moment(App& app, Arguments& args, char const* further = "") {
    auto* const at = app.add_option("--at", args.at,
                                    std::string("The still's moment in the video: 1.2s, 1200ms, 1200000us") + further)
                         ->type_name("TIME");
    app.add_option_function<std::string>(
           "--timestamp-us", [&args](std::string const& us) { args.at = us + "us"; }, "The same in microseconds")
        ->type_name("N")
        ->check(CLI::NonNegativeNumber)
        ->excludes(at);
}

void editing(App& app, Arguments& args) {
    selection(app, args);
    anyOutput(app, args);
    run(app, args);
}

std::vector<Command> videoCommands() {
    return {
        {"add",
         "Give a still a video, in place of the one it has",
         [](App& app, Arguments& args) {
             oneStill(app, args);
             clip(app, args);
             moment(app, args, " or auto, as the clip names it");
             app.add_flag("--keep-brand", args.keepBrand, "Refuse a clip whose brand would have to change");
             anyOutput(app, args);
             run(app, args);
         },
         add,
         {"add still.jpg clip.mp4 -o photo.jpg", "add still.heic clip.mov --at 1.2s --in-place"}},
        {"replace",
         "Exchange the video of a motion photo",
         [](App& app, Arguments& args) {
             oneStill(app, args);
             clip(app, args);
             moment(app, args, " or auto, as the clip names it");
             app.add_flag("--keep-brand", args.keepBrand, "Refuse a clip whose brand would have to change");
             anyOutput(app, args);
             run(app, args);
         },
         replace,
         {"replace photo.jpg other.mp4 -o new.jpg"}},
        {"remove",
         "Take the video out of motion photos",
         [](App& app, Arguments& args) {
             stills(app, args);
             editing(app, args);
         },
         remove,
         {"remove photo.jpg -o still.jpg", "remove -r Camera/ -d Stills/ --skip-existing"}},
        {"still",
         "The still alone, as if it had never moved",
         [](App& app, Arguments& args) {
             stills(app, args);
             editing(app, args);
         },
         still,
         {"still photo.jpg -o still.jpg", "still -r Camera/ -d Stills/"}},
        {"set",
         "Set the still's moment in the video",
         [](App& app, Arguments& args) {
             stills(app, args);
             moment(app, args);
             editing(app, args);
         },
         set,
         {"set photo.jpg --at 0.8s --in-place"}},
        {"extract",
         "Copy the video of motion photos into files",
         [](App& app, Arguments& args) {
             stills(app, args);
             selection(app, args);
             newFile(app, args);
             app.add_option("--name", args.nameTemplate, "Names below -d: {stem} of the photo, {ext} of the clip")
                 ->capture_default_str();
             run(app, args);
         },
         extract,
         {"extract photo.jpg -o clip.mp4", "extract -r Camera/ -d Clips/", "extract photo.jpg -o - | ffprobe -"}},
        {"join",
         "Make motion photos of stills and clips that belong together, by content identifier or name",
         [](App& app, Arguments& args) {
             app.add_option("PATH", args.paths, "Stills and clips, with -r folders of them");
             selection(app, args);
             newFile(app, args);
             run(app, args);
         },
         join,
         {"join IMG_1.HEIC IMG_1.MOV -d Joined/", "join -r Export/ -d Joined/ --skip-existing"}},
        {"split",
         "Still and clip of motion photos as files of their own",
         [](App& app, Arguments& args) {
             stills(app, args);
             selection(app, args);
             newFile(app, args);
             app.add_option("--name", args.nameTemplate, "Names of the clips: {stem} of the photo, {ext} of the clip")
                 ->capture_default_str();
             run(app, args);
         },
         split,
         {"split -r Camera/ -d Parts/"}},
        {"carry",
         "Give an edited still the motion of the photo it was made from",
         [](App& app, Arguments& args) {
             oneStill(app, args, "PHOTO");
             app.add_option("--into", args.edited, "The edited still, of the same type")
                 ->required()
                 ->type_name("EDITED");
             newFile(app, args);
             run(app, args);
         },
         carry,
         {"carry photo.jpg --into edited.jpg -o moving.jpg"}},
    };
}

std::vector<Command> formatCommands() {
    return {
        {"check",
         "Say which rules photos keep and break (docs/rules.md); 0 sound, 1 no video, 3 damaged",
         [](App& app, Arguments& args) {
             stills(app, args);
             selection(app, args);
             app.add_flag("--json", args.json, "An object a line (docs/json.md)");
             run(app, args);
         },
         check,
         {"check photo.jpg", "check -r Camera/ --json"}},
        {"convert",
         "Between the form with a trailer and the published form that ends with the video",
         [](App& app, Arguments& args) {
             stills(app, args);
             app.add_option("--to", args.form, "trailer or published")->required()->type_name("FORM");
             app.add_flag("--drop-records", args.dropRecords, "To published: drop the trailer's other records");
             editing(app, args);
         },
         convert,
         {"convert photo.jpg --to published -o shared.jpg", "convert -r Camera/ --to trailer -d Converted/"}},
        {"repair",
         "Make what a photo says of its video agree with the video there is",
         [](App& app, Arguments& args) {
             stills(app, args);
             app.add_flag("--drop-orphans", args.dropOrphans,
                          "Take a movie out that nothing claims, instead of claiming it");
             editing(app, args);
         },
         repair,
         {"repair photo.jpg -o repaired.jpg", "repair -r Camera/ --in-place"}},
    };
}

/// A command that prints, or with -o writes, one thing of each still.
auto reading(char const* key) {
    return [key](App& app, Arguments& args) {
        if (key != nullptr)
            app.add_option(key, args.key)->required();
        stills(app, args);
        selection(app, args);
        app.add_option("-o,--output", args.out, "Into a file instead of standard output")->type_name("OUT");
        app.add_flag("--force", args.force, "Replace an output that is there");
        run(app, args);
    };
}

/// A command that changes one thing of each still.
auto changing(char const* key, std::function<void(App&, Arguments&)> const& more = nullptr) {
    return [key, more](App& app, Arguments& args) {
        if (key != nullptr)
            app.add_option(key, args.key)->required();
        if (more)
            more(app, args);
        stills(app, args);
        editing(app, args);
    };
}

void dataOption(App& app, Arguments& args) {
    app.add_option("--data", args.data, "File with the data; - is standard input")->type_name("FILE")->required();
}

void recordData(App& app, Arguments& args) {
    auto* const data =
        app.add_option("--data", args.data, "File with the data; - is standard input")->type_name("FILE");
    app.add_option("--text", args.value, "The data itself")->type_name("TEXT")->excludes(data);
    app.add_option("--type", args.type, "The record's type; of one that is there it is known")
        ->type_name("N")
        ->check(CLI::Range(1, 0xFFFF));
}

std::vector<Command> recordCommands() {
    auto const value = [](App& app, Arguments& args) { app.add_option("VALUE", args.value)->required(); };
    return {
        {"trailer list",
         "The trailer's records: file, type, name, position, size",
         reading(nullptr),
         trailerList,
         {"trailer list photo.jpg"}},
        {"trailer get",
         "The data of a record",
         reading("RECORD"),
         trailerGet,
         {"trailer get MotionPhoto_Version photo.jpg"}},
        {"trailer put",
         "Add a record or replace its data",
         changing("RECORD", recordData),
         trailerPut,
         {"trailer put Note --type 4000 --text 'by the sea' photo.jpg --in-place"}},
        {"trailer remove",
         "Take a record out",
         changing("RECORD"),
         trailerRemove,
         {"trailer remove Note photo.jpg --in-place"}},
        {"xmp get", "The value of a property", reading("PROPERTY"), xmpGet, {"xmp get xmp:Rating photo.jpg"}},
        {"xmp set",
         "Set a simple property",
         changing("PROPERTY", value),
         xmpSet,
         {"xmp set xmp:Rating 5 photo.jpg --in-place"}},
        {"xmp remove",
         "Take a property out",
         changing("PROPERTY"),
         xmpRemove,
         {"xmp remove xmp:Rating photo.jpg --in-place"}},
        {"xmp dump", "The packet", reading(nullptr), xmpDump, {"xmp dump photo.jpg | xmllint --format -"}},
        {"debug-info get",
         "The camera's debug info",
         reading(nullptr),
         debugInfoGet,
         {"debug-info get photo.jpg -o info.bin"}},
        {"debug-info put",
         "Add or replace the camera's debug info",
         changing(nullptr, dataOption),
         debugInfoPut,
         {"debug-info put photo.jpg --data info.bin --in-place"}},
        {"debug-info remove",
         "Take the camera's debug info out",
         changing(nullptr),
         debugInfoRemove,
         {"debug-info remove -r Camera/ --in-place"}},
    };
}

std::vector<Command> infoCommands() {
    return {
        {"info",
         "Say what files are and carry",
         [](App& app, Arguments& args) {
             stills(app, args);
             selection(app, args);
             app.add_flag("--json", args.json, "An object a line, failures included (docs/json.md)");
             app.add_flag("--list", args.list, "A line a file");
             run(app, args);
         },
         info,
         {"info photo.jpg", "info --json -r Camera/ | jq -r 'select(.motionPhoto) | .file'"}},
        {"map",
         "Draw a photo's bytes to scale",
         [](App& app, Arguments& args) {
             oneStill(app, args, "PHOTO");
             app.add_option("--svg", args.svg, "As a drawing")->type_name("OUT");
             app.add_option("--html", args.html, "As a page with still and video")->type_name("OUT");
             app.add_flag("--force", args.force, "Replace an output that is there");
         },
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
