// Loads a plug-in library by path and runs its REALPluginMain, through the
// platform's loader (simhost/platform.h).
#pragma once

#include <string>

namespace simhost {

class PluginLibrary {
public:
    PluginLibrary() = default;
    ~PluginLibrary();
    PluginLibrary(const PluginLibrary &) = delete;
    PluginLibrary &operator=(const PluginLibrary &) = delete;

    // False when the library cannot be opened; Error() tells why.
    bool Open(const std::string &path);
    // Calls REALPluginMain with simhost::Resolve, or with nil on request.
    // False when the library is not open or exports no REALPluginMain.
    bool Load(bool nilResolver = false);
    void Close();

    bool IsOpen() const { return handle_ != nullptr; }
    const std::string &Error() const { return error_; }

private:
    void *handle_ = nullptr;
    std::string error_;
};

}  // namespace simhost
