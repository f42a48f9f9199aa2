#include "help.h"

#include <algorithm>

#include "names.h"
#include "outcome.h"

namespace qvthost {

namespace {

void Families(const std::vector<reference::Family> &families, std::ostream &out) {
    out << "The plug-in's reference, one page per family (docs/reference/ in the sources):\n";
    std::size_t width = 0;
    for (const auto &family : families) width = std::max(width, family.file.size());
    for (const auto &family : families) {
        out << "  " << family.file << std::string(width + 2 - family.file.size(), ' ')
            << family.title << (family.summary.empty() ? "" : ": ") << family.summary << "\n";
    }
    out << "qvthost help NAME prints the entries of a declaration: NAME is its name or a unique\n"
           "prefix of it, in any case (overloads come together), or the declaration in full.\n";
}

struct Found {
    const reference::Page *page;
    const reference::Entry *entry;
};

void Print(const Found &found, std::ostream &out) {
    for (const std::string &declaration : found.entry->declarations) out << declaration << "\n";
    out << found.entry->body;
}

// The rules an entry leans on, and where its examples are.
void PrintFamily(const reference::Page &page, std::ostream &out) {
    out << "\n" << page.title << " (" << page.name << ", with examples):\n" << page.head;
}

}  // namespace

int Help(const std::vector<std::string> &words, const std::vector<reference::Page> &pages,
         const std::vector<reference::Family> &families, std::ostream &out) {
    if (words.size() > 1) {
        out << "usage: qvthost help [NAME]\n";
        return kUsage;
    }
    if (words.empty()) {
        Families(families, out);
        return kClean;
    }
    const std::string &typed = words.front();
    std::vector<Found> all;
    std::vector<std::string> names, declarations;
    for (const auto &page : pages) {
        for (const auto &entry : page.entries) {
            for (const std::string &declaration : entry.declarations) {
                all.push_back({&page, &entry});
                names.push_back(NameOf(declaration));
                declarations.push_back(declaration);
            }
        }
    }
    std::vector<std::size_t> hits;
    for (std::size_t i = 0; i < declarations.size(); ++i) {
        if (declarations[i] == typed) hits.push_back(i);
    }
    if (hits.empty() && NameOf(typed) == typed) hits = Matching(typed, names);
    std::vector<std::string> distinct;
    for (std::size_t i : hits) {
        if (std::find(distinct.begin(), distinct.end(), names[i]) == distinct.end()) {
            distinct.push_back(names[i]);
        }
    }
    if (distinct.empty()) {
        const std::string closest = Closest(NameOf(typed), names);
        out << "no entry matches '" << typed << "'"
            << (closest.empty() ? "" : "; closest: " + closest) << "\n";
        return kNotFound;
    }
    if (distinct.size() > 1) {
        out << "'" << typed << "' begins " << distinct.size() << " names, give more of one:";
        for (const std::string &name : distinct) out << " " << name;
        out << "\n";
        return kNotFound;
    }
    // Overloads share an entry: print each entry once, then the rules of
    // each page and section they stand in.
    const reference::Entry *last = nullptr;
    std::vector<const reference::Page *> pagesShown;
    std::vector<const reference::Section *> sectionsShown;
    auto once = [](auto &shown, const auto *item) {
        if (std::find(shown.begin(), shown.end(), item) == shown.end()) shown.push_back(item);
    };
    for (std::size_t i : hits) {
        if (all[i].entry == last) continue;
        if (last != nullptr) out << "\n";
        last = all[i].entry;
        Print(all[i], out);
        once(pagesShown, all[i].page);
        if (last->section) once(sectionsShown, &all[i].page->sections[*last->section]);
    }
    for (const reference::Page *page : pagesShown) PrintFamily(*page, out);
    for (const reference::Section *section : sectionsShown) {
        out << "\n" << section->title << ":\n" << section->text;
    }
    return kClean;
}

int Help(const std::vector<std::string> &words, std::ostream &out) {
    std::vector<reference::Page> pages;
    std::vector<reference::Family> families;
    for (const reference::Text &text : reference::BuiltIn()) {
        pages.push_back(reference::Parse(std::string(text.name), text.text));
        if (text.name == "README.md") families = reference::Families(text.text);
    }
    return Help(words, pages, families, out);
}

}  // namespace qvthost
