// SPDX-License-Identifier: Apache-2.0
#include "InfoReport.h"

#include "JsonLine.h"
#include "Text.h"

#include <algorithm>
#include <cstdio>
#include <functional>
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
std::string shown(std::string const& text) {
    if (text.size() <= MAX_SHOWN)
        return escaped(text);
    size_t cut = MAX_SHOWN;
    while (cut > 0 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80)
        --cut; // not inside a character
    return escaped(text.substr(0, cut)) + "… (" + grouped(text.size()) + " bytes)";
}

std::string bytes(uint64_t count) {
    return grouped(count) + (count == 1 ? " byte" : " bytes");
}

std::string seconds(int64_t us) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f s", static_cast<double>(us) / 1e6);
    return text;
}

/// Label and text in two columns; further lines under one label leave it empty. The text may come in parts.
class Rows {
public:
    explicit Rows(std::string const& title) { rows.append(title) += '\n'; }
    template<class... Parts>
    void operator()(std::string_view label, Parts const&... parts) {
        rows.append(2, ' ').append(label).append(LABEL_WIDTH - std::min(label.size(), LABEL_WIDTH), ' ');
        (rows.append(std::string_view(parts)), ...);
        rows += '\n';
    }
    std::string text() { return std::move(rows); }

private:
    std::string rows;
};

/// One text of each entry as it is shown, filled up to the longest within reason.
struct Column {
    template<class Entries, class Text>
    Column(Entries const& entries, Text text, size_t least = 0) : width(least) {
        texts.reserve(entries.size());
        for (auto const& entry : entries) {
            texts.push_back(shown(text(entry)));
            width = std::max(width, std::min(texts.back().size(), MAX_COLUMN));
        }
        for (auto& each : texts)
            each = left(std::move(each), width);
    }

    std::vector<std::string> texts;
    size_t width;
};

void printMotionPhoto(Rows& row, InfoReport::MotionPhoto const& motion) {
    auto const& video = motion.video;
    row("motion photo", motion.valid ? "yes" : "damaged: " + escaped(motion.reason), ", by its ", motion.source,
        motion.format.empty() ? "" : ", format ", motion.format,
        motion.xmpVersion ? ", XMP version " + std::to_string(motion.xmpVersion) : "");
    row("video", bytes(video.size), " at ", grouped(video.position), ", ", video.mimeType.value_or("type unknown"),
        ", ", video.durationUs ? seconds(*video.durationUs) : "duration unknown");
    if (video.padding > 0)
        row("padding", bytes(video.padding), " between image and video");
    if (motion.presentationTimestampUs)
        row("still moment", seconds(*motion.presentationTimestampUs), " into the video");
}

void printTrailer(Rows& row, InfoReport::Trailer const& trailer) {
    row("trailer", grouped(static_cast<uint64_t>(trailer.size)), " bytes, version ", std::to_string(trailer.version),
        ", ", std::to_string(trailer.records.size()), trailer.records.size() == 1 ? " record" : " records");
    if (trailer.records.empty())
        return;
    Column const names(trailer.records, std::mem_fn(&InfoReport::Record::name), 4);
    auto const line = [&](std::string const& type, std::string const& name, std::string const& position,
                          std::string const& size) {
        row("", left(type, 6), name, right(position, 15), right(size, 15));
    };
    line("type", left("name", names.width), "position", "size");
    for (size_t i = 0; i < trailer.records.size(); ++i) {
        auto const& record = trailer.records[i];
        line(std::to_string(record.type), names.texts[i], grouped(record.position), grouped(record.size));
    }
}

void printXmp(Rows& row, InfoReport const& report) {
    std::string_view label = "XMP";
    Column const paths(report.properties, std::mem_fn(&InfoReport::Property::path));
    for (size_t i = 0; i < report.properties.size(); ++i, label = "")
        row(label, paths.texts[i], "  ", shown(report.properties[i].value));
    label = "directory";
    Column const names(report.items, std::mem_fn(&InfoReport::Item::semantic));
    Column const mimes(report.items, std::mem_fn(&InfoReport::Item::mime));
    for (size_t i = 0; i < report.items.size(); ++i, label = "") {
        std::string fields;
        for (auto const& [name, value] : report.items[i].fields)
            fields.append(fields.empty() ? "" : ", ").append(shown(name)).append(" ").append(shown(value));
        row(label, names.texts[i], "  ", mimes.texts[i], "  ", fields);
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

std::string asText(InfoReport const& report) {
    Rows row(escaped(report.file));
    row("type", report.mimeType);
    row("file", bytes(report.fileSize));
    row("image", bytes(report.imageSize), report.trailer ? " in front of the trailer" : "");
    if (report.motionPhoto)
        printMotionPhoto(row, *report.motionPhoto);
    else
        row("motion photo", report.damage.empty() ? "no" : "cannot be told: ", report.damage);
    if (report.trailer)
        printTrailer(row, *report.trailer);
    printXmp(row, report);
    if (report.debugInfo)
        row("debug info", bytes(report.debugInfo->size), " at ", grouped(report.debugInfo->position));
    return row.text();
}

std::string asLine(InfoReport const& report) {
    std::string const start = left(escaped(report.file), 40) + "  " + left(report.mimeType, 10) + "  ";
    if (!report.motionPhoto)
        return start + (report.damage.empty() ? "no motion photo\n" : "damaged, cannot be told\n");
    if (!report.motionPhoto->valid)
        return start + "damaged motion photo\n";
    auto const& video = report.motionPhoto->video;
    return start + bytes(video.size) + " of " + video.mimeType.value_or("video") + " at " + grouped(video.position) +
           " (" + report.motionPhoto->source + ")\n";
}

std::string asJson(InfoReport const& report) {
    return jsonLine(report.file, toJson(report));
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
