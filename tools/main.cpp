// SPDX-License-Identifier: Apache-2.0
// The tool: runs its command line and turns what came of it into an exit code.

#include "CommandLine.h"
#include "Failure.h"

#include <csignal>
#include <cstdio>

#include <fcntl.h>
#include <unistd.h>

using namespace motionphoto;

namespace {

/// A file that is opened later must not become descriptor 0, 1 or 2: messages would go into a photo. What stands there
/// instead fails as a closed one does, so that a report that nobody gets is no success.
void occupyStandardDescriptors() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
        if (fcntl(fd, F_GETFD) == -1)
            (void)!open("/dev/null", fd == STDIN_FILENO ? O_WRONLY : O_RDONLY);
    }
}

} // namespace

int main(int argc, char** argv) {
    occupyStandardDescriptors();
    // A write past the file size limit fails like any other instead of ending the process.
    std::signal(SIGXFSZ, SIG_IGN);
    CommandLine line(argc > 1 ? argv[1] : nullptr);
    try {
        return line.run(argc, argv);
    } catch (Failure const& failure) {
        std::fprintf(stderr, "motionphoto: %s\n", failure.sentence(line.isVerbose()).c_str());
        return static_cast<int>(failure.exitCode());
    }
}
