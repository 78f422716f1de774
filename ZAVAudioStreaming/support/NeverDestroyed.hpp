#pragma once

namespace zav::detail {

/// A value that stays usable until the process has ended. For static variables that other threads
/// use while the process exits.
template <class T>
class NeverDestroyed {
 public:
    NeverDestroyed() : value_() {}
    // An empty destructor, not a defaulted one, which a union with such a member does not have.
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
