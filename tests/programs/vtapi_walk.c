/* Walks the adapter tree as a management program would, using only the
 * public header and libvtapifconly, and prints it; then refreshes and
 * checks that the rebuilt tree is identical. */
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "vtapi.h"

static void Wwn(const uint8_t *w, char *out) {
    sprintf(out, "%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x", w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7]);
}

/* Prints the tree into a growing buffer so two walks can be compared. */
static char *Describe(const AdapterEntryList *list) {
    size_t cap = 1 << 16, len = 0;
    char *text = malloc(cap);
    text[0] = '\0';
#define ADD(...) len += (size_t)snprintf(text + len, cap - len, __VA_ARGS__)
    if (!list) {
        ADD("no list\n");
        return text;
    }
    ADD("adapters %u\n", list->Count);
    for (const AdapterEntry *a = list->First; a; a = a->next) {
        ADD("adapter %s model %s type %u mfr %s fw %s bios %s fcode %s efi %s flashfw %s mbi %s\n", a->SerialNumber,
            a->AdapterModel, a->AdapterType, a->Manufacturer, a->FirmwareVersion, a->FlashBIOSVersion, a->FCodeVersion,
            a->EFIVersion, a->FlashFirmwareVersion, a->FlashMultiBootVersion);
        for (const PhyPortEntry *p = a->PhyPorts.First; p; p = p->next) {
            ADD(" port %u bus %u dev %u\n", p->PhysicalPortNumber, p->PciBusNumber, p->PciDeviceNumber);
            for (const ProtocolEntry *e = p->Protocols.First; e; e = e->next) {
                char wwpn[24], wwnn[24];
                Wwn(e->WWPN, wwpn);
                Wwn(e->WWNN, wwnn);
                ADD("  protocol %u wwpn %s wwnn %s instance %u interface %u speed %u supported 0x%x targets %u\n",
                    e->ProtocolType, wwpn, wwnn, e->Device.Instance, e->Device.DeviceNodeProperty.Interface,
                    e->Device.DevicePortProperty.PortSpeed, e->Device.DevicePortProperty.SupportedSpeed,
                    e->Device.Targets.Count);
            }
        }
    }
    return text;
}

int main(int argc, char **argv) {
    int level = argc > 1 ? atoi(argv[1]) : 9;
    if (VTAPI_GetAdapterCount() != 0 || VTAPI_GetAdapterList() != NULL) {
        printf("FAIL: a list before initialization\n");
        return 1;
    }
    if (VTAPI_Initialize(level, NULL) != VTAPI_SUCCESS) {
        printf("FAIL: initialize\n");
        return 1;
    }
    if (VTAPI_GetAdapterList() != gpAdapterList || VTAPI_GetAdapterCount() != gpAdapterList->Count) {
        printf("FAIL: accessors\n");
        return 1;
    }
    char *first = Describe(gpAdapterList);
    fputs(first, stdout);
    VTAPI_RefreshData();
    char *second = Describe(gpAdapterList);
    printf("refresh %s\n", strcmp(first, second) == 0 ? "identical" : "DIFFERENT");
    VTAPI_UpdateBackupAdapterList();
    char *backup = Describe(gpBackupAdapterList);
    printf("backup %s\n", strcmp(first, backup) == 0 ? "identical" : "DIFFERENT");
    VTAPI_SwapBackupToMainAdapterList();
    printf("swapped %s\n", gpBackupAdapterList == NULL && gpAdapterList != NULL ? "yes" : "no");
    free(first);
    free(second);
    free(backup);
    VTAPI_FreeMem(NULL);
    VTAPI_Uninitialize();
    printf("after uninitialize %s\n", gpAdapterList == NULL && VTAPI_GetAdapterCount() == 0 ? "empty" : "NOT EMPTY");
    return 0;
}
