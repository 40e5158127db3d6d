// SPDX-License-Identifier: Apache-2.0
#include "InfoReport.h"

#include "JsonLine.h"
#include "Text.h"

#include <algorithm>
#include <cstdio>
#include <sstream>
#include <string_view>

namespace motionphoto {

namespace {

constexpr size_t LABEL_WIDTH = 14;
constexpr size_t MAX_SHOWN = 60;
constexpr size_t MAX_COLUMN = 48;

// Text ---------------------------------------------------------------------------------------------------------------

std::string left(std::string text, size_t width) {
    text.resize(std::max(text.size(), width), ' ');
    return text;
}

std::string right(std::string const& text, size_t width) {
    return std::string(width > text.size() ? width - text.size() : 0, ' ') + text;
}

/// A string from the file, safe for a terminal; a long one is cut.
std::string shown(std::string text) {
    size_t const size = text.size();
    if (size > MAX_SHOWN) {
        size_t cut = MAX_SHOWN;
        while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80)
            --cut; // not inside a character
        text.resize(cut);
    }
    return escaped(text) + (size > MAX_SHOWN ? "… (" + grouped(size) + " bytes)" : "");
}

std::string bytes(uint64_t count) {
    return grouped(count) + (count == 1 ? " byte" : " bytes");
}

std::string seconds(int64_t us) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f s", static_cast<double>(us) / 1e6);
    return text;
}

/// Label and text in two columns; further lines under one label leave it empty.
class Rows {
public:
    explicit Rows(std::string const& title) : rows(title + '\n') {}
    void operator()(std::string_view label, std::string_view text) {
        rows.append(2, ' ').append(label).append(LABEL_WIDTH - std::min(label.size(), LABEL_WIDTH), ' ');
        rows.append(text) += '\n';
    }
    std::string const& text() const { return rows; }

private:
    std::string rows;
};

/// The width of a column of texts, within reason.
template<class Entries, class Text>
size_t widthOf(Entries const& entries, Text text) {
    size_t width = 0;
    for (auto const& entry : entries)
        width = std::max(width, std::min(text(entry).size(), MAX_COLUMN));
    return width;
}

void printMotionPhoto(Rows& row, InfoReport::MotionPhoto const& motion) {
    auto const& video = motion.video;
    row("motion photo", (motion.valid ? "yes" : "damaged: " + escaped(motion.reason)) + ", by its " + motion.source +
                            (motion.format.empty() ? "" : ", format " + motion.format) +
                            (motion.xmpVersion ? ", XMP version " + std::to_string(motion.xmpVersion) : ""));
    row("video", bytes(video.size) + " at " + grouped(video.position) + ", " + video.mimeType.value_or("type unknown") +
                     ", " + (video.durationUs ? seconds(*video.durationUs) : "duration unknown"));
    if (video.padding > 0)
        row("padding", bytes(video.padding) + " between image and video");
    if (motion.presentationTimestampUs)
        row("still moment", seconds(*motion.presentationTimestampUs) + " into the video");
}

void printTrailer(Rows& row, InfoReport::Trailer const& trailer) {
    row("trailer", grouped(static_cast<uint64_t>(trailer.size)) + " bytes, version " + std::to_string(trailer.version) +
                       ", " + std::to_string(trailer.records.size()) +
                       (trailer.records.size() == 1 ? " record" : " records"));
    if (trailer.records.empty())
        return;
    size_t const names = std::max<size_t>(4, widthOf(trailer.records, [](auto& record) { return shown(record.name); }));
    auto const line = [&](auto const& type, auto const& name, auto const& position, auto const& size) {
        row("", left(type, 6) + left(name, names) + right(position, 15) + right(size, 15));
    };
    line("type", "name", "position", "size");
    for (auto const& record : trailer.records)
        line(std::to_string(record.type), shown(record.name), grouped(record.position), grouped(record.size));
}

void printXmp(Rows& row, InfoReport const& report) {
    std::string label = "XMP";
    size_t const paths = widthOf(report.properties, [](auto& property) { return shown(property.path); });
    for (auto const& property : report.properties) {
        row(label, left(shown(property.path), paths) + "  " + shown(property.value));
        label.clear();
    }
    label = "directory";
    size_t const names = widthOf(report.items, [](auto& item) { return shown(item.semantic); });
    size_t const mimes = widthOf(report.items, [](auto& item) { return shown(item.mime); });
    for (auto const& item : report.items) {
        std::string fields;
        for (auto const& [name, value] : item.fields)
            fields += (fields.empty() ? "" : ", ") + shown(name) + " " + shown(value);
        row(label, left(shown(item.semantic), names) + "  " + left(shown(item.mime), mimes) + "  " + fields);
        label.clear();
    }
}

// JSON ---------------------------------------------------------------------------------------------------------------

template<class T>
Json orNull(std::optional<T> const& value) {
    return value ? Json(*value) : Json(nullptr);
}

Json toJson(InfoReport::MotionPhoto const& motion) {
    auto const& video = motion.video;
    return {
        {"valid", motion.valid},
        {"source", motion.source},
        {"reason", motion.valid ? Json(nullptr) : Json(motion.reason)},
        {"format", motion.format},
        {"xmpVersion", motion.xmpVersion},
        {"presentationTimestampUs", orNull(motion.presentationTimestampUs)},
        {"video",
         {
             {"position", video.position},
             {"size", video.size},
             {"mimeType", orNull(video.mimeType)},
             {"durationUs", orNull(video.durationUs)},
             {"padding", video.padding},
         }},
    };
}

Json toJson(InfoReport::Trailer const& trailer) {
    Json records = Json::array();
    for (auto const& [type, name, position, size] : trailer.records)
        records.push_back({{"type", type}, {"name", name}, {"position", position}, {"size", size}});
    return {{"version", trailer.version}, {"size", trailer.size}, {"records", std::move(records)}};
}

Json xmpToJson(InfoReport const& report) {
    Json properties = Json::array();
    for (auto const& [schema, path, value] : report.properties)
        properties.push_back({{"namespace", schema}, {"path", path}, {"value", value}});
    Json items = Json::array();
    for (auto const& item : report.items) {
        Json& entry = items.emplace_back(Json{{"semantic", item.semantic}, {"mime", item.mime}});
        for (auto const& [name, value] : item.fields)
            entry[name] = value;
    }
    return {{"properties", std::move(properties)}, {"items", std::move(items)}};
}

Json toJson(InfoReport const& report) {
    Json json = {
        {"mimeType", report.mimeType},
        {"fileSize", report.fileSize},
        {"imageSize", report.imageSize},
    };
    json["motionPhoto"] = report.motionPhoto ? toJson(*report.motionPhoto) : Json(nullptr);
    json["damage"] = report.damage.empty() ? Json(nullptr) : Json(report.damage);
    json["trailer"] = report.trailer ? toJson(*report.trailer) : Json(nullptr);
    json["xmp"] = xmpToJson(report);
    json["debugInfo"] = nullptr;
    if (auto const& block = report.debugInfo)
        json["debugInfo"] = {{"position", block->position}, {"size", block->size}};
    return json;
}

} // namespace

void printText(InfoReport const& report, std::ostream& out) {
    Rows row(escaped(report.file));
    row("type", report.mimeType);
    row("file", bytes(report.fileSize));
    row("image", bytes(report.imageSize) + (report.trailer ? " in front of the trailer" : ""));
    if (report.motionPhoto)
        printMotionPhoto(row, *report.motionPhoto);
    else
        row("motion photo", report.damage.empty() ? "no" : "cannot be told: " + report.damage);
    if (report.trailer)
        printTrailer(row, *report.trailer);
    printXmp(row, report);
    if (report.debugInfo)
        row("debug info", bytes(report.debugInfo->size) + " at " + grouped(report.debugInfo->position));
    out << row.text();
}

void printLine(InfoReport const& report, std::ostream& out) {
    out << left(escaped(report.file), 40) << "  " << left(report.mimeType, 10) << "  ";
    if (!report.motionPhoto)
        out << (report.damage.empty() ? "no motion photo\n" : "damaged, cannot be told\n");
    else if (!report.motionPhoto->valid)
        out << "damaged motion photo\n";
    else
        out << bytes(report.motionPhoto->video.size) << " of " << report.motionPhoto->video.mimeType.value_or("video")
            << " at " << grouped(report.motionPhoto->video.position) << " (" << report.motionPhoto->source << ")\n";
}

void printJson(InfoReport const& report, std::ostream& out) {
    out << jsonLine(report.file, toJson(report));
}

Outcome failedReport(Arguments const& args, std::string const& file, Failure const& failure) {
    auto outcome = failed(args, failure);
    if (args.json)
        outcome.text = jsonLine(
            file,
            {{"error", {{"exitCode", static_cast<int>(failure.exitCode())}, {"message", failure.sentence(false)}}}});
    return outcome;
}

} // namespace motionphoto
