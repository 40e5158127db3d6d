// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <utility>

namespace android {

/// Keeps a RefBase alive. Copies of one pointer may go to several threads; one pointer belongs to one thread at a time.
template<typename T>
class sp {
public:
    sp() = default;
    sp(T* other) : mObject(other) {
        if (mObject != nullptr)
            mObject->incStrong(this);
    }
    sp(sp const& other) : sp(other.mObject) {}
    sp(sp&& other) noexcept : mObject(std::exchange(other.mObject, nullptr)) {}
    ~sp() { clear(); }

    sp& operator=(sp other) noexcept {
        std::swap(mObject, other.mObject);
        return *this;
    }

    void clear() {
        if (T* const object = std::exchange(mObject, nullptr))
            object->decStrong(this);
    }

    T* get() const { return mObject; }
    T& operator*() const { return *mObject; }
    T* operator->() const { return mObject; }
    bool operator==(std::nullptr_t) const { return mObject == nullptr; }

private:
    T* mObject = nullptr;
};

} // namespace android
