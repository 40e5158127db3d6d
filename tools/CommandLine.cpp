// SPDX-License-Identifier: Apache-2.0
#include "CommandLine.h"

#include "Documents.h"
#include "Failure.h"
#include "Signals.h"
#include "Text.h"

#include "metadata_utils.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iostream>
#include <numeric>

#include <unistd.h>

namespace motionphoto {

namespace {

char const FOOTER[] = "motionphoto COMMAND --help says more and shows examples.\n"
                      "Exit codes: 0 done; 1 no motion photo where one is needed; 2 usage; 3 unreadable, damaged or\n"
                      "unsupported input; 4 writing failed (OUT is as it was before). Over several files the worst.";

/// How many letters have to be changed, added or left out to make one word of the other.
size_t distance(std::string const& a, std::string const& b) {
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0]++;
        for (size_t j = 1; j <= b.size(); ++j) {
            size_t const above = row[j];
            row[j] = std::min({above + 1, row[j - 1] + 1, diagonal + (a[i - 1] != b[j - 1])});
            diagonal = above;
        }
    }
    return row.back();
}

std::string firstWord(std::string const& name) {
    return name.substr(0, name.find(' '));
}

char const* purposeOf(std::string const& family) {
    return family == "trailer" ? "List, read, put and remove records of the trailer"
           : family == "xmp"   ? "Read, set and remove properties of the XMP"
                               : "Read, put and remove the camera's debug info";
}

/// Throws for a word that stands where one of the names has to.
[[noreturn]] void refuseWord(std::string const& word, std::string const& family,
                             std::vector<std::string> const& names) {
    auto const nearest = std::min_element(names.begin(), names.end(),
                                          [&](auto& a, auto& b) { return distance(word, a) < distance(word, b); });
    throw Failure(ExitCode::USAGE, "",
                  "there is no command '" + family + word + "', the nearest is '" + family + *nearest +
                      "' (motionphoto " + family + "--help lists them all)");
}

CLI::App* find(CLI::App& app, std::string const& name) {
    auto const all = app.get_subcommands([&](CLI::App const* sub) { return sub->check_name(name); });
    return all.empty() ? nullptr : all.front();
}

} // namespace

CommandLine::CommandLine(char const* word)
    : app(std::make_unique<CLI::App>("Looks at motion photos, stills that carry a video, and makes and unmakes them.",
                                     "motionphoto")) {
    app->footer(FOOTER);
    app->require_subcommand(1);
    app->fallthrough();
    app->add_flag("-v,--verbose", args.verbose, "Show the library's log");
    app->set_version_flag("--version", android::lumo::metadata_utils::getVersionString());
    auto const isMeant = [word](Command const& command) { return word != nullptr && firstWord(command.name) == word; };
    bool const all = std::ranges::none_of(commands(), isMeant);
    for (auto const& command : commands()) {
        if (all || isMeant(command))
            define(command);
    }
    if (all)
        defineDocuments(*app);
}

CommandLine::~CommandLine() = default;

void CommandLine::define(Command const& command) {
    auto* parent = app.get();
    std::string name = command.name;
    if (auto const space = name.find(' '); space != std::string::npos) {
        std::string const family = name.substr(0, space);
        parent = find(*app, family);
        if (parent == nullptr) {
            parent = app->add_subcommand(family, purposeOf(family));
            parent->require_subcommand(1);
            parent->fallthrough();
        }
        name = name.substr(space + 1);
    }
    auto* sub = parent->add_subcommand(name, command.purpose);
    command.options(*sub, args);
    std::string examples = command.more + (command.more.empty() ? "" : "\n\n") + "Examples:";
    for (auto const& example : command.examples)
        examples += "\n  motionphoto " + example;
    sub->footer(examples);
    sub->callback([this, &command] { chosen = command.run; });
}

/// What the parser would tell in its own words, or take for something else.
void CommandLine::checkWords(int argc, char** argv) const {
    CLI::App* place = app.get();
    std::string family;
    for (int i = 1; i < argc; ++i) {
        std::string const word = argv[i];
        if (word == "--")
            return;
        if (word.size() > 2 && word.starts_with('-') && word[1] != '-' && access(argv[i], F_OK) == 0)
            throw Failure(ExitCode::USAGE, word, "is read as options; put -- in front of the file names");
        if (word.starts_with('-') || place == nullptr)
            continue;
        auto* const found = find(*place, word);
        if (found == nullptr) {
            std::vector<std::string> names;
            for (auto const* sub : place->get_subcommands(nullptr)) {
                if (!family.empty() || !sub->get_group().empty())
                    names.push_back(sub->get_name());
            }
            refuseWord(word, family, names);
        }
        bool const isFamily = found->get_require_subcommand_min() > 0;
        place = isFamily ? found : nullptr;
        family = word + " ";
    }
    if (place != nullptr && !family.empty() && argc == 2)
        throw Failure(ExitCode::USAGE, "",
                      family + "is the name of several commands (motionphoto " + family + "--help lists them)");
}

int CommandLine::run(int argc, char** argv) {
    if (argc < 2)
        throw Failure(ExitCode::USAGE, "", "give a command (motionphoto --help lists them)");
    checkWords(argc, argv);
    try {
        app->parse(argc, argv);
    } catch (CLI::Success const& asked) { // help, version and the documents
        int const code = app->exit(asked);
        if (!std::cout.flush())
            throw systemFailure(ExitCode::WRITE_FAILED, "", "fail to write to standard output");
        return code;
    } catch (CLI::ParseError const& error) {
        std::string text = error.what();
        std::replace(text.begin(), text.end(), '\n', ' ');
        throw Failure(ExitCode::USAGE, "", text + " (motionphoto --help says more)");
    }
    if (args.writes()) // nothing else leaves anything behind
        takeChargeOfSignals();
    if (!args.verbose)
        mu_set_log(nullptr, nullptr);
    return static_cast<int>(guarded("", [&] { return chosen(args); }));
}

} // namespace motionphoto
