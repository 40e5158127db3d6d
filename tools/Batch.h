// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Arguments.h"
#include "ExitCode.h"
#include "Inputs.h"

#include <functional>
#include <string>

namespace motionphoto {

/// What came of one input.
struct Outcome {
    enum class Kind { DONE, SKIPPED, WITHOUT_VIDEO, FAILED };
    Kind kind = Kind::DONE;
    ExitCode code = ExitCode::DONE;
    std::string text;    ///< for standard output
    std::string message; ///< for standard error, one line without its end
};

using Work = std::function<Outcome(Input const&)>;

enum class Summary { NO, YES };

/// Does the work for each input, several at a time, and prints what came of them in the order of the inputs. One that
/// fails stops nothing; the result is the worst exit code. Memory does not grow with the number of inputs.
ExitCode forEachInput(Arguments const& args, Work const& work, Summary summary);

/// A failure as an outcome.
Outcome failed(Arguments const& args, class Failure const& failure);

} // namespace motionphoto
