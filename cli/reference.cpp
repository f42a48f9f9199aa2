#include "reference.h"

#include <algorithm>
#include <optional>

namespace qvthost::reference {

// Defined by the source the build generates from docs/reference/*.md.
extern const Text kPages[];
extern const std::size_t kPageCount;

namespace {

std::vector<std::string_view> Lines(std::string_view text) {
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        const std::size_t end = text.find('\n');
        std::string_view line = text.substr(0, end);
        if (line.ends_with('\r')) line.remove_suffix(1);
        lines.push_back(line);
        if (end == std::string_view::npos) break;
        text.remove_prefix(end + 1);
    }
    return lines;
}

bool Blank(std::string_view line) {
    return line.find_first_not_of(" \t") == std::string_view::npos;
}

std::vector<std::string> Words(std::string_view text) {
    std::vector<std::string> words;
    std::size_t i = 0;
    while ((i = text.find_first_not_of(' ', i)) != std::string_view::npos) {
        const std::size_t end = std::min(text.find(' ', i), text.size());
        words.emplace_back(text.substr(i, end - i));
        i = end;
    }
    return words;
}

std::string Joined(const std::vector<std::string_view> &lines, std::size_t from, std::size_t to) {
    std::string text;
    for (std::size_t i = from; i < to; ++i) (text += lines[i]) += '\n';
    return text;
}

// Reads a page line by line; fences hide headings.
class Reader {
public:
    Reader(Page &page, std::string_view text)
        : page_(page), lines_(Lines(text)), example_(lines_.size(), false) {}

    void Run() {
        std::size_t bodyFrom = 0;
        bool inBody = false;
        std::string *under = nullptr;  // the text under a "#" or "##" heading
        std::size_t underFrom = 0;
        for (i_ = 0; i_ < lines_.size(); ++i_) {
            const std::string_view line = lines_[i_];
            if (line.starts_with("```")) {
                Fence();
                continue;
            }
            if (!line.starts_with('#')) continue;
            if (inBody) CloseBody(bodyFrom, i_);
            inBody = false;
            if (under) *under = Prose(underFrom, i_);
            under = nullptr;
            underFrom = i_ + 1;
            if (line.starts_with("# ") && page_.title.empty()) {
                page_.title = line.substr(2);
                under = &page_.head;
            } else if (line.starts_with("## ")) {
                page_.sections.push_back({std::string(line.substr(3)), ""});
                under = &page_.sections.back().text;
                section_ = page_.sections.size() - 1;
            }
            if (!line.starts_with("### ")) continue;
            if (!Heading(line.substr(4))) continue;
            // Only blank lines may stand between the headings of overloads.
            std::size_t next = i_ + 1;
            while (next < lines_.size() && Blank(lines_[next])) ++next;
            if (next < lines_.size() && lines_[next].starts_with("### ")) continue;
            bodyFrom = i_ + 1;
            inBody = true;
        }
        if (inBody) CloseBody(bodyFrom, lines_.size());
        if (under) *under = Prose(underFrom, lines_.size());
        if (open_) Problem(open_->scriptLine, "a qvt block without its output block");
    }

private:
    Page &page_;
    std::vector<std::string_view> lines_;
    std::size_t i_ = 0;
    Entry building_;
    std::optional<Example> open_;  // a script whose output block is still to come
    std::vector<bool> example_;     // per line: inside an example's fences
    std::optional<std::size_t> section_;

    void Problem(std::size_t line, const std::string &what) {
        page_.problems.push_back(page_.name + ":" + std::to_string(line) + ": " + what);
    }

    bool Heading(std::string_view text) {
        if (text.size() < 3 || !text.starts_with('`') || !text.ends_with('`') ||
            text.substr(1, text.size() - 2).find('`') != std::string_view::npos) {
            Problem(i_ + 1, "a level-3 heading that is not one declaration in backticks");
            return false;
        }
        if (building_.declarations.empty()) {
            building_.line = i_ + 1;
            building_.section = section_;
        }
        building_.declarations.emplace_back(text.substr(1, text.size() - 2));
        return true;
    }

    // Lines without examples, runs of blank lines as one, none at the ends.
    std::string Prose(std::size_t from, std::size_t to) const {
        std::string text;
        bool blank = true;
        for (std::size_t i = from; i < to; ++i) {
            if (example_[i] || (Blank(lines_[i]) && blank)) continue;
            blank = Blank(lines_[i]);
            (text += lines_[i]) += '\n';
        }
        while (text.ends_with("\n\n")) text.pop_back();
        return text;
    }

    void CloseBody(std::size_t from, std::size_t to) {
        while (from < to && Blank(lines_[from])) ++from;
        while (to > from && Blank(lines_[to - 1])) --to;
        constexpr std::string_view kWhere = "Where: ";
        if (from == to || !lines_[from].starts_with(kWhere)) {
            Problem(building_.line, "an entry whose first line is not \"Where: ...\"");
        } else {
            std::string_view places = lines_[from].substr(kWhere.size());
            while (!places.empty()) {
                const std::size_t end = places.find("; ");
                building_.places.emplace_back(places.substr(0, end));
                places = end == std::string_view::npos ? "" : places.substr(end + 2);
            }
        }
        building_.body = Prose(from, to);
        page_.entries.push_back(std::move(building_));
        building_ = {};
    }

    // From an opening fence to past its closing one.
    void Fence() {
        const std::size_t open = i_;
        const std::vector<std::string> info = Words(lines_[open].substr(3));
        std::size_t close = open + 1;
        while (close < lines_.size() && !lines_[close].starts_with("```")) ++close;
        if (close == lines_.size()) {
            Problem(open + 1, "a fence that is never closed");
            i_ = close;
            return;
        }
        i_ = close;
        const std::string kind = info.empty() ? "" : info.front();
        if (kind == "qvt" || kind == "output") {
            std::fill(example_.begin() + std::ptrdiff_t(open), example_.begin() + std::ptrdiff_t(close) + 1, true);
        }
        if (kind == "qvt") {
            if (open_) Problem(open_->scriptLine, "a qvt block without its output block");
            open_ = Example{{info.begin() + 1, info.end()}, Joined(lines_, open + 1, close)};
            open_->scriptLine = open + 1;
            return;
        }
        if (kind != "output") {
            if (open_) Problem(open_->scriptLine, "a qvt block without its output block");
            open_.reset();
            return;
        }
        if (!open_) {
            Problem(open + 1, "an output block without a qvt block before it");
            return;
        }
        Example example = std::move(*open_);
        open_.reset();
        for (std::size_t w = 1; w < info.size(); ++w) {
            const std::string &word = info[w];
            if (word.starts_with("exit=") && word.size() > 5 &&
                word.find_first_not_of("0123456789", 5) == std::string::npos) {
                example.status = std::stoi(word.substr(5));
            } else {
                Problem(open + 1, "an output block with '" + word + "' after \"output\"");
            }
        }
        example.output = Joined(lines_, open + 1, close);
        example.outputOpen = open;
        example.outputClose = close;
        page_.examples.push_back(std::move(example));
    }
};

}  // namespace

Page Parse(std::string name, std::string_view text) {
    Page page;
    page.name = std::move(name);
    Reader(page, text).Run();
    return page;
}

std::string WithOutputs(std::string_view text, const std::vector<std::string> &outputs,
                        const std::vector<int> &statuses) {
    const Page page = Parse("", text);
    const std::vector<std::string_view> lines = Lines(text);
    std::string result;
    std::size_t next = 0;
    for (std::size_t e = 0; e < page.examples.size() && e < outputs.size(); ++e) {
        const Example &example = page.examples[e];
        result += Joined(lines, next, example.outputOpen);
        const int status = e < statuses.size() ? statuses[e] : 0;
        result += "```output" + (status ? " exit=" + std::to_string(status) : "") + "\n";
        result += outputs[e];
        if (!outputs[e].empty() && !outputs[e].ends_with('\n')) result += '\n';
        next = example.outputClose;
    }
    return result + Joined(lines, next, lines.size());
}

std::vector<Family> Families(std::string_view index) {
    std::vector<Family> families;
    for (std::string_view line : Lines(index)) {
        if (!line.starts_with("- [")) continue;
        const std::size_t title = line.find("](");
        const std::size_t file = line.find(')', title);
        if (title == std::string_view::npos || file == std::string_view::npos) continue;
        Family family{std::string(line.substr(title + 2, file - title - 2)),
                      std::string(line.substr(3, title - 3)), ""};
        if (!family.file.ends_with(".md") || family.file.find('/') != std::string::npos) continue;
        std::string_view rest = line.substr(file + 1);
        if (rest.starts_with(":")) rest.remove_prefix(1);
        family.summary = rest.substr(std::min(rest.find_first_not_of(' '), rest.size()));
        families.push_back(std::move(family));
    }
    return families;
}

std::vector<Text> BuiltIn() {
    std::vector<Text> pages(kPages, kPages + kPageCount);
    std::vector<Text> ordered;
    auto take = [&](std::string_view name) {
        auto found = std::find_if(pages.begin(), pages.end(),
                                  [&](const Text &page) { return page.name == name; });
        if (found == pages.end()) return;
        ordered.push_back(*found);
        pages.erase(found);
    };
    take("README.md");
    if (!ordered.empty()) {
        for (const Family &family : Families(ordered.front().text)) take(family.file);
    }
    ordered.insert(ordered.end(), pages.begin(), pages.end());
    return ordered;
}

}  // namespace qvthost::reference
