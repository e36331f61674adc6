// The JSON sink: one document per command, written a line at a time as the
// walk goes (two blanks of indentation a level), so a report of any size
// needs no more memory than one line.
#include <cstdio>
#include <string>
#include <vector>

#include "cli/sinks.h"
#include "oss/oss_signal.h"
#include "vtapi_cli.h"

namespace vt::cli {

std::string JsonString(const std::string &text) {
    std::string out = "\"";
    const size_t n = text.size();
    for (size_t i = 0; i < n; ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += static_cast<char>(c);
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\t') {
            out += "\\t";
        } else if (c < 0x20 || c == 0x7F) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
            out += escaped;
        } else if (c < 0x80) {
            out += static_cast<char>(c);
        } else {
            // A well-formed UTF-8 sequence stands; any other byte is an
            // ISO-8859-1 character.
            size_t length = c >= 0xF0 && c <= 0xF4 ? 4 : c >= 0xE0 ? 3 : c >= 0xC2 && c < 0xE0 ? 2 : 0;
            bool valid = length != 0 && i + length <= n;
            for (size_t k = 1; valid && k < length; ++k)
                valid = (static_cast<unsigned char>(text[i + k]) & 0xC0) == 0x80;
            if (valid && length == 3) {
                const auto c1 = static_cast<unsigned char>(text[i + 1]);
                valid = !(c == 0xE0 && c1 < 0xA0) && !(c == 0xED && c1 >= 0xA0);  // overlong, surrogate
            } else if (valid && length == 4) {
                const auto c1 = static_cast<unsigned char>(text[i + 1]);
                valid = !(c == 0xF0 && c1 < 0x90) && !(c == 0xF4 && c1 >= 0x90);  // overlong, past U+10FFFF
            }
            if (valid) {
                out.append(text, i, length);
                i += length - 1;
            } else {
                char escaped[8];
                std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
                out += escaped;
            }
        }
    }
    return out + "\"";
}

namespace {

class JsonSink final : public Sink {
public:
    void Open() override {
        line_ = "{";
        levels_.push_back({});
    }

    void Close() override {
        RebootMember();
        Member("status");
        line_ += "0";
        CloseAll();
    }
    void Reboot() override { reboot_ = true; }

    void Fail(int32_t status, const std::string &message) override {
        if (levels_.empty()) Open();
        while (levels_.size() > 1) End();
        RebootMember();
        Member("status");
        line_ += std::to_string(status);
        Member("error");
        line_ += JsonString(message);
        CloseAll();
    }

    void Field(const char *key, const char *, const Value &value, int) override { JsonField(key, value); }

    void JsonField(const char *key, const Value &value) override {
        if (!value.parts().empty()) {
            for (const auto &[partKey, part] : value.parts()) JsonField(partKey.c_str(), part);
            return;
        }
        if (key == nullptr || value.kind() == Value::Kind::Blank || value.kind() == Value::Kind::Label) return;
        Member(key);
        line_ += Literal(value);
    }

    void Line(const std::vector<Piece> &pieces) override {
        for (const Piece &p : pieces) JsonField(p.key, p.value);
    }

    void Row(const Table &table, const std::vector<Value> &cells) override {
        for (size_t i = 0; i < table.size() && i < cells.size(); ++i) JsonField(table[i].key, cells[i]);
    }

    void BeginObject(const char *key) override {
        Member(key);
        Begin('{');
    }
    void EndObject() override { End(); }
    void BeginList(const char *key) override {
        Member(key);
        Begin('[');
    }
    void EndList() override { End(); }
    void BeginItem() override {
        Element();
        Begin('{');
    }
    void EndItem() override { End(); }

    void BeginPort(const SDMDevice &device, PortStyle style) override {
        if (style == PortStyle::XmlOnly) return;
        BeginItem();
        if (style == PortStyle::Heading) Line(PortPieces(device));
    }
    void EndPort(PortStyle style) override {
        if (style != PortStyle::XmlOnly) EndItem();
    }
    void BeginTarget(const TargetEntry &, TargetStyle) override { BeginItem(); }
    void EndTarget() override { EndItem(); }

private:
    bool reboot_ = false;

    void RebootMember() {
        if (!reboot_) return;
        Member("reboot_required");
        line_ += "true";
    }

    struct Level {
        char close = '}';
        int members = 0;
    };

    static std::string Literal(const Value &value) {
        switch (value.kind()) {
        case Value::Kind::None: return "null";
        case Value::Kind::Number: return std::to_string(value.number());
        case Value::Kind::Numbers: {
            std::string list = "[";
            for (uint64_t n : value.numbers()) list += (list.size() > 1 ? ", " : "") + std::to_string(n);
            return list + "]";
        }
        default: return JsonString(value.text());
        }
    }

    std::string Indent() const { return std::string(2 * levels_.size(), ' '); }

    // Starts the next member of the current object or element of the
    // current array on a line of its own.
    void Element() {
        if (levels_.empty()) return;
        if (levels_.back().members++ > 0) line_ += ",";
        Flush();
        line_ = Indent();
    }

    void Member(const char *key) {
        Element();
        line_ += JsonString(key) + ": ";
    }

    void Begin(char open) {
        line_ += open;
        levels_.push_back({open == '[' ? ']' : '}', 0});
    }

    void End() {
        const Level level = levels_.back();
        levels_.pop_back();
        if (level.members > 0) {
            Flush();
            line_ = Indent();
        }
        line_ += level.close;
    }

    void CloseAll() {
        while (!levels_.empty()) End();
        Flush();
    }

    void Flush() {
        if (line_.empty()) return;
        line_ += '\n';
        vt::oss::SafePoint();
        scfxPrint(line_.c_str());
        line_.clear();
    }

    std::vector<Level> levels_;
    std::string line_;  // the line being built
};

}  // namespace

std::unique_ptr<Sink> MakeJsonSink() { return std::make_unique<JsonSink>(); }

}  // namespace vt::cli
