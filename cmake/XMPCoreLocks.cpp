// SPDX-License-Identifier: Apache-2.0
// The toolkit's utilities over POSIX read-write locks, one of the choices that its header names but does not let a
// build make. Its own locks take a mutex twice for every name that is read of a packet, which threads then wait for.
#include "public/include/XMP_Environment.h"

#include "source/XMP_LibUtils.hpp"

#undef UseHomeGrownLock
#include "source/XMP_LibUtils.cpp"
