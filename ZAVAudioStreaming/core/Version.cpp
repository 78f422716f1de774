#include "ZAVAudioStreaming/core/Version.hpp"

const unsigned char ZAVAudioStreamingVersionString[] =
    "@(#)PROGRAM:ZAVAudioStreaming  PROJECT:ZAVAudioStreaming-1\n";

const double ZAVAudioStreamingVersionNumber = 1.0;
