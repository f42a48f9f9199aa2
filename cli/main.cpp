// qvthost [--host-version V] [--declarations] [--nil-resolver] [--debug] [--json]
//         load|demo PLUGIN | call PLUGIN [--self VALUE] DECLARATION ARG... | run PLUGIN SCRIPT
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <optional>
#include <string>
#include <vector>

#include "call.h"
#include "format.h"
#include "outcome.h"
#include "report.h"
#include "script.h"
#include "simhost/loader.h"
#include "simhost/platform.h"
#include "simhost/simhost.h"
#include "tour.h"

namespace {

using qvthost::kClean;
using qvthost::kFaults;
using qvthost::kUsage;
constexpr int kLoadFailed = qvthost::kNotFound;

struct Arguments {
    double version = 2013.04;
    bool declarations = false;
    bool nilResolver = false;
    bool debug = false;
    bool json = false;
    std::string command;
    std::string path;
    std::vector<std::string> rest;  // a call's words, or the script
};

void Usage(std::ostream &out) {
    out << "usage: qvthost [--host-version V] [--declarations] [--nil-resolver] [--debug] "
           "[--json]\n"
           "               load|demo PLUGIN\n"
           "               call PLUGIN [--self VALUE] DECLARATION ARG...\n"
           "               run PLUGIN SCRIPT|-\n"
           "  load   load the plug-in and print what the host saw\n"
           "  demo   load, then call a tour of the registered methods\n"
           "  call   load, then call one registered method with the given values\n"
           "  run    load, then the calls of a script, one per line\n"
           "values: 12, 0x0C, 1.5, true, text:abc, hex:00FF, zero:N, file:PATH, nil,\n"
           "        ptr:@self+N; a String may end in @enc=ID; a MemoryBlockQVT --self is new:N\n"
           "exit: 0 clean, 1 load failed or no such declaration, 2 usage or a bad value,\n"
           "      3 host faults or unbalanced references\n";
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
        } else if (a == "--json") {
            args.json = true;
        } else {
            break;
        }
    }
    if (argc - i < 2) return std::nullopt;
    args.command = argv[i];
    args.path = argv[i + 1];
    args.rest.assign(argv + i + 2, argv + argc);
    const std::size_t words = args.rest.size();
    const bool fits = args.command == "call" ? words >= 1
                      : args.command == "run"
                          ? words == 1
                          : (args.command == "load" || args.command == "demo") && words == 0;
    if (!fits) return std::nullopt;
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

// One line that says why, in the form the output takes.
int Fail(const Arguments &args, int status, const std::string &message) {
    if (args.json) {
        std::cout << qvthost::Json({status, message}, 0, false) << "\n";
    } else {
        std::cout << message << "\n";
    }
    return status;
}

// Opens and loads the plug-in, with QVTDEBUG set for the load on --debug.
bool LoadPlugin(simhost::PluginLibrary &library, const Arguments &args) {
    if (!library.Open(args.path)) return false;
    DebugSwitch debug(args.debug);
    return library.Load(args.nilResolver);
}

int Calls(const Arguments &args) {
    qvthost::Session session;
    if (args.command == "call") {
        const qvthost::LineOutcome outcome = session.Run(args.rest);
        qvthost::Print(std::cout, outcome, 0, args.json, args.debug);
        if (args.json) std::cout << "\n";
        return outcome.status;
    }
    const std::string &path = args.rest.front();
    if (path == "-") return qvthost::RunScript(std::cin, session, std::cout, args.json, args.debug);
    std::ifstream script(path);
    if (!script) {
        return Fail(args, kUsage, "cannot read the script " + path + ": " + std::strerror(errno));
    }
    return qvthost::RunScript(script, session, std::cout, args.json, args.debug);
}

}  // namespace

int main(int argc, char **argv) {
    if (argc == 2 && std::strcmp(argv[1], "--version") == 0) return !(std::cout << "qvthost " QVT_VERSION "\n");
    std::optional<Arguments> args = Parse(argc, argv);
    if (!args) {
        Usage(std::cerr);
        return kUsage;
    }
    simhost::Options options;
    options.version = args->version;
    simhost::Reset(options);

    simhost::PluginLibrary library;
    const bool calls = args->command == "call" || args->command == "run";
    if (!calls) std::cout << "host version " << qvthost::VersionText(args->version) << "\n";
    if (!LoadPlugin(library, *args)) {
        return Fail(*args, kLoadFailed, "cannot load the plug-in: " + library.Error());
    }
    if (calls) return Calls(*args);
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
