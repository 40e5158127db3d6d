#pragma once

#include "ExitCode.h"
#include "Failure.h"

#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

/// What the tool does, command by command. Each ends normally or throws a Failure; nothing is written before every
/// reason to refuse has been looked at.
namespace motionphoto {

/// Where an edited still goes: into a file of its own, or in place when no path is given. In place a write that fails
/// may leave the still partly written; into a file never.
using Output = std::optional<std::string>;

/// Prints what each file is and carries. A file that fails is handed to `report` and the others still come; the result
/// is the worst exit code. As JSON: an object for one file, an array for several.
ExitCode info(std::vector<std::string> const& files, bool json, std::ostream& out,
              std::function<void(Failure const&)> const& report);

/// Makes the still a motion photo; a video that is there is replaced. Without a timestamp the still's moment stays as
/// it is, or becomes the video's end.
void add(std::string const& still, std::string const& video, Output const& output, std::optional<long> timestampUs);
/// Like add, for a still that is a motion photo already.
void replace(std::string const& still, std::string const& video, Output const& output);
/// Takes the video out, also one that is damaged.
void remove(std::string const& still, Output const& output);
/// Copies the video into a file.
void extract(std::string const& file, std::string const& out);

} // namespace motionphoto
