// Exported frames of the diagnostics: loopback, read/write buffer, ELS echo,
// RDP, FC ping, CT pass-through, D-Port and beacon.
#include "frame.h"

extern "C" {

VTAPI_EXPORT uint32_t VTAPI_DiagnosticsLoopBackTest(const ProtocolEntry *port, const VTAPI_DiagParams *params,
                                                    VTAPI_DiagResult *result) {
    VTAPI_FRAME(VTAPI_DiagnosticsLoopBackTest, FC_DiagnosticsLoopBackTest, port, params, result);
}

VTAPI_EXPORT uint32_t VTAPI_DiagnosticsReadWriteBufferTest(const ProtocolEntry *port, const VTAPI_DiagParams *params,
                                                           VTAPI_RWBufferTestResultList **results) {
    VTAPI_FRAME(VTAPI_DiagnosticsReadWriteBufferTest, FC_DiagnosticsReadWriteBufferTest, port, params, results);
}

VTAPI_EXPORT uint32_t VTAPI_FreeRWBufferTestResultList(VTAPI_RWBufferTestResultList *results) {
    VTAPI_FRAME(VTAPI_FreeRWBufferTestResultList, FC_FreeRWBufferTestResultList, results);
}

VTAPI_EXPORT uint32_t VTAPI_AbortDiagTest(const ProtocolEntry *port) {
    VTAPI_FRAME(VTAPI_AbortDiagTest, FC_AbortDiagTest, port);
}

VTAPI_EXPORT uint32_t VTAPI_DiagnosticsEchoElsTest(const ProtocolEntry *port, const uint8_t *targetWWPN, void *result,
                                                   uint32_t *size) {
    VTAPI_FRAME(VTAPI_DiagnosticsEchoElsTest, FC_DiagnosticsEchoElsTest, port, targetWWPN, result, size);
}

VTAPI_EXPORT uint32_t VTAPI_DiagnosticsRDPTest(const ProtocolEntry *port, const uint8_t *targetWWPN, void *result,
                                               uint32_t *size) {
    VTAPI_FRAME(VTAPI_DiagnosticsRDPTest, FC_DiagnosticsRDPTest, port, targetWWPN, result, size);
}

VTAPI_EXPORT uint32_t VTAPI_DiagnosticsFCPingTest(const ProtocolEntry *port, const uint8_t *targetWWPN, void *result,
                                                  uint32_t *size) {
    VTAPI_FRAME(VTAPI_DiagnosticsFCPingTest, FC_DiagnosticsFCPingTest, port, targetWWPN, result, size);
}

VTAPI_EXPORT uint32_t VTAPI_DiagnosticsCTCommand(const ProtocolEntry *port, const void *request, uint32_t requestSize,
                                                 void *response, uint32_t *responseSize) {
    VTAPI_FRAME(VTAPI_DiagnosticsCTCommand, FC_DiagnosticsCTCommand, port, request, requestSize, response,
                responseSize);
}

VTAPI_EXPORT uint32_t VTAPI_CheckAdapterDPortOption(const ProtocolEntry *port, uint32_t *supported) {
    VTAPI_FRAME(VTAPI_CheckAdapterDPortOption, FC_CheckAdapterDPortOption, port, supported);
}

VTAPI_EXPORT uint32_t VTAPI_ConfigureAdapterDPortSettings(const ProtocolEntry *port, uint32_t enable) {
    VTAPI_FRAME(VTAPI_ConfigureAdapterDPortSettings, FC_ConfigureAdapterDPortSettings, port, enable);
}

VTAPI_EXPORT uint32_t VTAPI_DiagnosticDPortTest(const ProtocolEntry *port, void *result, uint32_t *size) {
    VTAPI_FRAME(VTAPI_DiagnosticDPortTest, FC_DiagnosticsDPortTest, port, result, size);
}

VTAPI_EXPORT uint32_t VTAPI_DiagnosticDPortTestEX(const ProtocolEntry *port, void *result, uint32_t *size) {
    VTAPI_FRAME(VTAPI_DiagnosticDPortTestEX, FC_DiagnosticsDPortTestEX, port, result, size);
}

VTAPI_EXPORT uint32_t VTAPI_DiagnosticDPortTestV2(const ProtocolEntry *port, void *result, uint32_t *size) {
    VTAPI_FRAME(VTAPI_DiagnosticDPortTestV2, FC_DiagnosticsDPortTestV2, port, result, size);
}

VTAPI_EXPORT uint32_t VTAPI_UpdateAdapterBeaconStatus(const ProtocolEntry *port, uint32_t on) {
    VTAPI_FRAME(VTAPI_UpdateAdapterBeaconStatus, FC_UpdateAdapterBeaconStatus, port, on);
}

VTAPI_EXPORT uint32_t VTAPI_GetAdapterBeaconStatus(const ProtocolEntry *port, uint32_t *on) {
    VTAPI_FRAME(VTAPI_GetAdapterBeaconStatus, FC_GetAdapterBeaconStatus, port, on);
}

}  // extern "C"
