// SPDX-License-Identifier: Apache-2.0
// Writes the structural seeds: make_seeds FOLDER fills FOLDER/<target>/ from the test builders.
#include "support/HeicBuilder.h"
#include "support/JpegBuilder.h"
#include "support/TrailerBuilder.h"

#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <vector>

using namespace android::lumo::test;

namespace {

void writeAll(std::filesystem::path const& folder, std::vector<std::string> const& seeds) {
    std::filesystem::create_directories(folder);
    for (size_t i = 0; i < seeds.size(); ++i) {
        std::ofstream out(folder / ("seed" + std::to_string(i)), std::ios::binary);
        if (!out.write(seeds[i].data(), static_cast<std::streamsize>(seeds[i].size())))
            throw std::runtime_error("cannot write to " + folder.string());
    }
}

std::string pointer() {
    return "mpv2" + bigEndian(16, 4) + bigEndian(40, 4);
}

std::vector<std::string> jpegs() {
    std::string const packet = heicXmp("seed");
    std::vector<std::string> seeds{
        JpegBuilder().build(),
        JpegBuilder().exif().xmp(packet).build(),
        JpegBuilder().exif().xmp(packet, 1400).segment(0xE4, "debug").mpf().build("scan", "behind"),
        JpegBuilder().xmp(packet).raw("\xFF\xFF").exif().segment(0xE0, "JFIF").exif().xmp(packet, 3000).build(),
        JpegBuilder()
            .segment(0xE1, EXTENDED_XMP_ID + "0123")
            .raw("\xFF\xE1\xFF\xFF"
                 "end")
            .open(),
        JpegBuilder().exif().build("scan", trailerBytes({{2608, "MotionPhoto_Data", pointer()}})),
    };
    for (size_t i = 0; i < seeds.size(); ++i)
        seeds[i] += static_cast<char>(0x77 + i % 2); // how much to write, and what
    return seeds;
}

std::vector<std::string> heics() {
    std::string const trailer = qrtdBox(trailerBytes({{2608, "MotionPhoto_Data", pointer()}, {2609, "V", "mpv3"}}));
    std::string const video = heicBox("mpvd", heicBox("ftyp", "mp42") + "video");
    std::string const debugInfo = heicBox("free", "cdifdebug");
    return {
        buildHeic(),
        buildHeic({.thumbnail = true, .alpha = true, .groups = true, .xmp = heicXmp("seed", 600), .rotation = 1}),
        buildHeic({.xmp = heicXmp("seed"),
                   .xmpEncoding = "deflate",
                   .mimeFirst = "text",
                   .ilocVersion = 2,
                   .indexWidth = 4,
                   .baseOffset = true}),
        buildHeic({.grid = false, .xmp = heicXmp("seed"), .xmpInIdat = true}),
        buildHeic({.rows = 1,
                   .columns = 1,
                   .exif = false,
                   .ilocVersion = 0,
                   .gridInIdat = false,
                   .tileExtents = 3,
                   .metaLast = true,
                   .freeBoxes = true,
                   .unknownBoxes = true}),
        buildHeic({.rows = 1,
                   .fieldWidth = 8,
                   .primaryId = 70000,
                   .mdat = HeicOptions::Mdat::Wide,
                   .tail = debugInfo + video + trailer}),
        buildHeic({.xmp = heicXmp("seed"), .tail = trailer + debugInfo + video}),
        buildHeic({.mdat = HeicOptions::Mdat::ToEnd}),
    };
}

std::vector<std::string> trailers() {
    std::vector<std::vector<TrailerRecord>> const lists{
        {},
        {{2817, "Other", "data"}},
        {{2608, "MotionPhoto_Data", pointer()}, {2609, "MotionPhoto_Version", "mpv3"}},
        {{-5, "", ""}, {1, "S", "d", "sub-info"}, {1, "S", "d2"}, {2562, "MotionPhoto_Info", std::string(300, 'i')}},
    };
    std::vector<std::string> seeds;
    for (char const way : std::string("\0\1\2\3\5\x08\x09\x18\x19\x20\x31", 11)) {
        for (auto const& list : lists)
            seeds.push_back(way + trailerBytes(list));
    }
    return seeds;
}

std::vector<std::string> packets() {
    std::string const head = "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"><rdf:RDF xmlns:rdf=\""
                             "http://www.w3.org/1999/02/22-rdf-syntax-ns#\"><rdf:Description rdf:about=\"\" ";
    std::string const end = "</rdf:Description></rdf:RDF></x:xmpmeta>";
    std::string const directory =
        "xmlns:GCamera=\"http://ns.google.com/photos/1.0/camera/\" "
        "xmlns:Container=\"http://ns.google.com/photos/1.0/container/\" "
        "xmlns:Item=\"http://ns.google.com/photos/1.0/container/item/\" GCamera:MotionPhoto=\"1\">"
        "<Container:Directory><rdf:Seq><rdf:li rdf:parseType=\"Resource\"><Container:Item Item:Semantic=\"Primary\" "
        "Item:Mime=\"image/jpeg\"/></rdf:li><rdf:li><Container:Item Item:Semantic=\"GainMap\" Item:Length=\"7\"/>"
        "</rdf:li></rdf:Seq></Container:Directory>";
    std::string const forms =
        "xmlns:dc=\"http://purl.org/dc/elements/1.1/\" xmlns:t=\"urn:t\"><dc:title><rdf:Alt><rdf:li "
        "xml:lang=\"x-default\">t&#x41;&lt;</rdf:li></rdf:Alt></dc:title><dc:creator><rdf:Seq><rdf:li>c</rdf:li>"
        "</rdf:Seq></dc:creator><t:s rdf:parseType=\"Resource\"><t:f><![CDATA[x]]></t:f></t:s>";
    return {heicXmp("seed"), head + directory + end, head + forms + end,
            "<?xpacket begin=\"\xEF\xBB\xBF\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?>" + heicXmp("s") +
                "<?xpacket end=\"w\"?>",
            "\xFF\xFE<\0x\0/\0>\0"};
}

/// Mere entropy: the target decodes any bytes into operations. The first stills come last in the input.
std::vector<std::string> sequences() {
    std::vector<std::string> seeds;
    for (uint32_t state = 1; seeds.size() < 24;) {
        std::string seed;
        while (seed.size() < 24 + seeds.size() * 2)
            seed += static_cast<char>((state = state * 1664525U + 1013904223U) >> 24);
        seeds.push_back(seed);
    }
    return seeds;
}

/// The headers of one track, a picture or QuickTime's sound, with a length in the movie's fragments or without.
std::vector<std::string> movies() {
    std::string const zeros(80, '\0');
    std::string const timing = zeros.substr(0, 12) + bigEndian(1000, 4) + bigEndian(2000, 4) + zeros.substr(0, 4);
    auto const movie = [&](std::string const& handler, std::string const& entry, std::string const& more) {
        std::string const table = heicFullBox("stsd", 0, 0, bigEndian(1, 4) + entry);
        std::string const kind = heicFullBox("hdlr", 0, 0, zeros.substr(0, 4) + handler + zeros.substr(0, 13));
        std::string const media = heicBox("mdhd", timing) + kind + heicBox("minf", heicBox("stbl", table));
        return heicBox("ftyp", "mp42") +
               heicBox("moov", heicBox("mvhd", timing) + heicBox("trak", heicBox("mdia", media)) + more);
    };
    std::string const stream = heicBox("esds", zeros.substr(0, 4) + "\x03\x10" + zeros.substr(0, 3) + "\x04\x0D\x6B");
    return {movie("vide", heicBox("avc1", zeros.substr(0, 78)), {}),
            movie("soun", heicBox("mp4a", zeros.substr(0, 28) + stream), heicBox("free", {})),
            movie("meta", heicBox("mebx", zeros.substr(0, 8)),
                  heicBox("mvex", heicFullBox("mehd", 1, 0, bigEndian(9000, 8))))};
}

} // namespace

int main(int argc, char** argv) {
    try {
        std::filesystem::path const folder = argc > 1 ? argv[1] : ".";
        auto rewrites = heics();
        for (size_t i = 0; i < rewrites.size(); ++i)
            rewrites[i] += {static_cast<char>(40 * i), static_cast<char>(54 + 31 * i)};
        writeAll(folder / "jpeg", jpegs());
        writeAll(folder / "rewrite", rewrites);
        writeAll(folder / "trailer", trailers());
        writeAll(folder / "xmp", packets());
        writeAll(folder / "edit", sequences());
        writeAll(folder / "extractor", movies());
    } catch (std::exception const& error) {
        std::fprintf(stderr, "make_seeds: %s\n", error.what());
        return 1;
    }
    return 0;
}
