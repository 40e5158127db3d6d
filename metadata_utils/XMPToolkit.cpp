// The one instantiation of the toolkit's client templates.
#include "XMPToolkit.h"

#pragma GCC visibility push(default)
#include <XMP.incl_cpp>
#pragma GCC visibility pop
