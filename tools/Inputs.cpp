// SPDX-License-Identifier: Apache-2.0
#include "Inputs.h"

#include "Failure.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>

namespace motionphoto {

namespace fs = std::filesystem;

namespace {

constexpr char STANDARD_INPUT[] = "-";

bool isNamed(fs::path const& path, Inputs::Kind kind) {
    std::string ending = path.extension().string();
    std::transform(ending.begin(), ending.end(), ending.begin(), [](unsigned char c) { return std::tolower(c); });
    auto const isOf = [&](auto const& endings) {
        return std::find(endings.begin(), endings.end(), ending) != endings.end();
    };
    return path.filename().string().front() != '.' &&
           (isOf(STILL_ENDINGS) || (kind == Inputs::Kind::STILLS_AND_CLIPS && isOf(CLIP_ENDINGS)));
}

bool isFolder(std::string const& path) {
    std::error_code ignored; // what cannot be asked is told when it is opened as a file
    return fs::is_directory(path, ignored);
}

} // namespace

/// The lines, or the texts ended by a zero byte, of --files-from.
struct Inputs::Listing {
    std::string name;
    std::ifstream file;
    std::istream& stream;
    char end;

    Listing(std::string const& path, bool zeroSeparated)
        : name(path), stream(path == STANDARD_INPUT ? std::cin : file), end(zeroSeparated ? '\0' : '\n') {
        if (path == STANDARD_INPUT)
            return;
        file.open(path);
        if (!file)
            throw systemFailure(ExitCode::BAD_INPUT, path, "cannot be read");
    }

    /// Names that could not be read are not the end of the list; it is told once, so that the work comes to an end.
    void requireWholeOnce() {
        if (!isCutOff(stream))
            return;
        std::clearerr(stdin);
        stream.clear(std::ios::eofbit);
        throw Failure(ExitCode::BAD_INPUT, name, "cannot be read to its end");
    }
};

Inputs::Inputs(Arguments const& args, Kind kindOfFiles)
    : kind(kindOfFiles), recursive(args.recursive),
      many(args.paths.size() > 1 || args.recursive || !args.filesFrom.empty()),
      given(args.paths.begin(), args.paths.end()) {
    if (!args.filesFrom.empty())
        listing = std::make_unique<Listing>(args.filesFrom, args.zeroSeparated);
    if (given.empty() && !listing)
        throw Failure(ExitCode::USAGE, "", "no file is given (motionphoto --help says more)");
}

Inputs::~Inputs() = default;

bool isCutOff(std::istream const& stream) {
    return stream.bad() || (&stream == &std::cin && std::ferror(stdin) != 0);
}

bool Inputs::nextName(Input& input) {
    std::string path;
    if (!given.empty()) {
        path = given.front();
        given.pop_front();
    } else {
        while (path.empty()) {
            if (!listing)
                return false;
            if (!std::getline(listing->stream, path, listing->end)) {
                listing->requireWholeOnce();
                return false;
            }
        }
    }
    input = {path, fs::path(path).filename().string()};
    return true;
}

void Inputs::open(Input const& folder) {
    std::vector<Found> entries;
    std::error_code error;
    fs::directory_iterator entry(folder.path, error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
        bool const isLink = entry->is_symlink(error);
        error.clear(); // an entry that cannot be asked is told when it is opened
        std::error_code unknown;
        bool const isBelow = !isLink && entry->is_directory(unknown); // of most file systems, without asking again
        auto const name = entry->path().filename();
        // A link to a folder may lead back to where it stands, whatever it is called.
        bool const isWanted = isBelow ? name.string().front() != '.'
                                      : isNamed(name, kind) && !(isLink && isFolder(entry->path().string()));
        if (isWanted)
            entries.push_back({{entry->path().string(), (fs::path(folder.relative) / name).string()}, isBelow});
    }
    if (error)
        throw Failure(ExitCode::BAD_INPUT, folder.path, "cannot be read: " + error.message());
    std::sort(entries.begin(), entries.end(), [](auto& a, auto& b) { return a.input.path < b.input.path; });
    found.insert(found.begin(), entries.begin(), entries.end());
}

bool Inputs::next(Input& input) {
    for (;;) {
        bool const below = !found.empty();
        bool mayBeFolder = recursive;
        if (below) {
            input = std::move(found.front().input);
            mayBeFolder = found.front().mayBeFolder;
            found.pop_front();
        } else if (!nextName(input)) {
            return false;
        }
        if (!mayBeFolder || !isFolder(input.path))
            return true;
        if (!below)
            input.relative.clear();
        open(input);
    }
}

size_t Inputs::count(Arguments const& args) {
    if (args.filesFrom == STANDARD_INPUT)
        return 0;
    Inputs all(args);
    size_t number = 0;
    for (Input input;;) {
        try {
            if (!all.next(input))
                return number;
        } catch (Failure const&) {
            // told when the work comes to it
        }
        ++number;
    }
}

} // namespace motionphoto
