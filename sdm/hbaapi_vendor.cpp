// Common HBA API vendor library on top of the SD interface.
//
// libHBAAPI loads this library when /etc/hba.conf names it and calls
// HBA_RegisterLibraryV2 (or HBA_RegisterLibrary) to get the entry-point
// table.  An HBA API adapter is one card: the physical port functions that
// share a serial number, in port order.  Virtual (NPIV) ports are not
// adapter ports in this API, so they are left out.  Everything is read
// through the public SD... calls; nothing here knows about the backend.
#include <dlfcn.h>
#include <time.h>

#include <hbaapi.h>
#include <vendorhbaapi.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "vtsdm.h"

namespace {

constexpr char kAdapterPrefix[] = "com.vantor.fchba32-";
constexpr HBA_UINT32 kMaxHandle = 0xFFFF;  // the wrapper keeps 16 bits of a vendor handle

// Speed values of later API revisions that the installed header lacks.
constexpr HBA_PORTSPEED kSpeed4G = 0x8;
constexpr HBA_PORTSPEED kSpeed8G = 0x10;
constexpr HBA_PORTSPEED kSpeed16G = 0x20;
constexpr HBA_PORTSPEED kSpeed32G = 0x40;
constexpr HBA_PORTSPEED kSpeed20G = 0x80;
constexpr HBA_PORTSPEED kSpeed64G = 0x1000;
constexpr HBA_PORTSPEED kSpeed128G = 0x2000;
constexpr HBA_PORTSPEED kSpeedNotNegotiated = 0x8000;

constexpr HBA_COS kClass3 = 0x08;
constexpr HBA_UINT8 kFc4TypeFcp = 0x08;
constexpr HBA_UINT8 kFc4TypeNvme = 0x28;
constexpr uint32_t kElsAccept = 0x02000000;  // LS_ACC command code word

// One open SD instance, closed on destruction.
class SdDevice {
public:
    SdDevice() = default;
    explicit SdDevice(uint32_t handle) : handle_(handle), open_(true) {}
    SdDevice(SdDevice &&o) noexcept : handle_(o.handle_), open_(std::exchange(o.open_, false)) {}
    SdDevice &operator=(SdDevice &&o) noexcept {
        if (this != &o) {
            Close();
            handle_ = o.handle_;
            open_ = std::exchange(o.open_, false);
        }
        return *this;
    }
    SdDevice(const SdDevice &) = delete;
    SdDevice &operator=(const SdDevice &) = delete;
    ~SdDevice() { Close(); }

    uint32_t handle() const { return handle_; }

private:
    void Close() {
        if (open_) SDCloseDevice(handle_);
        open_ = false;
    }
    uint32_t handle_ = 0;
    bool open_ = false;
};

// Opens an instance; a device that asks to be retried gets a few more tries.
uint32_t OpenInstance(uint32_t instance, SdDevice &out) {
    uint32_t st = SDERR_DEVICE_UNAVAILABLE;
    for (int attempt = 0; attempt < 4 && st == SDERR_DEVICE_UNAVAILABLE; ++attempt) {
        uint32_t h = 0;
        st = SDOpenDevice(instance, &h);
        if (st == SDERR_NONE) out = SdDevice(h);
    }
    return st;
}

HBA_STATUS MapStatus(uint32_t sd) {
    switch (sd) {
    case SDERR_NONE: return HBA_STATUS_OK;
    case SDERR_INVALID_PARAMETER: return HBA_STATUS_ERROR_ARG;
    case SDERR_NOT_SUPPORTED: return HBA_STATUS_ERROR_NOT_SUPPORTED;
    case SDERR_DEVICE_BUSY: return HBA_STATUS_ERROR_BUSY;
    case SDERR_DEVICE_UNAVAILABLE: return HBA_STATUS_ERROR_TRY_AGAIN;
    case SDERR_NOT_FOUND: return HBA_STATUS_ERROR_ILLEGAL_WWN;
    case SDERR_BUFFER_TOO_SMALL: return HBA_STATUS_ERROR_MORE_DATA;
    case SDERR_INVALID_HANDLE:
    case SDERR_NO_SUCH_DEVICE:
    case SDERR_DEVICE_REMOVED:
    case SDERR_LOOP_DOWN: return HBA_STATUS_ERROR_UNAVAILABLE;
    default: return HBA_STATUS_ERROR;
    }
}

// Copies a fixed-size SD text field, which need not be NUL-terminated.
template <size_t N, size_t M>
void CopyText(char (&dst)[N], const char (&src)[M]) {
    size_t n = std::min(strnlen(src, M), N - 1);
    memcpy(dst, src, n);
    dst[n] = '\0';
}
template <size_t N>
void CopyText(char (&dst)[N], const std::string &src) {
    snprintf(dst, N, "%s", src.c_str());
}

HBA_WWN ToWwn(const uint8_t (&bytes)[8]) {
    HBA_WWN w;
    memcpy(w.wwn, bytes, 8);
    return w;
}
bool SameWwn(const HBA_WWN &a, const uint8_t (&b)[8]) { return memcmp(a.wwn, b, 8) == 0; }
bool ZeroWwn(const uint8_t (&b)[8]) {
    return std::all_of(std::begin(b), std::end(b), [](uint8_t x) { return x == 0; });
}
uint32_t FcId(const uint8_t (&id)[3]) { return (uint32_t(id[0]) << 16) | (uint32_t(id[1]) << 8) | id[2]; }

// FC-4 TYPE bitmap as in the name server: bit (type % 32) of big-endian word
// (type / 32).
void SetFc4Type(HBA_FC4TYPES &types, HBA_UINT8 type) {
    types.bits[(type / 32) * 4 + 3 - (type % 32) / 8] |= HBA_UINT8(1u << (type % 8));
}

HBA_PORTSPEED SpeedFromCode(uint32_t code) {
    switch (code) {
    case SD_SPEED_1G: return HBA_PORTSPEED_1GBIT;
    case SD_SPEED_2G: return HBA_PORTSPEED_2GBIT;
    case SD_SPEED_4G: return kSpeed4G;
    case SD_SPEED_8G: return kSpeed8G;
    case SD_SPEED_10G: return HBA_PORTSPEED_10GBIT;
    case SD_SPEED_16G: return kSpeed16G;
    case SD_SPEED_20G: return kSpeed20G;
    case SD_SPEED_32G: return kSpeed32G;
    case SD_SPEED_64G: return kSpeed64G;
    case SD_SPEED_128G: return kSpeed128G;
    default: return HBA_PORTSPEED_UNKNOWN;
    }
}

HBA_PORTSPEED SpeedsFromMask(uint8_t mask) {
    static constexpr std::pair<uint8_t, HBA_PORTSPEED> bits[] = {{SD_SUPPORTED_1G, HBA_PORTSPEED_1GBIT},
                                                                 {SD_SUPPORTED_2G, HBA_PORTSPEED_2GBIT},
                                                                 {SD_SUPPORTED_4G, kSpeed4G},
                                                                 {SD_SUPPORTED_8G, kSpeed8G},
                                                                 {SD_SUPPORTED_16G, kSpeed16G},
                                                                 {SD_SUPPORTED_32G, kSpeed32G},
                                                                 {SD_SUPPORTED_64G, kSpeed64G}};
    HBA_PORTSPEED out = 0;
    for (const auto &[bit, speed] : bits)
        if (mask & bit) out |= speed;
    return out;
}

HBA_PORTSTATE StateFrom(const SDPortProperty &p) {
    if (p.PortSubState == SD_PORTSUBSTATE_DPORT) return HBA_PORTSTATE_DIAGNOSTICS;
    switch (p.PortState) {
    case SD_PORTSTATE_ONLINE: return HBA_PORTSTATE_ONLINE;
    case SD_PORTSTATE_LINKDOWN: return HBA_PORTSTATE_LINKDOWN;
    case SD_PORTSTATE_OFFLINE: return HBA_PORTSTATE_OFFLINE;
    case SD_PORTSTATE_BYPASSED: return HBA_PORTSTATE_BYPASSED;
    case SD_PORTSTATE_DIAGNOSTICS: return HBA_PORTSTATE_DIAGNOSTICS;
    case SD_PORTSTATE_ERROR: return HBA_PORTSTATE_ERROR;
    default: return HBA_PORTSTATE_UNKNOWN;
    }
}

// Topology of an online port: a fabric login when the port knows a fabric
// name, a private loop when it has only an AL_PA, point-to-point otherwise.
HBA_PORTTYPE TypeFrom(const SDPortProperty &p) {
    if (p.PortState != SD_PORTSTATE_ONLINE) return HBA_PORTTYPE_UNKNOWN;
    if (!ZeroWwn(p.FabricName)) return HBA_PORTTYPE_NPORT;
    uint32_t id = FcId(p.PortId);
    if (id != 0 && (id & 0xFFFF00u) == 0) return HBA_PORTTYPE_LPORT;
    return HBA_PORTTYPE_PTP;
}

// What enumeration learns about one card.
struct CardInfo {
    std::string key;                                // serial number, or PCI location without one
    std::vector<uint32_t> instances;                // physical port functions in port order
    std::vector<std::pair<HBA_WWN, HBA_WWN>> wwns;  // node and port WWN per port
};

// Walks instances 0.. until the backend has no more and groups the physical
// port functions by card.
std::vector<CardInfo> Enumerate() {
    struct Seen {
        std::string key;
        uint8_t physPort;
        uint32_t instance;
        HBA_WWN wwnn, wwpn;
    };
    std::vector<Seen> seen;
    for (uint32_t i = 0; i < SD_MAX_INSTANCES; ++i) {
        SdDevice dev;
        uint32_t st = OpenInstance(i, dev);
        if (st == SDERR_NO_SUCH_DEVICE) break;
        if (st != SDERR_NONE) continue;
        SDNodeProperty node{};
        SDChipProperty chip{};
        SDPortProperty port{};
        if (SDGetHbaDeviceNodeProperty(dev.handle(), &node) != SDERR_NONE ||
            SDGetHbaDeviceChipProperty(dev.handle(), &chip) != SDERR_NONE ||
            SDGetHbaDevicePortProperty(dev.handle(), &port) != SDERR_NONE)
            continue;
        if (node.Interface == SD_INTERFACE_VPORT || node.VPortId != 0) continue;
        char serial[sizeof node.SerialNumber + 1] = {};
        CopyText(serial, node.SerialNumber);
        std::string key = serial;
        if (key.empty()) key = "pci:" + std::to_string(chip.PciBusNumber) + ":" + std::to_string(chip.PciDevFunc >> 3);
        seen.push_back({key, chip.PhysPortNumber, i, ToWwn(node.WWNN), ToWwn(port.WWPN)});
    }
    // Cards in the order their first port appears; ports by port number.
    std::vector<CardInfo> cards;
    auto cardOf = [&](const std::string &key) {
        return std::find_if(cards.begin(), cards.end(), [&](const CardInfo &c) { return c.key == key; });
    };
    for (const Seen &s : seen)
        if (cardOf(s.key) == cards.end()) cards.push_back(CardInfo{s.key, {}, {}});
    std::stable_sort(seen.begin(), seen.end(), [](const Seen &a, const Seen &b) { return a.physPort < b.physPort; });
    for (const Seen &s : seen) {
        auto it = cardOf(s.key);
        it->instances.push_back(s.instance);
        it->wwns.emplace_back(s.wwnn, s.wwpn);
    }
    return cards;
}

// An adapter opened by a client: its ports' SD handles.
struct OpenAdapter {
    std::string key;
    std::vector<SdDevice> ports;
};

std::optional<OpenAdapter> OpenCard(const CardInfo &card) {
    OpenAdapter a{card.key, {}};
    for (uint32_t inst : card.instances) {
        SdDevice dev;
        if (OpenInstance(inst, dev) != SDERR_NONE) return std::nullopt;
        a.ports.push_back(std::move(dev));
    }
    return a;
}

// Discovered remote ports of one port function.
uint32_t ReadTargets(uint32_t h, std::vector<SDDiscTargetProperty> &out) {
    SDPortProperty port{};
    uint32_t st = SDGetHbaDevicePortProperty(h, &port);
    if (st != SDERR_NONE) return st;
    uint32_t count = std::max<uint32_t>(port.DiscoveredTargets, 1);
    for (int attempt = 0; attempt < 4; ++attempt) {
        out.assign(count, SDDiscTargetProperty{});
        uint32_t n = count;
        st = SDGetDiscTargetProperties(h, out.data(), &n);
        if (st == SDERR_BUFFER_TOO_SMALL && n > count) {
            count = n;
            continue;
        }
        if (st == SDERR_LOOP_DOWN) {  // a port without link has discovered nothing
            n = 0;
            st = SDERR_NONE;
        }
        out.resize(st == SDERR_NONE ? std::min(n, count) : 0);
        return st;
    }
    return st;
}

HBA_STATUS LocalPortAttributes(uint32_t h, HBA_PORTATTRIBUTES &a) {
    SDNodeProperty node{};
    SDPortProperty port{};
    SDDriverProperty drv{};
    uint32_t st = SDGetHbaDeviceNodeProperty(h, &node);
    if (st == SDERR_NONE) st = SDGetHbaDevicePortProperty(h, &port);
    if (st == SDERR_NONE) st = SDGetHbaDeviceDriverProperty(h, &drv);
    std::vector<SDDiscTargetProperty> targets;
    if (st == SDERR_NONE) st = ReadTargets(h, targets);
    if (st != SDERR_NONE) return MapStatus(st);
    a = HBA_PORTATTRIBUTES{};
    a.NodeWWN = ToWwn(node.WWNN);
    a.PortWWN = ToWwn(port.WWPN);
    a.PortFcId = FcId(port.PortId);
    a.PortType = TypeFrom(port);
    a.PortState = StateFrom(port);
    a.PortSupportedClassofService = kClass3;
    SetFc4Type(a.PortSupportedFc4Types, kFc4TypeFcp);
    if (port.PortState == SD_PORTSTATE_ONLINE) SetFc4Type(a.PortActiveFc4Types, kFc4TypeFcp);
    CopyText(a.OSDeviceName, port.DeviceName);
    a.PortSupportedSpeed =
        (drv.Capabilities & SD_DRVCAP_SUPPORTED_SPEED) ? SpeedsFromMask(port.SupportedSpeed) : HBA_PORTSPEED_UNKNOWN;
    a.PortSpeed = port.PortState == SD_PORTSTATE_ONLINE ? SpeedFromCode(port.PortSpeed) : kSpeedNotNegotiated;
    a.PortMaxFrameSize = port.MaxFrameSize;
    a.FabricName = ToWwn(port.FabricName);
    a.NumberofDiscoveredPorts = HBA_UINT32(targets.size());
    return HBA_STATUS_OK;
}

void RemotePortAttributes(const SDDiscTargetProperty &t, const SDPortProperty &local, HBA_PORTATTRIBUTES &a) {
    a = HBA_PORTATTRIBUTES{};
    a.NodeWWN = ToWwn(t.WWNN);
    a.PortWWN = ToWwn(t.WWPN);
    a.PortFcId = FcId(t.PortId);
    a.PortType = t.PortType == 1 ? HBA_PORTTYPE_NPORT : t.PortType == 2 ? HBA_PORTTYPE_NLPORT : HBA_PORTTYPE_UNKNOWN;
    a.PortState = (t.TargetFlags & SD_TGTFLAG_LOGGED_IN) ? HBA_PORTSTATE_ONLINE : HBA_PORTSTATE_OFFLINE;
    a.PortSupportedClassofService = kClass3;
    HBA_UINT8 type = t.TargetType == SD_TARGETTYPE_NVME ? kFc4TypeNvme : kFc4TypeFcp;
    SetFc4Type(a.PortSupportedFc4Types, type);
    if (t.TargetFlags & SD_TGTFLAG_LOGGED_IN) SetFc4Type(a.PortActiveFc4Types, type);
    a.PortSupportedSpeed = HBA_PORTSPEED_UNKNOWN;
    a.PortSpeed = HBA_PORTSPEED_UNKNOWN;
    a.FabricName = ToWwn(local.FabricName);
}

// Per-process state: the adapter list and the open adapters.
class Library {
public:
    // Enumerating here brings the backend up before this object is complete,
    // so its state outlives ours at exit.
    Library() : cards_(Enumerate()) {}

    std::mutex mu;

    void Load() {
        open_.clear();
        cards_ = Enumerate();
    }
    void Free() {
        open_.clear();
        cards_.clear();
    }
    void RefreshConfiguration() { cards_ = Enumerate(); }
    const std::vector<CardInfo> &cards() const { return cards_; }

    HBA_HANDLE Add(OpenAdapter a) {
        if (open_.size() >= kMaxHandle) return HBA_HANDLE_INVALID;
        while (open_.count(next_) || next_ == HBA_HANDLE_INVALID) next_ = next_ % kMaxHandle + 1;
        HBA_HANDLE h = next_;
        next_ = next_ % kMaxHandle + 1;
        open_.emplace(h, std::move(a));
        return h;
    }
    void Remove(HBA_HANDLE h) { open_.erase(h); }
    OpenAdapter *Find(HBA_HANDLE h) {
        auto it = open_.find(h);
        return it == open_.end() ? nullptr : &it->second;
    }

private:
    std::vector<CardInfo> cards_;
    std::map<HBA_HANDLE, OpenAdapter> open_;
    HBA_HANDLE next_ = 1;
};

Library &Lib() {
    static Library lib;
    return lib;
}

// Runs fn(adapter) under the lock for an open handle.
template <typename Fn>
HBA_STATUS WithAdapter(HBA_HANDLE h, Fn &&fn) {
    Library &lib = Lib();
    std::lock_guard lock(lib.mu);
    OpenAdapter *a = lib.Find(h);
    if (a == nullptr) return HBA_STATUS_ERROR_INVALID_HANDLE;
    return fn(*a);
}

// ------------------------------------------------------------ entry points
// Each ends in a handler: no exception (an allocation that failed) crosses
// into libHBAAPI and its caller; the call fails with its failure value.

HBA_UINT32 GetVersion() { return HBA_LIBVERSION; }

HBA_STATUS LoadLibrary() try {
    Library &lib = Lib();
    std::lock_guard lock(lib.mu);
    lib.Load();
    return HBA_STATUS_OK;
} catch (...) {
    return HBA_STATUS_ERROR;
}

HBA_STATUS FreeLibrary() try {
    Library &lib = Lib();
    std::lock_guard lock(lib.mu);
    lib.Free();
    return HBA_STATUS_OK;
} catch (...) {
    return HBA_STATUS_ERROR;
}

HBA_UINT32 GetNumberOfAdapters() try {
    Library &lib = Lib();
    std::lock_guard lock(lib.mu);
    return HBA_UINT32(lib.cards().size());
} catch (...) {
    return 0;
}

HBA_STATUS GetAdapterName(HBA_UINT32 index, char *name) try {
    if (name == nullptr) return HBA_STATUS_ERROR_ARG;
    Library &lib = Lib();
    std::lock_guard lock(lib.mu);
    if (index >= lib.cards().size()) return HBA_STATUS_ERROR_ILLEGAL_INDEX;
    snprintf(name, 256, "%s%u", kAdapterPrefix, index);
    return HBA_STATUS_OK;
} catch (...) {
    return HBA_STATUS_ERROR;
}

HBA_HANDLE OpenAdapterByName(char *name) try {
    if (name == nullptr || strncmp(name, kAdapterPrefix, sizeof kAdapterPrefix - 1) != 0) return HBA_HANDLE_INVALID;
    const char *digits = name + sizeof kAdapterPrefix - 1;
    char *end = nullptr;
    unsigned long index = strtoul(digits, &end, 10);
    if (end == digits || *end != '\0' || digits[0] == '-' || digits[0] == '+') return HBA_HANDLE_INVALID;
    Library &lib = Lib();
    std::lock_guard lock(lib.mu);
    if (index >= lib.cards().size()) return HBA_HANDLE_INVALID;
    auto a = OpenCard(lib.cards()[index]);
    return a ? lib.Add(std::move(*a)) : HBA_HANDLE_INVALID;
} catch (...) {
    return HBA_HANDLE_INVALID;
}

// The adapter whose node WWN or one of whose port WWNs is wwn.
HBA_STATUS OpenAdapterByWWN(HBA_HANDLE *handle, HBA_WWN wwn) try {
    if (handle == nullptr) return HBA_STATUS_ERROR_ARG;
    *handle = HBA_HANDLE_INVALID;
    Library &lib = Lib();
    std::lock_guard lock(lib.mu);
    const CardInfo *match = nullptr;
    for (const CardInfo &c : lib.cards()) {
        bool hit = std::any_of(c.wwns.begin(), c.wwns.end(), [&](const auto &p) {
            return memcmp(p.first.wwn, wwn.wwn, 8) == 0 || memcmp(p.second.wwn, wwn.wwn, 8) == 0;
        });
        if (!hit) continue;
        if (match != nullptr) return HBA_STATUS_ERROR_AMBIGUOUS_WWN;
        match = &c;
    }
    if (match == nullptr) return HBA_STATUS_ERROR_ILLEGAL_WWN;
    auto a = OpenCard(*match);
    if (!a) return HBA_STATUS_ERROR_UNAVAILABLE;
    *handle = lib.Add(std::move(*a));
    return *handle == HBA_HANDLE_INVALID ? HBA_STATUS_ERROR : HBA_STATUS_OK;
} catch (...) {
    return HBA_STATUS_ERROR;
}

void CloseAdapter(HBA_HANDLE h) try {
    Library &lib = Lib();
    std::lock_guard lock(lib.mu);
    lib.Remove(h);
} catch (...) {
}

HBA_STATUS GetAdapterAttributes(HBA_HANDLE h, HBA_ADAPTERATTRIBUTES *attr) try {
    if (attr == nullptr) return HBA_STATUS_ERROR_ARG;
    return WithAdapter(h, [&](OpenAdapter &a) -> HBA_STATUS {
        if (a.ports.empty()) return HBA_STATUS_ERROR_UNAVAILABLE;
        uint32_t dev = a.ports.front().handle();
        SDNodeProperty node{};
        SDChipProperty chip{};
        SDDriverProperty drv{};
        uint32_t st = SDGetHbaDeviceNodeProperty(dev, &node);
        if (st == SDERR_NONE) st = SDGetHbaDeviceChipProperty(dev, &chip);
        if (st == SDERR_NONE) st = SDGetHbaDeviceDriverProperty(dev, &drv);
        if (st != SDERR_NONE) return MapStatus(st);
        HBA_ADAPTERATTRIBUTES &r = *attr;
        r = HBA_ADAPTERATTRIBUTES{};
        CopyText(r.Manufacturer, node.Manufacturer);
        CopyText(r.SerialNumber, node.SerialNumber);
        CopyText(r.Model, node.Model);
        CopyText(r.ModelDescription, node.ModelDescription);
        r.NodeWWN = ToWwn(node.WWNN);
        CopyText(r.HardwareVersion, std::to_string(chip.ChipRevision));
        CopyText(r.DriverVersion, node.DriverVersion);
        CopyText(r.OptionROMVersion, node.OptionRomVersion);
        CopyText(r.FirmwareVersion, node.FirmwareVersion);
        CopyText(r.DriverName, drv.DriverName);
        CopyText(r.NodeSymbolicName, std::string(r.Model) + " FW:v" + r.FirmwareVersion + " DVR:v" + r.DriverVersion);
        r.VendorSpecificID = (HBA_UINT32(chip.DeviceID) << 16) | chip.VendorID;
        r.NumberOfPorts = HBA_UINT32(a.ports.size());
        return HBA_STATUS_OK;
    });
} catch (...) {
    return HBA_STATUS_ERROR;
}

HBA_STATUS GetAdapterPortAttributes(HBA_HANDLE h, HBA_UINT32 index, HBA_PORTATTRIBUTES *attr) try {
    if (attr == nullptr) return HBA_STATUS_ERROR_ARG;
    return WithAdapter(h, [&](OpenAdapter &a) {
        if (index >= a.ports.size()) return HBA_STATUS(HBA_STATUS_ERROR_ILLEGAL_INDEX);
        return LocalPortAttributes(a.ports[index].handle(), *attr);
    });
} catch (...) {
    return HBA_STATUS_ERROR;
}

HBA_STATUS GetPortStatistics(HBA_HANDLE h, HBA_UINT32 index, HBA_PORTSTATISTICS *stats) try {
    if (stats == nullptr) return HBA_STATUS_ERROR_ARG;
    return WithAdapter(h, [&](OpenAdapter &a) -> HBA_STATUS {
        if (index >= a.ports.size()) return HBA_STATUS_ERROR_ILLEGAL_INDEX;
        SDStatistics s{};
        uint32_t st = SDGetStatistics(a.ports[index].handle(), &s);
        if (st != SDERR_NONE) return MapStatus(st);
        HBA_PORTSTATISTICS &r = *stats;
        r.SecondsSinceLastReset = HBA_INT64(s.SecondsSinceLastReset);
        r.TxFrames = HBA_INT64(s.TxFrames);
        r.TxWords = HBA_INT64(s.TxWords);
        r.RxFrames = HBA_INT64(s.RxFrames);
        r.RxWords = HBA_INT64(s.RxWords);
        r.LIPCount = HBA_INT64(s.LipCount);
        r.NOSCount = HBA_INT64(s.NosCount);
        r.ErrorFrames = HBA_INT64(s.ErrorFrames);
        r.DumpedFrames = HBA_INT64(s.DumpedFrames);
        r.LinkFailureCount = s.LinkFailureCount;
        r.LossOfSyncCount = s.LossOfSyncCount;
        r.LossOfSignalCount = s.LossOfSignalCount;
        r.PrimitiveSeqProtocolErrCount = s.PrimitiveSeqProtocolErrorCount;
        r.InvalidTxWordCount = s.InvalidTransmissionWordCount;
        r.InvalidCRCCount = s.InvalidCRCCount;
        return HBA_STATUS_OK;
    });
} catch (...) {
    return HBA_STATUS_ERROR;
}

void ResetStatistics(HBA_HANDLE h, HBA_UINT32 index) try {
    WithAdapter(h, [&](OpenAdapter &a) {
        if (index >= a.ports.size()) return HBA_STATUS(HBA_STATUS_ERROR_ILLEGAL_INDEX);
        return MapStatus(SDResetStatistics(a.ports[index].handle()));
    });
} catch (...) {
}

HBA_STATUS GetDiscoveredPortAttributes(HBA_HANDLE h, HBA_UINT32 index, HBA_UINT32 disc, HBA_PORTATTRIBUTES *attr) try {
    if (attr == nullptr) return HBA_STATUS_ERROR_ARG;
    return WithAdapter(h, [&](OpenAdapter &a) -> HBA_STATUS {
        if (index >= a.ports.size()) return HBA_STATUS_ERROR_ILLEGAL_INDEX;
        uint32_t dev = a.ports[index].handle();
        SDPortProperty local{};
        std::vector<SDDiscTargetProperty> targets;
        uint32_t st = SDGetHbaDevicePortProperty(dev, &local);
        if (st == SDERR_NONE) st = ReadTargets(dev, targets);
        if (st != SDERR_NONE) return MapStatus(st);
        if (disc >= targets.size()) return HBA_STATUS_ERROR_ILLEGAL_INDEX;
        RemotePortAttributes(targets[disc], local, *attr);
        return HBA_STATUS_OK;
    });
} catch (...) {
    return HBA_STATUS_ERROR;
}

// A port of this adapter or a remote port one of them discovered.
HBA_STATUS GetPortAttributesByWWN(HBA_HANDLE h, HBA_WWN wwn, HBA_PORTATTRIBUTES *attr) try {
    if (attr == nullptr) return HBA_STATUS_ERROR_ARG;
    return WithAdapter(h, [&](OpenAdapter &a) -> HBA_STATUS {
        for (const SdDevice &dev : a.ports) {
            SDPortProperty local{};
            if (SDGetHbaDevicePortProperty(dev.handle(), &local) != SDERR_NONE) continue;
            if (SameWwn(wwn, local.WWPN)) return LocalPortAttributes(dev.handle(), *attr);
            std::vector<SDDiscTargetProperty> targets;
            if (ReadTargets(dev.handle(), targets) != SDERR_NONE) continue;
            for (const SDDiscTargetProperty &t : targets) {
                if (SameWwn(wwn, t.WWPN)) {
                    RemotePortAttributes(t, local, *attr);
                    return HBA_STATUS_OK;
                }
            }
        }
        return HBA_STATUS_ERROR_ILLEGAL_WWN;
    });
} catch (...) {
    return HBA_STATUS_ERROR;
}

// Reopens the adapter's ports, which may have moved to other instances.
void RefreshInformation(HBA_HANDLE h) try {
    Library &lib = Lib();
    std::lock_guard lock(lib.mu);
    OpenAdapter *a = lib.Find(h);
    if (a == nullptr) return;
    for (const CardInfo &c : Enumerate()) {
        if (c.key != a->key) continue;
        if (auto fresh = OpenCard(c)) *a = std::move(*fresh);
        return;
    }
} catch (...) {
}

void RefreshAdapterConfiguration() try {
    Library &lib = Lib();
    std::lock_guard lock(lib.mu);
    lib.RefreshConfiguration();
} catch (...) {
}

// Read Link Error Status: the LS_ACC payload, big-endian words.  The local
// port's own WWPN as destination gives its own link error counters.
HBA_STATUS SendRLS(HBA_HANDLE h, HBA_WWN portWwn, HBA_WWN destWwn, void *rsp, HBA_UINT32 *rspSize) try {
    if (rsp == nullptr || rspSize == nullptr) return HBA_STATUS_ERROR_ARG;
    return WithAdapter(h, [&](OpenAdapter &a) -> HBA_STATUS {
        for (const SdDevice &dev : a.ports) {
            SDPortProperty local{};
            if (SDGetHbaDevicePortProperty(dev.handle(), &local) != SDERR_NONE || !SameWwn(portWwn, local.WWPN))
                continue;
            SDLinkErrorStatus les{};
            if (SameWwn(destWwn, local.WWPN)) {
                SDStatistics s{};
                uint32_t st = SDGetStatistics(dev.handle(), &s);
                if (st != SDERR_NONE) return MapStatus(st);
                les = {s.LinkFailureCount,
                       s.LossOfSyncCount,
                       s.LossOfSignalCount,
                       s.PrimitiveSeqProtocolErrorCount,
                       s.InvalidTransmissionWordCount,
                       s.InvalidCRCCount};
            } else {
                uint32_t st = SDGetPortStatisticsFC(dev.handle(), destWwn.wwn, &les);
                if (st != SDERR_NONE) return MapStatus(st);
            }
            const uint32_t words[7] = {kElsAccept,
                                       les.LinkFailureCount,
                                       les.LossOfSyncCount,
                                       les.LossOfSignalCount,
                                       les.PrimitiveSeqProtocolErrorCount,
                                       les.InvalidTransmissionWordCount,
                                       les.InvalidCRCCount};
            if (*rspSize < sizeof words) {
                *rspSize = sizeof words;
                return HBA_STATUS_ERROR_MORE_DATA;
            }
            auto *out = static_cast<uint8_t *>(rsp);
            for (uint32_t w : words) {
                for (int shift = 24; shift >= 0; shift -= 8) *out++ = uint8_t(w >> shift);
            }
            *rspSize = sizeof words;
            return HBA_STATUS_OK;
        }
        return HBA_STATUS_ERROR_ILLEGAL_WWN;
    });
} catch (...) {
    return HBA_STATUS_ERROR;
}

HBA_UINT32 GetVendorLibraryAttributes(HBA_LIBRARYATTRIBUTES *attr) try {
    if (attr != nullptr) {
        *attr = HBA_LIBRARYATTRIBUTES{};
        Dl_info info{};
        if (dladdr(reinterpret_cast<void *>(&GetVendorLibraryAttributes), &info) != 0 && info.dli_fname)
            CopyText(attr->LibPath, std::string(info.dli_fname));
        CopyText(attr->VName, std::string("Vantor Corporation"));
        char version[64] = {};
        if (SDGetVersion(version, sizeof version) == SDERR_NONE) CopyText(attr->VVersion, version);
    }
    return HBA_LIBVERSION;
} catch (...) {
    return HBA_LIBVERSION;
}

// Entry points this library does not provide answer "not supported".
template <typename F>
struct Unsupported;
template <typename R, typename... A>
struct Unsupported<R (*)(A...)> {
    static R Call(A...) { return HBA_STATUS_ERROR_NOT_SUPPORTED; }
};
template <typename F>
void Stub(F &slot) {
    slot = &Unsupported<F>::Call;
}

// The part both table revisions share.
template <typename Table>
void FillCommon(Table &t) {
    t.GetVersionHandler = &GetVersion;
    t.LoadLibraryHandler = &LoadLibrary;
    t.FreeLibraryHandler = &FreeLibrary;
    t.GetNumberOfAdaptersHandler = &GetNumberOfAdapters;
    t.GetAdapterNameHandler = &GetAdapterName;
    t.OpenAdapterHandler = &OpenAdapterByName;
    t.CloseAdapterHandler = &CloseAdapter;
    t.GetAdapterAttributesHandler = &GetAdapterAttributes;
    t.GetAdapterPortAttributesHandler = &GetAdapterPortAttributes;
    t.GetPortStatisticsHandler = &GetPortStatistics;
    t.GetDiscoveredPortAttributesHandler = &GetDiscoveredPortAttributes;
    t.GetPortAttributesByWWNHandler = &GetPortAttributesByWWN;
    Stub(t.SendCTPassThruHandler);
    t.RefreshInformationHandler = &RefreshInformation;
    t.ResetStatisticsHandler = &ResetStatistics;
    Stub(t.GetFcpTargetMappingHandler);
    Stub(t.GetFcpPersistentBindingHandler);
    Stub(t.GetEventBufferHandler);
    Stub(t.SetRNIDMgmtInfoHandler);
    Stub(t.GetRNIDMgmtInfoHandler);
    Stub(t.SendRNIDHandler);
    Stub(t.ScsiInquiryHandler);
    Stub(t.ReportLUNsHandler);
    Stub(t.ReadCapacityHandler);
}

}  // namespace

extern "C" SDM_EXPORT HBA_STATUS HBA_RegisterLibrary(HBA_ENTRYPOINTS *table) {
    if (table == nullptr) return HBA_STATUS_ERROR_ARG;
    *table = HBA_ENTRYPOINTS{};
    FillCommon(*table);
    return HBA_STATUS_OK;
}

extern "C" SDM_EXPORT HBA_STATUS HBA_RegisterLibraryV2(HBA_ENTRYPOINTSV2 *table) {
    if (table == nullptr) return HBA_STATUS_ERROR_ARG;
    HBA_ENTRYPOINTSV2 &t = *table;
    t = HBA_ENTRYPOINTSV2{};
    FillCommon(t);
    t.OpenAdapterByWWNHandler = &OpenAdapterByWWN;
    Stub(t.GetFcpTargetMappingV2Handler);
    Stub(t.SendCTPassThruV2Handler);
    t.RefreshAdapterConfigurationHandler = &RefreshAdapterConfiguration;
    Stub(t.GetBindingCapabilityHandler);
    Stub(t.GetBindingSupportHandler);
    Stub(t.SetBindingSupportHandler);
    Stub(t.SetPersistentBindingV2Handler);
    Stub(t.GetPersistentBindingV2Handler);
    Stub(t.RemovePersistentBindingHandler);
    Stub(t.RemoveAllPersistentBindingsHandler);
    Stub(t.SendRNIDV2Handler);
    Stub(t.ScsiInquiryV2Handler);
    Stub(t.ScsiReportLUNsV2Handler);
    Stub(t.ScsiReadCapacityV2Handler);
    t.GetVendorLibraryAttributesHandler = &GetVendorLibraryAttributes;
    Stub(t.RemoveCallbackHandler);
    Stub(t.RegisterForAdapterAddEventsHandler);
    Stub(t.RegisterForAdapterEventsHandler);
    Stub(t.RegisterForAdapterPortEventsHandler);
    Stub(t.RegisterForAdapterPortStatEventsHandler);
    Stub(t.RegisterForTargetEventsHandler);
    Stub(t.RegisterForLinkEventsHandler);
    Stub(t.SendRPLHandler);
    Stub(t.SendRPSHandler);
    Stub(t.SendSRLHandler);
    Stub(t.SendLIRRHandler);
    Stub(t.GetFC4StatisticsHandler);
    Stub(t.GetFCPStatisticsHandler);
    t.SendRLSHandler = &SendRLS;
    return HBA_STATUS_OK;
}
