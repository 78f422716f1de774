#pragma once

#include <asio/thread_pool.hpp>

namespace zav::detail {

/// The threads of the global dispatch queue, started by the first call. They live as long as the
/// process: work may still be under way when it ends.
asio::thread_pool& globalThreads();

}  // namespace zav::detail
