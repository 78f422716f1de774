#pragma once

namespace zavtool {

/// Prints on standard output which devices the sound server offers and which are used.
void devices(bool isJson);

}  // namespace zavtool
