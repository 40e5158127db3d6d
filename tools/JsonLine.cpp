// SPDX-License-Identifier: Apache-2.0
#include "JsonLine.h"

namespace motionphoto {

namespace {

/// The number of docs/json.md's description, raised when a field changes its meaning or goes.
constexpr int SCHEMA = 1;

std::string dumped(Json const& json) {
    return json.dump(-1, ' ', false, Json::error_handler_t::replace);
}

std::string hexOf(std::string const& bytes) {
    static constexpr char DIGITS[] = "0123456789abcdef";
    std::string text;
    for (char const c : bytes) {
        auto const byte = static_cast<unsigned char>(c);
        text += DIGITS[byte >> 4];
        text += DIGITS[byte & 0xF];
    }
    return text;
}

} // namespace

std::string jsonLine(std::string const& file, Json const& fields) {
    Json line = {{"schema", SCHEMA}, {"file", file}};
    if (Json::parse(dumped(file)) != file)
        line["fileBytes"] = hexOf(file);
    line.update(fields);
    return dumped(line) + "\n";
}

} // namespace motionphoto
