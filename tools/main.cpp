// The command line of the tool: what was asked for, and the exit code of what came of it.

#include "Commands.h"

#include "metadata_utils.h"

#include <CLI/CLI.hpp>
#include <android/log.h>

#include <csignal>
#include <functional>
#include <iostream>

#include <fcntl.h>
#include <unistd.h>

using namespace motionphoto;

namespace {

char const FOOTER[] = "Exit codes: 0 done; 1 no motion photo where one is needed; 2 usage; 3 unreadable, damaged or\n"
                      "unsupported input; 4 writing failed (with -o, OUT is as it was before).";

struct Arguments {
    bool verbose = false;
    bool json = false;
    std::vector<std::string> files;
    std::string still;
    std::string video;
    std::string out;
    bool inPlace = false;
    long timestampUs = 0;
};

/// A file that is opened later must not become descriptor 0, 1 or 2: messages would go into a photo.
void occupyStandardDescriptors() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (fcntl(fd, F_GETFD) == -1)
            (void)!open("/dev/null", O_RDWR);
    }
}

int fail(Failure const& failure, bool verbose) {
    std::cerr << "motionphoto: " << failure.sentence(verbose) << '\n';
    return static_cast<int>(failure.exitCode());
}

/// The command line itself: commands, options, and the action of the command that was given.
class CommandLine {
public:
    CommandLine();
    /// Throws CLI::ParseError, also for --help and --version.
    void parse(int argc, char** argv) { app.parse(argc, argv); }
    int exit(CLI::ParseError const& error) {
        // Help and version are no errors.
        return app.exit(error) == 0 ? 0 : static_cast<int>(ExitCode::USAGE);
    }
    bool verbose() const { return args.verbose; }
    ExitCode run() const { return action(); }

private:
    CLI::App* command(char const* name, char const* purpose, std::function<ExitCode()> run);
    void addStill(CLI::App* sub) { sub->add_option("STILL", args.still, "JPEG or HEIC still")->required(); }
    void addVideo(CLI::App* sub) {
        sub->add_option("VIDEO", args.video, "MP4 (brand mp42) or QuickTime movie")->required();
    }
    void addOutput(CLI::App* sub);
    Output output() const;

    CLI::App app{"Looks at motion photos, stills that carry a video, and makes and unmakes them."};
    Arguments args;
    std::function<ExitCode()> action;
    CLI::Option* timestamp = nullptr;
};

CommandLine::CommandLine() {
    app.name("motionphoto");
    app.footer(FOOTER);
    app.require_subcommand(1);
    app.fallthrough();
    app.failure_message([](CLI::App const*, CLI::Error const& error) {
        return std::string("motionphoto: ") + error.what() + " (motionphoto --help says more)\n";
    });
    app.add_flag("-v,--verbose", args.verbose, "Show the library's log");
    app.set_version_flag("--version", android::lumo::metadata_utils::getVersionString());

    auto* sub = command("info", "Say what a file is and carries", [this] {
        return info(args.files, args.json, std::cout, [this](Failure const& failure) { fail(failure, args.verbose); });
    });
    sub->add_flag("--json", args.json, "As JSON: an object for one file, an array for several");
    sub->add_option("FILE", args.files, "Stills")->required();

    sub = command("add", "Give a still a video, in place of the one it has", [this] {
        auto const moment = timestamp->count() > 0 ? std::optional(args.timestampUs) : std::nullopt;
        add(args.still, args.video, output(), moment);
        return ExitCode::DONE;
    });
    addStill(sub);
    addVideo(sub);
    addOutput(sub);
    timestamp = sub->add_option("--timestamp-us", args.timestampUs, "The still's moment in the video, in microseconds")
                    ->check(CLI::NonNegativeNumber)
                    ->type_name("N");

    sub = command("replace", "Exchange the video of a motion photo", [this] {
        replace(args.still, args.video, output());
        return ExitCode::DONE;
    });
    addStill(sub);
    addVideo(sub);
    addOutput(sub);

    sub = command("remove", "Take the video out of a motion photo", [this] {
        remove(args.still, output());
        return ExitCode::DONE;
    });
    addStill(sub);
    addOutput(sub);

    sub = command("extract", "Copy the video of a motion photo into a file", [this] {
        extract(args.still, args.out);
        return ExitCode::DONE;
    });
    sub->add_option("FILE", args.still, "Motion photo")->required();
    sub->add_option("-o", args.out, "File to write")->required()->type_name("VIDEO");
}

CLI::App* CommandLine::command(char const* name, char const* purpose, std::function<ExitCode()> run) {
    auto* sub = app.add_subcommand(name, purpose);
    sub->callback([this, run = std::move(run)] { action = run; });
    return sub;
}

void CommandLine::addOutput(CLI::App* sub) {
    sub->add_option("-o", args.out, "File to write; STILL stays as it is")->type_name("OUT");
    sub->add_flag("--in-place", args.inPlace, "Edit STILL itself");
}

Output CommandLine::output() const {
    if (args.inPlace == !args.out.empty())
        throw Failure(ExitCode::USAGE, "", "give either -o OUT or --in-place (motionphoto --help says more)");
    return args.inPlace ? std::nullopt : Output(args.out);
}

} // namespace

int main(int argc, char** argv) {
    occupyStandardDescriptors();
    // A write past the file size limit fails like any other instead of ending the process.
    std::signal(SIGXFSZ, SIG_IGN);
    CommandLine line;
    try {
        line.parse(argc, argv);
    } catch (CLI::ParseError const& error) {
        return line.exit(error);
    }
    if (!line.verbose())
        __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
    try {
        return static_cast<int>(guarded("", [&] { return line.run(); }));
    } catch (Failure const& failure) {
        return fail(failure, line.verbose());
    }
}
