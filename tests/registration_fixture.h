// A host of a given age with the plug-in started but nothing registered, and
// the log lines a registration writes.
#pragma once

#include <sstream>
#include <string>
#include <vector>

#include "diagnostics/debuglog.h"
#include "host_fixture.h"
#include "shell/entry.h"

namespace qvt::test {

class RegistrationTest : public HostTest {
protected:
    void SetUp() override {
        gDebugging = false;
        HostTest::SetUp();
        gResolver = &simhost::Resolve;
        OnHost(2013.04);
    }

    // As the load would leave it: versions set and told, the part name kept.
    void OnHost(double version) {
        gHostVersion = version;
        gPluginSDKVersion = RecordVersionForHost(version);
        gpartname = "Memory";
        auto tell = reinterpret_cast<void (*)(int32_t)>(simhost::Resolve("RegisterPluginVersion"));
        tell(gPluginSDKVersion);
        simhost::ClearResolverLog();
        simhost::ClearCalls();
    }

    // The lines `call` writes to the debug log.
    template <typename Call>
    static std::vector<std::string> LinesOf(Call &&call) {
        StderrCapture capture;
        call();
        std::vector<std::string> lines;
        std::istringstream text(capture.Take());
        for (std::string line; std::getline(text, line);) lines.push_back(line);
        return lines;
    }

    static std::vector<std::string> Kinds() {
        std::vector<std::string> kinds;
        for (const auto &r : simhost::Registrations()) kinds.push_back(r.kind);
        return kinds;
    }
};

using Lines = std::vector<std::string>;

}  // namespace qvt::test
