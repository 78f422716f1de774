#include "ZAVAudioStreaming/platform/linux/LoadModule.hpp"

#include <dlfcn.h>
#include <link.h>

#include <filesystem>
#include <system_error>

namespace zav {
namespace {

/// The folder of the shared library, or of the program, that this very code is in. Empty when
/// nobody can tell.
std::filesystem::path ownFolder() {
    static const char here = 0;
    Dl_info info{};
    link_map* object = nullptr;
    if (::dladdr1(&here, &info, reinterpret_cast<void**>(&object), RTLD_DL_LINKMAP) == 0 ||
        object == nullptr) {
        return {};
    }
    // The program's own entry has no name, and the name that it was started by need not be a path.
    const bool isProgram = object->l_name == nullptr || *object->l_name == '\0';
    std::error_code error;
    const auto path =
        std::filesystem::canonical(isProgram ? "/proc/self/exe" : object->l_name, error);
    return error ? std::filesystem::path() : path.parent_path();
}

}  // namespace

const void* loadModule(const char* fileName, const char* entryName) {
    const std::filesystem::path folder = ownFolder();
    void* library = nullptr;
    if (!folder.empty()) {
        library = ::dlopen((folder / fileName).c_str(), RTLD_NOW | RTLD_LOCAL);
    }
    if (library == nullptr) {
        library = ::dlopen(fileName, RTLD_NOW | RTLD_LOCAL);
    }
    return library == nullptr ? nullptr : ::dlsym(library, entryName);
}

}  // namespace zav
