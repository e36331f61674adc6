// A small writer of the Prometheus text exposition format (version 0.0.4),
// for the monitors' metrics files: the node exporter's textfile collector
// reads such a file, so it is always replaced whole (a temporary file
// beside it, renamed into place) and never seen half-written.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace vt::cli {

class PrometheusText {
public:
    using Labels = std::vector<std::pair<std::string, std::string>>;

    // Declares a metric family ("counter" or "gauge"); its HELP and TYPE
    // lines come before its samples, families in the order declared.  False
    // for a name that is not a valid metric name.
    bool Family(const std::string &name, const char *type, const std::string &help);
    // A sample of a declared family; false when the family is unknown or a
    // label name is invalid.
    bool Sample(const std::string &name, const Labels &labels, int64_t value);

    std::string Text() const;

private:
    struct FamilyLines {
        std::string name;
        std::string header;
        std::vector<std::string> samples;
    };
    std::vector<FamilyLines> families_;
};

bool ValidMetricName(const std::string &name);
bool ValidLabelName(const std::string &name);
// A label value with '\', '"' and line ends escaped.
std::string EscapeLabelValue(const std::string &value);

// Replaces the file with `text` (temporary file beside it, then rename;
// owner and mode of an existing file kept, a new file 0644).  0 or an errno
// value; a symbolic link or anything but a regular file at the path is
// refused and left alone.
int ReplaceMetricsFile(const std::string &path, const std::string &text);

}  // namespace vt::cli
