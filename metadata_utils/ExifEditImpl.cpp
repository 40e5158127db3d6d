// SPDX-License-Identifier: Apache-2.0
#include "ExifEditImpl.h"

namespace android::lumo {

void ExifEditImpl::commit(MediaFile const&) {}

} // namespace android::lumo
