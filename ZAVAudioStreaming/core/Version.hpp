#pragma once

#include "ZAVAudioStreaming/core/Export.hpp"

/// The library's version. Both symbols have C linkage, so that tools find them by name in the
/// shared library.
extern "C" {

/// One line that ends with a line feed and a zero byte. The tool `what` finds it in a binary.
ZAV_EXPORT extern const unsigned char ZAVAudioStreamingVersionString[];

ZAV_EXPORT extern const double ZAVAudioStreamingVersionNumber;
}
