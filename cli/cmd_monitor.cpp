// The monitor commands: -gs (port statistics) and -ls (link status).  Their
// NAME=VALUE arguments fill the library's polling tables; the monitor polls
// the selected ports with a table on the screen (standard error in XML and
// JSON mode) and its CSV files, and the report gives the last poll of each
// port (-gs) or the totals (-ls).  PF=FILE also writes each poll to FILE in
// the Prometheus text format, replaced whole after every poll.
#include <strings.h>

#include <cstring>
#include <string>
#include <vector>

#include "cli/cmd_diag_params.h"
#include "cli/prometheus.h"
#include "cli/reports.h"
#include "cli/xml.h"
#include "core/core.h"
#include "diag/diag.h"
#include "diag/diag_internal.h"
#include "oss/oss.h"

namespace vt::cli {
namespace {

constexpr const char kIndent1[] = "\t";
constexpr const char kIndent2[] = "\t\t";
const std::vector<std::string> kPromNames = {"PF", "PromFile"};

void XmlNumber(const char *indent, const char *name, int64_t n) {
    XML_PrintElement(indent, name, std::to_string(n).c_str());
}

Value Signed(int64_t n) {
    // Counters never go below zero; a negative one is shown as it stands.
    return n >= 0 ? Value::Number(static_cast<uint64_t>(n)) : Value::Text(std::to_string(n));
}

// Fills the monitor's polling table from the arguments and takes the
// Prometheus file out of them ("" when none is given).
Result MonitorArguments(const TarnCommand &cmd, uint32_t kind, std::string &promPath) {
    std::vector<NamedArgument> extra;
    Result result = SetPollingParameters(cmd, kind, kPromNames, extra);
    promPath.clear();
    if (result.status != 0) return result;
    for (const NamedArgument &a : extra) {
        if (a.value.empty()) return {TARN_STATUS_BAD_VALUE, "Error: PromFile needs a file name!"};
        promPath = a.value;
    }
    return {};
}

// Installs a poll observer for the command and removes it again.
template <typename Observer, void (*Set)(Observer)>
class ObserverScope {
public:
    explicit ObserverScope(Observer observer) { Set(std::move(observer)); }
    ~ObserverScope() { Set(Observer{}); }
    ObserverScope(const ObserverScope &) = delete;
    ObserverScope &operator=(const ObserverScope &) = delete;
};

// Writes the metrics file after a poll; a failure is said once on the
// screen and in the log, the monitor goes on.
class MetricsFile {
public:
    explicit MetricsFile(std::string path) : path_(std::move(path)) {}
    bool enabled() const { return !path_.empty(); }
    void Write(const PrometheusText &text) {
        const int rc = ReplaceMetricsFile(path_, text.Text());
        if (rc == 0 || warned_) return;
        warned_ = true;
        TarnLogMessage(VT_MSG_WARNING, "Unable to write metrics file %s: %s", path_.c_str(), std::strerror(rc));
        scfxDiagnosticsPrint(("Unable to write metrics file (" + path_ + "): " + std::strerror(rc) + "\n").c_str());
    }
    const std::string &path() const { return path_; }

private:
    std::string path_;
    bool warned_ = false;
};

PrometheusText::Labels PortLabels(const SDMDevice &d) {
    return {{"hba", std::to_string(d.Instance)}, {"wwpn", WwnText(d.DevicePortProperty.WWPN)}};
}

PrometheusText StatisticsMetrics(const std::vector<const SDMDevice *> &ports,
                                 const std::vector<HBAStatisticsSample> &samples) {
    static const struct {
        const char *name;
        const char *type;
        const char *help;
        int64_t HBAStatisticsSample::*field;
    } kMetrics[] = {
        {"vt_fc_port_errors_total", "counter", "Errors the adapter port counted.", &HBAStatisticsSample::Errors},
        {"vt_fc_port_device_errors_total", "counter", "Device errors the adapter port counted.",
         &HBAStatisticsSample::DeviceErrors},
        {"vt_fc_port_resets_total", "counter", "Resets of the adapter port.", &HBAStatisticsSample::Resets},
        {"vt_fc_port_io_total", "counter", "I/O requests of the adapter port.", &HBAStatisticsSample::IoCount},
        {"vt_fc_port_io_per_second", "gauge", "I/O requests per second since the previous poll.",
         &HBAStatisticsSample::IoPerSecond},
        {"vt_fc_port_bytes_per_second", "gauge", "Bytes per second since the previous poll.",
         &HBAStatisticsSample::BytesPerSecond},
    };
    PrometheusText text;
    for (const auto &m : kMetrics) {
        text.Family(m.name, m.type, m.help);
        for (size_t i = 0; i < ports.size() && i < samples.size(); ++i)
            if (samples[i].Status == 0) text.Sample(m.name, PortLabels(*ports[i]), samples[i].*m.field);
    }
    text.Family("vt_fc_port_poll_ok", "gauge", "1 when the last poll of the port read its counters.");
    for (size_t i = 0; i < ports.size() && i < samples.size(); ++i)
        text.Sample("vt_fc_port_poll_ok", PortLabels(*ports[i]), samples[i].Status == 0 ? 1 : 0);
    return text;
}

PrometheusText LinkStatusMetrics(const std::vector<const SDMDevice *> &ports,
                                 const std::vector<std::vector<LinkStatusEntry>> &polls) {
    static const struct {
        const char *name;
        const char *help;
        uint32_t LinkStatusEntry::*field;
    } kMetrics[] = {
        {"vt_fc_link_failures_total", "Link failures.", &LinkStatusEntry::LinkFailureCount},
        {"vt_fc_link_loss_of_sync_total", "Losses of synchronization.", &LinkStatusEntry::LossOfSyncCount},
        {"vt_fc_link_loss_of_signal_total", "Losses of signal.", &LinkStatusEntry::LossOfSignalCount},
        {"vt_fc_link_invalid_crc_total", "Frames with an invalid CRC.", &LinkStatusEntry::InvalidCRCCount},
        {"vt_fc_link_primitive_seq_protocol_errors_total", "Primitive sequence protocol errors.",
         &LinkStatusEntry::PrimitiveSeqProtocolErrorCount},
        {"vt_fc_link_invalid_transmission_words_total", "Invalid transmission words.",
         &LinkStatusEntry::InvalidTransmissionWordCount},
    };
    auto labels = [](const SDMDevice &d, const LinkStatusEntry &e) {
        PrometheusText::Labels l = PortLabels(d);
        l.emplace_back("port_name", WwnText(e.PortName));
        l.emplace_back("port_type", FieldText(e.PortType));
        return l;
    };
    PrometheusText text;
    for (const auto &m : kMetrics) {
        text.Family(m.name, "counter", std::string(m.help) + " Port: the adapter port; others: a target it sees.");
        for (size_t i = 0; i < ports.size() && i < polls.size(); ++i)
            for (const LinkStatusEntry &e : polls[i])
                if (e.Status == 0) text.Sample(m.name, labels(*ports[i], e), e.*m.field);
    }
    text.Family("vt_fc_link_status_ok", "gauge", "1 when the port's or target's link error status could be read.");
    for (size_t i = 0; i < ports.size() && i < polls.size(); ++i)
        for (const LinkStatusEntry &e : polls[i])
            text.Sample("vt_fc_link_status_ok", labels(*ports[i], e), e.Status == 0 ? 1 : 0);
    return text;
}

bool Given(const TarnCommand &cmd, const char *name, const char *alias) {
    for (uint32_t i = 0; i < cmd.SubArgCount; ++i) {
        const std::string word = cmd.SubArgs[i];
        const std::string key = word.substr(0, word.find('='));
        if (strcasecmp(key.c_str(), name) == 0 || strcasecmp(key.c_str(), alias) == 0) return true;
    }
    return false;
}

}  // namespace

/* ------------------------------------------------------------------ -gs */

Result StatisticsReport(const TarnCommand &cmd, Sink &sink) {
    std::string promPath;
    Result result = MonitorArguments(cmd, POLL_STATISTICS, promPath);
    if (result.status != 0) return result;
    // A port chosen by the user restricts the monitor to it unless DF says
    // otherwise.
    if (cmd.Selection != TARN_SELECT_ALL && !Given(cmd, "DeviceFilter", "DF"))
        AddUserPollingData(POLL_STATISTICS, POLL_ROW_DEVICE_FILTER, "1");
    std::vector<const SDMDevice *> ports = SelectPorts(cmd, result);
    if (result.status != 0) return result;
    // Without the filter the library polls every listed port.
    const bool filtered = diag::PollingValue(POLL_STATISTICS, POLL_ROW_DEVICE_FILTER) != 0;
    if (!filtered) ports = AllPorts();

    MetricsFile metrics(promPath);
    ObserverScope<diag::StatisticsPollObserver, diag::SetStatisticsPollObserver> observe(
        metrics.enabled() ? diag::StatisticsPollObserver([&metrics](const std::vector<const SDMDevice *> &polled,
                                                                    const std::vector<HBAStatisticsSample> &samples) {
            metrics.Write(StatisticsMetrics(polled, samples));
        })
                          : diag::StatisticsPollObserver{});
    std::vector<SDMDevice *> run = WorkerPorts(ports);
    std::vector<HBAStatisticsSample> last(ports.size());
    const uint32_t status = CreateThreadForHBAStatistics(run.data(), static_cast<uint32_t>(run.size()), last.data());
    if (status == VTAPI_GENERAL_FAILURE)
        return {TARN_STATUS_NO_MEMORY, "Error: Unable to start the statistics monitor!"};
    if (status != VTAPI_SUCCESS)
        return {TARN_STATUS_NO_ADAPTER, "Error: No compatible HBA(s) found in current system!"};

    static const Table kPorts = {
        {"instance", "Inst", 4, 0, true},         {"errors", "Errors", 7, 1, true},
        {"device_errors", "DevErr", 7, 1, true},  {"resets", "Resets", 6, 1, true},
        {"io_count", "I/O Count", 11, 1, true},   {"io_per_second", "IOPS", 7, 1, true},
        {"bytes_per_second", "BPS", 10, 1, true}, {"time", "Time", 19, 1},
    };
    sink.Open();
    sink.Blank();
    sink.Title("Port Statistics (last poll)");
    sink.Columns(kPorts);
    sink.Rule('-');
    ListScope list(sink, "ports");
    for (size_t i = 0; i < ports.size(); ++i) {
        const SDMDevice &d = *ports[i];
        const HBAStatisticsSample &s = last[i];
        PortScope port(sink, d, PortStyle::Row);
        sink.JsonField("wwpn", Value::Text(WwnText(d.DevicePortProperty.WWPN)));
        const std::string stamp = FieldText(s.TimeStamp);
        sink.Row(kPorts, {Value::Number(d.Instance), Signed(s.Errors), Signed(s.DeviceErrors), Signed(s.Resets),
                          Signed(s.IoCount), Signed(s.IoPerSecond), Signed(s.BytesPerSecond),
                          stamp.empty() ? Value::None() : Value::Text(stamp)});
        sink.Xml([&s, &stamp] {
            XmlLine("%s<Statistics>", kIndent1);
            XmlNumber(kIndent2, "Errors", s.Errors);
            XmlNumber(kIndent2, "DeviceErrors", s.DeviceErrors);
            XmlNumber(kIndent2, "Resets", s.Resets);
            XmlNumber(kIndent2, "IOCount", s.IoCount);
            XmlNumber(kIndent2, "IOPS", s.IoPerSecond);
            XmlNumber(kIndent2, "BPS", s.BytesPerSecond);
            XML_PrintElement(kIndent2, "TimeStamp", stamp.c_str());
            XmlLine("%s</Statistics>", kIndent1);
        });
    }
    return {};
}

/* ------------------------------------------------------------------ -ls */

Result LinkStatusReport(const TarnCommand &cmd, Sink &sink) {
    std::string promPath;
    Result result = MonitorArguments(cmd, POLL_LINK_STATUS, promPath);
    if (result.status != 0) return result;
    const std::vector<const SDMDevice *> ports = SelectPorts(cmd, result);
    if (result.status != 0) return result;

    MetricsFile metrics(promPath);
    ObserverScope<diag::LinkStatusPollObserver, diag::SetLinkStatusPollObserver> observe(
        metrics.enabled()
            ? diag::LinkStatusPollObserver([&metrics](const std::vector<const SDMDevice *> &polled,
                                                      const std::vector<std::vector<LinkStatusEntry>> &read) {
                  metrics.Write(LinkStatusMetrics(polled, read));
              })
            : diag::LinkStatusPollObserver{});
    std::vector<SDMDevice *> run = WorkerPorts(ports);
    VTAPI_LinkStatusResultList *totals = nullptr;
    const uint32_t status = CreateThreadForLinkStatus(run.data(), static_cast<uint32_t>(run.size()), &totals);
    if (status == VTAPI_GENERAL_FAILURE)
        return {TARN_STATUS_NO_MEMORY, "Error: Unable to start the link status monitor!"};
    if (status != VTAPI_SUCCESS)
        return {TARN_STATUS_NO_ADAPTER, "Error: No compatible HBA(s) found in current system!"};

    // The totals list holds every port's and target's entry; each port shows
    // its own entry and those of its targets.
    static const Table kEntries = {
        {"port_name", "Port Name", 23, 0},
        {"link_failures", "LinkFail", 8, 1, true},
        {"loss_of_sync", "SyncLoss", 8, 1, true},
        {"loss_of_signal", "SigLoss", 8, 1, true},
        {"invalid_crc", "InvCRC", 8, 1, true},
        {"primitive_seq_protocol_errors", "SeqProto", 8, 1, true},
        {"invalid_transmission_words", "InvTxWrd", 8, 1, true},
    };
    auto find = [totals](const uint8_t *wwpn) {
        return totals != nullptr ? FindDeviceInLinkStatusList(totals, wwpn) : nullptr;
    };
    auto entry = [&sink](const LinkStatusEntry &e) {
        ItemScope item(sink);
        sink.JsonField("port_type", Value::Text(FieldText(e.PortType)));
        if (e.Status != 0) {
            sink.Row(kEntries, {Value::Text(WwnText(e.PortName)), Value::None(), Value::None(), Value::None(),
                                Value::None(), Value::None(), Value::None()});
            sink.Line({{"status_text", "  ", Value::Text(FieldText(e.StatusText)), 0, true},
                       {"text", "  ", Value::Text(FieldText(e.Text))}});
        } else {
            sink.Row(kEntries, {Value::Text(WwnText(e.PortName)), Value::Number(e.LinkFailureCount),
                                Value::Number(e.LossOfSyncCount), Value::Number(e.LossOfSignalCount),
                                Value::Number(e.InvalidCRCCount), Value::Number(e.PrimitiveSeqProtocolErrorCount),
                                Value::Number(e.InvalidTransmissionWordCount)});
        }
        sink.Xml([&e] {
            XmlLine("%s<LinkStatus>", kIndent1);
            XML_PrintElement(kIndent2, "PortType", e.PortType);
            XML_PrintElement(kIndent2, "PortName", WwnText(e.PortName).c_str());
            XmlNumber(kIndent2, "LinkFailure", e.LinkFailureCount);
            XmlNumber(kIndent2, "LossOfSync", e.LossOfSyncCount);
            XmlNumber(kIndent2, "LossOfSignal", e.LossOfSignalCount);
            XmlNumber(kIndent2, "InvalidCRC", e.InvalidCRCCount);
            XmlNumber(kIndent2, "PrimitiveSeqProtocolError", e.PrimitiveSeqProtocolErrorCount);
            XmlNumber(kIndent2, "InvalidTransmissionWord", e.InvalidTransmissionWordCount);
            if (e.Status != 0) XML_PrintElement(kIndent2, "ErrorText", e.Text);
            XmlLine("%s</LinkStatus>", kIndent1);
        });
    };
    sink.Open();
    sink.Blank();
    sink.Title("Link Status (totals)");
    {
        ListScope list(sink, "ports");
        for (const SDMDevice *d : ports) {
            PortScope port(sink, *d, PortStyle::Heading);
            ListScope entries(sink, "entries");
            sink.Columns(kEntries);
            if (const LinkStatusEntry *own = find(d->DevicePortProperty.WWPN)) entry(*own);
            for (const TargetEntry *t = d->Targets.First; t; t = t->next)
                if (const LinkStatusEntry *e = find(t->WWPN)) entry(*e);
        }
    }
    if (totals != nullptr) {
        FreeLinkStatusResultList(totals);
        VTAPI_FreeMem(totals);
    }
    return {};
}

}  // namespace vt::cli
