// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace motionphoto {

/// What the command line asked for. A command reads what its definition lets be given.
struct Arguments {
    // Which files.
    std::vector<std::string> paths;
    bool recursive = false;
    std::string filesFrom; ///< a file with names, "-" for standard input
    bool zeroSeparated = false;

    // Where the result goes.
    std::string out;
    std::string folder;
    std::string inPlace; ///< "true": the result takes the photo's name when it is whole; "bytes": the library's commit
    bool isInPlace() const { return !inPlace.empty(); }
    bool isInBytes() const { return inPlace == "bytes"; }
    bool force = false;
    bool skipExisting = false;
    bool preserve = true;

    /// Files may come to be, or change.
    bool writes() const { return isInPlace() || !out.empty() || !folder.empty() || !svg.empty() || !html.empty(); }

    // How it is done.
    static constexpr unsigned MOST_JOBS = 256;
    unsigned jobs = 0; ///< 0: a worker a core
    bool dryRun = false;
    bool quiet = false;
    bool verbose = false;

    // Commands' own.
    std::string edited;
    std::string video;
    static constexpr char AUTOMATIC[] = "auto";
    std::string at; ///< "auto", a time with its unit, or empty
    std::string nameTemplate = "{stem}.{ext}";
    std::string key;
    std::string value;
    std::string data; ///< a file, "-" for standard input or output
    int32_t type = 0;
    std::string form; ///< of convert: "trailer" or "published"
    bool keepBrand = false;
    bool dropRecords = false;
    bool dropOrphans = false;
    std::string svg;
    std::string html;
    bool json = false;
    bool list = false;
};

} // namespace motionphoto
