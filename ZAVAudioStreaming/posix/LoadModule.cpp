#include "ZAVAudioStreaming/posix/LoadModule.hpp"

#include <dlfcn.h>
#include <link.h>

#include <filesystem>
#include <string>
#include <system_error>

namespace zav::detail {
namespace {

/// The folder of the shared library, or of the program, that contains this code. Empty if it cannot
/// be found.
std::filesystem::path ownFolder() {
    static const char here = 0;
    Dl_info info{};
    link_map* object = nullptr;
    if (::dladdr1(&here, &info, reinterpret_cast<void**>(&object), RTLD_DL_LINKMAP) == 0 ||
        object == nullptr) {
        return {};
    }
    // In the loader's list, the program itself has no name. So ask /proc/self/exe, because argv[0]
    // is not always a path.
    const bool isProgram = object->l_name == nullptr || *object->l_name == '\0';
    std::error_code error;
    const auto path =
        std::filesystem::canonical(isProgram ? "/proc/self/exe" : object->l_name, error);
    return error ? std::filesystem::path() : path.parent_path();
}

}  // namespace

const void* loadModule(const char* moduleName, const char* tableName) {
    const std::string name = std::string("ZAVAudioStreaming") + moduleName;
    const std::string fileName = ZAV_MODULE_PREFIX + name + ZAV_MODULE_SUFFIX;
    const std::filesystem::path folder = ownFolder();
    void* library = nullptr;
    if (!folder.empty()) {
        library = ::dlopen((folder / fileName).c_str(), RTLD_NOW | RTLD_LOCAL);
    }
    if (library == nullptr) {
        library = ::dlopen(fileName.c_str(), RTLD_NOW | RTLD_LOCAL);
    }
    const std::string symbol = name + tableName + "_" ZAV_MODULE_VERSION;
    return library == nullptr ? nullptr : ::dlsym(library, symbol.c_str());
}

}  // namespace zav::detail
