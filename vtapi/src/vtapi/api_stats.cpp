// Exported frames of link status, port statistics and congestion management.
#include "frame.h"

extern "C" {

VTAPI_EXPORT uint32_t VTAPI_GetLinkStatus(const ProtocolEntry *port, VTAPI_LinkStatusResultList **results) {
    VTAPI_FRAME(VTAPI_GetLinkStatus, FC_GetLinkStatus, port, results);
}

VTAPI_EXPORT uint32_t VTAPI_FreeLinkStatusResultList(VTAPI_LinkStatusResultList *results) {
    VTAPI_FRAME(VTAPI_FreeLinkStatusResultList, FC_FreeLinkStatusResultList, results);
}

VTAPI_EXPORT uint32_t VTAPI_GetPortStatisticsFC(const ProtocolEntry *port, VTAPI_PortStatistics *statistics) {
    VTAPI_FRAME(VTAPI_GetPortStatisticsFC, FC_GetPortStatisticsFC, port, statistics);
}

VTAPI_EXPORT uint32_t VTAPI_RefreshDeviceStats(const ProtocolEntry *port) {
    VTAPI_FRAME(VTAPI_RefreshDeviceStats, FC_RefreshDeviceStats, port);
}

VTAPI_EXPORT uint32_t VTAPI_ResetDeviceStats(const ProtocolEntry *port) {
    VTAPI_FRAME(VTAPI_ResetDeviceStats, FC_ResetDeviceStats, port);
}

VTAPI_EXPORT uint32_t VTAPI_GetFWPrivateStats(const ProtocolEntry *port, void *buffer, uint32_t *size) {
    VTAPI_FRAME(VTAPI_GetFWPrivateStats, FC_GetFWPrivateStats, port, buffer, size);
}

VTAPI_EXPORT uint32_t VTAPI_GetSCMRStatisticsList(const ProtocolEntry *port, VTAPI_SCMRStatisticsList **list) {
    VTAPI_FRAME(VTAPI_GetSCMRStatisticsList, FC_GetSCMRStatisticsList, port, list);
}

VTAPI_EXPORT uint32_t VTAPI_FreeSCMRStatisticsList(VTAPI_SCMRStatisticsList *list) {
    VTAPI_FRAME(VTAPI_FreeSCMRStatisticsList, FC_FreeSCMRStatisticsList, list);
}

VTAPI_EXPORT uint32_t VTAPI_SANCongMgmtResetStatistics(const ProtocolEntry *port) {
    VTAPI_FRAME(VTAPI_SANCongMgmtResetStatistics, FC_SANCongMgmtResetStatistics, port);
}

VTAPI_EXPORT uint32_t VTAPI_GetSCMRProfile(const ProtocolEntry *port, uint32_t *profile) {
    VTAPI_FRAME(VTAPI_GetSCMRProfile, FC_GetSCMRProfile, port, profile);
}

VTAPI_EXPORT uint32_t VTAPI_SetSCMRProfile(const ProtocolEntry *port, uint32_t profile) {
    VTAPI_FRAME(VTAPI_SetSCMRProfile, FC_SetSCMRProfile, port, profile);
}

VTAPI_EXPORT uint32_t VTAPI_IsUSCMFeatureEnabled(const ProtocolEntry *port, uint32_t *enabled) {
    VTAPI_FRAME(VTAPI_IsUSCMFeatureEnabled, FC_IsUSCMFeatureEnabled, port, enabled);
}

}  // extern "C"
