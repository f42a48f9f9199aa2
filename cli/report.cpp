#include "report.h"

#include <algorithm>
#include <string>

#include "format.h"
#include "simhost/simhost.h"

namespace qvthost {

namespace {

constexpr const char *kRoles[] = {"method",   "shared method", "property", "shared property",
                                  "constant", "event",         "delegate"};

void PrintResolver(std::ostream &out) {
    auto asked = simhost::ResolverLog();
    if (asked.empty()) {
        out << "resolver: nothing asked\n";
        return;
    }
    std::size_t width = 0;
    for (const auto &name : asked) width = std::max(width, name.size());
    out << "resolver:\n";
    for (const auto &name : asked) {
        out << "  " << name << std::string(width - name.size() + 1, ' ')
            << (simhost::HasEntry(name) ? "found" : "missing") << "\n";
    }
}

void PrintRegistration(std::ostream &out, const simhost::Registration &r, bool declarations) {
    simhost::RegistrationInfo info = simhost::Inspect(r);
    out << "  " << info.kind;
    if (!info.name.empty()) out << " " << info.name;
    std::string counts;
    auto add = [&counts](const std::string &part) {
        counts += (counts.empty() ? "" : ", ") + part;
    };
    for (const char *role : kRoles) {
        if (std::size_t n = info.Count(role)) add(Counted(n, role));
    }
    if (info.dataSize) add("data size " + std::to_string(*info.dataSize));
    if (!counts.empty()) out << ": " << counts;
    out << "\n";
    if (!declarations) return;
    for (const char *role : kRoles) {
        for (const auto &m : info.members) {
            if (m.role == role) out << "    " << m.role << " " << m.text << "\n";
        }
    }
}

}  // namespace

void PrintLoad(std::ostream &out, bool nilResolver, bool declarations) {
    if (nilResolver) {
        out << "resolver: nil\n";
    } else {
        PrintResolver(out);
    }
    int32_t told = simhost::RecordVersionTold();
    out << "record version told: " << (told != 0 ? std::to_string(told) : "none") << "\n";
    auto registrations = simhost::Registrations();
    if (registrations.empty()) {
        out << "registrations: none\n";
        return;
    }
    out << "registrations:\n";
    for (const auto &r : registrations) PrintRegistration(out, r, declarations);
}

bool PrintFaults(std::ostream &out) {
    bool clean = true;
    for (const auto &e : simhost::TakeExceptions()) {
        out << "undelivered exception: " << e.className << ": " << e.message.value_or("(nil)")
            << "\n";
    }
    auto faults = simhost::Faults();
    if (faults.empty()) {
        out << "host faults: none\n";
    } else {
        clean = false;
        out << "host faults:\n";
        for (const auto &f : faults) out << "  " << f << "\n";
    }
    return clean;
}

}  // namespace qvthost
