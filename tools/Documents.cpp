// SPDX-License-Identifier: Apache-2.0
#include "Documents.h"

#include <CLI/CLI.hpp>

#include <functional>
#include <iostream>
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

void printBash(App const& app) {
    std::cout << "# bash completion for motionphoto\n_motionphoto() {\n    local words=''\n"
              << "    case \"${COMP_WORDS[1]} ${COMP_WORDS[2]}\" in\n";
    for (auto const* sub : app.get_subcommands(nullptr)) {
        if (!isShown(sub) || sub->get_require_subcommand_min() == 0)
            continue;
        forEachCommand(*sub, [&](std::string const& name, App const& command) {
            std::cout << "    '" << sub->get_name() << " " << name << "') words='" << words(command) << "' ;;\n";
        });
        std::cout << "    '" << sub->get_name() << " '*) words='" << namesBelow(*sub) << "' ;;\n";
    }
    forEachCommand(app, [](std::string const& name, App const& command) {
        if (name.find(' ') == std::string::npos)
            std::cout << "    '" << name << " '*) words='" << words(command) << "' ;;\n";
    });
    std::cout << "    esac\n    [ \"$COMP_CWORD\" -gt 1 ] || words='" << namesBelow(app) << words(app) << "'\n"
              << "    COMPREPLY=($(compgen -W \"$words\" -- \"${COMP_WORDS[COMP_CWORD]}\"))\n"
              // Options where one is begun; otherwise the shell offers files.
              << "    [[ ${COMP_WORDS[COMP_CWORD]} == -* ]] || COMPREPLY=(${COMPREPLY[@]##-*})\n"
              << "}\ncomplete -o bashdefault -o default -F _motionphoto motionphoto\n";
}

void printZsh(App const& app) {
    std::cout << "#compdef motionphoto\nlocal -a commands\ncommands=(\n";
    for (auto const* sub : app.get_subcommands(nullptr)) {
        if (isShown(sub))
            std::cout << "    '" << sub->get_name() << ":" << quotedFor(sub->get_description(), '\'', "") << "'\n";
    }
    std::cout << ")\nif (( CURRENT == 2 )); then\n    _describe command commands\n    return\nfi\n"
              << "case \"$words[2] $words[3]\" in\n";
    forEachCommand(app, [](std::string const& name, App const& sub) {
        bool const isOfFamily = name.find(' ') != std::string::npos;
        std::cout << "'" << name << (isOfFamily ? "'" : " '*") << ") _arguments";
        for (auto const* option : optionsOf(sub)) {
            auto const purpose = "[" + quotedFor(quotedFor(option->get_description(), '\'', ""), ']', "") + "]";
            auto const value = valueOf(*option).empty() ? "" : ":" + valueOf(*option) + ":_files";
            for (auto const& spelling : option->get_snames())
                std::cout << " '-" << spelling << purpose << value << "'";
            for (auto const& spelling : option->get_lnames())
                std::cout << " '--" << spelling << (value.empty() ? "" : "=") << purpose << value << "'";
        }
        std::cout << " '*:file:_files' ;;\n";
    });
    for (auto const* sub : app.get_subcommands(nullptr)) {
        if (isShown(sub) && sub->get_require_subcommand_min() > 0)
            std::cout << "'" << sub->get_name() << " '*) compadd " << namesBelow(*sub) << ";;\n";
    }
    std::cout << "esac\n";
}

void printFish(App const& app) {
    for (auto const* sub : app.get_subcommands(nullptr)) {
        if (isShown(sub))
            std::cout << "complete -c motionphoto -n __fish_use_subcommand -a " << sub->get_name() << " -d '"
                      << quotedFor(sub->get_description(), '\'', "\\'") << "'\n";
    }
    for (auto const* sub : app.get_subcommands(nullptr)) {
        if (isShown(sub) && sub->get_require_subcommand_min() > 0)
            std::cout << "complete -c motionphoto -n '__fish_seen_subcommand_from " << sub->get_name() << "' -a '"
                      << namesBelow(*sub) << "'\n";
    }
    forEachCommand(app, [](std::string const& name, App const& sub) {
        for (auto const* option : optionsOf(sub)) {
            if (option->get_positional())
                continue;
            auto const space = name.find(' ');
            std::cout << "complete -c motionphoto -n '__fish_seen_subcommand_from " << name.substr(0, space);
            if (space != std::string::npos)
                std::cout << "; and __fish_seen_subcommand_from " << name.substr(space + 1);
            std::cout << "'";
            for (auto const& spelling : option->get_snames())
                std::cout << " -s " << spelling;
            for (auto const& spelling : option->get_lnames())
                std::cout << " -l " << spelling;
            std::cout << (option->get_items_expected_max() > 0 ? " -r" : "") << " -d '"
                      << quotedFor(option->get_description(), '\'', "\\'") << "'\n";
        }
    });
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
