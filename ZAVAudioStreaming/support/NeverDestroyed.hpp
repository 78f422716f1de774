#pragma once

namespace zav::detail {

/// A value that stays usable until the process has ended. Use it for static variables that other
/// threads use while the process exits.
template <class T>
class NeverDestroyed {
 public:
    NeverDestroyed() : value_() {}
    // The destructor is empty, not defaulted: the union's member may have a destructor, and then a
    // defaulted one would be deleted.
    ~NeverDestroyed() {}  // NOLINT(modernize-use-equals-default)

    NeverDestroyed(const NeverDestroyed&) = delete;
    NeverDestroyed& operator=(const NeverDestroyed&) = delete;

    T& get() noexcept { return value_; }

 private:
    union {
        T value_;
    };
};

}  // namespace zav::detail
