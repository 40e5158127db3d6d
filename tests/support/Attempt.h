#pragma once

#include "XMPToolkit.h"
#include "support/HeicBuilder.h"
#include "support/TempFile.h"

#include <android/log.h>

/// For suites that run the library thousands of times, mostly to be refused. Include it in one file of a program: it
/// holds main().
namespace android::lumo::test {

/// True when the action returned; the toolkit's error is no std::exception.
inline bool returns(std::function<void()> const& action) {
    try {
        action();
        return true;
    } catch (std::exception const&) {
    } catch (XMP_Error const&) {
    }
    return false;
}

/// A video that the library recognises and no decoder will play.
inline std::string videoOf(size_t size, uint32_t seed = 3) {
    return bigEndian(24, 4) + "ftypmp42" + pattern(size - 12, seed);
}

} // namespace android::lumo::test

/// The library's log would take most of the time.
int main(int argc, char** argv) {
    __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
