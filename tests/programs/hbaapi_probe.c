/*
 * hbaapi_probe - walks every adapter libHBAAPI reports and prints what it
 * finds as key=value lines, for tests to check.  Uses only the public HBA
 * API; which vendor libraries it sees depends on /etc/hba.conf.
 *
 * Keys: load, adapters, adapter.<a>.<field>, adapter.<a>.port.<p>.<field>,
 * adapter.<a>.port.<p>.disc.<d>.<field>, adapter.<a>.port.<p>.stat.<field>.
 */
#include <stdio.h>
#include <string.h>
#include <time.h>

#include <hbaapi.h>

static void PrintWwn(const char *key, HBA_WWN w) {
    printf("%s=%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x\n", key, w.wwn[0], w.wwn[1], w.wwn[2], w.wwn[3], w.wwn[4],
           w.wwn[5], w.wwn[6], w.wwn[7]);
}

/* Common fields of a local or a discovered port under prefix. */
static void PrintPort(const char *prefix, const HBA_PORTATTRIBUTES *pa) {
    char key[128];
    snprintf(key, sizeof key, "%s.nodewwn", prefix);
    PrintWwn(key, pa->NodeWWN);
    snprintf(key, sizeof key, "%s.wwpn", prefix);
    PrintWwn(key, pa->PortWWN);
    printf("%s.fcid=%06x\n", prefix, pa->PortFcId);
    printf("%s.type=%u\n", prefix, pa->PortType);
    printf("%s.state=%u\n", prefix, pa->PortState);
    printf("%s.speed=%u\n", prefix, pa->PortSpeed);
    printf("%s.supported=%u\n", prefix, pa->PortSupportedSpeed);
    printf("%s.fcp=%u\n", prefix, pa->PortSupportedFc4Types.bits[2] & 1u);
}

static void PrintStats(const char *prefix, const HBA_PORTSTATISTICS *s) {
    printf("%s.tx_frames=%lld\n", prefix, s->TxFrames);
    printf("%s.rx_frames=%lld\n", prefix, s->RxFrames);
    printf("%s.link_failure=%lld\n", prefix, s->LinkFailureCount);
    printf("%s.loss_of_sync=%lld\n", prefix, s->LossOfSyncCount);
    printf("%s.loss_of_signal=%lld\n", prefix, s->LossOfSignalCount);
    printf("%s.primitive_seq_errors=%lld\n", prefix, s->PrimitiveSeqProtocolErrCount);
    printf("%s.invalid_tx_words=%lld\n", prefix, s->InvalidTxWordCount);
    printf("%s.invalid_crc=%lld\n", prefix, s->InvalidCRCCount);
}

/* Read Link Error Status of dest through local port, as "accept w1 ... w6". */
static void PrintRls(const char *key, HBA_HANDLE h, HBA_WWN local, HBA_WWN dest) {
    unsigned char rsp[64];
    HBA_UINT32 size = sizeof rsp;
    HBA_STATUS st = HBA_SendRLS(h, local, dest, rsp, &size);
    printf("%s=%u", key, st);
    for (HBA_UINT32 i = 0; st == HBA_STATUS_OK && i + 4 <= size; i += 4)
        printf(" %u", (unsigned)rsp[i] << 24 | (unsigned)rsp[i + 1] << 16 | (unsigned)rsp[i + 2] << 8 | rsp[i + 3]);
    printf("\n");
}

static void ProbePort(HBA_HANDLE h, HBA_UINT32 a, HBA_UINT32 p) {
    char prefix[96], key[160];
    HBA_PORTATTRIBUTES pa;
    HBA_PORTSTATISTICS ps;
    snprintf(prefix, sizeof prefix, "adapter.%u.port.%u", a, p);
    HBA_STATUS st = HBA_GetAdapterPortAttributes(h, p, &pa);
    if (st != HBA_STATUS_OK) {
        printf("%s.status=%u\n", prefix, st);
        return;
    }
    PrintPort(prefix, &pa);
    printf("%s.maxframe=%u\n", prefix, pa.PortMaxFrameSize);
    printf("%s.osname=%s\n", prefix, pa.OSDeviceName);
    printf("%s.discovered=%u\n", prefix, pa.NumberofDiscoveredPorts);
    for (HBA_UINT32 d = 0; d < pa.NumberofDiscoveredPorts; ++d) {
        HBA_PORTATTRIBUTES da;
        snprintf(key, sizeof key, "%s.disc.%u", prefix, d);
        st = HBA_GetDiscoveredPortAttributes(h, p, d, &da);
        if (st != HBA_STATUS_OK) {
            printf("%s.status=%u\n", key, st);
            continue;
        }
        PrintPort(key, &da);
        HBA_PORTATTRIBUTES byWwn;
        st = HBA_GetPortAttributesByWWN(h, da.PortWWN, &byWwn);
        printf("%s.bywwn=%u\n", key, st == HBA_STATUS_OK ? byWwn.PortFcId == da.PortFcId : 0u);
        snprintf(key, sizeof key, "%s.disc.%u.rls", prefix, d);
        PrintRls(key, h, pa.PortWWN, da.PortWWN);
    }
    st = HBA_GetDiscoveredPortAttributes(h, p, pa.NumberofDiscoveredPorts, &pa);
    printf("%s.disc_past_end=%u\n", prefix, st);
    snprintf(key, sizeof key, "%s.stat", prefix);
    st = HBA_GetPortStatistics(h, p, &ps);
    if (st != HBA_STATUS_OK) printf("%s.status=%u\n", key, st);
    else PrintStats(key, &ps);
}

int main(void) {
    HBA_STATUS st = HBA_LoadLibrary();
    printf("load=%u\n", st);
    if (st != HBA_STATUS_OK) return 1;
    HBA_UINT32 count = HBA_GetNumberOfAdapters();
    printf("adapters=%u\n", count);
    for (HBA_UINT32 a = 0; a < count; ++a) {
        char name[256] = "";
        st = HBA_GetAdapterName(a, name);
        printf("adapter.%u.name=%s\n", a, st == HBA_STATUS_OK ? name : "?");
        HBA_HANDLE h = HBA_OpenAdapter(name);
        if (h == HBA_HANDLE_INVALID) {
            printf("adapter.%u.open=failed\n", a);
            continue;
        }
        HBA_ADAPTERATTRIBUTES aa;
        st = HBA_GetAdapterAttributes(h, &aa);
        if (st != HBA_STATUS_OK) {
            printf("adapter.%u.status=%u\n", a, st);
            HBA_CloseAdapter(h);
            continue;
        }
        printf("adapter.%u.manufacturer=%s\n", a, aa.Manufacturer);
        printf("adapter.%u.serial=%s\n", a, aa.SerialNumber);
        printf("adapter.%u.model=%s\n", a, aa.Model);
        printf("adapter.%u.description=%s\n", a, aa.ModelDescription);
        char key[96];
        snprintf(key, sizeof key, "adapter.%u.nodewwn", a);
        PrintWwn(key, aa.NodeWWN);
        printf("adapter.%u.driver=%s\n", a, aa.DriverName);
        printf("adapter.%u.driver_version=%s\n", a, aa.DriverVersion);
        printf("adapter.%u.firmware=%s\n", a, aa.FirmwareVersion);
        printf("adapter.%u.option_rom=%s\n", a, aa.OptionROMVersion);
        printf("adapter.%u.vendor_id=%08x\n", a, aa.VendorSpecificID);
        printf("adapter.%u.ports=%u\n", a, aa.NumberOfPorts);
        for (HBA_UINT32 p = 0; p < aa.NumberOfPorts; ++p) ProbePort(h, a, p);
        HBA_PORTATTRIBUTES pa;
        printf("adapter.%u.port_past_end=%u\n", a, HBA_GetAdapterPortAttributes(h, aa.NumberOfPorts, &pa));

        /* The same adapter found by its first port's WWN. */
        if (aa.NumberOfPorts > 0 && HBA_GetAdapterPortAttributes(h, 0, &pa) == HBA_STATUS_OK) {
            HBA_HANDLE h2 = HBA_HANDLE_INVALID;
            HBA_ADAPTERATTRIBUTES again;
            st = HBA_OpenAdapterByWWN(&h2, pa.PortWWN);
            if (st == HBA_STATUS_OK && HBA_GetAdapterAttributes(h2, &again) == HBA_STATUS_OK)
                printf("adapter.%u.bywwn_serial=%s\n", a, again.SerialNumber);
            else printf("adapter.%u.bywwn_status=%u\n", a, st);
            if (st == HBA_STATUS_OK) HBA_CloseAdapter(h2);
        }
        HBA_CloseAdapter(h);
        printf("adapter.%u.closed_status=%u\n", a, HBA_GetAdapterAttributes(h, &aa));
    }
    printf("free=%u\n", HBA_FreeLibrary());
    return 0;
}
