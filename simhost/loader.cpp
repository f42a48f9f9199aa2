#include "simhost/loader.h"

#include "abi/plugin_abi.h"
#include "simhost/platform.h"
#include "simhost/simhost.h"

namespace simhost {

PluginLibrary::~PluginLibrary() { Close(); }

bool PluginLibrary::Open(const std::string &path) {
    Close();
    error_.clear();
    handle_ = platform::OpenLibrary(path, error_);
    return handle_ != nullptr;
}

bool PluginLibrary::Load(bool nilResolver) {
    if (handle_ == nullptr) {
        error_ = "no library is open";
        return false;
    }
    void *symbol = platform::FindSymbol(handle_, "REALPluginMain", error_);
    if (symbol == nullptr) return false;
    auto main = reinterpret_cast<void (*)(REALresolver)>(symbol);
    main(nilResolver ? nullptr : &Resolve);
    return true;
}

void PluginLibrary::Close() {
    if (handle_ != nullptr) platform::CloseLibrary(handle_);
    handle_ = nullptr;
}

}  // namespace simhost
