/// @file
/// What the containers' library takes from a third one, as a board's does.
#pragma once

#include <stdint.h>

uint32_t TextHash_Of(const char *text);
