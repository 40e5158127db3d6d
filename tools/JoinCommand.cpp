// SPDX-License-Identifier: Apache-2.0
// Stills and clips that belong together, as exports of phones and photo services leave them, become motion photos.

#include "Commands.h"

#include "ContentIdentifier.h"
#include "Destination.h"
#include "Inputs.h"
#include "PutClip.h"
#include "Text.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <map>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace motionphoto {

using namespace android::lumo;
namespace fs = std::filesystem;

namespace {

std::string lowered(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

template<size_t N>
bool cutEnding(std::string& name, std::array<std::string_view, N> const& endings) {
    for (auto const ending : endings) {
        if (name.size() > ending.size() && name.ends_with(ending)) {
            name.resize(name.size() - ending.size());
            return true;
        }
    }
    return false;
}

/// A file of the run: what it is, and the name it shares with its twin.
struct Part {
    std::string path;
    std::string relative;
    std::string key; ///< folder and name without endings, a copy's "(1)" at its end
};

struct Parts {
    std::vector<Part> stills, clips;
};

/// Takes the first number in parentheses, "(12)", out of a name and returns it; "" where there is none.
std::string takeCopyNumber(std::string& name) {
    constexpr char DIGITS[] = "0123456789";
    for (size_t open = name.find('('); open != std::string::npos; open = name.find('(', open + 1)) {
        size_t const close = name.find_first_not_of(DIGITS, open + 1);
        if (close == std::string::npos || close == open + 1 || name[close] != ')')
            continue;
        std::string const number = name.substr(open, close + 1 - open);
        name.erase(open, number.size());
        return number;
    }
    return {};
}

/// "IMG_1(1).JPG" and "IMG_1.MOV(1)"-like names of copies, "PXL_1.MP.jpg" and "PXL_1.MP" of one moment meet in one key.
void sort(Part part, Parts& parts) {
    std::string name = lowered(fs::path(part.path).filename().string());
    std::string const copy = takeCopyNumber(name);
    bool const isStill = cutEnding(name, STILL_ENDINGS);
    bool const isClip = !isStill && cutEnding(name, CLIP_ENDINGS);
    cutEnding(name, STILL_ENDINGS); // of a clip named after its still
    cutEnding(name, CLIP_ENDINGS);
    part.key = (fs::path(part.path).parent_path() / (name + copy)).string();
    if (isStill || isClip)
        (isStill ? parts.stills : parts.clips).push_back(std::move(part));
}

Parts gather(Arguments const& args) {
    Parts parts;
    Inputs inputs(args, Inputs::Kind::STILLS_AND_CLIPS);
    for (Input input; inputs.next(input);) {
        std::error_code unknown; // told when it is opened
        if (!args.recursive && fs::is_directory(input.path, unknown))
            throw Failure(ExitCode::BAD_INPUT, input.path, "is a folder; -r takes the stills in it");
        sort({input.path, input.relative, ""}, parts);
    }
    return parts;
}

/// What a still or a clip says that it belongs to, or why that could not be read: then it might be anything.
struct Identity {
    std::string identifier;
    std::optional<Failure> fault;

    static Identity of(std::string const& path, std::string (*read)(std::shared_ptr<MediaFile> const&)) {
        try {
            auto const file = openFile(path, Access::READ);
            return {guarded(path, [&] { return read(file); }), std::nullopt};
        } catch (Failure const& failure) {
            return {"", failure};
        }
    }
};

/// The clip of each still: by the identifier both carry, else by name. Names come again from card to card: two
/// identifiers that differ say that still and clip do not belong together.
class Pairs {
public:
    explicit Pairs(Parts const& parts) {
        for (auto const& clip : parts.clips) {
            auto const& identity = identities[&clip] = Identity::of(clip.path, contentIdentifierOfClip);
            byName[clip.key].push_back(&clip);
            if (!identity.identifier.empty())
                byIdentifier[identity.identifier].push_back(&clip);
            if (identity.fault)
                pairs[clip.path] = {clip.relative, {}, identity.fault}; // unless a still's pair tells it
        }
        for (auto const& still : parts.stills)
            pair(still, Identity::of(still.path, contentIdentifierOfStill));
    }

    struct Pair {
        std::string relative;
        std::vector<std::string> clips; ///< more than one where it cannot be told which
        std::optional<Failure> fault;   ///< why it cannot be known whether they belong together
    };
    std::map<std::string, Pair> const& all() const { return pairs; }
    size_t withoutClip() const { return alone; }

private:
    void pair(Part const& still, Identity const& identity) {
        auto const match = byIdentifier.find(identity.identifier);
        auto twins = match != byIdentifier.end() ? match->second : byName[still.key];
        if (match == byIdentifier.end() && !identity.identifier.empty())
            std::erase_if(twins, [&](Part const* clip) { return !identities[clip].identifier.empty(); });
        if (twins.empty() && !identity.fault) {
            ++alone;
            return;
        }
        auto& made = pairs[still.path] = {still.relative, {}, identity.fault};
        for (auto const* clip : twins) {
            made.clips.push_back(clip->path);
            if (auto const& fault = identities[clip].fault) {
                made.fault = fault;
                pairs.erase(clip->path);
            }
        }
    }

    std::map<std::string, std::vector<Part const*>> byIdentifier, byName;
    std::map<Part const*, Identity> identities;
    std::map<std::string, Pair> pairs;
    size_t alone = 0;
};

/// What exports leave beside photos that were whole: the clip is in the photo already.
bool holds(Photo const& photo, std::string const& path) {
    constexpr uint64_t CHUNK = 1 << 20;
    auto const clip = openFile(path, Access::READ);
    auto const& video = photo.video;
    if (!video.isSound() || clip->size() != video.size)
        return false;
    for (uint64_t at = 0; at < video.size; at += CHUNK) {
        uint64_t const size = std::min<uint64_t>(CHUNK, video.size - at);
        if (readAt(*photo.file, video.position + at, size) != readAt(*clip, at, size))
            return false;
    }
    return true;
}

/// The moment that the photo names, where it is this very clip that it had: its size is still claimed.
Arguments withMoment(Arguments const& args, Photo const& photo, std::string const& path) {
    Arguments own = args;
    auto const clip = openFile(path, Access::READ);
    auto const claimed = XMPInfo::parse(photo.file)->getItemField("MotionPhoto", "Length");
    if (claimed == std::to_string(clip->size()) && photo.video.momentUs.value_or(-1) >= 0)
        own.at = std::to_string(*photo.video.momentUs) + "us";
    return own;
}

Outcome joinOne(Arguments const& args, std::string const& path, Pairs::Pair const& pair) {
    if (pair.fault)
        throw *pair.fault;
    if (pair.clips.size() > 1)
        throw Failure(ExitCode::BAD_INPUT, path,
                      "has " + std::to_string(pair.clips.size()) + " clips, " + pair.clips[0] + " and " +
                          pair.clips[1] + "; motionphoto add takes one of them");
    Destination const destination(args, {path, pair.relative}, pair.relative);
    if (destination.isSkipped())
        return destination.skippedOutcome();
    Photo const photo(path, Access::READ);
    auto const& clip = pair.clips.front();
    bool const isJoined = photo.video.isSound(); // a claim alone is what a service leaves that took the clip out
    if (isJoined && !holds(photo, clip))
        throw Failure(ExitCode::BAD_INPUT, path, "has a video already, and another one than " + clip);
    return destination.edit(photo, [&](auto const& output) {
        isJoined ? copyWhole(photo, output) : putClip(withMoment(args, photo, clip), clip, photo, output);
        return true;
    });
}

} // namespace

ExitCode join(Arguments const& args) {
    if (args.folder.empty())
        throw Failure(ExitCode::USAGE, "", "give the folder for the joined photos: -d DIR");
    auto const pairs = guarded("", [&] { return Pairs(gather(args)); });
    Arguments joined = args;
    joined.recursive = false;
    joined.filesFrom.clear();
    joined.paths.clear();
    joined.at = Arguments::AUTOMATIC;
    for (auto const& [path, pair] : pairs.all())
        joined.paths.push_back(path);
    if (pairs.withoutClip() > 0 && !args.quiet)
        std::fprintf(stderr, "motionphoto: %zu without a clip left out\n", pairs.withoutClip());
    if (joined.paths.empty())
        throw Failure(ExitCode::NO_MOTION_PHOTO, "", "no still has a clip that belongs to it");
    return forEachInput(
        joined, [&](Input const& input) { return joinOne(joined, input.path, pairs.all().at(input.path)); },
        Summary::YES);
}

} // namespace motionphoto
