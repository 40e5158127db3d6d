#pragma once

#include <media/stagefright/foundation/AMessage.h>
#include <utils/StrongPointer.h>

struct AVFormatContext;
struct AVStream;

namespace android::media {

/// Describes one stream of an opened file in the platform's terms: "mime" and, when known, "durationUs".
sp<AMessage> describeTrack(AVFormatContext const& file, AVStream const& stream);

} // namespace android::media
