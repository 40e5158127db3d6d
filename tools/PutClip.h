// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Arguments.h"
#include "Photo.h"

#include <cstdint>
#include <memory>
#include <string>

namespace motionphoto {

/// A line for people on standard error, unless they want none.
void note(Arguments const& args, std::string const& path, std::string const& text);

/// What a movie lost or got on its way into a photo; empty where it is as it was. `brand`: the one it had, if that
/// changed.
std::string changesOf(std::string const& brand, uint32_t filler);

/// Puts the clip into the photo, or into the output, at the moment that --at names; says when the clip has to change.
void putClip(Arguments const& args, std::string const& clip, Photo const& photo,
             std::shared_ptr<android::lumo::MediaFile> const& output);

} // namespace motionphoto
