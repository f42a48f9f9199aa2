#include "simhost/loader.h"

#include <dlfcn.h>

#include "abi/plugin_abi.h"
#include "simhost/simhost.h"

namespace simhost {

namespace {

std::string LastError(const char *fallback) {
    const char *text = dlerror();
    return text != nullptr ? text : fallback;
}

}  // namespace

PluginLibrary::~PluginLibrary() { Close(); }

bool PluginLibrary::Open(const std::string &path) {
    Close();
    error_.clear();
    dlerror();
    handle_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle_ == nullptr) {
        error_ = LastError("cannot open the library");
        return false;
    }
    return true;
}

bool PluginLibrary::Load(bool nilResolver) {
    if (handle_ == nullptr) {
        error_ = "no library is open";
        return false;
    }
    dlerror();
    void *symbol = dlsym(handle_, "REALPluginMain");
    if (symbol == nullptr) {
        error_ = LastError("REALPluginMain not found");
        return false;
    }
    auto main = reinterpret_cast<void (*)(REALresolver)>(symbol);
    main(nilResolver ? nullptr : &Resolve);
    return true;
}

void PluginLibrary::Close() {
    if (handle_ != nullptr) dlclose(handle_);
    handle_ = nullptr;
}

}  // namespace simhost
