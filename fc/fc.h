/*
 * fc/fc.h - the Fibre Channel layer: the FC_ function behind each exported
 * VTAPI_ call (vtapi_api.h), with the same stem and arguments (a 16-bit
 * sub-index where the call takes a 32-bit one).  Each is exported, so a
 * program may replace the work behind a call.
 */
#ifndef VT_FC_FC_H
#define VT_FC_FC_H

#include <stdint.h>

#include "vtapi_api.h"
#include "vtapi_events.h"

#ifdef __cplusplus
extern "C" {
#endif

/* -------------------------------------- adapter and port information */
VTAPI_EXPORT uint32_t FC_GetAdapterDecription(const AdapterEntry *adapter, char *text, uint32_t size);
VTAPI_EXPORT uint32_t FC_GetVpd(uint32_t device, uint16_t index, void *buffer, uint32_t *size);
VTAPI_EXPORT uint32_t FC_GetUUIDFromI2CVPD(uint32_t device, uint16_t index, uint8_t *uuid, uint32_t size);
VTAPI_EXPORT uint32_t FC_GetHbaDevicePortProperty(uint32_t device, uint16_t index, SDPortProperty *property);
VTAPI_EXPORT uint32_t FC_UpdatePortProperty(uint32_t device, uint16_t index);
VTAPI_EXPORT uint32_t FC_UpdateDiscTargetProperty(uint32_t device, uint16_t index, const uint8_t *targetWWPN);
VTAPI_EXPORT uint32_t FC_GetPortIndex(uint32_t device, uint16_t index, uint32_t *portIndex);
VTAPI_EXPORT uint32_t FC_IsMezzAdapter(uint32_t device, uint16_t index, uint32_t *isMezz);
VTAPI_EXPORT uint32_t FC_IsPortInMaintenanceMode(uint32_t device, uint16_t index, uint32_t *state);
VTAPI_EXPORT uint32_t FC_IsRebootRequired(uint32_t device, uint16_t index, uint32_t *state);
VTAPI_EXPORT uint32_t FC_GetLockdownStatus(uint32_t device, uint16_t index, uint32_t *state);
VTAPI_EXPORT uint32_t FC_GetAdapterVersions(const AdapterEntry *adapter, VTAPI_AdapterVersions *versions);
VTAPI_EXPORT uint32_t FC_GetFlashComponentVersion(const AdapterEntry *adapter, uint32_t component, char *version,
                                                  uint32_t size);
VTAPI_EXPORT uint32_t FC_GetMBIVersionString(const AdapterEntry *adapter, char *text, uint32_t size);
VTAPI_EXPORT uint32_t FC_GetFwPreloadTablesVersion(const AdapterEntry *adapter, char *version, uint32_t size);
VTAPI_EXPORT uint32_t FC_IsBiosAvailableWithAdapter(const AdapterEntry *adapter, uint32_t *available);
VTAPI_EXPORT uint32_t FC_IsEfiAvailableWithAdapter(const AdapterEntry *adapter, uint32_t *available);
VTAPI_EXPORT uint32_t FC_GetAdapterAlias(const ProtocolEntry *port, char *alias, uint32_t aliasType);
VTAPI_EXPORT uint32_t FC_SetAdapterAlias(const ProtocolEntry *port, const char *alias, uint32_t aliasType);

/* ----------------------------------------------------- configuration */
VTAPI_EXPORT uint32_t FC_GetHBAParamsInfo(const ProtocolEntry *port, VTAPI_HBAParams *params);
VTAPI_EXPORT uint32_t FC_UpdateHBAParameters(const ProtocolEntry *port, const VTAPI_HBAParams *params);
VTAPI_EXPORT uint32_t FC_PostVerifyHBAParameter(const ProtocolEntry *port);
VTAPI_EXPORT uint32_t FC_LoadHBAParametersFromTemplateFile(const ProtocolEntry *port, uint32_t oem);
VTAPI_EXPORT uint32_t FC_RestoreDefaultNVRAM(const ProtocolEntry *port);
VTAPI_EXPORT uint32_t FC_SaveSingleAdapterNVRAMToFile(const ProtocolEntry *port, const char *fileName);
VTAPI_EXPORT uint32_t FC_UpdateAdapterNVRAMFromFile(const ProtocolEntry *port, const char *fileName);
VTAPI_EXPORT uint32_t FC_DoGlobalNVRAMUpdateAll(const char *fileName);
VTAPI_EXPORT uint32_t FC_ResetToDefaultSettings(const ProtocolEntry *port);
VTAPI_EXPORT uint32_t FC_GetBootDeviceInfo(const ProtocolEntry *port, VTAPI_BootDeviceInfo *info, uint32_t which);
VTAPI_EXPORT uint32_t FC_SetBootDeviceInfo(const ProtocolEntry *port, const VTAPI_BootDeviceInfo *info);
VTAPI_EXPORT uint32_t FC_GetNVMeBootDeviceEntries(const ProtocolEntry *port, VTAPI_NVMeBootDeviceEntries *entries);
VTAPI_EXPORT uint32_t FC_SetNVMeBootDeviceEntries(const ProtocolEntry *port,
                                                  const VTAPI_NVMeBootDeviceEntries *entries);
VTAPI_EXPORT uint32_t FC_IsBootFromSANConfigured(const ProtocolEntry *port, uint32_t *configured);
VTAPI_EXPORT uint32_t FC_GetBfsConfigMode(const ProtocolEntry *port, uint32_t *mode);
VTAPI_EXPORT uint32_t FC_SetBfsConfigMode(const ProtocolEntry *port, uint32_t mode);
VTAPI_EXPORT uint32_t FC_GetNumberofVirtualPortsSupported(const ProtocolEntry *port, uint32_t *count);
VTAPI_EXPORT uint32_t FC_CreateVirtualPort(const ProtocolEntry *port, const uint8_t *wwnn, const uint8_t *wwpn,
                                           uint16_t *vportId);
VTAPI_EXPORT uint32_t FC_DeleteVirtualPort(const ProtocolEntry *port, const uint8_t *vportWWPN);
VTAPI_EXPORT uint32_t FC_SDGetQoS(const ProtocolEntry *port, const uint8_t *vportWWPN, SDQoS *qos);
VTAPI_EXPORT uint32_t FC_SDSetQoS(const ProtocolEntry *port, const uint8_t *vportWWPN, const SDQoS *qos);
VTAPI_EXPORT uint32_t FC_GetTargetLinkSpeed(const ProtocolEntry *port, const uint8_t *targetWWPN, uint32_t *speed);
VTAPI_EXPORT uint32_t FC_SetTargetLinkSpeed(const ProtocolEntry *port, const uint8_t *targetWWPN, uint32_t speed);
VTAPI_EXPORT uint32_t FC_SetTargetLinkSpeedToAlltargets(const ProtocolEntry *port, uint32_t speed);

/* ------------------------------------------------------------- flash */
VTAPI_EXPORT uint32_t FC_doOptionROMUpdate(const ProtocolEntry *port, const char *fileName, uint32_t options);
VTAPI_EXPORT uint32_t FC_UpdateAdapterFirmwareTableFromFile(const ProtocolEntry *port, const char *fileName);
VTAPI_EXPORT uint32_t FC_UpdateSpecificFlashRegionFromFile(const ProtocolEntry *port, const char *fileName,
                                                           uint32_t region);
VTAPI_EXPORT uint32_t FC_UpdateAdapterMpiCfgFromDatFile(const ProtocolEntry *port, const char *fileName);
VTAPI_EXPORT uint32_t FC_UpdateAdapterPEPCfgFromFile(const ProtocolEntry *port, const char *fileName);
VTAPI_EXPORT uint32_t FC_SaveAdapterSerdesRegionToFile(const ProtocolEntry *port, const char *fileName);
VTAPI_EXPORT uint32_t FC_SaveAdapterFirmwareTableToFile(const ProtocolEntry *port, const char *fileName);
VTAPI_EXPORT uint32_t FC_SaveAdapterMpiCfgToDatFile(const ProtocolEntry *port, const char *fileName);
VTAPI_EXPORT uint32_t FC_GetFlashImageVersion(const ProtocolEntry *port, const char *fileName,
                                              VTAPI_FlashImageVersion *version);
VTAPI_EXPORT uint32_t FC_GetFlashImageSupportedAdapters(const char *fileName, VTAPI_FlashImageAdapters *adapters);
VTAPI_EXPORT uint32_t FC_GetAdapterFlashMemoBlock(const ProtocolEntry *port, void *buffer, uint32_t *size);
VTAPI_EXPORT uint32_t FC_SfpModuleFirmwareUpdate(const ProtocolEntry *port, const char *fileName);

/* ------------------------------------------------------- diagnostics */
VTAPI_EXPORT uint32_t FC_DiagnosticsLoopBackTest(const ProtocolEntry *port, const VTAPI_DiagParams *params,
                                                 VTAPI_DiagResult *result);
VTAPI_EXPORT uint32_t FC_DiagnosticsReadWriteBufferTest(const ProtocolEntry *port, const VTAPI_DiagParams *params,
                                                        VTAPI_RWBufferTestResultList **results);
VTAPI_EXPORT uint32_t FC_FreeRWBufferTestResultList(VTAPI_RWBufferTestResultList *results);
VTAPI_EXPORT uint32_t FC_AbortDiagTest(const ProtocolEntry *port);
VTAPI_EXPORT uint32_t FC_DiagnosticsEchoElsTest(const ProtocolEntry *port, const uint8_t *targetWWPN, void *result,
                                                uint32_t *size);
VTAPI_EXPORT uint32_t FC_DiagnosticsRDPTest(const ProtocolEntry *port, const uint8_t *targetWWPN, void *result,
                                            uint32_t *size);
VTAPI_EXPORT uint32_t FC_DiagnosticsFCPingTest(const ProtocolEntry *port, const uint8_t *targetWWPN, void *result,
                                               uint32_t *size);
VTAPI_EXPORT uint32_t FC_DiagnosticsCTCommand(const ProtocolEntry *port, const void *request, uint32_t requestSize,
                                              void *response, uint32_t *responseSize);
VTAPI_EXPORT uint32_t FC_CheckAdapterDPortOption(const ProtocolEntry *port, uint32_t *supported);
VTAPI_EXPORT uint32_t FC_ConfigureAdapterDPortSettings(const ProtocolEntry *port, uint32_t enable);
VTAPI_EXPORT uint32_t FC_DiagnosticsDPortTest(const ProtocolEntry *port, void *result, uint32_t *size);
VTAPI_EXPORT uint32_t FC_DiagnosticsDPortTestEX(const ProtocolEntry *port, void *result, uint32_t *size);
VTAPI_EXPORT uint32_t FC_DiagnosticsDPortTestV2(const ProtocolEntry *port, void *result, uint32_t *size);
VTAPI_EXPORT uint32_t FC_UpdateAdapterBeaconStatus(const ProtocolEntry *port, uint32_t on);
VTAPI_EXPORT uint32_t FC_GetAdapterBeaconStatus(const ProtocolEntry *port, uint32_t *on);

/* ---------------------------------------- link status and statistics */
VTAPI_EXPORT uint32_t FC_GetLinkStatus(const ProtocolEntry *port, VTAPI_LinkStatusResultList **results);
VTAPI_EXPORT uint32_t FC_FreeLinkStatusResultList(VTAPI_LinkStatusResultList *results);
VTAPI_EXPORT uint32_t FC_GetPortStatisticsFC(const ProtocolEntry *port, VTAPI_PortStatistics *statistics);
VTAPI_EXPORT uint32_t FC_RefreshDeviceStats(const ProtocolEntry *port);
VTAPI_EXPORT uint32_t FC_ResetDeviceStats(const ProtocolEntry *port);
VTAPI_EXPORT uint32_t FC_GetFWPrivateStats(const ProtocolEntry *port, void *buffer, uint32_t *size);
VTAPI_EXPORT uint32_t FC_GetSCMRStatisticsList(const ProtocolEntry *port, VTAPI_SCMRStatisticsList **list);
VTAPI_EXPORT uint32_t FC_FreeSCMRStatisticsList(VTAPI_SCMRStatisticsList *list);
VTAPI_EXPORT uint32_t FC_SANCongMgmtResetStatistics(const ProtocolEntry *port);
VTAPI_EXPORT uint32_t FC_GetSCMRProfile(const ProtocolEntry *port, uint32_t *profile);
VTAPI_EXPORT uint32_t FC_SetSCMRProfile(const ProtocolEntry *port, uint32_t profile);
VTAPI_EXPORT uint32_t FC_IsUSCMFeatureEnabled(const ProtocolEntry *port, uint32_t *enabled);

/* -------------------------------------------- other adapter features */
VTAPI_EXPORT uint32_t FC_SDGetFwDump(const ProtocolEntry *port, void *buffer, uint32_t *size);
VTAPI_EXPORT uint32_t FC_SDGetFwDump2(const ProtocolEntry *port, void *buffer, uint32_t *size);
VTAPI_EXPORT uint32_t FC_SDGetTraceBuffer(const ProtocolEntry *port, void *buffer, uint32_t *size);
VTAPI_EXPORT uint32_t FC_GetSFPData(const ProtocolEntry *port, void *buffer, uint32_t *size);
VTAPI_EXPORT uint32_t FC_SaveSFPDataToFile(const ProtocolEntry *port, const char *fileName);
VTAPI_EXPORT uint32_t FC_SaveSFPDataToTextFile(const ProtocolEntry *port, const char *fileName);
VTAPI_EXPORT uint32_t FC_GetAdapterAsicBoardTemperature(const ProtocolEntry *port, int32_t *celsius);
VTAPI_EXPORT uint32_t FC_GetEDCChipsetVersion(const ProtocolEntry *port, char *version, uint32_t size);
VTAPI_EXPORT uint32_t FC_GetAdapterEDCChipsetStatus(const ProtocolEntry *port, uint32_t *status);
VTAPI_EXPORT uint32_t FC_GetAdapterEDCSettings(const ProtocolEntry *port, void *buffer, uint32_t *size);
VTAPI_EXPORT uint32_t FC_GetFECSupportInfo(const ProtocolEntry *port, void *buffer, uint32_t *size);
VTAPI_EXPORT uint32_t FC_SetFECSupportInfo(const ProtocolEntry *port, const void *buffer, uint32_t size);
VTAPI_EXPORT uint32_t FC_ResetFECCounters(const ProtocolEntry *port);
VTAPI_EXPORT uint32_t FC_GetBBCSupportInfo(const ProtocolEntry *port, void *buffer, uint32_t *size);
VTAPI_EXPORT uint32_t FC_GetBBCSupportInfoEx(const ProtocolEntry *port, void *buffer, uint32_t *size);
VTAPI_EXPORT uint32_t FC_SetBBCSupportInfo(const ProtocolEntry *port, const void *buffer, uint32_t size);
VTAPI_EXPORT uint32_t FC_GetDCBXParams(const ProtocolEntry *port, void *buffer, uint32_t *size);
VTAPI_EXPORT uint32_t FC_CheckOrlaPersonalityChangeOption(const ProtocolEntry *port, uint32_t *supported);
VTAPI_EXPORT uint32_t FC_GetPersonalityType(const ProtocolEntry *port, uint32_t *type);
VTAPI_EXPORT uint32_t FC_ChangePersonalityType(const ProtocolEntry *port, uint32_t type);
VTAPI_EXPORT uint32_t FC_GetMpiConfigTableParams(const ProtocolEntry *port, void *buffer, uint32_t *size);
VTAPI_EXPORT uint32_t FC_GetDCEStatistics(const ProtocolEntry *port, void *buffer, uint32_t *size);
VTAPI_EXPORT uint32_t FC_GetFCFPrimVLANConfig(const ProtocolEntry *port, void *buffer, uint32_t *size);
VTAPI_EXPORT uint32_t FC_SetFCFPrimVLANConfig(const ProtocolEntry *port, const void *buffer, uint32_t size);
VTAPI_EXPORT uint32_t FC_GetFCoEGeneralInfo(const ProtocolEntry *port, void *buffer, uint32_t *size);

/* -------------------------------------------------------------- events */
/* Polls the adapter events and port states (VTAPI_DidConfigChange) and sets
 * guConfigChanged when the device model must be rebuilt. */
VTAPI_EXPORT void FC_CorePollForAEN(void);
VTAPI_EXPORT uint32_t FC_GenerateHostNotificationAlarm(uint32_t device, uint32_t reserved1, uint32_t status,
                                                       uint32_t reserved2);

/* Checks the sizes of the FC layer's exchange records; 0 when they match. */
VTAPI_EXPORT uint32_t CheckFCStructureSizes(void);

#ifdef __cplusplus
}
#endif

#endif /* VT_FC_FC_H */
