// The examples of docs/reference/*.md, run by check_reference.cmake through
// the built qvthost:
//   reference_examples extract DOCS WORK           scripts to WORK/N.qvt, list to WORK/examples.txt
//   reference_examples compare DOCS WORK [update]  WORK/N.out and N.status against the pages;
//                                                  "update" writes the runs into the pages instead
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "reference.h"

namespace {

namespace fs = std::filesystem;
using qvthost::reference::Page;

std::string Read(const fs::path &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    std::string result = text.str();
    // A Windows program's lines end in "\r\n".
    std::erase(result, '\r');
    return result;
}

void Write(const fs::path &path, const std::string &text) {
    std::ofstream(path, std::ios::binary) << text;
}

struct Source {
    fs::path path;
    std::string text;
    Page page;
};

std::vector<Source> Pages(const fs::path &docs) {
    std::vector<fs::path> paths;
    for (const auto &file : fs::directory_iterator(docs)) {
        if (file.path().extension() == ".md") paths.push_back(file.path());
    }
    std::sort(paths.begin(), paths.end());
    std::vector<Source> sources;
    for (const fs::path &path : paths) {
        std::string text = Read(path);
        Page page = qvthost::reference::Parse(path.filename().string(), text);
        sources.push_back({path, std::move(text), std::move(page)});
    }
    return sources;
}

std::vector<std::string> Lines(const std::string &text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

// Lines only in `expected` with "-", only in `actual` with "+", and three
// shared lines around each change; "..." where shared lines are left out.
std::string Diff(const std::string &expected, const std::string &actual) {
    const auto a = Lines(expected), b = Lines(actual);
    std::vector<std::vector<std::size_t>> common(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = a.size(); i-- > 0;) {
        for (std::size_t j = b.size(); j-- > 0;) {
            common[i][j] = a[i] == b[j] ? common[i + 1][j + 1] + 1
                                        : std::max(common[i + 1][j], common[i][j + 1]);
        }
    }
    std::vector<std::string> lines;
    std::size_t i = 0, j = 0;
    while (i < a.size() || j < b.size()) {
        if (i < a.size() && j < b.size() && a[i] == b[j]) {
            lines.push_back("  " + a[i++]);
            ++j;
        } else if (i < a.size() && (j == b.size() || common[i + 1][j] >= common[i][j + 1])) {
            lines.push_back("- " + a[i++]);
        } else {
            lines.push_back("+ " + b[j++]);
        }
    }
    constexpr std::size_t kContext = 3;
    std::vector<bool> shown(lines.size(), false);
    for (std::size_t k = 0; k < lines.size(); ++k) {
        if (lines[k][0] == ' ') continue;
        for (std::size_t c = k >= kContext ? k - kContext : 0; c <= k + kContext && c < lines.size(); ++c) {
            shown[c] = true;
        }
    }
    std::string diff;
    for (std::size_t k = 0; k < lines.size(); ++k) {
        if (shown[k]) {
            diff += lines[k] + "\n";
        } else if (k == 0 || shown[k - 1]) {
            diff += "...\n";
        }
    }
    return diff;
}

int Extract(const fs::path &docs, const fs::path &work) {
    fs::remove_all(work);
    fs::create_directories(work);
    std::string list;
    std::size_t number = 0;
    int status = 0;
    for (const Source &source : Pages(docs)) {
        for (const std::string &problem : source.page.problems) {
            std::cerr << problem << "\n";
            status = 1;
        }
        for (const auto &example : source.page.examples) {
            Write(work / (std::to_string(number) + ".qvt"), example.script);
            list += std::to_string(number++);
            for (const std::string &option : example.options) list += "|" + option;
            list += "\n";
        }
    }
    Write(work / "examples.txt", list);
    std::cout << number << " examples\n";
    return status;
}

int Compare(const fs::path &docs, const fs::path &work, bool update) {
    std::size_t number = 0, differ = 0;
    for (Source &source : Pages(docs)) {
        std::vector<std::string> outputs;
        std::vector<int> statuses;
        for (const auto &example : source.page.examples) {
            const std::string base = std::to_string(number++);
            const std::string output = Read(work / (base + ".out"));
            const auto lines = Lines(Read(work / (base + ".status")));
            const std::string status = lines.empty() ? "none" : lines.front();
            const bool numeric = !status.empty() &&
                                 status.find_first_not_of("0123456789") == std::string::npos;
            outputs.push_back(output);
            statuses.push_back(numeric ? std::stoi(status) : -1);
            if (output == example.output && status == std::to_string(example.status)) continue;
            ++differ;
            if (update) continue;
            std::cout << source.page.name << ":" << example.scriptLine << ": the example ends with exit "
                      << status << " (the page says " << example.status << ") and prints"
                      << (output == example.output ? " what the page shows\n"
                                                   : " (- the page, + the run):\n" + Diff(example.output, output));
        }
        if (update && !outputs.empty()) {
            const std::string text = qvthost::reference::WithOutputs(source.text, outputs, statuses);
            if (text != source.text) {
                Write(source.path, text);
                std::cout << "updated " << source.path.string() << "\n";
            }
        }
    }
    std::cout << number << " examples, " << differ << (update ? " rewritten\n" : " differ\n");
    return update || differ == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
    const std::vector<std::string> args(argv + 1, argv + argc);
    if (args.size() == 3 && args[0] == "extract") return Extract(args[1], args[2]);
    if ((args.size() == 3 || (args.size() == 4 && args[3] == "update")) && args[0] == "compare") {
        return Compare(args[1], args[2], args.size() == 4);
    }
    std::cerr << "usage: reference_examples extract DOCS WORK | compare DOCS WORK [update]\n";
    return 2;
}
