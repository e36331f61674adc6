// Targets and LUNs of each port: the list operations, the discovery of the
// remote ports the device-management library reports, and the SCSI walk
// (REPORT LUNS, INQUIRY, READ CAPACITY) that builds the LUN list of a target.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "core/core.h"
#include "oss/oss.h"
#include "oss/oss_signal.h"

namespace {

const char kFile[] = __FILE__;

constexpr uint32_t kSenseSize = SD_SENSE_BUFFER_SIZE;
constexpr uint32_t kInquirySize = 36;
constexpr uint32_t kReadCap10Size = 8;
constexpr uint32_t kReadCap16Size = 32;
constexpr uint32_t kMaxTries = 3;            // REPORT LUNS and READ CAPACITY tries in all
constexpr uint32_t kDefaultLunLimit = 4095;  // driver without a LUNs-per-target value
constexpr size_t kDefaultLunBuffer = 32768;

constexpr uint8_t kKeyNotReady = 0x02;
constexpr uint8_t kKeyUnitAttention = 0x06;

struct FreeDeleter {
    void operator()(void *p) const { std::free(p); }
};

// Sense key, ASC and ASCQ of fixed-format or descriptor-format sense data.
struct SenseInfo {
    uint8_t key = 0, asc = 0, ascq = 0;
};

SenseInfo ParseSense(const uint8_t *s, uint32_t size) {
    SenseInfo r;
    if (size < 1) return r;
    const uint8_t code = s[0] & 0x7F;
    if (code == 0x72 || code == 0x73) {
        if (size > 1) r.key = s[1] & 0x0F;
        if (size > 2) r.asc = s[2];
        if (size > 3) r.ascq = s[3];
    } else {
        if (size > 2) r.key = s[2] & 0x0F;
        if (size > 12) r.asc = s[12];
        if (size > 13) r.ascq = s[13];
    }
    return r;
}

// Data-in commands that returned less than asked are complete.
bool DataOk(uint32_t rc) { return rc == SDERR_NONE || rc == SDERR_DATA_UNDERRUN; }

uint32_t Be32(const uint8_t *p) {
    return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | uint32_t(p[3]);
}

uint64_t Be64(const uint8_t *p) { return uint64_t(Be32(p)) << 32 | Be32(p + 4); }

bool SameWwn(const uint8_t *a, const uint8_t *b) { return memcmp(a, b, 8) == 0; }

template <typename List, typename Item>
void Append(List *list, Item *item) {
    item->next = nullptr;
    if (list->Last) list->Last->next = item;
    else list->First = item;
    list->Last = item;
    ++list->Count;
}

// The keys of the list that was last appended to, so that the duplicate
// check of an append costs constant time while one list is filled (discovery
// fills each target and LUN list in one go).  The index is taken as valid
// only while the list still has the address, count and last item (with its
// key) it had after the last append; otherwise it is rebuilt by one walk.
template <typename List, typename Item, typename Key>
class AppendIndex {
public:
    using KeyOf = Key (*)(const Item *);
    explicit AppendIndex(KeyOf keyOf) : keyOf_(keyOf) {}

    // Whether an item with `key` is listed.
    bool Contains(const List *list, const Key &key) {
        if (!Current(list)) Rebuild(list);
        return keys_.count(key) != 0;
    }
    // Records the item just appended.
    void Appended(const List *list, const Item *item) {
        keys_.insert(keyOf_(item));
        Remember(list);
    }

private:
    bool Current(const List *list) const {
        return list == list_ && list->Count == count_ && list->Last == last_ &&
               (last_ == nullptr || keyOf_(last_) == lastKey_);
    }
    void Rebuild(const List *list) {
        keys_.clear();
        for (const Item *i = list->First; i; i = i->next) keys_.insert(keyOf_(i));
        Remember(list);
    }
    void Remember(const List *list) {
        list_ = list;
        count_ = list->Count;
        last_ = list->Last;
        if (last_) lastKey_ = keyOf_(last_);
    }

    KeyOf keyOf_;
    std::unordered_set<Key> keys_;
    const List *list_ = nullptr;
    uint32_t count_ = 0;
    const Item *last_ = nullptr;
    Key lastKey_{};
};

uint32_t LunKey(const LunEntry *l) { return l->LunNumber; }

std::string TargetKey(const TargetEntry *t) {
    return std::string(reinterpret_cast<const char *>(t->WWNN), 8) +
           std::string(reinterpret_cast<const char *>(t->WWPN), 8);
}

thread_local AppendIndex<LunList, LunEntry, uint32_t> t_lunIndex(LunKey);
thread_local AppendIndex<TargetList, TargetEntry, std::string> t_targetIndex(TargetKey);

// Unlinks `item` from a singly linked list; false when it is not there.
template <typename List, typename Item>
bool Unlink(List *list, Item *item) {
    Item *prev = nullptr;
    for (Item *i = list->First; i; prev = i, i = i->next) {
        if (i != item) continue;
        if (prev) prev->next = i->next;
        else list->First = i->next;
        if (list->Last == i) list->Last = prev;
        --list->Count;
        i->next = nullptr;
        return true;
    }
    return false;
}

// Sends READ CAPACITY(10) or (16), retrying a unit attention after a
// one-second wait; the counter starts at 0, so three tries are made in all.
uint32_t ReadCapacityWithRetries(const SDMDevice *device, const TargetEntry *target, uint16_t lun, bool large,
                                 uint8_t *resp, uint32_t &respSize, uint8_t *sense, uint32_t &senseSize) {
    uint32_t counter = 0;
    for (;;) {
        respSize = large ? kReadCap16Size : kReadCap10Size;
        senseSize = kSenseSize;
        const uint32_t rc = large ? SDSendScsiReadCapacityLargeCmdFC(device->DeviceHandle, target->WWPN, lun, resp,
                                                                     &respSize, sense, &senseSize)
                                  : SDSendScsiReadCapacityCmdFC(device->DeviceHandle, target->WWPN, lun, resp,
                                                                &respSize, sense, &senseSize);
        if (rc != SDERR_SCSI_CHECK_CONDITION) return rc;
        const SenseInfo si = ParseSense(sense, senseSize);
        if (si.key == kKeyUnitAttention && ++counter < kMaxTries) {
            LogDebug(kFile, __LINE__,
                     "RetrieveLunsForTarget: Target/Lun returns SCSI check [Attention]: Retrying RC (Zzz)...");
            OSSSleep(1);
            continue;
        }
        LogDebug(kFile, __LINE__,
                 "RetrieveLunsForTarget: Target/Lun returns SCSI check - sense key:  0x%x, asc:  0x%x, ascq:  0x%x",
                 si.key, si.asc, si.ascq);
        return rc;
    }
}

// Fills the capacity words of a disk LUN; words stay at the fill value when
// the size cannot be read.  The LUN is kept either way.
void ReadDiskCapacity(const SDMDevice *device, const TargetEntry *target, uint16_t lun, LunEntry *entry) {
    uint8_t resp[kReadCap16Size];
    uint8_t sense[kSenseSize];
    uint32_t respSize = 0, senseSize = 0;
    uint32_t rc = ReadCapacityWithRetries(device, target, lun, false, resp, respSize, sense, senseSize);
    if (!DataOk(rc) || respSize < kReadCap10Size) {
        if (rc != SDERR_SCSI_CHECK_CONDITION)
            LogDebug(kFile, __LINE__,
                     "RetrieveLunsForTarget: Lun (%d) - Unable to issue Read Capacity Command (0x%x) (%s)", lun, rc,
                     SDGetErrorString(rc));
        return;
    }
    const uint32_t last = Be32(resp);
    entry->LastBlock32 = last;
    entry->BlockSize = Be32(resp + 4);
    if (last != 0xFFFFFFFFu) {
        entry->LastBlock64 = last;
        return;
    }
    LogDebug(kFile, __LINE__, "RetrieveLunsForTarget: Need to issue the Read Capacity(16) command >= 2TB...\n");
    rc = ReadCapacityWithRetries(device, target, lun, true, resp, respSize, sense, senseSize);
    if (!DataOk(rc) || respSize < 12) {
        if (rc != SDERR_SCSI_CHECK_CONDITION)
            LogDebug(kFile, __LINE__,
                     "RetrieveLunsForTarget: Lun (%d) - Unable to issue Read Capacity(16) Command (0x%x) (%s)", lun, rc,
                     SDGetErrorString(rc));
        return;
    }
    entry->LastBlock64 = Be64(resp);
    entry->BlockSize = Be32(resp + 8);
}

// Sends REPORT LUNS, retrying a busy target or a unit attention after a
// one-second wait, three tries in all.  Returns the last status.
uint32_t ReportLunsWithRetries(const SDMDevice *device, const TargetEntry *target, uint8_t *buffer, uint32_t bufferSize,
                               uint32_t &respSize) {
    uint8_t sense[kSenseSize];
    for (uint32_t tries = 1;; ++tries) {
        respSize = bufferSize;
        uint32_t senseSize = kSenseSize;
        const uint32_t rc =
            SDSendScsiReportLunsCmdFC(device->DeviceHandle, target->WWPN, buffer, &respSize, sense, &senseSize);
        if (rc == SDERR_DEVICE_BUSY) {
            if (tries >= kMaxTries) return rc;
            LogDebug(kFile, __LINE__,
                     "RetrieveLunsForTarget: Target returns SCSI status [Device Busy]: Retrying RLC (Zzz)...");
        } else if (rc == SDERR_SCSI_CHECK_CONDITION && ParseSense(sense, senseSize).key == kKeyUnitAttention) {
            if (tries >= kMaxTries) return rc;
            LogDebug(kFile, __LINE__,
                     "RetrieveLunsForTarget: Target returns SCSI check [Attention]: Retrying RLC (Zzz)...");
        } else {
            return rc;
        }
        OSSSleep(1);
    }
}

// INQUIRY to LUN 0 of the target: its peripheral type, vendor and product
// when a device is connected there.
void InquireTarget(const SDMDevice *device, TargetEntry *target) {
    uint8_t inq[kInquirySize];
    uint8_t sense[kSenseSize];
    uint32_t respSize = kInquirySize, senseSize = kSenseSize;
    const uint32_t rc =
        SDSendScsiInquiryCmdFC(device->DeviceHandle, target->WWPN, 0, 0, 0, inq, &respSize, sense, &senseSize);
    if (!DataOk(rc)) {
        LogDebug(kFile, __LINE__,
                 "RetrieveLunsForTarget: Unable to send SCSI Inquiry Command to the target (0x%x) (%s)", rc,
                 SDGetErrorString(rc));
        return;
    }
    if (respSize < 1 || inq[0] >= 64) return;
    target->PeripheralType = inq[0] & 0x1F;
    if (respSize >= 32) {
        memcpy(target->VendorId, inq + 8, sizeof target->VendorId);
        memcpy(target->ProductId, inq + 16, sizeof target->ProductId);
    }
}

// Discovered remote ports of a device; empty on failure (logged).
bool ReadDiscoveredTargets(const SDMDevice *device, const char *caller, std::vector<SDDiscTargetProperty> &props) {
    props.clear();
    uint32_t count = 0;
    uint32_t rc = SDGetDiscTargetProperties(device->DeviceHandle, nullptr, &count);
    if (rc == SDERR_BUFFER_TOO_SMALL || (rc == SDERR_NONE && count)) {
        props.resize(count);
        rc = SDGetDiscTargetProperties(device->DeviceHandle, props.data(), &count);
        if (rc == SDERR_NONE) props.resize(std::min<size_t>(count, props.size()));
    }
    if (rc != SDERR_NONE) {
        LogDebug(kFile, __LINE__, "%s: SDGetDiscTargetProperties(%d) failed (0x%x) (%s)", caller, device->Instance, rc,
                 SDGetErrorString(rc));
        props.clear();
        return false;
    }
    return true;
}

void SetDiscoveredFields(TargetEntry *t, const SDDiscTargetProperty &p) {
    memcpy(t->WWNN, p.WWNN, 8);
    memcpy(t->WWPN, p.WWPN, 8);
    memcpy(t->PortId, p.PortId, 3);
    t->DiscTargetProperty = p;
    t->TargetFlags = p.TargetFlags;
    t->PortTypeWord = p.TargetType == SD_TARGETTYPE_NVME ? 1 : 0;
}

}  // namespace

extern "C" {

// ------------------------------------------------------------- target list

VTAPI_EXPORT void InitTargetList(TargetList *list) {
    if (list) *list = TargetList{};
}

// A zeroed target with an empty LUN list and an unknown peripheral type.
VTAPI_EXPORT TargetEntry *CreateNewTarget(void) {
    auto *t = static_cast<TargetEntry *>(calloc(1, sizeof(TargetEntry)));
    if (!t) {
        LogError(kFile, __LINE__, "CreateNewTarget: Unable to allocate memory for Target");
        return nullptr;
    }
    t->PeripheralType = 0x1F;
    InitLunList(&t->Luns);
    return t;
}

// Unlinks a target from the list and frees it with its LUNs.
VTAPI_EXPORT int32_t DeleteTarget(TargetList *list, TargetEntry *target) {
    if (!list || !target) return vt::kListNullArgument;
    if (!Unlink(list, target)) return -1;
    FreeLunList(&target->Luns);
    free(target);
    return 0;
}

VTAPI_EXPORT void RemoveAllTargetsFromTargetList(TargetList *list) { FreeTargetList(list); }

// Appends a target; a target whose (WWNN, WWPN) is already listed is refused.
VTAPI_EXPORT int32_t AddTargetToTargetList(TargetList *list, TargetEntry *target) {
    if (!list || !target) return vt::kListNullArgument;
    if (t_targetIndex.Contains(list, TargetKey(target))) return -1;
    Append(list, target);
    t_targetIndex.Appended(list, target);
    return 0;
}

// The listed target with the same (WWNN, WWPN) as `target`.
VTAPI_EXPORT TargetEntry *FindTargetInTargetList(TargetList *list, const TargetEntry *target) {
    if (!list || !target) return nullptr;
    return FindTargetByWWNNAndWWPNInTargetList(list, target->WWNN, target->WWPN);
}

// `target` itself when it is linked into the list.
VTAPI_EXPORT TargetEntry *FindTargetInTargetListPrim(TargetList *list, const TargetEntry *target) {
    if (!list || !target) return nullptr;
    for (TargetEntry *t = list->First; t; t = t->next)
        if (t == target) return t;
    return nullptr;
}

VTAPI_EXPORT TargetEntry *FindTargetByWWNNInTargetList(TargetList *list, const uint8_t *wwnn) {
    if (!list || !wwnn) return nullptr;
    for (TargetEntry *t = list->First; t; t = t->next)
        if (SameWwn(t->WWNN, wwnn)) return t;
    return nullptr;
}

VTAPI_EXPORT TargetEntry *FindTargetByWWNNAndWWPNInTargetList(TargetList *list, const uint8_t *wwnn,
                                                              const uint8_t *wwpn) {
    if (!list || !wwnn || !wwpn) return nullptr;
    for (TargetEntry *t = list->First; t; t = t->next)
        if (SameWwn(t->WWNN, wwnn) && SameWwn(t->WWPN, wwpn)) return t;
    return nullptr;
}

// First target matching the pair, or else the 3-byte FC port ID.
VTAPI_EXPORT TargetEntry *FindTargetByWWNNAndWWPNOrPortIdInTargetList(TargetList *list, const uint8_t *wwnn,
                                                                      const uint8_t *wwpn, const uint8_t *portId) {
    if (!list) return nullptr;
    for (TargetEntry *t = list->First; t; t = t->next)
        if ((wwnn && wwpn && SameWwn(t->WWNN, wwnn) && SameWwn(t->WWPN, wwpn)) ||
            (portId && memcmp(t->PortId, portId, 3) == 0))
            return t;
    return nullptr;
}

// New targets are picked up by the full target refresh instead.
VTAPI_EXPORT uint32_t CheckAndAddNewTargets(SDMDevice *device) {
    (void)device;
    return 0;
}

VTAPI_EXPORT void FreeTargetList(TargetList *list) {
    if (!list) return;
    for (TargetEntry *t = list->First; t;) {
        TargetEntry *next = t->next;
        FreeLunList(&t->Luns);
        free(t);
        t = next;
    }
    InitTargetList(list);
}

// Deep copy of a target list with its LUN lists; 0, or 115 when memory runs
// out (the copy made so far is freed).
uint32_t CopyTargetList(TargetList *destination, const TargetList *source) {
    if (!destination) return vt::kListNullArgument;
    InitTargetList(destination);
    if (!source) return 0;
    for (const TargetEntry *t = source->First; t; t = t->next) {
        auto *copy = static_cast<TargetEntry *>(malloc(sizeof(TargetEntry)));
        if (!copy) {
            FreeTargetList(destination);
            return vt::kNoMemory;
        }
        *copy = *t;
        InitLunList(&copy->Luns);
        Append(destination, copy);
        for (const LunEntry *l = t->Luns.First; l; l = l->next) {
            auto *lc = static_cast<LunEntry *>(malloc(sizeof(LunEntry)));
            if (!lc) {
                FreeTargetList(destination);
                return vt::kNoMemory;
            }
            *lc = *l;
            Append(&copy->Luns, lc);
        }
    }
    return 0;
}

// ---------------------------------------------------------------- LUN list

VTAPI_EXPORT void InitLunList(LunList *list) {
    if (list) *list = LunList{};
}

// A zeroed LUN whose capacity words hold the fill value.
VTAPI_EXPORT LunEntry *CreateNewLun(void) {
    auto *l = static_cast<LunEntry *>(calloc(1, sizeof(LunEntry)));
    if (!l) return nullptr;
    l->BlockSize = VTAPI_CAPACITY_UNKNOWN32;
    l->LastBlock32 = VTAPI_CAPACITY_UNKNOWN32;
    l->LastBlock64 = VTAPI_CAPACITY_UNKNOWN64;
    return l;
}

VTAPI_EXPORT int32_t DeleteLun(LunList *list, LunEntry *lun) {
    if (!list || !lun) return vt::kListNullArgument;
    if (!Unlink(list, lun)) return -1;
    free(lun);
    return 0;
}

VTAPI_EXPORT void RemoveAllLunsFromLunList(LunList *list) { FreeLunList(list); }

// Appends a LUN; a LUN number that is already listed is refused.
VTAPI_EXPORT int32_t AddLunToLunList(LunList *list, LunEntry *lun) {
    if (!list || !lun) return vt::kListNullArgument;
    if (t_lunIndex.Contains(list, LunKey(lun))) return -1;
    Append(list, lun);
    t_lunIndex.Appended(list, lun);
    return 0;
}

VTAPI_EXPORT LunEntry *FindLunInLunList(LunList *list, uint16_t lunNumber) {
    if (!list) return nullptr;
    for (LunEntry *l = list->First; l; l = l->next)
        if (l->LunNumber == lunNumber) return l;
    return nullptr;
}

VTAPI_EXPORT void FreeLunList(LunList *list) {
    if (!list) return;
    for (LunEntry *l = list->First; l;) {
        LunEntry *next = l->next;
        free(l);
        l = next;
    }
    InitLunList(list);
}

// ---------------------------------------------------------- readiness

// TEST UNIT READY to one LUN.  0 when it can be used; a standby port (NOT
// READY, 04/0B) counts as ready on a passive path.  A unit attention only
// reports an earlier event, so the LUN is ready.
VTAPI_EXPORT uint32_t CheckLunReady(SDMDevice *device, TargetEntry *target, uint16_t lunNumber, uint32_t *passive) {
    if (passive) *passive = 0;
    if (!device || !target) return vt::kListNullArgument;
    uint8_t sense[kSenseSize];
    uint32_t senseSize = kSenseSize;
    const uint32_t rc = SDSendScsiTestUnitReadyCmdFC(device->DeviceHandle, target->WWPN, lunNumber, sense, &senseSize);
    if (rc == SDERR_NONE) return 0;
    if (rc == SDERR_SCSI_CHECK_CONDITION) {
        const SenseInfo si = ParseSense(sense, senseSize);
        if (si.key == kKeyNotReady && si.asc == 0x04 && si.ascq == 0x0B) {
            if (passive) *passive = 1;
            return 0;
        }
        if (si.key == kKeyUnitAttention) return 0;
        LogDebug(kFile, __LINE__, "CheckLunReady: Lun (%d) - Sense key:  0x%x, asc:  0x%x, ascq:  0x%x", lunNumber,
                 si.key, si.asc, si.ascq);
    }
    LogDebug(kFile, __LINE__, "CheckLunReady: Lun (%d) - Unable to send SCSI Test Unit Ready Command (0x%x) (%s)",
             lunNumber, rc, SDGetErrorString(rc));
    return rc;
}

// A target is ready when it is logged in and answers a command on LUN 0:
// any SCSI status counts, a transport failure does not.
VTAPI_EXPORT uint32_t CheckTargetReady(SDMDevice *device, TargetEntry *target) {
    if (!device || !target) return vt::kListNullArgument;
    if (!(target->TargetFlags & SD_TGTFLAG_LOGGED_IN)) return SDERR_NOT_FOUND;
    uint8_t sense[kSenseSize];
    uint32_t senseSize = kSenseSize;
    const uint32_t rc = SDSendScsiTestUnitReadyCmdFC(device->DeviceHandle, target->WWPN, 0, sense, &senseSize);
    if (rc == SDERR_NONE || rc == SDERR_SCSI_CHECK_CONDITION) return 0;
    LogDebug(kFile, __LINE__, "CheckTargetReady: Unable to send SCSI Test Unit Ready Command (0x%x) (%s)", rc,
             SDGetErrorString(rc));
    return rc;
}

// ------------------------------------------------------- per-LUN lookups

// World-wide unique LUN name: the first NAA designator of INQUIRY VPD page
// 0x83 associated with the LUN, left-aligned in WWULN.
VTAPI_EXPORT uint32_t RetrieveWWULunNumberForLun(SDMDevice *device, TargetEntry *target, LunEntry *lun) {
    if (!device || !target || !lun) return vt::kListNullArgument;
    uint8_t page[255];
    uint8_t sense[kSenseSize];
    uint32_t respSize = sizeof page, senseSize = kSenseSize;
    const uint32_t rc = SDSendScsiInquiryCmdFC(device->DeviceHandle, target->WWPN, lun->LunNumber, 1, 0x83, page,
                                               &respSize, sense, &senseSize);
    if (!DataOk(rc)) {
        LogDebug(kFile, __LINE__, "RetrieveWWULunNumberForLun: Lun (%d) - Unable to read VPD page 0x83 (0x%x) (%s)",
                 lun->LunNumber, rc, SDGetErrorString(rc));
        return rc;
    }
    if (respSize < 4 || page[1] != 0x83) return SDERR_NOT_FOUND;
    const uint32_t end = std::min<uint32_t>(respSize, 4 + (uint32_t(page[2]) << 8 | page[3]));
    for (uint32_t at = 4; at + 4 <= end;) {
        const uint8_t *d = page + at;
        const uint32_t len = d[3];
        if (at + 4 + len > end) break;
        const bool naa = (d[1] & 0x0F) == 0x03;
        const bool ofLun = (d[1] & 0x30) == 0x00;
        if (naa && ofLun && len > 0) {
            memset(lun->WWULN, 0, sizeof lun->WWULN);
            memcpy(lun->WWULN, d + 4, std::min<uint32_t>(len, sizeof lun->WWULN));
            return 0;
        }
        at += 4 + len;
    }
    return SDERR_NOT_FOUND;
}

// OS device name of one LUN; empty when the host has none.
VTAPI_EXPORT uint32_t GetSingleTargetsOSMapping(SDMDevice *device, TargetEntry *target, LunEntry *lun) {
    if (!device || !target || !lun) return vt::kListNullArgument;
    const uint32_t rc = SDGetLunOSDeviceName(device->DeviceHandle, target->WWPN, lun->LunNumber, lun->OSDeviceName,
                                             sizeof lun->OSDeviceName);
    if (rc != SDERR_NONE) {
        lun->OSDeviceName[0] = '\0';
        if (rc != SDERR_NOT_FOUND)
            LogDebug(kFile, __LINE__, "GetSingleTargetsOSMapping: Lun (%d) - SDGetLunOSDeviceName failed (0x%x) (%s)",
                     lun->LunNumber, rc, SDGetErrorString(rc));
        return rc;
    }
    lun->OSDeviceName[sizeof lun->OSDeviceName - 1] = '\0';
    return 0;
}

// Unit serial number of the target (INQUIRY VPD page 0x80 of its first
// listed LUN, or LUN 0), as text.
VTAPI_EXPORT uint32_t RetrieveSerialNumberForTarget(SDMDevice *device, TargetEntry *target, char *serial,
                                                    uint32_t size) {
    if (!device || !target || !serial || size == 0) return vt::kListNullArgument;
    serial[0] = '\0';
    const uint16_t lun = target->Luns.First ? target->Luns.First->LunNumber : 0;
    uint8_t page[255];
    uint8_t sense[kSenseSize];
    uint32_t respSize = sizeof page, senseSize = kSenseSize;
    const uint32_t rc =
        SDSendScsiInquiryCmdFC(device->DeviceHandle, target->WWPN, lun, 1, 0x80, page, &respSize, sense, &senseSize);
    if (!DataOk(rc)) {
        LogDebug(kFile, __LINE__, "RetrieveSerialNumberForTarget: Unable to read VPD page 0x80 (0x%x) (%s)", rc,
                 SDGetErrorString(rc));
        return rc;
    }
    if (respSize < 4 || page[1] != 0x80) return SDERR_NOT_FOUND;
    uint32_t len = std::min<uint32_t>(page[3], respSize - 4);
    len = std::min<uint32_t>(len, size - 1);
    memcpy(serial, page + 4, len);
    serial[len] = '\0';
    return 0;
}

// ------------------------------------------------------------ LUN walk

VTAPI_EXPORT int32_t RetrieveLunsForTarget(SDMDevice *device, TargetEntry *target) {
    if (!device || !target) return -1;
    FreeLunList(&target->Luns);

    const uint32_t driverLunsPerTarget = device->DeviceDriverProperty.LunsPerTarget;
    LogDebug(kFile, __LINE__, "RetrieveLunsForTarget: driverLunsPerTarget=%d (0x%x)", driverLunsPerTarget,
             driverLunsPerTarget);
    uint32_t limit = driverLunsPerTarget;
    size_t bufferSize = 8 * size_t(limit) + 8;
    if (driverLunsPerTarget == 0) {
        // The text says 256, the limit is 4095: kept as it always was.
        LogDebug(kFile, __LINE__, "Unimplemented IOCTL - LunsPerTarget is zero, setting to 256");
        limit = kDefaultLunLimit;
        bufferSize = kDefaultLunBuffer;
    }
    std::unique_ptr<uint8_t, FreeDeleter> buffer(bufferSize <= UINT32_MAX ? static_cast<uint8_t *>(malloc(bufferSize))
                                                                          : nullptr);
    if (!buffer) {
        LogDebug(kFile, __LINE__, "RetrieveLunsForTarget: Unable to allocate memory for Lun list");
        return -1;
    }
    uint8_t *reply = buffer.get();

    uint32_t replySize = 0;
    const uint32_t rc = ReportLunsWithRetries(device, target, reply, uint32_t(bufferSize), replySize);
    if (rc != SDERR_NONE && rc != SDERR_DATA_UNDERRUN) {
        LogDebug(kFile, __LINE__, "RetrieveLunsForTarget: Unable to send SCSI Report Luns Command (0x%x) (%s)", rc,
                 SDGetErrorString(rc));
        return -1;
    }

    InquireTarget(device, target);

    const uint32_t targetType = target->DiscTargetProperty.TargetType;
    if (targetType == SD_TARGETTYPE_NVME) {
        target->PortTypeWord = 1;
        LogDebug(kFile, __LINE__, "RetrieveLunsForTarget: NMMe Target Type (0x%x)", targetType);
        LogDebug(kFile, __LINE__, "RetrieveLunsForTarget: NMMe Port Type (0x%x)", target->PortTypeWord);
    } else {
        target->PortTypeWord = 0;
        LogDebug(kFile, __LINE__, "RetrieveLunsForTarget: FCP Target Type (0x%x)", targetType);
    }

    const uint32_t lunListLength = replySize >= 4 ? Be32(reply) / 8 : 0;
    LogDebug(kFile, __LINE__, "RetrieveLunsForTarget: lunListLength = %d (0x%x)", lunListLength, lunListLength);
    if (lunListLength == 0) return -1;

    // Entries past the bytes actually returned were never written.
    const uint32_t returnedEntries = replySize >= 8 ? replySize / 8 - 1 : 0;
    const uint32_t last = std::min({lunListLength, limit, returnedEntries});
    for (uint32_t i = 1; i <= last; ++i) {
        const uint8_t *entry = reply + 8 * size_t(i);
        const uint16_t lunNum = uint16_t((uint32_t(entry[0]) << 8 | entry[1]) & ~0x4000u);
        LogDebug(kFile, __LINE__, "RetrieveLunsForTarget: iLunNum=%d (0x%x)", lunNum, lunNum);

        uint32_t passive = 0;
        if (CheckLunReady(device, target, lunNum, &passive) != 0) {
            LogDebug(kFile, __LINE__, "RetrieveLunsForTarget: Continuing with the next LUN...LUN %d skipped", lunNum);
            continue;
        }
        if (passive) LogDebug(kFile, __LINE__, "RetrieveLunsForTarget: Found a passive path for LUN %d...", lunNum);

        uint8_t inq[kInquirySize];
        uint8_t sense[kSenseSize];
        uint32_t inqSize = kInquirySize, senseSize = kSenseSize;
        const uint32_t irc =
            SDSendScsiInquiryCmdFC(device->DeviceHandle, target->WWPN, lunNum, 0, 0, inq, &inqSize, sense, &senseSize);
        if (!DataOk(irc)) {
            LogDebug(kFile, __LINE__, "RetrieveLunsForTarget: Lun (%d) - Unable to issue Inquiry Command (0x%x) (%s)",
                     lunNum, irc, SDGetErrorString(irc));
            if (irc == SDERR_SCSI_CHECK_CONDITION) {
                const SenseInfo si = ParseSense(sense, senseSize);
                LogDebug(kFile, __LINE__, "RetrieveLunsForTarget: Sense key:  0x%x, asc:  0x%x, ascq:  0x%x", si.key,
                         si.asc, si.ascq);
            }
            continue;
        }
        if (inqSize < 1 || inq[0] >= 64) continue;  // no device connected at this LUN
        if (inqSize < kInquirySize) memset(inq + inqSize, ' ', kInquirySize - inqSize);
        const uint8_t peripheral = inq[0] & 0x1F;
        LogDebug(kFile, __LINE__, "RetrieveLunsForTarget: Passed check SCSI_IsPeripheralConnected...");

        LunEntry *lun = nullptr;
        if (peripheral == 0) {
            LogDebug(kFile, __LINE__, "RetrieveLunsForTarget: Coming inside validation for disk-type lun...");
            LunEntry capacity{};
            capacity.BlockSize = capacity.LastBlock32 = VTAPI_CAPACITY_UNKNOWN32;
            capacity.LastBlock64 = VTAPI_CAPACITY_UNKNOWN64;
            ReadDiskCapacity(device, target, lunNum, &capacity);
            LogDebug(kFile, __LINE__, "RetrieveLunsForTarget: About to create new LUN object...");
            lun = CreateNewLun();
            if (lun) {
                lun->BlockSize = capacity.BlockSize;
                lun->LastBlock32 = capacity.LastBlock32;
                lun->LastBlock64 = capacity.LastBlock64;
            }
        } else {
            LogDebug(kFile, __LINE__, "RetrieveLunsForTarget: Coming inside validation for non-disk lun...");
            lun = CreateNewLun();
        }
        if (!lun) {
            LogError(kFile, __LINE__, "RetrieveLunsForTarget: Unable to allocate memory for Lun");
            break;
        }
        lun->LunNumber = lunNum;
        lun->PeripheralType = peripheral;
        memcpy(lun->VendorProduct, inq + 8, sizeof lun->VendorProduct);
        memcpy(lun->Revision, inq + 32, sizeof lun->Revision);
        lun->PassivePath = passive;
        char name[sizeof lun->VendorProduct + 1];
        memcpy(name, lun->VendorProduct, sizeof lun->VendorProduct);
        name[sizeof lun->VendorProduct] = '\0';
        LogDebug(kFile, __LINE__, "RetrieveLunsForTarget: Adding Lun (%d) [%s]", lunNum, name);
        RetrieveWWULunNumberForLun(device, target, lun);
        GetSingleTargetsOSMapping(device, target, lun);
        if (AddLunToLunList(&target->Luns, lun) != 0) free(lun);  // the same number reported twice
    }
    return target->Luns.Count > 0 ? 0 : -1;
}

// ---------------------------------------------------- target refresh steps

// Brings the target list in line with the remote ports the library reports:
// names, port ID, discovered properties and flags.  Known targets keep their
// LUN lists; targets no longer reported are dropped.
VTAPI_EXPORT uint32_t RetrieveTargetDataForTargets(SDMDevice *device) {
    if (!device) return vt::kListNullArgument;
    std::vector<SDDiscTargetProperty> props;
    if (!ReadDiscoveredTargets(device, "RetrieveTargetDataForTargets", props)) {
        FreeTargetList(&device->Targets);
        return vt::kFailure;
    }
    TargetList fresh;
    InitTargetList(&fresh);
    for (const SDDiscTargetProperty &p : props) {
        TargetEntry *t = FindTargetByWWNNAndWWPNInTargetList(&device->Targets, p.WWNN, p.WWPN);
        if (t) {
            Unlink(&device->Targets, t);
        } else if (!(t = CreateNewTarget())) {
            break;
        }
        SetDiscoveredFields(t, p);
        if (AddTargetToTargetList(&fresh, t) != 0) {  // reported twice
            FreeLunList(&t->Luns);
            free(t);
        }
    }
    FreeTargetList(&device->Targets);
    device->Targets = fresh;
    return 0;
}

// LUN lists of every logged-in target; other targets are kept without LUNs.
VTAPI_EXPORT uint32_t RetrieveLunDataForTargets(SDMDevice *device) {
    if (!device) return vt::kListNullArgument;
    for (TargetEntry *t = device->Targets.First; t; t = t->next) {
        vt::oss::SafePoint();  // the lists are whole here: a termination may stop the thread
        if (t->TargetFlags & SD_TGTFLAG_LOGGED_IN) RetrieveLunsForTarget(device, t);
        else FreeLunList(&t->Luns);
    }
    return 0;
}

// Refreshes the passive-path flag of every listed LUN.
VTAPI_EXPORT uint32_t RetrievePathInfoForTargets(SDMDevice *device) {
    if (!device) return vt::kListNullArgument;
    for (TargetEntry *t = device->Targets.First; t; t = t->next)
        for (LunEntry *l = t->Luns.First; l; l = l->next) {
            uint32_t passive = 0;
            if (CheckLunReady(device, t, l->LunNumber, &passive) == 0) l->PassivePath = passive;
        }
    return 0;
}

// Port ID, FC port type and login state of the listed targets, from the
// driver's remote-port records.
VTAPI_EXPORT uint32_t RetrieveRemotePortInfoForTargets(SDMDevice *device) {
    if (!device) return vt::kListNullArgument;
    if (!device->Targets.First) return 0;
    std::vector<SDDiscTargetProperty> props;
    if (!ReadDiscoveredTargets(device, "RetrieveRemotePortInfoForTargets", props)) return vt::kFailure;
    for (const SDDiscTargetProperty &p : props) {
        TargetEntry *t = FindTargetByWWNNAndWWPNInTargetList(&device->Targets, p.WWNN, p.WWPN);
        if (!t) continue;
        memcpy(t->PortId, p.PortId, 3);
        memcpy(t->DiscTargetProperty.PortId, p.PortId, 3);
        t->DiscTargetProperty.PortType = p.PortType;
        t->DiscTargetProperty.TargetFlags = p.TargetFlags;
        t->TargetFlags = p.TargetFlags;
    }
    return 0;
}

// The target records carry no security (encryption in flight) fields, so
// there is nothing to read for them.
VTAPI_EXPORT uint32_t RetrieveSecureInfoForTargets(SDMDevice *device) { return device ? 0 : 8; }

VTAPI_EXPORT uint32_t CoreInitializeTargets(void) {
    for (SDMDevice *d = GetDeviceList()->First; d; d = d->next) {
        RetrieveTargetDataForTargets(d);
        RetrieveLunDataForTargets(d);
    }
    // The sorted list holds copies: give them the same targets.
    for (SDMDevice *m = GetMyDeviceList()->First; m; m = m->next)
        for (const SDMDevice *d = GetDeviceList()->First; d; d = d->next)
            if (memcmp(d->DevicePortProperty.WWPN, m->DevicePortProperty.WWPN, 8) == 0 &&
                memcmp(d->DeviceNodeProperty.WWNN, m->DeviceNodeProperty.WWNN, 8) == 0) {
                FreeTargetList(&m->Targets);
                CopyTargetList(&m->Targets, &d->Targets);
                break;
            }
    return 0;
}

VTAPI_EXPORT uint32_t CoreUpdateLunOSDeviceName(SDMDevice *device) {
    if (!device) return vt::kListNullArgument;
    for (TargetEntry *t = device->Targets.First; t; t = t->next)
        for (LunEntry *l = t->Luns.First; l; l = l->next) GetSingleTargetsOSMapping(device, t, l);
    return 0;
}

}  // extern "C"
