#pragma once

/// Everything that an application needs to build audio graphs.

#include "ZAVAudioStreaming/codecs/SBCConfiguration.hpp"
#include "ZAVAudioStreaming/codecs/SBCDecoder.hpp"
#include "ZAVAudioStreaming/codecs/SBCEncoder.hpp"
#include "ZAVAudioStreaming/core/AudioFileError.hpp"
#include "ZAVAudioStreaming/core/AudioQueueError.hpp"
#include "ZAVAudioStreaming/core/AudioStreamError.hpp"
#include "ZAVAudioStreaming/core/AudioStreamFormat.hpp"
#include "ZAVAudioStreaming/core/Diagnostics.hpp"
#include "ZAVAudioStreaming/core/FatalError.hpp"
#include "ZAVAudioStreaming/core/MakeNode.hpp"
#include "ZAVAudioStreaming/core/PeripheralSink.hpp"
#include "ZAVAudioStreaming/core/PeripheralSource.hpp"
#include "ZAVAudioStreaming/core/Version.hpp"
#include "ZAVAudioStreaming/platform/AudioFile.hpp"
#include "ZAVAudioStreaming/sinks/FileSink.hpp"
#include "ZAVAudioStreaming/sources/FileSource.hpp"
