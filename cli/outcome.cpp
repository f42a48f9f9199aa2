#include "outcome.h"

#include <algorithm>
#include <cstdio>

#include "format.h"

namespace qvthost {

namespace {

constexpr std::size_t kWholeUpTo = 48;  // bytes of a block always shown in full
constexpr std::size_t kHead = 16;       // bytes shown from the start of a long one
constexpr std::size_t kAround = 8;      // bytes shown on each side of a change

bool Changed(const std::string &before, const std::string &after, std::size_t at) {
    return at >= before.size() || at >= after.size() || before[at] != after[at];
}

// Three lines of equal columns: before, after, and "^^" under each change.
struct Columns {
    std::string before, after, marks;
    void Add(const std::string &b, const std::string &a, bool mark) {
        const std::string space = before.empty() ? "" : " ";
        const std::size_t width = std::max(b.size(), a.size());
        before += space + b + std::string(width - b.size(), ' ');
        after += space + a + std::string(width - a.size(), ' ');
        marks += space + std::string(width, mark ? '^' : ' ');
    }
};

std::string Cell(const std::string &bytes, std::size_t at) {
    if (at >= bytes.size()) return "--";
    char cell[4];
    std::snprintf(cell, sizeof cell, "%02X", static_cast<unsigned char>(bytes[at]));
    return cell;
}

std::string TrimEnd(std::string text) {
    while (!text.empty() && text.back() == ' ') text.pop_back();
    return text;
}

void PrintBlock(std::ostream &out, const BlockReport &block) {
    auto size = [](const std::optional<std::string> &b) {
        return b ? Counted(b->size(), "byte") : std::string("nil");
    };
    out << "  " << block.label << "  " << size(block.before);
    if (!block.before || !block.after || block.before->size() != block.after->size()) {
        out << " -> " << size(block.after);
    }
    out << "\n";
    if (block.before.value_or("").empty() && block.after.value_or("").empty()) return;
    const std::string before = block.before.value_or(""), after = block.after.value_or("");
    const auto ranges = ShownRanges(before, after);
    const bool cut = !(ranges.size() == 1 && ranges[0].first == 0 &&
                       ranges[0].second == std::max(before.size(), after.size()));
    Columns columns;
    std::size_t last = 0;
    for (const auto &[start, end] : ranges) {
        if (start > last) columns.Add("...", "...", false);
        if (cut) columns.Add("+" + std::to_string(start), "+" + std::to_string(start), false);
        for (std::size_t at = start; at < end; ++at) {
            columns.Add(Cell(before, at), Cell(after, at), Changed(before, after, at));
        }
        last = end;
    }
    if (last < std::max(before.size(), after.size())) columns.Add("...", "...", false);
    out << "    before  " << (block.before ? TrimEnd(columns.before) : "nil") << "\n";
    out << "    after   " << (block.after ? TrimEnd(columns.after) : "nil") << "\n";
    const std::string marks = TrimEnd(columns.marks);
    if (!marks.empty()) out << "            " << marks << "\n";
}

std::vector<std::string> Lines(const std::string &text) {
    std::vector<std::string> lines;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = std::min(text.find('\n', start), text.size());
        lines.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return lines;
}

JsonValue JsonBlock(const BlockReport &block) {
    auto hex = [](const std::optional<std::string> &b) {
        return b ? JsonValue(Utf8(HexDigits(*b))) : JsonValue(nullptr);
    };
    JsonValue changed = JsonValue::array();
    const std::string before = block.before.value_or(""), after = block.after.value_or("");
    for (std::size_t at = 0; at < std::max(before.size(), after.size()); ++at) {
        if (!Changed(before, after, at)) continue;
        std::size_t end = at;
        while (end < std::max(before.size(), after.size()) && Changed(before, after, end)) ++end;
        changed.push_back({at, end});
        at = end;
    }
    return {{"name", Utf8(block.label)},
            {"before", hex(block.before)},
            {"after", hex(block.after)},
            {"changed", std::move(changed)}};
}

JsonValue Utf8List(const std::vector<std::string> &items) {
    JsonValue list = JsonValue::array();
    for (const auto &item : items) list.push_back(Utf8(item));
    return list;
}

}  // namespace

std::vector<std::pair<std::size_t, std::size_t>> ShownRanges(const std::string &before,
                                                             const std::string &after) {
    const std::size_t size = std::max(before.size(), after.size());
    if (size <= kWholeUpTo) return {{0, size}};
    std::vector<std::pair<std::size_t, std::size_t>> ranges{{0, kHead}};
    for (std::size_t at = 0; at < size; ++at) {
        if (!Changed(before, after, at)) continue;
        const std::size_t start = at > kAround ? at - kAround : 0;
        std::size_t end = at;
        while (end < size && Changed(before, after, end)) ++end;
        at = end;
        end = std::min(size, end + kAround);
        if (start <= ranges.back().second) {
            ranges.back().second = std::max(ranges.back().second, end);
        } else {
            ranges.push_back({start, end});
        }
    }
    return ranges;
}

void PrintText(std::ostream &out, const LineOutcome &outcome, std::size_t line, bool debug) {
    const std::string where = line != 0 ? "line " + std::to_string(line) + ": " : "";
    if (!outcome.error.empty()) {
        out << where << outcome.error << "\n";
        return;
    }
    if (!outcome.defined.empty()) {
        out << where << outcome.defined << "\n";
        return;
    }
    const Report &report = *outcome.report;
    out << where << report.declaration << "\n";
    for (const auto &block : report.blocks) PrintBlock(out, block);
    if (report.result) {
        out << "  result  " << *report.result;
        if (report.resultHex) out << " (" << *report.resultHex << ")";
        out << "\n";
    }
    for (const auto &[name, message] : report.exceptions) {
        out << "  raised  " << name << ": " << message.value_or("(nil message)") << "\n";
    }
    if (debug) {
        out << "  log\n";
        for (const auto &entry : report.log) out << "    " << entry << "\n";
    }
    if (report.imbalance.empty()) {
        out << "  references balanced\n";
    } else {
        out << "  references NOT balanced:\n";
        for (const auto &entry : Lines(report.imbalance)) out << "    " << entry << "\n";
    }
    for (const auto &fault : report.faults) out << "  host fault: " << fault << "\n";
}

std::string Json(const LineOutcome &outcome, std::size_t line, bool debug) {
    JsonValue out = JsonValue::object();
    if (line != 0) out["line"] = line;
    out["status"] = outcome.status;
    if (!outcome.error.empty()) {
        out["error"] = Utf8(outcome.error);
        return Dump(out);
    }
    if (!outcome.defined.empty()) {
        out["defined"] = Utf8(outcome.defined);
        return Dump(out);
    }
    const Report &report = *outcome.report;
    out["declaration"] = Utf8(report.declaration);
    out["result"] = report.resultJson;
    if (report.resultHex) out["resultHex"] = *report.resultHex;
    JsonValue exceptions = JsonValue::array();
    for (const auto &[name, message] : report.exceptions) {
        exceptions.push_back(
            {{"class", Utf8(name)}, {"message", message ? JsonValue(Utf8(*message)) : nullptr}});
    }
    out["exceptions"] = std::move(exceptions);
    JsonValue blocks = JsonValue::array();
    for (const auto &block : report.blocks) blocks.push_back(JsonBlock(block));
    out["blocks"] = std::move(blocks);
    if (debug) out["log"] = Utf8List(report.log);
    out["balanced"] = report.imbalance.empty();
    out["imbalance"] = Utf8List(Lines(report.imbalance));
    out["faults"] = Utf8List(report.faults);
    return Dump(out);
}

std::string ShownJson(int status, const std::string &command, const std::string &text) {
    const JsonValue out = {{"status", status}, {"command", command}, {"lines", Utf8List(Lines(text))}};
    return Dump(out);
}

}  // namespace qvthost
