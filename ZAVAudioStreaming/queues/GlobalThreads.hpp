#pragma once

#include <asio/thread_pool.hpp>

namespace zav::detail {

/// The threads of the global dispatch queue. The first call starts them. They live as long as the
/// process, because work may still run when the process ends.
asio::thread_pool& globalThreads();

}  // namespace zav::detail
