// Exported frames of the remaining adapter features: firmware dumps and
// traces, transceiver data, temperature, EDC, FEC and buffer credits, and
// the converged-adapter settings.
#include "frame.h"

extern "C" {

VTAPI_EXPORT uint32_t VTAPI_SDGetFwDump(const ProtocolEntry *port, void *buffer, uint32_t *size) {
    VTAPI_FRAME(VTAPI_SDGetFwDump, FC_SDGetFwDump, port, buffer, size);
}

VTAPI_EXPORT uint32_t VTAPI_SDGetFwDump2(const ProtocolEntry *port, void *buffer, uint32_t *size) {
    VTAPI_FRAME(VTAPI_SDGetFwDump2, FC_SDGetFwDump2, port, buffer, size);
}

VTAPI_EXPORT uint32_t VTAPI_SDGetTraceBuffer(const ProtocolEntry *port, void *buffer, uint32_t *size) {
    VTAPI_FRAME(VTAPI_SDGetTraceBuffer, FC_SDGetTraceBuffer, port, buffer, size);
}

// Not applicable in this build, deliberately: no FC_ function behind it.
VTAPI_EXPORT uint32_t VTAPI_SDGetMPIFwDump(void) {
    ProfilerEnterFunction("VTAPI_SDGetMPIFwDump");
    const uint32_t frameStatus = VTAPI_FUNCTION_NOT_APPLICABLE;
    VTAPI_RETURN_FRAMED(VTAPI_SDGetMPIFwDump, frameStatus);
}

VTAPI_EXPORT uint32_t VTAPI_GetSFPData(const ProtocolEntry *port, void *buffer, uint32_t *size) {
    VTAPI_FRAME(VTAPI_GetSFPData, FC_GetSFPData, port, buffer, size);
}

VTAPI_EXPORT uint32_t VTAPI_SaveSFPDataToFile(const ProtocolEntry *port, const char *fileName) {
    VTAPI_FRAME(VTAPI_SaveSFPDataToFile, FC_SaveSFPDataToFile, port, fileName);
}

VTAPI_EXPORT uint32_t VTAPI_SaveSFPDataToTextFile(const ProtocolEntry *port, const char *fileName) {
    VTAPI_FRAME(VTAPI_SaveSFPDataToTextFile, FC_SaveSFPDataToTextFile, port, fileName);
}

VTAPI_EXPORT uint32_t VTAPI_GetAdapterAsicBoardTemperature(const ProtocolEntry *port, int32_t *celsius) {
    VTAPI_FRAME(VTAPI_GetAdapterAsicBoardTemperature, FC_GetAdapterAsicBoardTemperature, port, celsius);
}

VTAPI_EXPORT uint32_t VTAPI_GetEDCChipsetVersion(const ProtocolEntry *port, char *version, uint32_t size) {
    VTAPI_FRAME(VTAPI_GetEDCChipsetVersion, FC_GetEDCChipsetVersion, port, version, size);
}

VTAPI_EXPORT uint32_t VTAPI_GetAdapterEDCChipsetStatus(const ProtocolEntry *port, uint32_t *status) {
    VTAPI_FRAME(VTAPI_GetAdapterEDCChipsetStatus, FC_GetAdapterEDCChipsetStatus, port, status);
}

VTAPI_EXPORT uint32_t VTAPI_GetAdapterEDCSettings(const ProtocolEntry *port, void *buffer, uint32_t *size) {
    VTAPI_FRAME(VTAPI_GetAdapterEDCSettings, FC_GetAdapterEDCSettings, port, buffer, size);
}

VTAPI_EXPORT uint32_t VTAPI_FCGetFECSupportInfo(const ProtocolEntry *port, void *buffer, uint32_t *size) {
    VTAPI_FRAME(VTAPI_FCGetFECSupportInfo, FC_GetFECSupportInfo, port, buffer, size);
}

VTAPI_EXPORT uint32_t VTAPI_FCSetFECSupportInfo(const ProtocolEntry *port, const void *buffer, uint32_t size) {
    VTAPI_FRAME(VTAPI_FCSetFECSupportInfo, FC_SetFECSupportInfo, port, buffer, size);
}

VTAPI_EXPORT uint32_t VTAPI_ResetFECCounters(const ProtocolEntry *port) {
    VTAPI_FRAME(VTAPI_ResetFECCounters, FC_ResetFECCounters, port);
}

VTAPI_EXPORT uint32_t VTAPI_FCGetBBCSupportInfo(const ProtocolEntry *port, void *buffer, uint32_t *size) {
    VTAPI_FRAME(VTAPI_FCGetBBCSupportInfo, FC_GetBBCSupportInfo, port, buffer, size);
}

VTAPI_EXPORT uint32_t VTAPI_FCGetBBCSupportInfoEx(const ProtocolEntry *port, void *buffer, uint32_t *size) {
    VTAPI_FRAME(VTAPI_FCGetBBCSupportInfoEx, FC_GetBBCSupportInfoEx, port, buffer, size);
}

VTAPI_EXPORT uint32_t VTAPI_FCSetBBCSupportInfo(const ProtocolEntry *port, const void *buffer, uint32_t size) {
    VTAPI_FRAME(VTAPI_FCSetBBCSupportInfo, FC_SetBBCSupportInfo, port, buffer, size);
}

VTAPI_EXPORT uint32_t VTAPI_GetDCBXParams(const ProtocolEntry *port, void *buffer, uint32_t *size) {
    VTAPI_FRAME(VTAPI_GetDCBXParams, FC_GetDCBXParams, port, buffer, size);
}

VTAPI_EXPORT uint32_t VTAPI_CheckOrlaPersonalityChangeOption(const ProtocolEntry *port, uint32_t *supported) {
    VTAPI_FRAME(VTAPI_CheckOrlaPersonalityChangeOption, FC_CheckOrlaPersonalityChangeOption, port, supported);
}

VTAPI_EXPORT uint32_t VTAPI_GetPersonalityType(const ProtocolEntry *port, uint32_t *type) {
    VTAPI_FRAME(VTAPI_GetPersonalityType, FC_GetPersonalityType, port, type);
}

VTAPI_EXPORT uint32_t VTAPI_ChangePersonalityType(const ProtocolEntry *port, uint32_t type) {
    VTAPI_FRAME(VTAPI_ChangePersonalityType, FC_ChangePersonalityType, port, type);
}

VTAPI_EXPORT uint32_t VTAPI_GetMpiConfigTableParams(const ProtocolEntry *port, void *buffer, uint32_t *size) {
    VTAPI_FRAME(VTAPI_GetMpiConfigTableParams, FC_GetMpiConfigTableParams, port, buffer, size);
}

VTAPI_EXPORT uint32_t VTAPI_GetDCEStatistics(const ProtocolEntry *port, void *buffer, uint32_t *size) {
    VTAPI_FRAME(VTAPI_GetDCEStatistics, FC_GetDCEStatistics, port, buffer, size);
}

VTAPI_EXPORT uint32_t VTAPI_GetFCFPrimVLANConfig(const ProtocolEntry *port, void *buffer, uint32_t *size) {
    VTAPI_FRAME(VTAPI_GetFCFPrimVLANConfig, FC_GetFCFPrimVLANConfig, port, buffer, size);
}

VTAPI_EXPORT uint32_t VTAPI_SetFCFPrimVLANConfig(const ProtocolEntry *port, const void *buffer, uint32_t size) {
    VTAPI_FRAME(VTAPI_SetFCFPrimVLANConfig, FC_SetFCFPrimVLANConfig, port, buffer, size);
}

VTAPI_EXPORT uint32_t VTAPI_GetFCoEGeneralInfo(const ProtocolEntry *port, void *buffer, uint32_t *size) {
    VTAPI_FRAME(VTAPI_GetFCoEGeneralInfo, FC_GetFCoEGeneralInfo, port, buffer, size);
}

}  // extern "C"
