#pragma once

/// Marks what the shared library exports. All other symbols are hidden.
#define ZAV_EXPORT __attribute__((visibility("default")))
