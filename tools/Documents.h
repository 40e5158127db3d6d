// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace CLI {
class App;
}

namespace motionphoto {

/// Adds a command that helps do not show, which prints the man page or the completions for a shell, made from the
/// commands that the app has by then. The build installs what it prints.
void defineDocuments(CLI::App& app);

} // namespace motionphoto
