// SPDX-License-Identifier: Apache-2.0
#include "Documents.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <functional>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

namespace motionphoto {

namespace {

using App = CLI::App;

bool isShown(App const* app) {
    return !app->get_name().empty() && app->get_name() != "generate";
}

/// Of the command and its option groups.
std::vector<CLI::Option const*> optionsOf(App const& app) {
    std::vector<CLI::Option const*> all;
    for (auto const* option : app.get_options())
        all.push_back(option);
    for (auto const* group : app.get_subcommands(nullptr)) {
        if (group->get_name().empty())
            for (auto const* option : optionsOf(*group)) {
                if (option != group->get_help_ptr()) // every group has one of its own
                    all.push_back(option);
            }
    }
    return all;
}

/// Calls for each command that does something, with its whole name.
void forEachCommand(App const& app, std::function<void(std::string const&, App const&)> const& action,
                    std::string const& family = "") {
    for (auto const* sub : app.get_subcommands(nullptr)) {
        if (!isShown(sub))
            continue;
        bool const isFamily = sub->get_require_subcommand_min() > 0;
        if (isFamily)
            forEachCommand(*sub, action, sub->get_name() + " ");
        else
            action(family + sub->get_name(), *sub);
    }
}

std::string quotedFor(std::string text, char quote, std::string const& replacement) {
    for (size_t at = 0; (at = text.find(quote, at)) != std::string::npos; at += replacement.size())
        text.replace(at, 1, replacement);
    return text;
}

std::string roff(std::string text) {
    for (size_t at = 0; (at = text.find_first_of("\\-", at)) != std::string::npos; at += 2)
        text.insert(at, 1, '\\');
    return text;
}

/// "OUT" of an option that takes one.
std::string valueOf(CLI::Option const& option) {
    std::string const type = option.get_type_name();
    return option.get_items_expected_max() > 0 ? type.substr(0, type.find_first_of(":=")) : "";
}

/// "-o OUT, --output OUT".
std::string spellings(CLI::Option const& option) {
    std::string text;
    std::string const value = valueOf(option).empty() ? "" : " " + valueOf(option);
    for (auto const& name : option.get_snames())
        text += (text.empty() ? "-" : ", -") + name + value;
    for (auto const& name : option.get_lnames())
        text += (text.empty() ? "--" : ", --") + name + value;
    return text;
}

std::string positionals(App const& app) {
    std::string text;
    for (auto const* option : app.get_options()) {
        if (!option->get_positional())
            continue;
        std::string const name = option->get_name();
        text += option->get_required() ? " " + name : " [" + name + "...]";
    }
    return text;
}

void manOptions(App const& app) {
    for (auto const* option : optionsOf(app)) {
        if (!option->get_positional())
            std::cout << ".TP\n.B " << roff(spellings(*option)) << "\n" << roff(option->get_description()) << ".\n";
    }
}

void printMan(App const& app) {
    std::cout << ".TH MOTIONPHOTO 1\n.SH NAME\nmotionphoto \\- look at motion photos, make and unmake them\n"
              << ".SH SYNOPSIS\n.B motionphoto\n.I COMMAND\n[options] files\n.SH DESCRIPTION\n"
              << roff(app.get_description()) << "\n.SH OPTIONS\n";
    manOptions(app);
    std::cout << ".SH COMMANDS\n";
    forEachCommand(app, [](std::string const& name, App const& sub) {
        std::cout << ".SS " << roff(name + positionals(sub)) << "\n" << roff(sub.get_description()) << ".\n";
        manOptions(sub);
        std::cout << ".PP\n.nf\n" << roff(sub.get_footer()) << "\n.fi\n";
    });
    std::cout << ".SH EXIT STATUS\n.nf\n" << roff(app.get_footer()) << "\n.fi\n";
}

std::string words(App const& app) {
    std::string text;
    for (auto const* option : optionsOf(app)) {
        for (auto const& name : option->get_snames())
            text += "-" + name + " ";
        for (auto const& name : option->get_lnames())
            text += "--" + name + " ";
    }
    return text;
}

std::string namesBelow(App const& app) {
    std::string text;
    for (auto const* sub : app.get_subcommands(nullptr))
        text += isShown(sub) ? sub->get_name() + " " : "";
    return text;
}

/// What a shell offers in an option's place.
struct Values {
    char const* type;
    char const* words; ///< to choose from; files otherwise, where there is a rule for them
    char const* zsh;
    char const* fish;
};

Values const& valuesOf(CLI::Option const& option) {
    static constexpr Values VALUES[] = {
        {"FILE", "", "_files", " -r"},
        {"OUT", "", "_files", " -r"},
        {"EDITED", "", "_files", " -r"},
        {"DIR", "", "_files -/", " -x -a '(__fish_complete_directories)'"},
        {"FORM", "trailer published", "(trailer published)", " -x -a 'trailer published'"},
        {"", "", "", " -x"},
    };
    std::string const type = valueOf(option);
    return *std::find_if(std::begin(VALUES), std::end(VALUES) - 1, [&](auto const& each) { return type == each.type; });
}

/// Of the command that does something: "add", "trailer put".
bool isOfFamily(std::string const& name) {
    return name.find(' ') != std::string::npos;
}

void printBashValues(App const& app) {
    forEachCommand(app, [](std::string const& name, App const& command) {
        for (auto const* option : optionsOf(command)) {
            std::string const values = valuesOf(*option).words;
            for (auto const& spelling : values.empty() ? std::vector<std::string>() : option->get_lnames())
                std::cout << "    '" << name << " '*' --" << spelling << "') words='" << values << "' ;;\n";
        }
    });
}

void printBash(App const& app) {
    std::cout << "# bash completion for motionphoto\n_motionphoto() {\n    local words='' first=1\n"
              << "    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}\n"
              // Options of the tool as a whole stand in front of the command.
              << "    while [[ first -lt COMP_CWORD && ${COMP_WORDS[first]} == -* ]]; do first=$((first + 1)); done\n"
              << "    case \"${COMP_WORDS[first]} ${COMP_WORDS[first + 1]} $before\" in\n";
    printBashValues(app);
    for (auto const* sub : app.get_subcommands(nullptr)) {
        if (!isShown(sub) || sub->get_require_subcommand_min() == 0)
            continue;
        std::string const family = sub->get_name() + " ";
        forEachCommand(*sub, [&](std::string const& name, App const& command) {
            std::cout << "    '" << family << name << " '*) words='" << words(command) << "' ;;\n";
        });
        std::cout << "    '" << family << "'*) words='" << namesBelow(*sub) << "' ;;\n";
    }
    forEachCommand(app, [](std::string const& name, App const& command) {
        if (!isOfFamily(name))
            std::cout << "    '" << name << " '*) words='" << words(command) << "' ;;\n";
    });
    std::cout << "    esac\n    [ \"$COMP_CWORD\" -gt \"$first\" ] || words='" << namesBelow(app) << words(app) << "'\n"
              << "    COMPREPLY=($(compgen -W \"$words\" -- \"$word\"))\n"
              // Options where one is begun; otherwise the shell offers files.
              << "    [[ $word == -* ]] || COMPREPLY=(${COMPREPLY[@]##-*})\n"
              << "}\ncomplete -o bashdefault -o default -F _motionphoto motionphoto\n";
}

void printZshOptions(App const& app) {
    for (auto const* option : optionsOf(app)) {
        std::string const purpose =
            "[" + quotedFor(quotedFor(option->get_description(), '\'', "'\\''"), ']', "\\]") + "]";
        std::string const name = valueOf(*option);
        std::string const value = name.empty() ? "" : ":" + name + ":" + valuesOf(*option).zsh;
        for (auto const& spelling : option->get_snames())
            std::cout << " '-" << spelling << purpose << value << "'";
        for (auto const& spelling : option->get_lnames())
            std::cout << " '--" << spelling << (value.empty() ? "" : "=") << purpose << value << "'";
    }
}

void printZsh(App const& app) {
    std::cout << "#compdef motionphoto\nlocal -a commands\nlocal -i first=2\ncommands=(\n";
    for (auto const* sub : app.get_subcommands(nullptr)) {
        if (isShown(sub))
            std::cout << "    '" << sub->get_name() << ":" << quotedFor(sub->get_description(), '\'', "'\\''") << "'\n";
    }
    std::cout << ")\nwhile (( first < CURRENT )) && [[ $words[first] == -* ]]; do (( first++ )); done\n"
              << "if (( CURRENT == first )); then\n    if [[ $PREFIX == -* ]]; then _arguments";
    printZshOptions(app);
    std::cout << "; else _describe command commands; fi\n    return\nfi\n"
              << "(( CURRENT == first + 1 )) && case $words[first] in\n";
    for (auto const* sub : app.get_subcommands(nullptr)) {
        if (isShown(sub) && sub->get_require_subcommand_min() > 0)
            std::cout << "'" << sub->get_name() << "') compadd " << namesBelow(*sub) << "; return ;;\n";
    }
    std::cout << "esac\ncase \"$words[first] $words[first+1]\" in\n";
    forEachCommand(app, [](std::string const& name, App const& sub) {
        std::cout << "'" << name << (isOfFamily(name) ? "'" : " '*") << ") _arguments";
        printZshOptions(sub);
        std::cout << " '*:file:_files' ;;\n";
    });
    std::cout << "esac\n";
}

/// The lines of a command's options, for words in front of the cursor that satisfy `condition`.
void printFishOptions(App const& app, std::string const& condition) {
    for (auto const* option : optionsOf(app)) {
        if (option->get_positional())
            continue;
        std::cout << "complete -c motionphoto -n '" << condition << "'";
        for (auto const& spelling : option->get_snames())
            std::cout << " -s " << spelling;
        for (auto const& spelling : option->get_lnames())
            std::cout << " -l " << spelling;
        std::cout << (valueOf(*option).empty() ? "" : valuesOf(*option).fish) << " -d '"
                  << quotedFor(option->get_description(), '\'', "\\'") << "'\n";
    }
}

void printFish(App const& app) {
    // A file may be called like a command: only the first words name one.
    std::cout << "function __motionphoto_begins\n"
              << "    set -l words (commandline -opc | string match -v -- '-*')[2..]\n"
              << "    test \"$words[1..$(count $argv)]\" = \"$argv\"\nend\n"
              << "function __motionphoto_is\n"
              << "    set -l words (commandline -opc | string match -v -- '-*')[2..]\n"
              << "    test \"$words\" = \"$argv\"\nend\n";
    char const* const line = "complete -c motionphoto -f -n '__motionphoto_is";
    for (auto const* sub : app.get_subcommands(nullptr)) {
        if (isShown(sub))
            std::cout << line << "' -a " << sub->get_name() << " -d '" << quotedFor(sub->get_description(), '\'', "\\'")
                      << "'\n";
    }
    printFishOptions(app, "__motionphoto_is");
    for (auto const* sub : app.get_subcommands(nullptr)) {
        if (isShown(sub) && sub->get_require_subcommand_min() > 0)
            std::cout << line << " " << sub->get_name() << "' -a '" << namesBelow(*sub) << "'\n";
    }
    forEachCommand(
        app, [](std::string const& name, App const& sub) { printFishOptions(sub, "__motionphoto_begins " + name); });
}

} // namespace

void defineDocuments(CLI::App& app) {
    struct Document {
        char const* name;
        void (*print)(App const&);
    };
    static constexpr Document DOCUMENTS[] = {
        {"man", printMan}, {"bash", printBash}, {"zsh", printZsh}, {"fish", printFish}};
    auto* const generate = app.add_subcommand("generate", "Print the man page or the completions for a shell");
    generate->group("");
    generate->require_subcommand(1);
    for (auto const& document : DOCUMENTS) {
        generate->add_subcommand(document.name)->callback([&app, print = document.print] {
            print(app);
            throw CLI::Success();
        });
    }
}

} // namespace motionphoto
