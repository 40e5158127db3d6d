// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Arguments.h"

#include <array>
#include <cstddef>
#include <deque>
#include <istream>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace motionphoto {

/// What is taken for a still or a clip by its name, in small letters.
inline constexpr std::array<std::string_view, 6> STILL_ENDINGS = {".jpg", ".jpeg", ".jpe", ".heic", ".heif", ".hif"};
inline constexpr std::array<std::string_view, 5> CLIP_ENDINGS = {".mov", ".mp4", ".m4v", ".mp", ".mp~2"};

/// One file that a command is to work on.
struct Input {
    std::string path;
    std::string relative; ///< where its result goes below -d: its name, with the folders below the one that was given
};

/// The files that a command line names, one after another: arguments, lines of --files-from, and with -r the stills of
/// folders. A folder's names are read when it is reached, so that results written into it are no inputs of this run.
class Inputs {
public:
    enum class Kind { STILLS, STILLS_AND_CLIPS };
    explicit Inputs(Arguments const& args, Kind kindOfFiles = Kind::STILLS);
    ~Inputs();

    /// False behind the last one. A folder that cannot be read throws a Failure, and the next call goes on behind it.
    bool next(Input& input);
    /// There may be more than one.
    bool isMany() const { return many; }
    /// How many there are, by looking; 0 when that cannot be known beforehand.
    static size_t count(Arguments const& args);

private:
    struct Listing;
    struct Found {
        Input input;
        bool mayBeFolder; ///< a link may lead to one
    };
    void open(Input const& folder);
    bool nextName(Input& input);

    Kind kind; ///< what is taken of folders
    bool recursive;
    bool many;
    std::deque<std::string> given;
    std::deque<Found> found; ///< of the folders being read, in order
    std::unique_ptr<Listing> listing;
};

/// Whether the system refused to read on before the stream's end, which standard input does not tell by itself.
bool isCutOff(std::istream const& stream);

} // namespace motionphoto
