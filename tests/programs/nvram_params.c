/* Reads and changes a port's HBA parameters through the public interface of
 * libvtapifconly, as a management program would.
 *
 *   nvram_params get WWPN               prints Name=value for every field
 *   nvram_params set WWPN Name=value... changes the fields, then post-verifies;
 *                                       prints "status <update> <verify>"
 *   nvram_params loop WWPN              prints "ready", then changes parameters
 *                                       until it is killed
 *
 * WWPN is written xx:xx:xx:xx:xx:xx:xx:xx.  The exit status is 0 when every
 * call succeeded. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "vtapi.h"
#include "vtapi_api.h"

// clang-format off
#define WORD_FIELDS(X)                                                                                        \
    X(DataRate) X(ConnectionOption) X(EnableFCTape) X(MaxLunsPerTarget) X(EnableHardLoopID) X(HardLoopID)      \
    X(FrameSize) X(EnableLipReset) X(EnableLipFullLogin) X(EnableTargetReset) X(EnableExtendedLogging)         \
    X(LoopResetDelay) X(LoginRetryCount) X(PortDownRetryCount) X(ExecutionThrottle) X(OperationMode)           \
    X(InterruptDelayTimer) X(LinkDownTimeout) X(EnableFCConfirm) X(Enable64BitAddressing)                      \
    X(EnableFastCommandPosting) X(DisableBIOS) X(EnableSelectableBoot) X(SelectiveLogin) X(SelectiveLun)       \
    X(ForceWorldLogin) X(ReceiveOutOfOrderFrame) X(VendorID) X(DeviceID) X(SubsystemVendorID)                  \
    X(SubsystemDeviceID) X(ExtendedFirmwareOptions) X(EnableLR) X(FabricAssignWWN) X(FabricAssignBootLun)      \
    X(EnableDPort) X(DistanceSupport) X(MinimumSpeed) X(PreferFCP) X(DisableSCM)
// clang-format on
#define BYTE_FIELDS(X) X(NVMeEnable) X(PortDisable) X(FabricPriority) X(VirtualLane)

static ProtocolEntry *FindPort(const char *text) {
    unsigned b[8];
    if (sscanf(text, "%2x:%2x:%2x:%2x:%2x:%2x:%2x:%2x", &b[0], &b[1], &b[2], &b[3], &b[4], &b[5], &b[6], &b[7]) != 8)
        return NULL;
    uint8_t wwpn[8];
    for (int i = 0; i < 8; ++i) wwpn[i] = (uint8_t)b[i];
    for (AdapterEntry *a = gpAdapterList ? gpAdapterList->First : NULL; a; a = a->next)
        for (PhyPortEntry *p = a->PhyPorts.First; p; p = p->next)
            for (ProtocolEntry *e = p->Protocols.First; e; e = e->next)
                if (memcmp(e->WWPN, wwpn, 8) == 0) return e;
    return NULL;
}

static void Print(const VTAPI_HBAParams *p) {
#define PRINT(f) printf(#f "=%u\n", (unsigned)p->f);
    WORD_FIELDS(PRINT)
    BYTE_FIELDS(PRINT)
#undef PRINT
    for (int i = 0; i < 8; ++i) {
        const uint8_t *w = p->BootDrives[i].WWPN;
        printf("BootDrive%d=%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x/%u\n", i, w[0], w[1], w[2], w[3], w[4], w[5], w[6],
               w[7], p->BootDrives[i].LUN);
    }
}

static int Assign(VTAPI_HBAParams *p, const char *arg) {
    const char *eq = strchr(arg, '=');
    if (!eq) return -1;
    const size_t n = (size_t)(eq - arg);
    const unsigned long v = strtoul(eq + 1, NULL, 10);
#define SET(f)                                         \
    if (n == strlen(#f) && strncmp(arg, #f, n) == 0) { \
        p->f = (__typeof__(p->f))v;                    \
        return 0;                                      \
    }
    WORD_FIELDS(SET)
    BYTE_FIELDS(SET)
#undef SET
    return -1;
}

int main(int argc, char **argv) {
    if (argc < 3) {
        fprintf(stderr, "usage: nvram_params get|set|loop WWPN [Name=value...]\n");
        return 2;
    }
    if (VTAPI_Initialize(0, NULL) != VTAPI_SUCCESS) return 3;
    ProtocolEntry *port = FindPort(argv[2]);
    if (!port) {
        fprintf(stderr, "nvram_params: no port %s\n", argv[2]);
        return 4;
    }
    VTAPI_HBAParams params;
    uint32_t rc = VTAPI_GetHBAParamsInfo(port, &params);
    if (strcmp(argv[1], "get") == 0) {
        if (rc == VTAPI_SUCCESS) Print(&params);
        printf("status %u\n", rc);
    } else if (strcmp(argv[1], "set") == 0) {
        for (int i = 3; rc == VTAPI_SUCCESS && i < argc; ++i)
            if (Assign(&params, argv[i]) != 0) {
                fprintf(stderr, "nvram_params: unknown field in %s\n", argv[i]);
                return 2;
            }
        const uint32_t update = rc == VTAPI_SUCCESS ? VTAPI_UpdateHBAParameters(port, &params) : rc;
        const uint32_t verify = update == VTAPI_SUCCESS ? VTAPI_PostVerifyHBAParameter(port) : update;
        printf("status %u %u\n", update, verify);
        rc = update != VTAPI_SUCCESS ? update : verify;
    } else if (strcmp(argv[1], "loop") == 0) {
        /* Each run starts from other values, so its writes show. */
        printf("ready\n");
        fflush(stdout);
        for (unsigned i = (unsigned)getpid(); rc == VTAPI_SUCCESS; ++i) {
            params.LoginRetryCount = i % 200;
            params.FrameSize = (i & 1) ? 1024 : 2048;
            params.LinkDownTimeout = i % 240;
            rc = VTAPI_UpdateHBAParameters(port, &params);
        }
        fprintf(stderr, "nvram_params: update failed: %u\n", rc);
    }
    VTAPI_Uninitialize();
    return rc == VTAPI_SUCCESS ? 0 : 1;
}
