// The diagnostic commands: -kl (loopback test) and -kr (read/write buffer
// test).  Their NAME=VALUE arguments fill the library's diagnostic table;
// the test runs on every selected port at once, its progress on the screen
// (standard error in XML and JSON mode), and the report gives the outcome
// per port (-kl) or per target (-kr).
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "cli/cmd_diag_params.h"
#include "cli/reports.h"
#include "cli/xml.h"
#include "core/core.h"
#include "diag/diag.h"

namespace vt::cli {
namespace {

constexpr const char kIndent1[] = "\t";
constexpr const char kIndent2[] = "\t\t";
constexpr const char kTopIndent[] = "    ";
constexpr const char kTopIndent2[] = "        ";

// Exit status of a failed test whose run has no result code of its own.
constexpr int32_t kTestFailed = 1;

void XmlNumber(const char *indent, const char *name, uint64_t n) {
    XML_PrintElement(indent, name, std::to_string(n).c_str());
}

// The table the test ran with, once before the ports.
void Parameters(Sink &sink, bool loopback) {
    static const struct {
        uint32_t row;
        const char *key;
        const char *label;
    } kRows[] = {
        {DIAG_ROW_DATA_PATTERN, "data_pattern", "Data Pattern"},
        {DIAG_ROW_DATA_SIZE, "data_size", "Data Size"},
        {DIAG_ROW_TEST_COUNT, "test_count", "Test Count"},
        {DIAG_ROW_TEST_INCREMENT, "test_increment", "Test Increment"},
        {DIAG_ROW_ON_ERROR, "on_error", "On Error"},
        {DIAG_ROW_LOOPBACK_TYPE, "loopback_type", "Loopback Type"},
    };
    ObjectScope object(sink, "parameters");
    for (const auto &r : kRows) {
        if (!loopback && r.row == DIAG_ROW_LOOPBACK_TYPE) continue;
        const std::string value = FieldText(g_UserDiagnosticsTable[r.row].Value);
        uint32_t n = 0;
        const bool number = r.row != DIAG_ROW_DATA_PATTERN && std::sscanf(value.c_str(), "%u", &n) == 1;
        sink.Field(r.key, r.label, number ? Value::Number(n, value) : Value::Text(value));
    }
    sink.Xml([loopback] {
        XmlLine("%s<DiagnosticsParameters>", kTopIndent);
        for (const auto &r : kRows)
            if (loopback || r.row != DIAG_ROW_LOOPBACK_TYPE)
                XML_PrintElement(kTopIndent2, g_UserDiagnosticsTable[r.row].Name, g_UserDiagnosticsTable[r.row].Value);
        XmlLine("%s</DiagnosticsParameters>", kTopIndent);
    });
    sink.Blank();
}

// The explanation of a failed run, on one line.
std::string RunText(const char *text) {
    std::string s = text;
    while (!s.empty() && (s.back() == '\n' || s.back() == ' ')) s.pop_back();
    return s;
}

bool Failed(const VTAPI_DiagResult &r, uint32_t status) { return r.RunsFailed > 0 || status != VTAPI_SUCCESS; }

// The status of a failed port: its run's result code (40 parameter error,
// 41 loop down, 42 errors, 61 not supported, 115 memory), else 1.
int32_t FailureStatus(const VTAPI_DiagResult &r) {
    const uint32_t code = r.LastRun.ResultCode;
    return code != 0 && code <= 255 ? static_cast<int32_t>(code) : kTestFailed;
}

std::string FailureMessage(const char *test, size_t failed, size_t ports) {
    return std::string("Error: ") + test + " failed on " + std::to_string(failed) + " of " + std::to_string(ports) +
           " port(s)!";
}

}  // namespace

/* ------------------------------------------------------------------ -kl */

Result LoopbackReport(const TarnCommand &cmd, Sink &sink) {
    Result result = SetDiagnosticParameters(cmd, DIAG_TEST_LOOPBACK);
    if (result.status != 0) return result;
    std::vector<const SDMDevice *> ports = SelectPorts(cmd, result);
    if (result.status != 0) return result;
    // Virtual ports have no loopback: "all" leaves them out, a virtual port
    // chosen by name is refused.
    std::vector<const SDMDevice *> physical;
    for (const SDMDevice *d : ports)
        if (!isVirtualPortHBA(d)) physical.push_back(d);
    if (physical.empty())
        return {TARN_STATUS_NOT_SUPPORTED, "Error: The loopback test is not supported on a virtual port!"};
    ports = physical;

    std::vector<SDMDevice *> run = WorkerPorts(ports);
    std::vector<VTAPI_DiagResult> results(ports.size());
    const uint32_t status = CreateLoopbackThreadTest(run.data(), static_cast<uint32_t>(run.size()), results.data());
    if (status == VTAPI_GENERAL_FAILURE) return {TARN_STATUS_NO_MEMORY, "Error: Unable to start the loopback test!"};

    static const Table kPorts = {
        {"instance", "Inst", 4, 0, true},
        {"wwpn", "WWPN", 23, 2},
        {"test_status", "Test Status", 13, 2, false, 13},
        {"runs", "Runs", 6, 1, true},
        {"failed_runs", "Failed", 6, 1, true},
        {"iterations", "Iterations", 10, 1, true},
        {"stopped", "Stopped", 7, 1, true},
    };
    sink.Open();
    sink.Blank();
    sink.Title("Loopback Test Results");
    Parameters(sink, true);
    sink.Columns(kPorts);
    sink.Rule('-');
    size_t failed = 0;
    int32_t firstStatus = 0;
    {
        ListScope list(sink, "ports");
        for (size_t i = 0; i < ports.size(); ++i) {
            const SDMDevice &d = *ports[i];
            const VTAPI_DiagResult &r = results[i];
            PortScope port(sink, d, PortStyle::Row);
            const std::string testStatus =
                r.RunsDone > 0 || r.LastRun.TestStatus[0] ? FieldText(r.LastRun.TestStatus) : std::string("Not Run");
            sink.Row(kPorts, {Value::Number(d.Instance), Value::Text(WwnText(d.DevicePortProperty.WWPN)),
                              Value::Text(testStatus), Value::Number(r.RunsDone), Value::Number(r.RunsFailed),
                              Value::Number(r.IterationsDone), Value::Text(r.Aborted ? "yes" : "no")});
            sink.Line({{"crc_errors", "      Errors: CRC ", Value::Number(r.CrcErrors)},
                       {"disparity_errors", ", disparity ", Value::Number(r.DisparityErrors)},
                       {"frame_length_errors", ", frame length ", Value::Number(r.FrameLengthErrors)}});
            const std::string text = RunText(r.LastRun.Text);
            if (!text.empty()) sink.Line({{"text", "      ", Value::Text(text)}});
            sink.Xml([&r, &testStatus, &text] {
                XmlLine("%s<LoopbackTest>", kIndent1);
                XML_PrintElement(kIndent2, "TestStatus", testStatus.c_str());
                XmlNumber(kIndent2, "Runs", r.RunsDone);
                XmlNumber(kIndent2, "FailedRuns", r.RunsFailed);
                XmlNumber(kIndent2, "Iterations", r.IterationsDone);
                XmlNumber(kIndent2, "Stopped", r.Aborted);
                XmlNumber(kIndent2, "CRCError", r.CrcErrors);
                XmlNumber(kIndent2, "DisparityError", r.DisparityErrors);
                XmlNumber(kIndent2, "FrameLengthError", r.FrameLengthErrors);
                if (!text.empty()) XML_PrintElement(kIndent2, "ErrorText", text.c_str());
                XmlLine("%s</LoopbackTest>", kIndent1);
            });
            if (!Failed(r, VTAPI_SUCCESS)) continue;
            if (failed++ == 0) firstStatus = FailureStatus(r);
        }
    }
    if (failed > 0) return {firstStatus, FailureMessage("Loopback test", failed, ports.size())};
    return {};
}

/* ------------------------------------------------------------------ -kr */

Result ReadWriteBufferReport(const TarnCommand &cmd, Sink &sink) {
    Result result = SetDiagnosticParameters(cmd, DIAG_TEST_READ_WRITE_BUFFER);
    if (result.status != 0) return result;
    std::vector<const SDMDevice *> ports = SelectPorts(cmd, result);
    if (result.status != 0) return result;

    std::vector<SDMDevice *> run = WorkerPorts(ports);
    std::vector<VTAPI_RWBufferTestResultList> results(ports.size());
    const uint32_t status =
        CreateReadWriteBufferThreadTest(run.data(), static_cast<uint32_t>(run.size()), results.data());
    if (status == VTAPI_GENERAL_FAILURE) {
        for (auto &list : results) FreeRWBufferTestResults(&list);
        return {TARN_STATUS_NO_MEMORY, "Error: Unable to start the read/write buffer test!"};
    }

    static const Table kTargets = {
        {"target_wwpn", "Target WWPN", 23, 2},           {"loop_id", "Loop ID", 7, 1, true},
        {"status", "Status", 16, 2, false, 16},          {"runs", "Runs", 5, 1, true},
        {"data_miscompares", "Miscompare", 10, 1, true},
    };
    sink.Open();
    sink.Blank();
    sink.Title("Read/Write Buffer Test Results");
    Parameters(sink, false);
    size_t failed = 0;
    {
        ListScope list(sink, "ports");
        for (size_t i = 0; i < ports.size(); ++i) {
            const SDMDevice &d = *ports[i];
            PortScope port(sink, d, PortStyle::Heading);
            bool portFailed = false;
            {
                ListScope targets(sink, "targets");
                if (results[i].First == nullptr) sink.Note("  (no target tested)");
                else sink.Columns(kTargets);
                for (const VTAPI_RWBufferTestResult *e = results[i].First; e; e = e->next) {
                    ItemScope item(sink);
                    const std::string text = RunText(e->Text);
                    sink.Row(kTargets, {Value::Text(WwnText(e->TargetWWPN)), Value::Number(e->LoopId),
                                        Value::Text(FieldText(e->Status)), Value::Number(e->RunsDone),
                                        Value::Number(e->DataMiscompares)});
                    sink.Line({{"link_failures", "      Link failure ", Value::Number(e->LinkFailureCount)},
                               {"loss_of_sync", ", loss of sync ", Value::Number(e->LossOfSyncCount)},
                               {"loss_of_signal", ", loss of signal ", Value::Number(e->LossOfSignalCount)},
                               {"invalid_crc", ", invalid CRC ", Value::Number(e->InvalidCRCCount)}});
                    const bool passed = std::strcmp(e->Status, "Success") == 0;
                    if (!text.empty() && !passed) sink.Line({{"text", "      ", Value::Text(text)}});
                    // Targets left out (disabled, not present) are not failures.
                    if (!passed && e->RunsDone > 0) portFailed = true;
                    sink.Xml([e, &text, passed] {
                        XmlLine("%s<ReadWriteBufferTest>", kIndent1);
                        XML_PrintElement(kIndent2, "TargetWWPN", WwnText(e->TargetWWPN).c_str());
                        XmlNumber(kIndent2, "LoopID", e->LoopId);
                        XML_PrintElement(kIndent2, "Status", e->Status);
                        XmlNumber(kIndent2, "Runs", e->RunsDone);
                        XmlNumber(kIndent2, "DataMiscompare", e->DataMiscompares);
                        XmlNumber(kIndent2, "LinkFailure", e->LinkFailureCount);
                        XmlNumber(kIndent2, "LossOfSync", e->LossOfSyncCount);
                        XmlNumber(kIndent2, "LossOfSignal", e->LossOfSignalCount);
                        XmlNumber(kIndent2, "InvalidCRC", e->InvalidCRCCount);
                        if (!text.empty() && !passed) XML_PrintElement(kIndent2, "ErrorText", text.c_str());
                        XmlLine("%s</ReadWriteBufferTest>", kIndent1);
                    });
                }
            }
            if (portFailed) ++failed;
        }
    }
    for (auto &list : results) FreeRWBufferTestResults(&list);
    if (failed > 0) return {kTestFailed, FailureMessage("Read/write buffer test", failed, ports.size())};
    return {};
}

}  // namespace vt::cli
