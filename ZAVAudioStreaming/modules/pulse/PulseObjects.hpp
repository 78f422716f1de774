#pragma once

#include <pulse/pulseaudio.h>

#include <memory>

/// libpulse's objects in owning pointers.
namespace zav::detail {

struct DisconnectContext {
    void operator()(pa_context* context) const {
        pa_context_set_state_callback(context, nullptr, nullptr);
        pa_context_disconnect(context);
        pa_context_unref(context);
    }
};
struct ForgetStream {
    void operator()(pa_stream* stream) const {
        // The context keeps the stream until the context is disconnected.
        pa_stream_set_state_callback(stream, nullptr, nullptr);
        pa_stream_unref(stream);
    }
};
struct UnrefOperation {
    void operator()(pa_operation* operation) const { pa_operation_unref(operation); }
};

using PulseContext = std::unique_ptr<pa_context, DisconnectContext>;
using PulseStreamObject = std::unique_ptr<pa_stream, ForgetStream>;
using PulseOperation = std::unique_ptr<pa_operation, UnrefOperation>;

}  // namespace zav::detail
