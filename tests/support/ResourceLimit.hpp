#pragma once

#include <sys/resource.h>

#include <csignal>

namespace zav::test {

/// A limit of this process, such as RLIMIT_FSIZE, while it lives. A file that grows over its limit
/// fails at the write, as on a full disk, and no signal ends the process.
class ResourceLimit {
 public:
    ResourceLimit(__rlimit_resource resource, rlim_t limit)
        : resource_(resource), handlerBefore_(std::signal(SIGXFSZ, SIG_IGN)) {
        ::getrlimit(resource_, &before_);
        const rlimit limited{limit, before_.rlim_max};
        ::setrlimit(resource_, &limited);
    }
    ~ResourceLimit() {
        ::setrlimit(resource_, &before_);
        std::signal(SIGXFSZ, handlerBefore_);
    }
    ResourceLimit(const ResourceLimit&) = delete;
    ResourceLimit& operator=(const ResourceLimit&) = delete;

 private:
    __rlimit_resource resource_;
    void (*handlerBefore_)(int);
    rlimit before_{};
};

}  // namespace zav::test
