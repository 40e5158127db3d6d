// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <nlohmann/json.hpp>

namespace motionphoto {

using Json = nlohmann::ordered_json;

/// The line that docs/json.md promises for a file: schema and name, then `fields`. Bytes that are no UTF-8 become the
/// replacement character; a name that holds such is told in "fileBytes" as well, or nobody could open it.
std::string jsonLine(std::string const& file, Json const& fields);

} // namespace motionphoto
