// qvthost [--host-version V] [--declarations] [--nil-resolver] [--debug]
//         load|demo <plugin path>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <string>

#include "format.h"
#include "report.h"
#include "simhost/loader.h"
#include "simhost/platform.h"
#include "simhost/simhost.h"
#include "tour.h"

namespace {

// Exit codes.
constexpr int kClean = 0;
constexpr int kLoadFailed = 1;
constexpr int kUsage = 2;
constexpr int kFaults = 3;

struct Arguments {
    double version = 2013.04;
    bool declarations = false;
    bool nilResolver = false;
    bool debug = false;
    std::string command;
    std::string path;
};

void Usage(std::ostream &out) {
    out << "usage: qvthost [--host-version V] [--declarations] [--nil-resolver] [--debug]\n"
           "               load|demo <plugin path>\n"
           "  load   load the plug-in and print what the host saw\n"
           "  demo   load, then call a tour of the registered methods\n"
           "exit: 0 clean, 1 load failed, 2 usage, 3 host faults or unbalanced references\n";
}

std::optional<double> ParseVersion(const std::string &text) {
    char *end = nullptr;
    double value = std::strtod(text.c_str(), &end);
    if (text.empty() || end == nullptr || *end != '\0') return std::nullopt;
    return value;
}

std::optional<Arguments> Parse(int argc, char **argv) {
    Arguments args;
    int i = 1;
    for (; i < argc; ++i) {
        std::string a = argv[i];
        if (a == "--host-version" && i + 1 < argc) {
            auto v = ParseVersion(argv[++i]);
            if (!v) return std::nullopt;
            args.version = *v;
        } else if (a == "--declarations") {
            args.declarations = true;
        } else if (a == "--nil-resolver") {
            args.nilResolver = true;
        } else if (a == "--debug") {
            args.debug = true;
        } else {
            break;
        }
    }
    if (argc - i != 2) return std::nullopt;
    args.command = argv[i];
    args.path = argv[i + 1];
    if (args.command != "load" && args.command != "demo") return std::nullopt;
    return args;
}

// Sets QVTDEBUG for the span of the load only.
class DebugSwitch {
public:
    explicit DebugSwitch(bool on) : on_(on) {
        if (!on_) return;
        if (const char *old = std::getenv("QVTDEBUG")) old_ = old;
        simhost::platform::SetEnvironment("QVTDEBUG", "1");
    }
    ~DebugSwitch() {
        if (!on_) return;
        if (old_) {
            simhost::platform::SetEnvironment("QVTDEBUG", old_->c_str());
        } else {
            simhost::platform::SetEnvironment("QVTDEBUG", nullptr);
        }
    }
    DebugSwitch(const DebugSwitch &) = delete;
    DebugSwitch &operator=(const DebugSwitch &) = delete;

private:
    bool on_;
    std::optional<std::string> old_;
};

}  // namespace

int main(int argc, char **argv) {
    std::optional<Arguments> args = Parse(argc, argv);
    if (!args) {
        Usage(std::cerr);
        return kUsage;
    }
    simhost::Options options;
    options.version = args->version;
    simhost::Reset(options);

    std::cout << "host version " << qvthost::VersionText(args->version) << "\n";
    simhost::PluginLibrary library;
    if (!library.Open(args->path)) {
        std::cout << "cannot load the plug-in: " << library.Error() << "\n";
        return kLoadFailed;
    }
    {
        DebugSwitch debug(args->debug);
        if (!library.Load(args->nilResolver)) {
            std::cout << "cannot load the plug-in: " << library.Error() << "\n";
            return kLoadFailed;
        }
    }
    qvthost::PrintLoad(std::cout, args->nilResolver, args->declarations);

    bool clean = true;
    if (args->command == "demo") {
        std::cout << "\n";
        clean = qvthost::RunTour(std::cout);
        std::cout << "\n";
    }
    clean = qvthost::PrintFaults(std::cout) && clean;
    std::cout.flush();
    return clean ? kClean : kFaults;
}
