#pragma once

#include "ZAVAudioStreaming/core/Export.hpp"

/// The library's version, readable from the binary itself: both symbols have C linkage and keep
/// their exact names in the shared library's table.
extern "C" {

/// The `what`-style line, ended by a line feed and a zero byte.
ZAV_EXPORT extern const unsigned char ZAVAudioStreamingVersionString[];

ZAV_EXPORT extern const double ZAVAudioStreamingVersionNumber;
}
