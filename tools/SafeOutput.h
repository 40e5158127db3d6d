#pragma once

#include <string>

#include <sys/types.h>

namespace motionphoto {

/// An output file that appears whole under its name or not at all.
///
/// The content is written into a temporary file in the same folder, which takes the name with one rename at publish().
/// Until then, and after any failure, what stands under the name is untouched and the temporary file goes with the
/// object; a signal that ends the process (hangup, interrupt, terminate) takes it along too. One object at a time.
class SafeOutput {
public:
    /// Makes the temporary file, readable to nobody else. A symbolic link is followed, so that the file it names is
    /// replaced and not the link. Throws a Failure (WRITE_FAILED) when OUT is something else than a file that may be
    /// written.
    explicit SafeOutput(std::string const& path);
    ~SafeOutput();
    SafeOutput(SafeOutput const&) = delete;
    SafeOutput& operator=(SafeOutput const&) = delete;

    /// Where to write; a file of size 0.
    std::string const& temporaryPath() const { return temporary; }
    /// Brings the content to disk and gives it its name. A file that is replaced hands on its permissions (and its
    /// owner where that is allowed), a new one gets what the umask leaves. Throws a Failure (WRITE_FAILED), OUT
    /// untouched.
    void publish();

private:
    void examineTarget();
    void createTemporary();
    void forgetTemporary();

    std::string out;    ///< as the user wrote it, for messages
    std::string target; ///< with symbolic links resolved
    std::string temporary;
    int fd = -1;
    mode_t mode = 0;
    bool replaces = false;
    uid_t owner = 0;
    gid_t group = 0;
};

} // namespace motionphoto
