// SPDX-License-Identifier: Apache-2.0
#include <media/stagefright/foundation/AMessage.h>

namespace android {

AMessage::AMessage() = default;
AMessage::~AMessage() = default;

void AMessage::setInt64(char const* name, int64_t value) {
    mItems.insert_or_assign(name, value);
}

void AMessage::setString(char const* name, AString const& value) {
    mItems.insert_or_assign(name, value);
}

template<typename Value>
bool AMessage::find(char const* name, Value* value) const {
    auto const item = mItems.find(name);
    if (item == mItems.end())
        return false;
    Value const* const held = std::get_if<Value>(&item->second);
    if (held == nullptr)
        return false;
    *value = *held;
    return true;
}

bool AMessage::findInt64(char const* name, int64_t* value) const {
    return find(name, value);
}

bool AMessage::findString(char const* name, AString* value) const {
    return find(name, value);
}

} // namespace android
