// SPDX-License-Identifier: Apache-2.0
#pragma once

/// What the published motion-photo formats call things in a packet.
namespace android::lumo::motion_names {

// Properties of the Camera namespace.
inline constexpr char MOTION_PHOTO[] = "MotionPhoto"; ///< and the Semantic of the video's item
inline constexpr char VERSION[] = "MotionPhotoVersion";
inline constexpr char TIMESTAMP[] = "MotionPhotoPresentationTimestampUs";
// The same in the format before Motion Photo 1.0.
inline constexpr char MICRO_VIDEO[] = "MicroVideo";
inline constexpr char MICRO_VIDEO_VERSION[] = "MicroVideoVersion";
inline constexpr char MICRO_VIDEO_OFFSET[] = "MicroVideoOffset";
inline constexpr char MICRO_VIDEO_TIMESTAMP[] = "MicroVideoPresentationTimestampUs";

inline constexpr char const* CURRENT[] = {MOTION_PHOTO, VERSION, TIMESTAMP};
inline constexpr char const* OLDER[] = {MICRO_VIDEO, MICRO_VIDEO_VERSION, MICRO_VIDEO_OFFSET, MICRO_VIDEO_TIMESTAMP};

// The directory.
inline constexpr char DIRECTORY[] = "Directory";                ///< in the Container namespace
inline constexpr char DIRECTORY_PATH[] = "Container:Directory"; ///< the same under the prefix that views know
inline constexpr char PRIMARY[] = "Primary";                    ///< Semantic of the still's item
inline constexpr char LENGTH[] = "Length";
inline constexpr char PADDING[] = "Padding";

} // namespace android::lumo::motion_names
