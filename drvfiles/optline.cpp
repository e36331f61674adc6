// The driver option line of the module option files ("options <module>
// name=value ..."): finding it, replacing it, and its parameters.
#include <sstream>

#include "drvtext.h"

namespace vt::drv {
namespace {

std::string OptionsText(std::string_view module) { return "options " + std::string(module); }

constexpr const char *kBlanks = " \t\r\v\f";

struct SplitOptionLine {
    std::string prefix;              // up to and including "options <module>"
    std::vector<std::string> words;  // the parameters
    std::string comment;             // from a word beginning with "#"
};

SplitOptionLine Split(std::string_view line, std::string_view module) {
    SplitOptionLine s;
    const std::string options = OptionsText(module);
    const size_t at = line.find(options);
    if (at == std::string_view::npos) {
        s.prefix = options;
        return s;
    }
    s.prefix = std::string(line.substr(0, at + options.size()));
    std::string_view rest = line.substr(at + options.size());
    while (!rest.empty()) {
        const size_t begin = rest.find_first_not_of(kBlanks);
        if (begin == std::string_view::npos) break;
        rest.remove_prefix(begin);
        if (rest.front() == '#') {
            s.comment = std::string(rest);
            break;
        }
        const size_t end = rest.find_first_of(kBlanks);
        s.words.emplace_back(rest.substr(0, end));
        rest.remove_prefix(end == std::string_view::npos ? rest.size() : end);
    }
    return s;
}

std::string Join(const SplitOptionLine &s) {
    std::string out = s.prefix;
    for (const auto &w : s.words) out += " " + w;
    if (!s.comment.empty()) out += " " + s.comment;
    return out;
}

std::string_view WordName(std::string_view word) { return word.substr(0, word.find('=')); }

}  // namespace

bool IsCommentLine(std::string_view line) {
    const size_t first = line.find_first_not_of(" \t");
    return first != std::string_view::npos && line[first] == '#';
}

std::vector<std::string_view> SplitLines(std::string_view text) {
    std::vector<std::string_view> lines;
    while (!text.empty()) {
        const size_t nl = text.find('\n');
        const size_t n = nl == std::string_view::npos ? text.size() : nl + 1;
        lines.push_back(text.substr(0, n));
        text.remove_prefix(n);
    }
    return lines;
}

std::string_view LineBody(std::string_view line) {
    if (!line.empty() && line.back() == '\n') line.remove_suffix(1);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    return line;
}

std::optional<size_t> FindOptionLine(const std::vector<std::string_view> &lines, std::string_view module) {
    const std::string options = OptionsText(module);
    for (size_t i = 0; i < lines.size(); ++i) {
        const std::string_view body = LineBody(lines[i]).substr(0, VTLAPI_OPTLINE_MAX - 1);
        if (!IsCommentLine(body) && body.find(options) != std::string_view::npos) return i;
    }
    return std::nullopt;
}

std::string ReplaceOptionLine(std::string_view text, std::string_view module, std::string_view newLine) {
    const auto lines = SplitLines(text);
    const auto at = FindOptionLine(lines, module);
    std::string out;
    out.reserve(text.size() + newLine.size() + 1);
    if (!at) {
        out.append(text);
        if (!out.empty() && out.back() != '\n') out += '\n';
        out.append(newLine);
        out += '\n';
        return out;
    }
    for (size_t i = 0; i < lines.size(); ++i) {
        if (i != *at) {
            out.append(lines[i]);
            continue;
        }
        out.append(newLine);
        out.append(lines[i].substr(LineBody(lines[i]).size()));  // its own line end
    }
    return out;
}

std::optional<std::string> GetOptionParam(std::string_view line, std::string_view module, std::string_view name) {
    if (line.find(OptionsText(module)) == std::string_view::npos) return std::nullopt;
    for (const std::string &w : Split(line, module).words) {
        if (WordName(w) != name) continue;
        const size_t eq = w.find('=');
        return eq == std::string::npos ? std::string() : w.substr(eq + 1);
    }
    return std::nullopt;
}

std::string SetOptionParam(std::string_view line, std::string_view module, std::string_view name,
                           const std::string *value) {
    SplitOptionLine s = Split(line, module);
    const std::string word = value ? std::string(name) + "=" + *value : std::string();
    bool done = false;
    for (auto it = s.words.begin(); it != s.words.end();) {
        if (WordName(*it) != name) {
            ++it;
        } else if (!value || done) {
            it = s.words.erase(it);  // removed, or a repeat of the one set
        } else {
            *it = word;
            done = true;
            ++it;
        }
    }
    if (value && !done) s.words.push_back(word);
    return Join(s);
}

std::string SetOptionParams(std::string_view line, std::string_view module, std::string_view words) {
    std::string out(line);
    std::istringstream in{std::string(words)};
    for (std::string w; in >> w;) {
        const size_t eq = w.find('=');
        const std::string value = eq == std::string::npos ? std::string() : w.substr(eq + 1);
        out = SetOptionParam(out, module, WordName(w), &value);
    }
    return out;
}

}  // namespace vt::drv
