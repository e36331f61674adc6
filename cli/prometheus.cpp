// The Prometheus text writer and the atomic replacement of its file.
#include "cli/prometheus.h"

#include <cctype>

#include "oss/oss_file.h"

namespace vt::cli {

namespace {

bool ValidName(const std::string &name, bool colon) {
    if (name.empty()) return false;
    for (size_t i = 0; i < name.size(); ++i) {
        const auto c = static_cast<unsigned char>(name[i]);
        const bool ok = std::isalpha(c) || c == '_' || (colon && c == ':') || (i > 0 && std::isdigit(c));
        if (!ok || c > 0x7F) return false;
    }
    return true;
}

// HELP text: '\' and line ends escaped.
std::string EscapeHelp(const std::string &text) {
    std::string out;
    for (char c : text) {
        if (c == '\\') out += "\\\\";
        else if (c == '\n') out += "\\n";
        else out += c;
    }
    return out;
}

}  // namespace

bool ValidMetricName(const std::string &name) { return ValidName(name, true); }

bool ValidLabelName(const std::string &name) { return ValidName(name, false) && name.rfind("__", 0) != 0; }

std::string EscapeLabelValue(const std::string &value) {
    std::string out;
    for (char c : value) {
        if (c == '\\') out += "\\\\";
        else if (c == '"') out += "\\\"";
        else if (c == '\n') out += "\\n";
        else out += c;
    }
    return out;
}

bool PrometheusText::Family(const std::string &name, const char *type, const std::string &help) {
    if (!ValidMetricName(name)) return false;
    for (const FamilyLines &f : families_)
        if (f.name == name) return false;
    families_.push_back({name, "# HELP " + name + " " + EscapeHelp(help) + "\n# TYPE " + name + " " + type + "\n", {}});
    return true;
}

bool PrometheusText::Sample(const std::string &name, const Labels &labels, int64_t value) {
    for (FamilyLines &f : families_) {
        if (f.name != name) continue;
        std::string line = name;
        if (!labels.empty()) {
            line += '{';
            for (size_t i = 0; i < labels.size(); ++i) {
                if (!ValidLabelName(labels[i].first)) return false;
                line += (i > 0 ? "," : "") + labels[i].first + "=\"" + EscapeLabelValue(labels[i].second) + "\"";
            }
            line += '}';
        }
        f.samples.push_back(line + " " + std::to_string(value) + "\n");
        return true;
    }
    return false;
}

std::string PrometheusText::Text() const {
    std::string text;
    for (const FamilyLines &f : families_) {
        if (f.samples.empty()) continue;  // a family without samples says nothing
        text += f.header;
        for (const std::string &s : f.samples) text += s;
    }
    return text;
}

int ReplaceMetricsFile(const std::string &path, const std::string &text) {
    oss::FileReplacement file;
    if (int rc = file.Begin(path)) return rc;
    if (int rc = file.Write(text)) return rc;
    return file.Commit();
}

}  // namespace vt::cli
