#pragma once

#include "core/config.h"

namespace pulsebar {

// system follows the desktop's palette; light and dark use the Fusion style with a fixed palette.
void applyAppearance(AppearanceMode mode);

} // namespace pulsebar
