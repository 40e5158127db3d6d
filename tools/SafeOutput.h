// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Failure.h"
#include "FileRights.h"
#include "Signals.h"

#include "MediaFile.h"

#include <cstdio>
#include <memory>
#include <optional>
#include <string>

namespace motionphoto {

/// An output file that appears whole under its name or not at all.
///
/// The content is written through one descriptor. Where the system can, the file has no name until it is whole, so that
/// nothing is left behind whatever ends the process; elsewhere it has a temporary name in the same folder, which goes
/// with the object or with a signal that ends the process. Until publish(), and after any failure, what stands under
/// the name is untouched.
class SafeOutput {
public:
    enum class Existing { REFUSE, REPLACE };
    /// OUT is not to be replaced, and is there.
    struct ThereAlready : Failure {
        explicit ThereAlready(std::string const& path);
    };

    /// `photo` is an open descriptor of the photo that the output is made from: its rights bound the output's. A
    /// symbolic link is followed, so that the file it names is replaced and not the link. Throws a Failure
    /// (WRITE_FAILED) when OUT is something else than a file that may be written; ThereAlready, as publish() does.
    SafeOutput(std::string const& path, int photo, Existing whenThere, bool preserve);
    ~SafeOutput();
    SafeOutput(SafeOutput const&) = delete;
    SafeOutput& operator=(SafeOutput const&) = delete;

    /// What stands under the name has to be this file still when the output takes it.
    void replacesOnly(FileState const& file) { expected = file; }
    int descriptor() const { return fd; }
    /// The still empty file for the library, over the same descriptor.
    std::shared_ptr<android::lumo::MediaFile> file() const;
    /// Gives the content its rights, times and attributes (see FileRights), brings it to disk and gives it its name.
    /// Throws a Failure (WRITE_FAILED), OUT untouched.
    void publish();

private:
    void examineTarget();
    bool makeUnnamed();
    void makeNamed();
    void nameUnnamed(std::string const& name);
    void takeName();

    std::string out;    ///< as the user wrote it, for messages
    std::string target; ///< with symbolic links resolved
    int still;
    Existing existing;
    RightsWanted rights;
    std::optional<FileState> expected;
    int fd = -1;
    TemporaryName temporary; ///< empty while the file has no name
};

/// A file without a name, for what is not to stay.
class Scratch {
public:
    std::shared_ptr<android::lumo::MediaFile> file();

private:
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream{nullptr, std::fclose};
};

} // namespace motionphoto
