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

void moment(App& app, Arguments& args) {
    auto* const at =
        app.add_option("--at", args.at, "The still's moment in the video: 1.2s, 1200ms, 1200000us")->type_name("TIME");
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
             moment(app, args);
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
             moment(app, args);
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
    };
}

} // namespace

std::vector<Command> const& commands() {
    static std::vector<Command> const all = [] {
        std::vector<Command> result;
        for (auto family : {infoCommands, videoCommands}) {
            for (auto& command : family())
                result.push_back(std::move(command));
        }
        return result;
    }();
    return all;
}

} // namespace motionphoto
