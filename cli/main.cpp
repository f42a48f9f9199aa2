// qvthost [--host-version V] [--declarations] [--nil-resolver] [--debug] [--json]
//         load|demo PLUGIN | call PLUGIN [--self VALUE] DECLARATION ARG... | run PLUGIN SCRIPT
// qvthost help [NAME]
#include <CLI/CLI.hpp>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "call.h"
#include "format.h"
#include "guard.h"
#include "help.h"
#include "outcome.h"
#include "report.h"
#include "script.h"
#include "simhost/loader.h"
#include "simhost/platform.h"
#include "simhost/simhost.h"
#include "tour.h"
#include "values.h"

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

std::string Footer() {
    return "values: integers 12, -3, 0x0C; 1.5; true, false; nil; strings text:abc or hex:00FF,\n"
           "        with @enc=ID; pointers ptr:@self+N; blocks hex:00FF, text:abc, zero:N,\n"
           "        file:PATH; arrays 1,2,3 or [1,2,3]; a MemoryBlockQVT --self is new or new:N.\n"
           "        Blocks and sizes are at most " +
           qvthost::LargestBlockText() +
           ".\n"
           "exit: 0 clean, 1 load failed or no such declaration, 2 usage or a bad value,\n"
           "      3 host faults (a fault in a call, a failed allocation) or unbalanced references\n";
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
        simhost::platform::SetEnvironment("QVTDEBUG", old_ ? old_->c_str() : nullptr);
    }
    DebugSwitch(const DebugSwitch &) = delete;
    DebugSwitch &operator=(const DebugSwitch &) = delete;

private:
    bool on_;
    std::optional<std::string> old_;
};

// One line that says why: JSON on standard output, or text on standard error.
int Fail(bool json, int status, const std::string &message) {
    qvthost::Print(std::cout, std::cerr, {status, message}, 0, json, false);
    if (json) std::cout << "\n";
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
        qvthost::Print(std::cout, std::cerr, outcome, 0, args.json, args.debug);
        if (args.json) std::cout << "\n";
        return outcome.status;
    }
    const std::string &path = args.rest.front();
    if (path == "-") {
        return qvthost::RunScript(std::cin, session, std::cout, std::cerr, args.json, args.debug);
    }
    std::ifstream script(path, std::ios::binary);
    return qvthost::RunScript(script, session, std::cout, std::cerr, args.json, args.debug);
}

// What a command printed, as it stands or as one JSON object.
int Emit(bool json, const std::string &command, int status, const std::string &text) {
    if (json) {
        std::cout << qvthost::ShownJson(status, command, text) << "\n";
    } else {
        std::cout << text;
    }
    return status;
}

// load and demo: what the host saw, as text, or as one JSON object of lines.
int Shown(const Arguments &args, std::ostream &out) {
    out << "host version " << qvthost::VersionText(args.version) << "\n";
    qvthost::PrintLoad(out, args.nilResolver, args.declarations);
    bool clean = true;
    if (args.command == "demo") {
        out << "\n";
        clean = qvthost::RunTour(out);
        out << "\n";
    }
    clean = qvthost::PrintFaults(out) && clean;
    return clean ? kClean : kFaults;
}

// Everything that runs the plug-in: guarded, so that a fault is a report.
int Run(const Arguments &args) {
    simhost::Options options;
    options.version = args.version;
    simhost::Reset(options);
    simhost::PluginLibrary library;
    if (!LoadPlugin(library, args)) {
        return Fail(args.json, kLoadFailed, "cannot load the plug-in: " + library.Error());
    }
    if (args.command == "call" || args.command == "run") return Calls(args);
    if (!args.json) return Shown(args, std::cout);
    std::ostringstream text;
    const int status = Shown(args, text);
    return Emit(true, args.command, status, text.str());
}

// A script that cannot be read is a usage error before anything loads.
std::string ScriptProblem(const std::string &path) {
    if (path == "-") return {};
    std::error_code error;
    if (std::filesystem::is_directory(path, error)) return "the script " + path + " is a directory";
    std::ifstream script(path);
    if (!script) return "cannot read the script " + path + ": " + std::strerror(errno);
    return {};
}

// The reference needs no plug-in: an entry goes to standard output, a name
// that finds none to standard error, as every other error.
int ShowHelp(const std::vector<std::string> &words, bool json) {
    std::ostringstream text;
    const int status = qvthost::Help(words, text);
    if (status != kClean) {
        std::string message = text.str();
        while (!message.empty() && message.back() == '\n') message.pop_back();
        return Fail(json, status, message);
    }
    return Emit(json, "help", status, text.str());
}

// --json anywhere before the command word asks for a JSON error too.
bool AsksForJson(int argc, char **argv) {
    for (int i = 1; i < argc && argv[i][0] == '-'; ++i) {
        if (std::strcmp(argv[i], "--json") == 0) return true;
    }
    return false;
}

}  // namespace

int main(int argc, char **argv) {
    Arguments args;
    CLI::App app{"qvthost: loads the plug-in into a simulated host and calls its methods",
                 "qvthost"};
    app.footer(Footer());
    app.require_subcommand(1, 1);
    // Paths start with "/" on POSIX hosts, and wine passes them on as they are.
    app.allow_windows_style_options(false);
    app.set_version_flag("--version", "qvthost " QVT_VERSION);
    app.add_option("--host-version", args.version, "the host's version (default 2013.04)");
    app.add_flag("--declarations", args.declarations, "load: list every registered declaration");
    app.add_flag("--nil-resolver", args.nilResolver, "load with a resolver that finds nothing");
    app.add_flag("--debug", args.debug, "debug log on; calls show the host entries they used");
    app.add_flag("--json", args.json, "print JSON, one object per call or line");
    // Subcommands, one per row; `help` joins them where it is built.
    const struct {
        std::string_view name;
        const char *description;
    } kCommands[] = {
        {"load", "load the plug-in and print what the host saw"},
        {"demo", "load, then call a tour of the registered methods"},
        {"call", "load, then call one registered method: [--self VALUE] DECLARATION ARG..."},
        {"run", "load, then the calls of a script, one per line (- for standard input)"},
    };
    std::string script;
    std::vector<std::string> helpWords;
    app.add_subcommand("help", "the reference: its families, or the entries of a declaration")
        ->add_option("name", helpWords, "a declaration's name, or a unique prefix of one");
    for (const auto &command : kCommands) {
        CLI::App *sub = app.add_subcommand(std::string(command.name), command.description);
        sub->add_option("plugin", args.path, "the plug-in's library")->required();
        if (command.name == "call") {
            // Everything after the plug-in is the call's own words.
            sub->prefix_command();
        } else if (command.name == "run") {
            sub->add_option("script", script, "the script, or - for standard input")->required();
        }
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success &done) {  // --help, --version
        return app.exit(done, std::cout, std::cerr);
    } catch (const CLI::ParseError &error) {
        const bool json = args.json || AsksForJson(argc, argv);
        return Fail(json, kUsage, std::string(error.what()) + (json ? "" : "; see qvthost --help"));
    }
    CLI::App *chosen = app.get_subcommands().front();
    args.command = chosen->get_name();
    if (args.command == "help") return ShowHelp(helpWords, args.json);
    args.rest = args.command == "run" ? std::vector<std::string>{script} : chosen->remaining();
    if (args.command == "call" && args.rest.empty()) {
        return Fail(args.json, kUsage, "call: a declaration is required; see qvthost --help");
    }
    if (args.command == "run") {
        if (const std::string problem = ScriptProblem(script); !problem.empty()) {
            return Fail(args.json, kUsage, problem);
        }
    }
    // Every block has inaccessible pages on both sides: a call that reads or
    // writes past one faults at the first bad byte, and the fault is told.
    simhost::SetFencedBlocks(true);
    const bool json = args.json;
    return qvthost::Guarded([&args] { return Run(args); },
                            [json](const qvthost::Fault &fault) {
                                qvthost::PrintFault(std::cout, fault, json);
                            });
}
