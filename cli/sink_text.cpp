// The text sink: reports for a person on an 80-column terminal.
#include <cstdio>
#include <string>

#include "cli/sinks.h"
#include "oss/oss_signal.h"
#include "vtapi_cli.h"

namespace vt::cli {

std::string VisibleText(const std::string &text) {
    std::string out;
    out.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if ((byte < 0x20 && c != '\n' && c != '\t') || byte == 0x7F) {
            char escaped[5];
            std::snprintf(escaped, sizeof escaped, "\\x%02x", byte);
            out += escaped;
        } else {
            out += c;
        }
    }
    return out;
}

namespace {

// Every line of a text report passes here: the command thread may be
// stopped at this point, and control characters that device text carries
// (ESC, CR, ...) are shown as "\x1b" instead of acting on the terminal.
void Print(const std::string &text) {
    vt::oss::SafePoint();
    scfxPrint(VisibleText(text).c_str());
}

std::string Clip(const std::string &text, int clip) {
    return clip > 0 && text.size() > static_cast<size_t>(clip) ? text.substr(0, static_cast<size_t>(clip)) : text;
}

std::string Pad(const std::string &text, int width, bool right) {
    if (text.size() >= static_cast<size_t>(width)) return text;
    const std::string fill(static_cast<size_t>(width) - text.size(), ' ');
    return right ? fill + text : text + fill;
}

class TextSink final : public Sink {
public:
    void Open() override {}
    void Close() override {}

    void Fail(int32_t, const std::string &message) override {
        if (bSilent) return;
        std::fprintf(stderr, "%s\n", message.c_str());
        std::fflush(stderr);
    }

    void Title(const std::string &text) override {
        Print(text + "\n");
        Rule('=');
    }
    void Blank() override { Print("\n"); }
    void Note(const std::string &text) override { Print(text + "\n"); }
    void Rule(char c) override { Print(std::string(kWidth, c) + "\n"); }

    // "label : value" with the label in a column of `width`; a long value is
    // wrapped (at blanks where it has them) under the value column.
    void Field(const char *, const char *label, const Value &value, int width) override {
        const size_t room = static_cast<size_t>(kWidth - width - 3);
        std::string rest = value.text().empty() ? std::string("-") : value.text();
        bool first = true;
        while (!rest.empty()) {
            size_t cut = rest.size();
            if (cut > room) {
                cut = rest.rfind(' ', room);
                if (cut == std::string::npos || cut == 0) cut = room;
            }
            const std::string shown = first ? Clip(label, width) : std::string();
            Print(Pad(shown, width, false) + (first ? " : " : "   ") + rest.substr(0, cut) + "\n");
            rest = rest.substr(cut);
            while (!rest.empty() && rest[0] == ' ') rest.erase(0, 1);
            first = false;
        }
    }

    void Line(const std::vector<Piece> &pieces) override {
        std::string line;
        for (const Piece &p : pieces) {
            if (p.skipEmpty && p.value.text().empty()) continue;
            line += p.prefix;
            line += Clip(p.value.text(), p.clip);
        }
        Print(line + "\n");
    }

    void Columns(const Table &table) override {
        std::vector<Value> headings;
        Table shown;
        for (const Column &c : table) {
            if (c.newLine) break;
            shown.push_back(c);
            shown.back().clip = 0;
            headings.push_back(Value::Text(c.heading != nullptr ? c.heading : ""));
        }
        Row(shown, headings);
    }

    void Row(const Table &table, const std::vector<Value> &cells) override {
        std::string text;
        for (size_t i = 0; i < table.size() && i < cells.size(); ++i) {
            const Column &c = table[i];
            const std::string cell = Clip(cells[i].text(), c.clip);
            if (c.newLine) text += "\n";
            if (c.skipEmpty && cell.empty()) continue;
            text += std::string(static_cast<size_t>(c.gap), ' ') + Pad(cell, c.width, c.right);
        }
        Print(text + "\n");
    }

    void BeginPort(const SDMDevice &device, PortStyle style) override {
        targets_ = 0;
        if (style != PortStyle::Heading) return;
        if (headings_++ > 0) Blank();
        Line(PortPieces(device));
        Rule('-');
    }
    void EndPort(PortStyle) override {}

    void BeginTarget(const TargetEntry &, TargetStyle style) override {
        if (style == TargetStyle::Block && targets_++ > 0) Blank();
    }

private:
    int headings_ = 0;  // port headings written
    int targets_ = 0;   // target blocks written in the current port
};

}  // namespace

std::unique_ptr<Sink> MakeTextSink() { return std::make_unique<TextSink>(); }

}  // namespace vt::cli
