// The usual clock figure that a measured one stands for.
#pragma once

#include <optional>

namespace hx {

// Moves the megahertz that `text` names onto one of two grids: the multiples of 33.33333 MHz, or
// those of 50 MHz (below 100 MHz: of 10 MHz). A text that begins with no number counts as 0.
// Nothing for a result below 0 and for a figure that is not finite or too large for an int.
std::optional<int> NominalClock(const char* text);

}  // namespace hx
