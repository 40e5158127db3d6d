// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <map>
#include <string>
#include <variant>

#include <media/stagefright/foundation/AString.h>
#include <utils/RefBase.h>

namespace android {

/// Named values of different types; here the format of one track. Keys are case-sensitive. A `find` answers false and
/// leaves the result alone when the name is missing or holds a value of another type. Not synchronised.
struct AMessage : public RefBase {
    AMessage();

    void setInt64(char const* name, int64_t value);
    void setString(char const* name, AString const& value);

    bool findInt64(char const* name, int64_t* value) const;
    bool findString(char const* name, AString* value) const;

protected:
    ~AMessage() override;

private:
    template<typename Value>
    bool find(char const* name, Value* value) const;

    std::map<std::string, std::variant<int64_t, AString>, std::less<>> mItems;
};

} // namespace android
