#pragma once

#include "boxes/BoxBounds.h"
