// SPDX-License-Identifier: Apache-2.0
// The bytes of a photo to scale: in the terminal, as a drawing, or as a page that also shows still and video.

#include "Commands.h"

#include "Destination.h"
#include "JsonLine.h"
#include "PhotoMap.h"
#include "Text.h"

#include <algorithm>
#include <cstdio>
#include <sstream>

#include <unistd.h>

namespace motionphoto {

using namespace android::lumo;

namespace {

constexpr size_t BAR_WIDTH = 72;
constexpr double DRAWING_WIDTH = 960;
constexpr double SMALLEST_WIDTH = 1.5; ///< of a region in the drawing, so that it can be seen

struct Look {
    char letter;
    char const* terminal;
    char const* colour;
    char const* name;
};

Look const& lookOf(Region::Kind kind) {
    static constexpr Look LOOKS[] = {
        {'h', "\033[90m", "#888888", "header"},  {'m', "\033[33m", "#d9a400", "metadata"},
        {'i', "\033[34m", "#3b7dd8", "image"},   {'v', "\033[31m", "#d8433b", "video"},
        {'t', "\033[35m", "#8e44ad", "trailer"}, {'.', "\033[0m", "#cccccc", "other"},
    };
    return LOOKS[static_cast<size_t>(kind)];
}

std::string printTerminal(Photo const& photo, std::vector<Region> const& regions, bool coloured) {
    std::ostringstream out;
    out << escaped(photo.path()) << "  " << grouped(photo.size()) << " bytes\n";
    for (size_t column = 0; column < BAR_WIDTH && !regions.empty(); ++column) {
        uint64_t const at = photo.size() * column / BAR_WIDTH;
        auto const* region = &regions.front();
        for (auto const& each : regions)
            region = each.position <= at ? &each : region;
        auto const& look = lookOf(region->kind);
        out << (coloured ? look.terminal : "") << look.letter;
    }
    out << (coloured ? "\033[0m" : "") << '\n';
    for (auto const& region : regions) {
        char line[64];
        std::snprintf(line, sizeof line, "%15s %15s  ", grouped(region.position).c_str(), grouped(region.size).c_str());
        auto const& look = lookOf(region.kind);
        out << line << (coloured ? look.terminal : "") << look.letter << ' ' << region.name
            << (coloured ? "\033[0m" : "") << '\n';
    }
    return out.str();
}

/// A drawing is XML, which holds no bytes that are no UTF-8: they become the replacement character.
std::string forMarkup(std::string const& text) {
    std::string const utf8 = Json::parse(Json(escaped(text)).dump(-1, ' ', false, Json::error_handler_t::replace));
    std::string result;
    for (char const c : utf8)
        result += c == '<' ? "&lt;" : c == '>' ? "&gt;" : c == '&' ? "&amp;" : c == '"' ? "&quot;" : std::string(1, c);
    return result;
}

std::string drawing(Photo const& photo, std::vector<Region> const& regions) {
    constexpr int BAR = 60, ROW = 18;
    std::ostringstream out;
    out << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << DRAWING_WIDTH << "\" height=\""
        << BAR + 20 + ROW * static_cast<int>(regions.size()) << "\" font-family=\"sans-serif\" font-size=\"13\">\n";
    int row = 0;
    for (auto const& region : regions) {
        double const scale = DRAWING_WIDTH / static_cast<double>(std::max<uint64_t>(photo.size(), 1));
        double const x = static_cast<double>(region.position) * scale;
        double const width = std::max(static_cast<double>(region.size) * scale, SMALLEST_WIDTH);
        int const y = BAR + 24 + ROW * row++;
        out << "<rect x=\"" << x << "\" y=\"0\" width=\"" << width << "\" height=\"" << BAR << "\" fill=\""
            << lookOf(region.kind).colour << "\"><title>" << forMarkup(region.name) << "</title></rect>\n"
            << "<rect x=\"0\" y=\"" << y - 11 << "\" width=\"12\" height=\"12\" fill=\"" << lookOf(region.kind).colour
            << "\"/><text x=\"20\" y=\"" << y << "\">" << forMarkup(region.name) << "</text><text x=\"420\" y=\"" << y
            << "\" text-anchor=\"end\">" << grouped(region.position) << "</text><text x=\"560\" y=\"" << y
            << "\" text-anchor=\"end\">" << grouped(region.size) << " bytes</text>\n";
    }
    out << "</svg>\n";
    return out.str();
}

void put(MediaFile& out, std::string const& text) {
    if (out.write(text) != static_cast<ssize_t>(text.size()))
        throw systemFailure(ExitCode::WRITE_FAILED, "", "fail to write");
}

/// A run of the photo as base64, in pieces of whole groups.
void putBase64(MediaFile& out, MediaFile const& photo, uint64_t position, uint64_t size) {
    static constexpr char DIGITS[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    constexpr uint64_t PIECE = 3 << 18;
    std::string bytes, text;
    while (size > 0) {
        bytes.resize(static_cast<size_t>(std::min(size, PIECE)));
        if (pread(photo.getFd(), bytes.data(), bytes.size(), static_cast<off_t>(position)) !=
            static_cast<ssize_t>(bytes.size()))
            throw systemFailure(ExitCode::BAD_INPUT, photo.getPath(), "cannot be read");
        text.clear();
        for (size_t i = 0; i < bytes.size(); i += 3) {
            uint32_t group = 0;
            for (size_t j = i; j < i + 3; ++j)
                group = group << 8 | (j < bytes.size() ? static_cast<unsigned char>(bytes[j]) : 0);
            size_t const digits = std::min<size_t>(bytes.size() - i, 3) + 1;
            for (size_t j = 0; j < 4; ++j)
                text += j < digits ? DIGITS[group >> (18 - 6 * j) & 63] : '=';
        }
        put(out, text);
        position += bytes.size();
        size -= bytes.size();
    }
}

/// A page that needs no other file. What a browser may not show can be saved from it.
void putPage(MediaFile& out, Photo const& photo, std::vector<Region> const& regions) {
    auto const name = forMarkup(photo.path());
    auto const type = photo.file->mimeType();
    auto const mime = MediaDefs::mimeString(type);
    uint64_t const imageEnd = photo.video.isSound() ? photo.video.position : photo.size();
    put(out, "<!DOCTYPE html>\n<html lang=\"en\"><head><meta charset=\"utf-8\"><title>" + name +
                 "</title><style>body{font-family:sans-serif;margin:2em}img,video{max-width:46%;vertical-align:top}"
                 "</style></head><body>\n<h1>" +
                 name + "</h1>\n<p><img id=\"still\" alt=\"the still\" src=\"data:" + mime + ";base64,");
    putBase64(out, *photo.file, 0, imageEnd);
    put(out, "\">\n");
    if (photo.video.isSound()) {
        auto const video = MediaDefs::mimeString(photo.video.mimeType());
        put(out, "<video id=\"video\" controls muted autoplay loop src=\"data:video/mp4;base64,");
        putBase64(out, *photo.file, photo.video.position, photo.video.size);
        put(out, "\"></video></p>\n<p>Not every browser shows a HEIC still or plays a video in HEVC. The bytes can be "
                 "saved: "
                 "<a id=\"save\" download=\"clip." +
                     std::string(photo.clipEnding()) + "\">the video</a> (" + video + ", " + grouped(photo.video.size) +
                     " bytes).</p>\n"
                     "<script>document.getElementById('save').href = document.getElementById('video').src;</script>\n");
    } else {
        put(out, "</p>\n<p>No video.</p>\n");
    }
    put(out, drawing(photo, regions) + "</body></html>\n");
}

} // namespace

ExitCode map(Arguments const& args) {
    if (!args.svg.empty() && !args.html.empty())
        throw Failure(ExitCode::USAGE, "", "give either --svg or --html");
    Arguments placed = args;
    placed.out = args.svg + args.html;
    return forEachInput(
        args,
        [&](Input const& input) {
            Photo const photo(input.path, Access::READ);
            auto const regions = guarded(input.path, [&] { return mapOf(photo); });
            if (placed.out.empty())
                return Outcome{Outcome::Kind::DONE, ExitCode::DONE,
                               printTerminal(photo, regions, isatty(STDOUT_FILENO) != 0), ""};
            return Destination(placed, input, input.relative).edit(photo, [&](auto const& output) {
                args.html.empty() ? put(*output, drawing(photo, regions)) : putPage(*output, photo, regions);
                return true;
            });
        },
        Summary::NO);
}

} // namespace motionphoto
