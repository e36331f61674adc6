// Ports of the library's device model by WWPN, for tests of libvtapifconly.
#pragma once

#include <cstring>

#include "vtapi.h"
#include "core/core.h"

namespace vttest {

// The entry of the adapter tree (gpAdapterList) with this WWPN, or null.
inline ProtocolEntry *TreeEntry(const uint8_t *wwpn) {
    for (AdapterEntry *a = gpAdapterList ? gpAdapterList->First : nullptr; a; a = a->next)
        for (PhyPortEntry *p = a->PhyPorts.First; p; p = p->next)
            for (ProtocolEntry *e = p->Protocols.First; e; e = e->next)
                if (std::memcmp(e->WWPN, wwpn, 8) == 0) return e;
    return nullptr;
}

// The record of the sorted device list with this WWPN, or null.
inline SDMDevice *ListedPort(const uint8_t *wwpn) {
    for (SDMDevice *d = GetMyDeviceList()->First; d; d = d->next)
        if (std::memcmp(d->DevicePortProperty.WWPN, wwpn, 8) == 0) return d;
    return nullptr;
}

}  // namespace vttest
