// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <benchmark/benchmark.h>

#include <array>
#include <exception>
#include <string>
#include <utility>

/// What every library is asked about every file, so that the times are of the same work.
namespace workload {

struct Property {
    char const* schema;
    char const* prefix;
    char const* name;
};

inline constexpr char CAMERA[] = "http://ns.google.com/photos/1.0/camera/";
inline constexpr char CONTAINER[] = "http://ns.google.com/photos/1.0/container/";
inline constexpr char ITEM[] = "http://ns.google.com/photos/1.0/container/item/";
inline constexpr char GAIN_MAP[] = "http://ns.adobe.com/hdr-gain-map/1.0/";

/// Of the XMP alone: none that a library would make up from the Exif data.
inline constexpr std::array PROPERTIES = {
    Property{CAMERA, "GCamera", "MotionPhoto"},
    Property{CAMERA, "GCamera", "MotionPhotoVersion"},
    Property{CAMERA, "GCamera", "MotionPhotoPresentationTimestampUs"},
    Property{GAIN_MAP, "hdrgm", "Version"},
    Property{"http://ns.adobe.com/xap/1.0/mm/", "xmpMM", "DocumentID"},
};

/// Of the directory's item with this semantic.
inline constexpr char ITEM_NAME[] = "MotionPhoto";
inline constexpr std::array ITEM_FIELDS = {"Mime", "Length", "Padding"};
/// Directories have a handful of items; a library without a search of its own looks at so many.
inline constexpr int MAX_ITEMS = 8;

/// "Container:Directory[2]/Container:Item/Item:<field>", the way to a field for a library that knows no items.
inline std::string fieldPath(int place, char const* field) {
    return "Directory[" + std::to_string(place) + "]/Container:Item/Item:" + field;
}

/// The answers to all questions, joined: libraries that give the same text have done the same work.
/// `property` answers (Property), `field` answers (place in the directory, field name); empty when absent.
template<class GetProperty, class GetField>
std::string ask(GetProperty const& property, GetField const& field) {
    std::string answers;
    for (auto const& each : PROPERTIES)
        answers += property(each) + ';';
    for (int place = 1; place <= MAX_ITEMS; ++place) {
        std::string const name = field(place, "Semantic");
        if (name.empty())
            break;
        if (name != ITEM_NAME)
            continue;
        for (auto const* each : ITEM_FIELDS)
            answers += field(place, each) + ';';
        break;
    }
    return answers;
}

/// The namespaces that the libraries do not know by themselves.
inline constexpr std::array NAMESPACES = {
    std::pair{CAMERA, "GCamera"},
    std::pair{CONTAINER, "Container"},
    std::pair{ITEM, "Item"},
    std::pair{GAIN_MAP, "hdrgm"},
};

/// Registers "<name>/<path>". `read` opens the file, parses it and returns the joined answers; they become the label, a
/// failure becomes the benchmark's error.
template<class Read>
void add(std::string const& name, std::string const& path, Read read) {
    benchmark::RegisterBenchmark((name + '/' + path).c_str(), [path, read](benchmark::State& state) {
        try {
            std::string answers;
            for (auto _ : state)
                benchmark::DoNotOptimize(answers = read(path));
            state.SetLabel(answers);
        } catch (std::exception const& e) {
            state.SkipWithError(e.what());
        }
    });
}

} // namespace workload
