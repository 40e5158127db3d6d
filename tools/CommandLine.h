// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Arguments.h"
#include "ExitCode.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace motionphoto {

/// One command: what it is for, what may be given, and what does it. Help, man page and completions come from these.
struct Command {
    std::string name;
    std::string purpose;
    std::function<void(CLI::App&, Arguments&)> options;
    std::function<ExitCode(Arguments const&)> run;
    std::vector<std::string> examples;
    std::string more = {}; ///< what the purpose leaves open
};

/// The commands in the order of the help.
std::vector<Command> const& commands();

/// The tool's command line.
class CommandLine {
public:
    /// Where the first word is a command, the tool knows that one alone: to define all of them takes as long as the
    /// rest of the start.
    explicit CommandLine(char const* firstWord);
    ~CommandLine();

    /// Runs what the arguments ask for and returns the exit code. Throws a Failure.
    int run(int argc, char** argv);
    bool isVerbose() const { return args.verbose; }

private:
    void checkWords(int argc, char** argv) const;
    void define(Command const& command);

    std::unique_ptr<CLI::App> app;
    Arguments args;
    std::function<ExitCode(Arguments const&)> chosen;
};

} // namespace motionphoto
