// Exported frames of the configuration calls: HBA parameters, NVRAM
// templates and files, boot devices, virtual ports and QoS, target link speed.
#include "frame.h"

extern "C" {

VTAPI_EXPORT uint32_t VTAPI_GetHBAParamsInfo(const ProtocolEntry *port, VTAPI_HBAParams *params) {
    VTAPI_FRAME_LOGGED(VTAPI_GetHBAParamsInfo, FC_GetHBAParamsInfo, port, params);
}

VTAPI_EXPORT uint32_t VTAPI_UpdateHBAParameters(const ProtocolEntry *port, const VTAPI_HBAParams *params) {
    VTAPI_FRAME_LOGGED(VTAPI_UpdateHBAParameters, FC_UpdateHBAParameters, port, params);
}

VTAPI_EXPORT uint32_t VTAPI_PostVerifyHBAParameter(const ProtocolEntry *port) {
    VTAPI_FRAME_LOGGED(VTAPI_PostVerifyHBAParameter, FC_PostVerifyHBAParameter, port);
}

VTAPI_EXPORT uint32_t VTAPI_LoadHBAParametersFromTemplateFile(const ProtocolEntry *port, uint32_t oem) {
    VTAPI_FRAME(VTAPI_LoadHBAParametersFromTemplateFile, FC_LoadHBAParametersFromTemplateFile, port, oem);
}

VTAPI_EXPORT uint32_t VTAPI_RestoreDefaultNVRAM(const ProtocolEntry *port) {
    VTAPI_FRAME(VTAPI_RestoreDefaultNVRAM, FC_RestoreDefaultNVRAM, port);
}

VTAPI_EXPORT uint32_t VTAPI_SaveSingleAdapterNVRAMToFile(const ProtocolEntry *port, const char *fileName) {
    VTAPI_FRAME(VTAPI_SaveSingleAdapterNVRAMToFile, FC_SaveSingleAdapterNVRAMToFile, port, fileName);
}

VTAPI_EXPORT uint32_t VTAPI_UpdateAdapterNVRAMFromFile(const ProtocolEntry *port, const char *fileName) {
    VTAPI_FILE_FRAME(VTAPI_UpdateAdapterNVRAMFromFile, fileName, FC_UpdateAdapterNVRAMFromFile, port, fileName);
}

VTAPI_EXPORT uint32_t VTAPI_DoGlobalNVRAMUpdateAll(const char *fileName) {
    VTAPI_FILE_FRAME(VTAPI_DoGlobalNVRAMUpdateAll, fileName, FC_DoGlobalNVRAMUpdateAll, fileName);
}

VTAPI_EXPORT uint32_t VTAPI_ResetToDefaultSettings(const ProtocolEntry *port) {
    VTAPI_FRAME(VTAPI_ResetToDefaultSettings, FC_ResetToDefaultSettings, port);
}

VTAPI_EXPORT uint32_t VTAPI_GetBootDeviceInfo(const ProtocolEntry *port, VTAPI_BootDeviceInfo *info, uint32_t which) {
    VTAPI_FRAME(VTAPI_GetBootDeviceInfo, FC_GetBootDeviceInfo, port, info, which);
}

VTAPI_EXPORT uint32_t VTAPI_SetBootDeviceInfo(const ProtocolEntry *port, const VTAPI_BootDeviceInfo *info) {
    VTAPI_FRAME(VTAPI_SetBootDeviceInfo, FC_SetBootDeviceInfo, port, info);
}

VTAPI_EXPORT uint32_t VTAPI_GetNVMeBootDeviceEntries(const ProtocolEntry *port, VTAPI_NVMeBootDeviceEntries *entries) {
    VTAPI_FRAME(VTAPI_GetNVMeBootDeviceEntries, FC_GetNVMeBootDeviceEntries, port, entries);
}

VTAPI_EXPORT uint32_t VTAPI_SetNVMeBootDeviceEntries(const ProtocolEntry *port,
                                                     const VTAPI_NVMeBootDeviceEntries *entries) {
    VTAPI_FRAME(VTAPI_SetNVMeBootDeviceEntries, FC_SetNVMeBootDeviceEntries, port, entries);
}

VTAPI_EXPORT uint32_t VTAPI_FCIsConfigureToBootFromSAN(const ProtocolEntry *port, uint32_t *configured) {
    VTAPI_FRAME(VTAPI_FCIsConfigureToBootFromSAN, FC_IsBootFromSANConfigured, port, configured);
}

VTAPI_EXPORT uint32_t VTAPI_GetBfsConfigMode(const ProtocolEntry *port, uint32_t *mode) {
    VTAPI_FRAME(VTAPI_GetBfsConfigMode, FC_GetBfsConfigMode, port, mode);
}

VTAPI_EXPORT uint32_t VTAPI_SetBfsConfigMode(const ProtocolEntry *port, uint32_t mode) {
    VTAPI_FRAME(VTAPI_SetBfsConfigMode, FC_SetBfsConfigMode, port, mode);
}

VTAPI_EXPORT uint32_t VTAPI_GetNumberofVirtualPortsSupported(const ProtocolEntry *port, uint32_t *count) {
    VTAPI_FRAME(VTAPI_GetNumberofVirtualPortsSupported, FC_GetNumberofVirtualPortsSupported, port, count);
}

VTAPI_EXPORT uint32_t VTAPI_CreateVirtualPort(const ProtocolEntry *port, const uint8_t *wwnn, const uint8_t *wwpn,
                                              uint16_t *vportId) {
    VTAPI_FRAME(VTAPI_CreateVirtualPort, FC_CreateVirtualPort, port, wwnn, wwpn, vportId);
}

VTAPI_EXPORT uint32_t VTAPI_DeleteVirtualPort(const ProtocolEntry *port, const uint8_t *vportWWPN) {
    VTAPI_FRAME(VTAPI_DeleteVirtualPort, FC_DeleteVirtualPort, port, vportWWPN);
}

VTAPI_EXPORT uint32_t VTAPI_SDGetQoS(const ProtocolEntry *port, const uint8_t *vportWWPN, SDQoS *qos) {
    VTAPI_FRAME(VTAPI_SDGetQoS, FC_SDGetQoS, port, vportWWPN, qos);
}

VTAPI_EXPORT uint32_t VTAPI_SDSetQoS(const ProtocolEntry *port, const uint8_t *vportWWPN, const SDQoS *qos) {
    VTAPI_FRAME(VTAPI_SDSetQoS, FC_SDSetQoS, port, vportWWPN, qos);
}

VTAPI_EXPORT uint32_t VTAPI_GetTargetLinkSpeed(const ProtocolEntry *port, const uint8_t *targetWWPN, uint32_t *speed) {
    VTAPI_FRAME(VTAPI_GetTargetLinkSpeed, FC_GetTargetLinkSpeed, port, targetWWPN, speed);
}

VTAPI_EXPORT uint32_t VTAPI_SetTargetLinkSpeed(const ProtocolEntry *port, const uint8_t *targetWWPN, uint32_t speed) {
    VTAPI_FRAME(VTAPI_SetTargetLinkSpeed, FC_SetTargetLinkSpeed, port, targetWWPN, speed);
}

VTAPI_EXPORT uint32_t VTAPI_SetTargetLinkSpeedToAlltargets(const ProtocolEntry *port, uint32_t speed) {
    VTAPI_FRAME(VTAPI_SetTargetLinkSpeedToAlltargets, FC_SetTargetLinkSpeedToAlltargets, port, speed);
}

}  // extern "C"
