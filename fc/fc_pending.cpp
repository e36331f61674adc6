// FC_ functions whose work is not implemented yet.  Each one awaits its
// implementation (HBA parameters and NVRAM files, boot devices, virtual ports
// and QoS, aliases, flash images and updates, diagnostics, link status and
// statistics, and the adapter features that have no design yet) and until
// then answers VTAPI_FUNCTION_NOT_APPLICABLE without touching the adapter.
// They exist now so that the whole exported surface is in place: the
// VTAPI_ frames call them through the dynamic symbol table, and a program may
// already replace them.  Replace each one here with its real function as its
// work lands.
#include "fc/fc.h"

namespace {

constexpr uint32_t kPending = VTAPI_FUNCTION_NOT_APPLICABLE;

}  // namespace

extern "C" {

// -------- Adapter and port information

VTAPI_EXPORT uint32_t FC_GetUUIDFromI2CVPD(uint32_t, uint16_t, uint8_t *, uint32_t) { return kPending; }
VTAPI_EXPORT uint32_t FC_GetFwPreloadTablesVersion(const AdapterEntry *, char *, uint32_t) { return kPending; }

// -------- Configuration: target link speed

VTAPI_EXPORT uint32_t FC_GetTargetLinkSpeed(const ProtocolEntry *, const uint8_t *, uint32_t *) { return kPending; }
VTAPI_EXPORT uint32_t FC_SetTargetLinkSpeed(const ProtocolEntry *, const uint8_t *, uint32_t) { return kPending; }
VTAPI_EXPORT uint32_t FC_SetTargetLinkSpeedToAlltargets(const ProtocolEntry *, uint32_t) { return kPending; }

// -------- Diagnostics

VTAPI_EXPORT uint32_t FC_DiagnosticsEchoElsTest(const ProtocolEntry *, const uint8_t *, void *, uint32_t *) {
    return kPending;
}
VTAPI_EXPORT uint32_t FC_DiagnosticsRDPTest(const ProtocolEntry *, const uint8_t *, void *, uint32_t *) {
    return kPending;
}
VTAPI_EXPORT uint32_t FC_DiagnosticsFCPingTest(const ProtocolEntry *, const uint8_t *, void *, uint32_t *) {
    return kPending;
}
VTAPI_EXPORT uint32_t FC_DiagnosticsCTCommand(const ProtocolEntry *, const void *, uint32_t, void *, uint32_t *) {
    return kPending;
}
VTAPI_EXPORT uint32_t FC_CheckAdapterDPortOption(const ProtocolEntry *, uint32_t *) { return kPending; }
VTAPI_EXPORT uint32_t FC_ConfigureAdapterDPortSettings(const ProtocolEntry *, uint32_t) { return kPending; }
VTAPI_EXPORT uint32_t FC_DiagnosticsDPortTest(const ProtocolEntry *, void *, uint32_t *) { return kPending; }
VTAPI_EXPORT uint32_t FC_DiagnosticsDPortTestEX(const ProtocolEntry *, void *, uint32_t *) { return kPending; }
VTAPI_EXPORT uint32_t FC_DiagnosticsDPortTestV2(const ProtocolEntry *, void *, uint32_t *) { return kPending; }
VTAPI_EXPORT uint32_t FC_UpdateAdapterBeaconStatus(const ProtocolEntry *, uint32_t) { return kPending; }
VTAPI_EXPORT uint32_t FC_GetAdapterBeaconStatus(const ProtocolEntry *, uint32_t *) { return kPending; }

// -------- Link status and statistics

VTAPI_EXPORT uint32_t FC_GetFWPrivateStats(const ProtocolEntry *, void *, uint32_t *) { return kPending; }
VTAPI_EXPORT uint32_t FC_GetSCMRStatisticsList(const ProtocolEntry *, VTAPI_SCMRStatisticsList **) { return kPending; }
VTAPI_EXPORT uint32_t FC_FreeSCMRStatisticsList(VTAPI_SCMRStatisticsList *) { return kPending; }
VTAPI_EXPORT uint32_t FC_SANCongMgmtResetStatistics(const ProtocolEntry *) { return kPending; }
VTAPI_EXPORT uint32_t FC_GetSCMRProfile(const ProtocolEntry *, uint32_t *) { return kPending; }
VTAPI_EXPORT uint32_t FC_SetSCMRProfile(const ProtocolEntry *, uint32_t) { return kPending; }
VTAPI_EXPORT uint32_t FC_IsUSCMFeatureEnabled(const ProtocolEntry *, uint32_t *) { return kPending; }

// -------- Dumps, transceivers, EDC, FEC and credits, converged adapters

VTAPI_EXPORT uint32_t FC_SDGetFwDump(const ProtocolEntry *, void *, uint32_t *) { return kPending; }
VTAPI_EXPORT uint32_t FC_SDGetFwDump2(const ProtocolEntry *, void *, uint32_t *) { return kPending; }
VTAPI_EXPORT uint32_t FC_SDGetTraceBuffer(const ProtocolEntry *, void *, uint32_t *) { return kPending; }
VTAPI_EXPORT uint32_t FC_GetSFPData(const ProtocolEntry *, void *, uint32_t *) { return kPending; }
VTAPI_EXPORT uint32_t FC_SaveSFPDataToFile(const ProtocolEntry *, const char *) { return kPending; }
VTAPI_EXPORT uint32_t FC_SaveSFPDataToTextFile(const ProtocolEntry *, const char *) { return kPending; }
VTAPI_EXPORT uint32_t FC_GetAdapterAsicBoardTemperature(const ProtocolEntry *, int32_t *) { return kPending; }
VTAPI_EXPORT uint32_t FC_GetEDCChipsetVersion(const ProtocolEntry *, char *, uint32_t) { return kPending; }
VTAPI_EXPORT uint32_t FC_GetAdapterEDCChipsetStatus(const ProtocolEntry *, uint32_t *) { return kPending; }
VTAPI_EXPORT uint32_t FC_GetAdapterEDCSettings(const ProtocolEntry *, void *, uint32_t *) { return kPending; }
VTAPI_EXPORT uint32_t FC_GetFECSupportInfo(const ProtocolEntry *, void *, uint32_t *) { return kPending; }
VTAPI_EXPORT uint32_t FC_SetFECSupportInfo(const ProtocolEntry *, const void *, uint32_t) { return kPending; }
VTAPI_EXPORT uint32_t FC_ResetFECCounters(const ProtocolEntry *) { return kPending; }
VTAPI_EXPORT uint32_t FC_GetBBCSupportInfo(const ProtocolEntry *, void *, uint32_t *) { return kPending; }
VTAPI_EXPORT uint32_t FC_GetBBCSupportInfoEx(const ProtocolEntry *, void *, uint32_t *) { return kPending; }
VTAPI_EXPORT uint32_t FC_SetBBCSupportInfo(const ProtocolEntry *, const void *, uint32_t) { return kPending; }
VTAPI_EXPORT uint32_t FC_GetDCBXParams(const ProtocolEntry *, void *, uint32_t *) { return kPending; }
VTAPI_EXPORT uint32_t FC_CheckOrlaPersonalityChangeOption(const ProtocolEntry *, uint32_t *) { return kPending; }
VTAPI_EXPORT uint32_t FC_GetPersonalityType(const ProtocolEntry *, uint32_t *) { return kPending; }
VTAPI_EXPORT uint32_t FC_ChangePersonalityType(const ProtocolEntry *, uint32_t) { return kPending; }
VTAPI_EXPORT uint32_t FC_GetMpiConfigTableParams(const ProtocolEntry *, void *, uint32_t *) { return kPending; }
VTAPI_EXPORT uint32_t FC_GetDCEStatistics(const ProtocolEntry *, void *, uint32_t *) { return kPending; }
VTAPI_EXPORT uint32_t FC_GetFCFPrimVLANConfig(const ProtocolEntry *, void *, uint32_t *) { return kPending; }
VTAPI_EXPORT uint32_t FC_SetFCFPrimVLANConfig(const ProtocolEntry *, const void *, uint32_t) { return kPending; }
VTAPI_EXPORT uint32_t FC_GetFCoEGeneralInfo(const ProtocolEntry *, void *, uint32_t *) { return kPending; }
}  // extern "C"
