// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ExitCode.h"

#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace motionphoto {

/// Why a command ended early: the exit code and the one sentence for people.
class Failure : public std::runtime_error {
public:
    /// `subject` is the file the sentence is about, empty when it is about none.
    Failure(ExitCode exitCode, std::string const& subject, std::string const& text);

    ExitCode exitCode() const { return code; }
    std::string const& subject() const { return about; }
    /// "subject: text". The source position the library puts in front of its messages is shown only when asked for.
    std::string sentence(bool withSource) const;

private:
    ExitCode code;
    std::string about;
};

/// The library's message without the "[source:line] " in front of it.
std::string_view withoutSource(std::string_view text);

/// A failed system call: what could not be done, and errno's text.
Failure systemFailure(ExitCode code, std::string const& subject, std::string const& what);

/// Rethrows the exception being handled as a Failure: about `output` when it says that writing failed, else about
/// `input`. The one place that knows what the library throws.
[[noreturn]] void rethrowAsFailure(std::string const& input, std::string const& output);

/// Runs library code that reads `input` and writes `output`; whatever it throws comes out as a Failure.
template<class Action>
auto guarded(std::string const& input, std::string const& output, Action&& action) {
    try {
        return std::forward<Action>(action)();
    } catch (...) {
        rethrowAsFailure(input, output);
    }
}

template<class Action>
auto guarded(std::string const& input, Action&& action) {
    return guarded(input, input, std::forward<Action>(action));
}

} // namespace motionphoto
