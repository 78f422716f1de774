#pragma once

/// Marks what the shared library exports; everything else is compiled with hidden visibility.
#define ZAV_EXPORT __attribute__((visibility("default")))
