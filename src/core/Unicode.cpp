#include "core/Unicode.h"
