// The HBA-parameter commands: -c shows the NVRAM settings of the selected
// ports, -n changes them (by name or alias, from a template, back to the
// defaults, or from a saved NVRAM file) and saves them to a file.
#include <strings.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "cli/cmd_hbaparams.h"
#include "cli/reports.h"
#include "cli/xml.h"
#include "config/nvram_config.h"
#include "core/core.h"
#include "oss/oss.h"

namespace vt::cli {

using config::ReportRow;

uint64_t RowNumber(const ReportRow &row) {
    if (row.value == "Enabled") return 1;
    if (row.value == "Disabled") return 0;
    return std::strtoull(row.value.c_str(), nullptr, 10);
}

std::vector<const SDMDevice *> NvramPorts(const TarnCommand &cmd, Result &result) {
    std::vector<const SDMDevice *> ports;
    for (const SDMDevice *d : SelectPorts(cmd, result)) {
        if (!isVirtualPortHBA(d)) ports.push_back(d);
        else if (cmd.Selection != TARN_SELECT_ALL)
            result = {int32_t(config::kVirtualPort),
                      "Ignored virtual HBA (" + WwnText(d->DevicePortProperty.WWPN) + ")!"};
    }
    if (result.status == 0 && ports.empty())
        result = {TARN_STATUS_NO_ADAPTER, "No compatible HBA(s) found in current system !"};
    return ports;
}

std::string ConfigFailureText(uint32_t status) {
    const char *text = config::ConfigErrorText();
    std::string message =
        text != nullptr && text[0] != '\0' ? std::string(text) : "Error: status " + std::to_string(status);
    // A backend without NVRAM or flash access (the Linux driver's) says so.
    if (status == SDERR_NOT_SUPPORTED) message += std::string(" ") + SDGetErrorString(status) + ".";
    return message;
}

Result ConfigFailure(uint32_t status) {
    return {status == SDERR_NOT_SUPPORTED ? TARN_STATUS_NOT_SUPPORTED : int32_t(status), ConfigFailureText(status)};
}

DocumentQuiet::DocumentQuiet(const TarnCommand &cmd) : saved_(g_bOperateInQuietMode) {
    if (cmd.Output != TARN_OUTPUT_TEXT) g_bOperateInQuietMode = 1;
}

DocumentQuiet::~DocumentQuiet() { g_bOperateInQuietMode = saved_; }

namespace {

constexpr int kParamLabelWidth = 40;

SDMDevice *Writable(const SDMDevice *d) { return const_cast<SDMDevice *>(d); }

/* ------------------------------------------------------------------ -n */

enum class Action { Set, Template, TemplateFile, RestoreDefaults, ResetDefaults, Save, Restore, Global };

struct Request {
    Action action = Action::Set;
    std::string file;  // file or OEM name
    bool oemGiven = false;
};

Result ParseRequest(const TarnCommand &cmd, Request &req) {
    const auto bad = [&](const std::string &text) { return Result{TARN_STATUS_UNKNOWN_PARAM, text}; };
    if (cmd.SubArgCount == 0)
        return bad(std::string("Error: Option ") + cmd.Option + " needs parameter names and values, or an action!");
    const char *first = cmd.SubArgs[0];
    struct Word {
        const char *word;
        Action action;
        int args;  // -1: optional one
    };
    static const Word kWords[] = {
        {"template", Action::Template, -1},
        {"template-file", Action::TemplateFile, 1},
        {"restore-defaults", Action::RestoreDefaults, 0},
        {"reset-defaults", Action::ResetDefaults, 0},
        {"save", Action::Save, 1},
        {"restore", Action::Restore, 1},
        {"global", Action::Global, 1},
    };
    for (const Word &w : kWords) {
        if (strcasecmp(first, w.word) != 0) continue;
        const uint32_t extra = cmd.SubArgCount - 1;
        if ((w.args >= 0 && extra != uint32_t(w.args)) || (w.args < 0 && extra > 1))
            return bad(std::string("Error: Wrong number of arguments for '") + w.word + "' of option " + cmd.Option +
                       "!");
        req.action = w.action;
        req.oemGiven = extra == 1;
        if (extra == 1) req.file = cmd.SubArgs[1];
        return {};
    }
    // NAME VALUE pairs: every name and value is checked before anything is
    // written.
    if (cmd.SubArgCount % 2 != 0)
        return bad(std::string("Error: Parameter '") + cmd.SubArgs[cmd.SubArgCount - 1] + "' has no value!");
    InitializeParamTable();
    for (uint32_t i = 0; i < cmd.SubArgCount; i += 2) {
        char name[TARN_SUBARG_SIZE], value[TARN_SUBARG_SIZE];
        std::snprintf(name, sizeof name, "%s", cmd.SubArgs[i]);
        std::snprintf(value, sizeof value, "%s", cmd.SubArgs[i + 1]);
        config::ClearConfigErrorText();
        if (ValidateParamName(name) < 0) return {TARN_STATUS_UNKNOWN_PARAM, config::ConfigErrorText()};
        config::ClearConfigErrorText();
        if (ParseNVRAMParameter(name, value) != 0) {
            // A refused value without a message of its own (EnableReceiveOutOfOrderFrame)
            // gets the general one.
            const char *text = config::ConfigErrorText();
            return {TARN_STATUS_BAD_VALUE, text[0] != '\0' ? text : "Invalid HBA parameter name/value!"};
        }
        // The name as typed: an alias shared by two rows ("PD") sets both.
        AddUserNVRAMConfig(name, int32_t(std::strtol(value, nullptr, 10)));
    }
    return {};
}

// Runs the request on one port; the text to show in `message`.
uint32_t Apply(const Request &req, SDMDevice *d, std::string &message) {
    config::ClearConfigErrorText();
    SetNoRebootRequired(1);
    uint32_t rc = 0;
    switch (req.action) {
    case Action::Set:
        rc = UpdateUserNVRAMConfig(d, User_NVRam_Entry, 0);
        message = rc == 0 ? config::ConfigCompletionText(d) : ConfigFailureText(rc);
        return rc;
    case Action::Template:
    case Action::TemplateFile: {
        const uint32_t oem =
            req.action == Action::Template && req.oemGiven ? FindOEMType(req.file.c_str()) : config::OemOfDevice(d);
        rc = req.action == Action::Template ? LoadHBAParametersFromTemplateFile(d, oem)
                                            : UpdateHBAParametersFromTemplateFile(d, req.file.c_str(), oem);
        message = rc == 0 ? config::TemplateResultText(0, d, req.file) : ConfigFailureText(rc);
        return rc;
    }
    case Action::RestoreDefaults: rc = RestoreDefaultNVRAM(d); break;
    case Action::ResetDefaults: rc = ResetToDefaultSettings(d); break;
    case Action::Save: rc = SaveSingleAdapterNVRAMToBinaryFile(d, req.file.c_str()); break;
    case Action::Restore:
        rc = UpdateAdapterNVRAMFromFile(d, req.file.c_str());
        if (rc == 0) {
            message = config::ConfigCompletionText(d);
            return rc;
        }
        break;
    case Action::Global: rc = UpdateAdapterGlobalNVRAMFromFile(d, req.file.c_str()); break;
    }
    message = ConfigFailureText(rc);
    return rc;
}

// Whether a successful action has left a change that a reboot applies.
bool NeedsReboot(const Request &req, const std::string &message) {
    if (req.action == Action::Save) return false;
    if (req.action == Action::Global) return true;
    return config::RebootRequired() || message.find("reboot is required") != std::string::npos;
}

}  // namespace

/* ------------------------------------------------------------------ -c */

Result HBAParamsReport(const TarnCommand &cmd, Sink &sink) {
    if (cmd.SubArgCount > 0)
        return {TARN_STATUS_UNKNOWN_PARAM,
                std::string("Error: Unexpected argument '") + cmd.SubArgs[0] + "' for option " + cmd.Option + "!"};
    const DocumentQuiet quiet(cmd);
    Result result;
    const auto ports = NvramPorts(cmd, result);
    if (result.status != 0) return result;
    // Every port is read before anything is shown, so that a failure is a
    // document of its own.
    std::vector<VTAPI_HBAParams> records(ports.size());
    for (size_t i = 0; i < ports.size(); ++i) {
        config::ClearConfigErrorText();
        const uint32_t rc = GetHBAParamsInfo(Writable(ports[i]), &records[i], nullptr, 0);
        if (rc != 0) return ConfigFailure(rc);
    }
    sink.Open();
    ListScope list(sink, "ports");
    for (size_t i = 0; i < ports.size(); ++i) {
        const SDMDevice &d = *ports[i];
        PortScope port(sink, d, PortStyle::Heading);
        const std::vector<ReportRow> rows = config::HBAParamsReport(&d, records[i]);
        ObjectScope params(sink, "parameters");
        for (const ReportRow &row : rows)
            sink.Field(row.element.c_str(), row.label.c_str(), Value::Number(RowNumber(row), row.value),
                       kParamLabelWidth);
        const VTAPI_HBAParams &record = records[i];
        sink.Xml([&d, &record] { XML_EmitHBAParamSettings(&d, &record); });
    }
    return result;
}

Result ModifyParamsReport(const TarnCommand &cmd, Sink &sink) {
    const DocumentQuiet quiet(cmd);
    Request req;
    Result result = ParseRequest(cmd, req);
    if (result.status != 0) return result;
    const auto ports = NvramPorts(cmd, result);
    if (result.status != 0) return result;
    // One file holds one port's image.
    if ((req.action == Action::Save || req.action == Action::Restore) && ports.size() > 1)
        return {TARN_STATUS_BAD_VALUE, std::string("Error: Option ") + cmd.Option + " " + cmd.SubArgs[0] +
                                           " works on one port: name the HBA!"};
    sink.Open();
    ListScope list(sink, "ports");
    for (const SDMDevice *d : ports) {
        std::string message;
        const uint32_t rc = Apply(req, Writable(d), message);
        if (rc != 0) return {ConfigFailure(rc).status, message};
        PortScope port(sink, *d, PortStyle::Row);
        sink.JsonField("instance", Value::Number(d->Instance));
        sink.JsonField("wwpn", Value::Text(WwnText(d->DevicePortProperty.WWPN)));
        sink.Line({{"message", "", Value::Text(message)}});
        if (NeedsReboot(req, message)) sink.Reboot();
    }
    return result;
}

}  // namespace vt::cli

/* ------------------------------------------------------------- XML emitters */

namespace {

void ParamSettingsBody(const SDMDevice *device, const VTAPI_HBAParams *record) {
    for (const vt::config::ReportRow &row : vt::config::HBAParamsReport(device, *record))
        XML_PrintElement("\t", row.element.c_str(), std::to_string(vt::cli::RowNumber(row)).c_str());
}

}  // namespace

extern "C" {

VTAPI_EXPORT void XML_EmitHBAParamSettings(const SDMDevice *device, const VTAPI_HBAParams *record) {
    if (bXmlOutPut2) {
        XML_2_EmitHBAParamSettings(device, record);
        return;
    }
    if (device != nullptr && record != nullptr) ParamSettingsBody(device, record);
}

VTAPI_EXPORT void XML_2_EmitHBAParamSettings(const SDMDevice *device, const VTAPI_HBAParams *record) {
    if (device != nullptr && record != nullptr) ParamSettingsBody(device, record);
}

}  // extern "C"
