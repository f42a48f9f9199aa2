// The reference in docs/reference/ as built into qvthost: its shape, `help`,
// and that it has one entry for every declaration the plug-in registers.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "diagnostics/debuglog.h"
#include "help.h"
#include "host_fixture.h"
#include "reference.h"
#include "shell/entry.h"
#include "simhost/platform.h"

namespace qvt {
namespace {

namespace ref = qvthost::reference;
using Texts = std::vector<std::string>;

// ---- Shape --------------------------------------------------------------

constexpr const char *kPage = R"(# Bits

Rules.

### `A(x as Integer)`

### `A()`

Where: method of `MemoryBlock`; global function

Text of A.

## Grouped

Their rules.

```qvt --host-version 2011.0
@a = zero:1
```

```output exit=2
line 1: @a = zero:1
```

### `B as Boolean`
Where: global property
)";

TEST(ReferenceShape, ReadsHeadingsPlacesBodiesAndExamples) {
    const ref::Page page = ref::Parse("bits.md", kPage);
    EXPECT_EQ(page.title, "Bits");
    EXPECT_EQ(page.head, "Rules.\n");
    EXPECT_EQ(page.problems, Texts{});
    ASSERT_EQ(page.entries.size(), 2u);
    EXPECT_EQ(page.entries[0].declarations, (Texts{"A(x as Integer)", "A()"}));
    EXPECT_EQ(page.entries[0].places, (Texts{"method of `MemoryBlock`", "global function"}));
    EXPECT_EQ(page.entries[0].line, 5u);
    EXPECT_TRUE(page.entries[0].body.starts_with("Where: "));
    EXPECT_EQ(page.entries[0].body, "Where: method of `MemoryBlock`; global function\n\nText of A.\n");
    EXPECT_EQ(page.entries[0].section, std::nullopt);
    EXPECT_EQ(page.entries[1].places, Texts{"global property"});
    ASSERT_EQ(page.sections.size(), 1u);
    EXPECT_EQ(page.sections[0].title, "Grouped");
    EXPECT_EQ(page.sections[0].text, "Their rules.\n");
    EXPECT_EQ(page.entries[1].section, 0u);
    ASSERT_EQ(page.examples.size(), 1u);
    EXPECT_EQ(page.examples[0].options, (Texts{"--host-version", "2011.0"}));
    EXPECT_EQ(page.examples[0].script, "@a = zero:1\n");
    EXPECT_EQ(page.examples[0].output, "line 1: @a = zero:1\n");
    EXPECT_EQ(page.examples[0].status, 2);
}

struct ShapeCase {
    const char *name;
    const char *text;
    const char *problem;
};

void PrintTo(const ShapeCase &c, std::ostream *out) { *out << c.name; }

class ReferenceProblems : public ::testing::TestWithParam<ShapeCase> {};

TEST_P(ReferenceProblems, AreNamedWithTheirLine) {
    EXPECT_EQ(ref::Parse("p.md", GetParam().text).problems, Texts{GetParam().problem});
}

INSTANTIATE_TEST_SUITE_P(
    Shape, ReferenceProblems,
    ::testing::Values(
        ShapeCase{"NoWhere", "### `A()`\nText.\n", "p.md:1: an entry whose first line is not \"Where: ...\""},
        ShapeCase{"NoBackticks", "### A()\n", "p.md:1: a level-3 heading that is not one declaration in backticks"},
        ShapeCase{"ScriptAlone", "```qvt\nx\n```\n", "p.md:1: a qvt block without its output block"},
        ShapeCase{"OutputAlone", "```output\nx\n```\n", "p.md:1: an output block without a qvt block before it"},
        ShapeCase{"BadStatus", "```qvt\n```\n```output exit=x\n```\n", "p.md:3: an output block with 'exit=x' after \"output\""},
        ShapeCase{"Unclosed", "```qvt\nx\n", "p.md:1: a fence that is never closed"}),
    [](const auto &param) { return std::string(param.param.name); });

TEST(ReferenceShape, UpdateRewritesOutputsAndStatusesOnly) {
    const std::string updated = ref::WithOutputs(kPage, {"new\nlines\n"}, {0});
    const ref::Page page = ref::Parse("bits.md", updated);
    ASSERT_EQ(page.examples.size(), 1u);
    EXPECT_EQ(page.examples[0].output, "new\nlines\n");
    EXPECT_EQ(page.examples[0].status, 0);
    EXPECT_EQ(ref::WithOutputs(updated, {"line 1: @a = zero:1\n"}, {2}), kPage);
}

// ---- help ---------------------------------------------------------------

struct HelpCase {
    const char *name;
    Texts words;
    int status;
    const char *begins;
    int entries = 0;        // "Where:" lines
    const char *holds = "";  // further on
};

void PrintTo(const HelpCase &c, std::ostream *out) { *out << c.name; }

class Help : public ::testing::TestWithParam<HelpCase> {};

TEST_P(Help, FindsEntriesAsCallFindsDeclarations) {
    std::ostringstream out;
    EXPECT_EQ(qvthost::Help(GetParam().words, out), GetParam().status) << out.str();
    EXPECT_TRUE(out.str().starts_with(GetParam().begins)) << out.str();
    int entries = 0;
    for (std::size_t at = 0; (at = out.str().find("\nWhere: ", at)) != std::string::npos; ++at) ++entries;
    EXPECT_EQ(entries, GetParam().entries) << out.str();
    EXPECT_NE(out.str().find(GetParam().holds), std::string::npos) << out.str();
}

INSTANTIATE_TEST_SUITE_P(
    BuiltIn, Help,
    ::testing::Values(
        HelpCase{"Families", {}, 0, "The plug-in's reference, one page per family"},
        HelpCase{"Name", {"GetBitQVT"}, 0, "GetBitQVT(Bit as UInt64) as Integer\nWhere: method of `MemoryBlock`\n", 1,
                 "\nBits (bits.md, with examples):\n"},
        HelpCase{"InASection", {"SwapBytes16QVT"}, 0, "SwapBytes16QVT(offset as Integer, numBytes as Integer)\n", 1,
                 "\nReversing a range of bytes:\n"},
        HelpCase{"AnyCase", {"getbitqvt"}, 0, "GetBitQVT(Bit as UInt64) as Integer\n", 1},
        HelpCase{"Prefix", {"ClearB"}, 0, "ClearBitQVT(Bit as UInt64)\n", 1},
        HelpCase{"Overloads", {"SetBitQVT"}, 0, "SetBitQVT(Bit as UInt64, Value as Integer)\nWhere: ", 2},
        HelpCase{"SharedEntry", {"OSType"}, 0, "OSTypeQVT(offset as Integer) as String\nOSTypeQVT(offset as Integer, assigns value as String)\nWhere: ", 1},
        HelpCase{"Declaration", {"MidQVT(offset as integer) as Memoryblock"}, 0, "MidQVT(offset as integer) as Memoryblock\nWhere", 1},
        HelpCase{"Ambiguous", {"Copy"}, 1, "'Copy' begins "},
        HelpCase{"Unknown", {"GetBits"}, 1, "no entry matches 'GetBits'; closest: "},
        HelpCase{"TwoWords", {"GetBitQVT", "x"}, 2, "usage: qvthost help [NAME]\n"}),
    [](const auto &param) { return std::string(param.param.name); });

// ---- Completeness -------------------------------------------------------

// Declaration text, without the "extends" parameter, to where it lives.
using Places = std::map<std::string, Texts>;

std::string Plain(const std::string &declaration, std::string &extended) {
    const std::string extends = "extends ref as ";
    const std::size_t at = declaration.find("(" + extends);
    if (at == std::string::npos) return declaration;
    const std::size_t type = at + 1 + extends.size();
    std::size_t end = declaration.find_first_of(",)", type);
    extended = declaration.substr(type, end - type);
    if (declaration[end] == ',') ++end;
    while (declaration[end] == ' ') ++end;
    return declaration.substr(0, at + 1) + declaration.substr(end);
}

// What the load registered, in the reference's words for places.
Places Registered() {
    Places places;
    for (const auto &registration : simhost::Registrations()) {
        const simhost::RegistrationInfo info = simhost::Inspect(registration);
        std::string extended;
        for (const auto &member : info.members) Plain(member.text, extended);
        for (const auto &member : info.members) {
            std::string receiver;
            const std::string text = Plain(member.text, receiver);
            std::string place;
            if (info.kind == "Class") {
                place = (text.starts_with("Constructor") ? "constructor" : member.role) +
                        " of `" + info.name + "`";
            } else if (member.role == "property") {
                place = extended.empty() ? "global property" : "property of `" + extended + "`";
            } else {
                place = receiver.empty() ? "global function" : "method of `" + receiver + "`";
            }
            places[text].push_back(place);
        }
    }
    return places;
}

// One line for each difference between what is registered and the pages.
Texts Differences(const Places &registered, const std::vector<ref::Page> &pages) {
    Texts lines;
    std::map<std::string, std::string> seen;  // declaration to "page:line"
    for (const ref::Page &page : pages) {
        for (const std::string &problem : page.problems) lines.push_back(problem);
        for (const ref::Entry &entry : page.entries) {
            const std::string at = page.name + ":" + std::to_string(entry.line) + ": ";
            for (const std::string &declaration : entry.declarations) {
                if (seen.count(declaration)) {
                    lines.push_back(at + "`" + declaration + "` has an entry already at " + seen[declaration]);
                    continue;
                }
                seen[declaration] = at.substr(0, at.size() - 2);
                auto found = registered.find(declaration);
                if (found == registered.end()) {
                    lines.push_back(at + "`" + declaration + "` is not registered");
                    continue;
                }
                Texts places = entry.places, want = found->second;
                std::sort(places.begin(), places.end());
                std::sort(want.begin(), want.end());
                if (places != want) {
                    std::string where;
                    for (const std::string &p : found->second) where += (where.empty() ? "" : "; ") + p;
                    lines.push_back(at + "`" + declaration + "` is registered as: " + where);
                }
            }
        }
    }
    for (const auto &[declaration, places] : registered) {
        if (!seen.count(declaration)) lines.push_back("no entry for `" + declaration + "`");
    }
    return lines;
}

class Completeness : public test::HostTest {
protected:
    void SetUp() override {
        simhost::platform::SetEnvironment("QVTDEBUG", nullptr);
        gDebugging = false;
        HostTest::SetUp();
        // The host on which the load registers the most: both modules, every
        // assigning form as a declaration of its own.
        simhost::Options options;
        options.version = 2013.04;
        simhost::Reset(options);
        REALPluginMain(&simhost::Resolve);
        registered = Registered();
        for (const ref::Text &text : ref::BuiltIn()) {
            pages.push_back(ref::Parse(std::string(text.name), text.text));
        }
    }
    Places registered;
    std::vector<ref::Page> pages;
};

std::string Joined(const Texts &lines) {
    std::string text;
    for (const std::string &line : lines) text += line + "\n";
    return text;
}

TEST_F(Completeness, EveryRegisteredDeclarationHasOneEntryInItsPlace) {
    EXPECT_EQ(registered.size(), 127u);
    EXPECT_EQ(Joined(Differences(registered, pages)), "");
}

TEST_F(Completeness, TheIndexListsEveryPageOnceAndNoOther) {
    Texts listed, present;
    for (const ref::Text &text : ref::BuiltIn()) {
        if (text.name == "README.md") {
            for (const ref::Family &family : ref::Families(text.text)) listed.push_back(family.file);
        } else {
            present.emplace_back(text.name);
        }
    }
    EXPECT_EQ(listed, present);
}

// The check itself, on the same pages changed in one way each.
struct Change {
    const char *name;
    const char *heading;  // of the entry changed
    const char *into;     // the new heading text, or "" to remove the heading
    const char *where;    // a new Where line, or nullptr
    Texts differences;    // parts of the lines the change adds
};

void PrintTo(const Change &c, std::ostream *out) { *out << c.name; }

class CompletenessCheck : public Completeness, public ::testing::WithParamInterface<Change> {};

TEST_P(CompletenessCheck, FailsForTheChange) {
    const Change &change = GetParam();
    const Texts before = Differences(registered, pages);
    for (ref::Page &page : pages) {
        for (auto e = page.entries.begin(); e != page.entries.end(); ++e) {
            auto heading = std::find(e->declarations.begin(), e->declarations.end(), change.heading);
            if (heading == e->declarations.end()) continue;
            if (*change.into) {
                *heading = change.into;
            } else {
                e->declarations.erase(heading);
            }
            if (change.where) e->places = {change.where};
            // What the unchanged pages give stays; the change adds its lines.
            Texts differences = Differences(registered, pages);
            for (const std::string &line : before) std::erase(differences, line);
            ASSERT_EQ(differences.size(), change.differences.size()) << Joined(differences);
            for (std::size_t i = 0; i < differences.size(); ++i) {
                EXPECT_NE(differences[i].find(change.differences[i]), std::string::npos) << differences[i];
            }
            return;
        }
    }
    FAIL() << "no entry " << change.heading;
}

INSTANTIATE_TEST_SUITE_P(
    Pages, CompletenessCheck,
    ::testing::Values(
        Change{"MissingEntry", "ClearBitQVT(Bit as UInt64)", "", nullptr,
               {"no entry for `ClearBitQVT(Bit as UInt64)`"}},
        Change{"MissingOverload", "SetBitQVT(Bit as UInt64)", "", nullptr,
               {"no entry for `SetBitQVT(Bit as UInt64)`"}},
        Change{"OtherText", "GetBitQVT(Bit as UInt64) as Integer",
               "GetBitQVT(Bit as UInt64) As Integer", nullptr,
               {"`GetBitQVT(Bit as UInt64) As Integer` is not registered",
                "no entry for `GetBitQVT(Bit as UInt64) as Integer`"}},
        Change{"OtherPlace", "NewMemoryBlockFromPtrQVT(ptr as integer) as MemoryBlock",
               "NewMemoryBlockFromPtrQVT(ptr as integer) as MemoryBlock", "method of `MemoryBlock`",
               {"is registered as: global function"}},
        Change{"TwoEntries", "LeftQVT(length as integer) as Memoryblock",
               "RightQVT(length As Integer) as Memoryblock", nullptr,
               {"`RightQVT(length As Integer) as Memoryblock` has an entry already at slices.md:",
                "no entry for `LeftQVT(length as integer) as Memoryblock`"}}),
    [](const auto &param) { return std::string(param.param.name); });

TEST(CompletenessPlaces, OneTextInTwoPlacesNeedsBoth) {
    const Places registered = {{"Debugging as Boolean", {"property of `MemoryBlock`", "global property"}}};
    const std::vector<ref::Page> both = {ref::Parse("d.md",
        "### `Debugging as Boolean`\n\nWhere: global property; property of `MemoryBlock`\n")};
    const std::vector<ref::Page> one = {ref::Parse("d.md",
        "### `Debugging as Boolean`\n\nWhere: global property\n")};
    EXPECT_EQ(Differences(registered, both), Texts{});
    EXPECT_EQ(Differences(registered, one),
              Texts{"d.md:1: `Debugging as Boolean` is registered as: property of `MemoryBlock`; global property"});
}

}  // namespace
}  // namespace qvt
