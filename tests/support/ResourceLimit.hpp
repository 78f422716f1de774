#pragma once

#include <sys/resource.h>

#include <csignal>

namespace zav::test {

/// Sets a limit of this process, such as RLIMIT_FSIZE, and restores it in the destructor. A write
/// beyond the size limit fails as on a full disk; the signal that would end the process is ignored.
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
