#include "harness/precompiled.h"
