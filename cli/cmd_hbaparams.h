/*
 * cli/cmd_hbaparams.h - XML emitters of the HBA-parameter (-c) and
 * boot-device (-e) displays.  As every XML_Emit<Name>, the format-1 name
 * hands over to its format-2 twin when bXmlOutPut2 is set.
 */
#ifndef VT_CLI_CMD_HBAPARAMS_H
#define VT_CLI_CMD_HBAPARAMS_H

#include "vtapi.h"
#include "vtapi_api.h"
#include "vtapi_cli.h"

#ifdef __cplusplus
extern "C" {
#endif

/* One element a parameter, "\t<Name>value</Name>", value as a number. */
VTAPI_EXPORT void XML_EmitHBAParamSettings(const SDMDevice *device, const VTAPI_HBAParams *record);
VTAPI_EXPORT void XML_2_EmitHBAParamSettings(const SDMDevice *device, const VTAPI_HBAParams *record);
/* The boot switches as elements, then one BootDevice element a drive. */
VTAPI_EXPORT void XML_EmitBootDeviceInfo(const SDMDevice *device, const VTAPI_BootDeviceInfo *info);
VTAPI_EXPORT void XML_2_EmitBootDeviceInfo(const SDMDevice *device, const VTAPI_BootDeviceInfo *info);
/* One NVMeBootDevice element a drive in use of the FC-NVMe boot block. */
VTAPI_EXPORT void XML_EmitNVMeBootDevices(const SDMDevice *device, const VTAPI_NVMeBootDeviceEntries *block);
VTAPI_EXPORT void XML_2_EmitNVMeBootDevices(const SDMDevice *device, const VTAPI_NVMeBootDeviceEntries *block);

#ifdef __cplusplus
}

#include <string>
#include <vector>

#include "cli/commands.h"
#include "config/nvram_config.h"

namespace vt::cli {

// The number a display row stands for: switches as 1 or 0, coded values
// ("2 - Auto") by their code.
uint64_t RowNumber(const config::ReportRow &row);
// The ports an NVRAM command works on: virtual ports share their physical
// port's NVRAM, so "all" passes over them and naming one fails (286).
std::vector<const SDMDevice *> NvramPorts(const TarnCommand &command, Result &result);
// The configuration layer's text for a failure, or the status as text.
std::string ConfigFailureText(uint32_t status);
// The command's result for a refused configuration call: its status (61
// where the backend cannot reach NVRAM or flash at all) and its message.
Result ConfigFailure(uint32_t status);

// Keeps the configuration layer's progress lines ("Info: Updating ...")
// out of an XML or JSON document while it lives.
class DocumentQuiet {
public:
    explicit DocumentQuiet(const TarnCommand &command);
    ~DocumentQuiet();
    DocumentQuiet(const DocumentQuiet &) = delete;
    DocumentQuiet &operator=(const DocumentQuiet &) = delete;

private:
    int32_t saved_;
};

}  // namespace vt::cli
#endif

#endif /* VT_CLI_CMD_HBAPARAMS_H */
