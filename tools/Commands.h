// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Arguments.h"
#include "ExitCode.h"

/// What the tool does, command by command. Each returns the worst exit code of its inputs or throws a Failure; nothing
/// is written before every reason to refuse has been looked at.
namespace motionphoto {

// InfoCommand.cpp
ExitCode info(Arguments const& args);

// MapCommand.cpp
ExitCode map(Arguments const& args);

// VideoCommands.cpp
ExitCode add(Arguments const& args);
ExitCode replace(Arguments const& args);
ExitCode remove(Arguments const& args);
ExitCode still(Arguments const& args);
ExitCode set(Arguments const& args);
ExitCode extract(Arguments const& args);
ExitCode split(Arguments const& args);
ExitCode carry(Arguments const& args);

// JoinCommand.cpp
ExitCode join(Arguments const& args);

// FormatCommands.cpp
ExitCode check(Arguments const& args);
ExitCode convert(Arguments const& args);
ExitCode repair(Arguments const& args);

// RecordCommands.cpp
ExitCode trailerList(Arguments const& args);
ExitCode trailerGet(Arguments const& args);
ExitCode trailerPut(Arguments const& args);
ExitCode trailerRemove(Arguments const& args);
ExitCode xmpGet(Arguments const& args);
ExitCode xmpSet(Arguments const& args);
ExitCode xmpRemove(Arguments const& args);
ExitCode xmpDump(Arguments const& args);
ExitCode debugInfoGet(Arguments const& args);
ExitCode debugInfoPut(Arguments const& args);
ExitCode debugInfoRemove(Arguments const& args);

} // namespace motionphoto
