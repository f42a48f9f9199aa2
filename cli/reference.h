// The reference in docs/reference/: pages of Markdown with one level-3
// heading per declaration, a "Where:" line, the entry's text, and examples
// as a `qvt` script followed by its `output`.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qvthost::reference {

// Headings with nothing between them share the body that follows: overloads.
struct Entry {
    std::vector<std::string> declarations;  // the heading texts, without backticks
    std::vector<std::string> places;        // the "Where:" line split at "; "
    std::string body;                       // from the "Where:" line to the next heading,
                                            // without the examples
    std::size_t line = 0;                   // of the first heading, from 1
    std::optional<std::size_t> section;     // the "##" section it stands in
};

// A "##" heading that gathers entries, and the rules under it.
struct Section {
    std::string title;
    std::string text;
};

struct Example {
    std::vector<std::string> options;  // qvthost options after "qvt"
    std::string script;
    std::string output;
    int status = 0;                        // "exit=N" after "output"
    std::size_t scriptLine = 0;            // of the opening fence, from 1
    std::size_t outputOpen = 0;            // index of the output's opening fence line
    std::size_t outputClose = 0;           // index of its closing fence line
};

struct Page {
    std::string name;  // file name, "bits.md"
    std::string title;  // the level-1 heading
    std::string head;   // the text under it: rules its entries share
    std::vector<Section> sections;
    std::vector<Entry> entries;
    std::vector<Example> examples;
    std::vector<std::string> problems;  // "bits.md:12: ..." for text that breaks the shape
};

Page Parse(std::string name, std::string_view text);

// The text with each example's output block and exit status replaced by
// `outputs` and `statuses`, one per example in order.
std::string WithOutputs(std::string_view text, const std::vector<std::string> &outputs,
                        const std::vector<int> &statuses);

// A family page as the index lists it: "- [Title](file.md): what it holds".
struct Family {
    std::string file;
    std::string title;
    std::string summary;
};
std::vector<Family> Families(std::string_view index);

// The pages built into the program: the index "README.md" first, then the
// family pages in the index's order, then any page it does not list.
struct Text {
    std::string_view name;
    std::string_view text;
};
std::vector<Text> BuiltIn();

}  // namespace qvthost::reference
