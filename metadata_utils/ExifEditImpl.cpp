#include "ExifEditImpl.h"

namespace android::lumo {

void ExifEditImpl::commit(MediaFile const&) {}

} // namespace android::lumo
