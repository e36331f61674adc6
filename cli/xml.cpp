// The two XML report formats.  Every line goes to the front end's scfxPrint
// with its line end; values are printed as they stand, without escaping.
// Each format-1 emitter hands over to its format-2 twin when bXmlOutPut2 is
// set, so callers always use the format-1 name.
#include <algorithm>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include "vtapi_cli.h"
#include "vtapi_core.h"
#include "vtapi_oss.h"

namespace {

constexpr const char kAppName[] = "Pallwick FCAPI";
constexpr int kVersionMajor = 3, kVersionMinor = 0, kVersionSub = 0, kBuild = 3;

// Indentation of the elements inside a port block and a target block.
constexpr const char kPortIndent[] = "\t";
constexpr const char kTargetIndent[] = "\t\t";
constexpr const char kLunIndent[] = "\t\t\t";
constexpr const char kTopIndent[] = "    ";
constexpr const char kHostIndent[] = "        ";

#define WWN_FMT "%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x"
#define WWN_ARGS(w) (w)[0], (w)[1], (w)[2], (w)[3], (w)[4], (w)[5], (w)[6], (w)[7]

void Element(const char *indent, const char *name, const char *format, ...) __attribute__((format(printf, 3, 4)));
void Element(const char *indent, const char *name, const char *format, ...) {
    va_list args;
    va_start(args, format);
    va_list copy;
    va_copy(copy, args);
    const int n = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    std::string value(n > 0 ? static_cast<size_t>(n) : 0, '\0');
    if (n > 0) std::vsnprintf(value.data(), value.size() + 1, format, args);
    va_end(args);
    XML_PrintElement(indent, name, value.c_str());
}

// A fixed-size text field without its padding blanks.
std::string Text(const char *field, size_t size) {
    std::string s(field, strnlen(field, size));
    while (!s.empty() && s.back() == ' ') s.pop_back();
    return s;
}
#define FIELD(f) Text((f), sizeof(f)).c_str()

std::string ModelName(const SDMDevice *d) {
    std::string model = FIELD(d->DeviceNodeProperty.Model);
    if (isOEMModelSuffixHBA(d) && model.find("-S") == std::string::npos) model += "-S";
    return model;
}

std::string SpeedText(uint32_t code) {
    const uint32_t gb = ConvertPortSpeedToDecimal(code);
    return gb == 0 ? std::string("-") : std::to_string(gb) + " Gb/s";
}

std::string SupportedSpeedsText(uint8_t mask) {
    static const struct { uint8_t bit; const char *text; } kBits[] = {
        {SD_SUPPORTED_1G, "1"},   {SD_SUPPORTED_2G, "2"},   {SD_SUPPORTED_4G, "4"},   {SD_SUPPORTED_8G, "8"},
        {SD_SUPPORTED_16G, "16"}, {SD_SUPPORTED_32G, "32"}, {SD_SUPPORTED_64G, "64"},
    };
    std::string out;
    for (const auto &b : kBits)
        if (mask & b.bit) out += (out.empty() ? "" : ", ") + std::string(b.text);
    return out.empty() ? std::string("Unknown") : out + " Gb/s";
}

uint32_t LunCount(const SDMDevice *d) {
    uint32_t n = 0;
    for (const TargetEntry *t = d->Targets.First; t; t = t->next) n += t->Luns.Count;
    return n;
}

void HostInfoBody() {
    char host[256] = "", systemType[128] = "", osVersion[256] = "", agent[64] = "";
    OSSGetHostInformation(host, systemType, osVersion, agent);
    uint32_t ports = 0, vports = 0;
    std::string serials;
    uint32_t cards = 0;
    for (const SDMDevice *d = GetMyDeviceList()->First; d; d = d->next) {
        if (isVirtualPortHBA(d)) {
            ++vports;
            continue;
        }
        ++ports;
        const std::string key = std::string("|") + GetAdapterSerialNo(d) + "|";
        if (serials.find(key) == std::string::npos) {
            serials += key;
            ++cards;
        }
    }
    char sdm[64] = "";
    SDGetVersion(sdm, sizeof sdm);
    XML_PrintLine("%s<HostInformation>", kTopIndent);
    XML_PrintElement(kHostIndent, "HostName", host);
    XML_PrintElement(kHostIndent, "OSType", systemType);
    XML_PrintElement(kHostIndent, "OSVersion", osVersion);
    XML_PrintElement(kHostIndent, "Distribution", OSSGetDistributionType());
    XML_PrintElement(kHostIndent, "DeviceLibraryVersion", sdm);
    Element(kHostIndent, "HBACount", "%u", cards);
    Element(kHostIndent, "PortCount", "%u", ports);
    Element(kHostIndent, "VirtualPortCount", "%u", vports);
    XML_PrintLine("%s</HostInformation>", kTopIndent);
}

void GeneralInfoBody(const SDMDevice *d) {
    const SDNodeProperty &node = d->DeviceNodeProperty;
    const SDPortProperty &port = d->DevicePortProperty;
    const SDChipProperty &chip = d->DeviceChipProperty;
    char status[32] = "";
    AdapterEntry versions{};
    GetHBAOptionROMVersions(d, &versions);
    const bool vport = isVirtualPortHBA(d) != 0;

    XML_PrintElement(kPortIndent, "Model", ModelName(d).c_str());
    XML_PrintElement(kPortIndent, "Description", FIELD(node.ModelDescription));
    XML_PrintElement(kPortIndent, "Manufacturer", FIELD(node.Manufacturer));
    XML_PrintElement(kPortIndent, "SerialNumber", GetAdapterSerialNo(d));
    Element(kPortIndent, "PortNumber", "%u", GetPhyPortNumber(d));
    if (vport) {
        Element(kPortIndent, "VirtualPortID", "%u", node.VPortId);
        Element(kPortIndent, "ParentWWPN", WWN_FMT, WWN_ARGS(node.ParentWWPN));
    }
    XML_PrintElement(kPortIndent, "DriverName", FIELD(d->DeviceDriverProperty.DriverName));
    XML_PrintElement(kPortIndent, "DriverVersion", FIELD(node.DriverVersion));
    XML_PrintElement(kPortIndent, "FirmwareVersion", FIELD(node.FirmwareVersion));
    XML_PrintElement(kPortIndent, "FlashFirmwareVersion", versions.FlashFirmwareVersion);
    XML_PrintElement(kPortIndent, "BIOSVersion", versions.FlashBIOSVersion);
    XML_PrintElement(kPortIndent, "FCodeVersion", versions.FCodeVersion);
    XML_PrintElement(kPortIndent, "EFIVersion", versions.EFIVersion);
    XML_PrintElement(kPortIndent, "MultiBootVersion", versions.FlashMultiBootVersion);
    Element(kPortIndent, "PCIVendorID", "0x%04x", chip.VendorID);
    Element(kPortIndent, "PCIDeviceID", "0x%04x", chip.DeviceID);
    Element(kPortIndent, "PCISubVendorID", "0x%04x", chip.SubVendorID);
    Element(kPortIndent, "PCISubSystemID", "0x%04x", chip.SubSystemID);
    Element(kPortIndent, "PCIBusDeviceFunction", "%02x:%02x.%x", chip.PciBusNumber, (chip.PciDevFunc >> 3) & 0x1F,
            chip.PciDevFunc & 7);
    Element(kPortIndent, "ChipRevision", "%u", chip.ChipRevision);
    Element(kPortIndent, "PortID", "%02x:%02x:%02x", port.PortId[0], port.PortId[1], port.PortId[2]);
    XML_PrintElement(kPortIndent, "PortState", GetAdapterStatus(d, status));
    XML_PrintElement(kPortIndent, "PortSpeed", SpeedText(port.PortSpeed).c_str());
    XML_PrintElement(kPortIndent, "SupportedSpeeds", SupportedSpeedsText(port.SupportedSpeed).c_str());
    Element(kPortIndent, "MaxFrameSize", "%u", port.MaxFrameSize);
    Element(kPortIndent, "FabricName", WWN_FMT, WWN_ARGS(port.FabricName));
    XML_PrintElement(kPortIndent, "OSDeviceName", FIELD(port.DeviceName));
    Element(kPortIndent, "TargetCount", "%u", d->Targets.Count);
    if (!vport) Element(kPortIndent, "VirtualPortCount", "%u", port.NumberOfVports);
}

void VpdBody(const VPDInfo *vpd) {
    XML_PrintLine("%s<VPD>", kPortIndent);
    for (uint32_t i = 0; vpd != nullptr && i < vpd->count && i < VTFU_VPD_MAX_ENTRIES; ++i) {
        const VPDEntry &e = vpd->entries[i];
        char value[2 * VTFU_VPD_FIELD_SIZE + 8];
        XML_PrintLine("%s<VPDField Keyword=\"%s\">%s</VPDField>", kTargetIndent, FIELD(e.tag),
                      TarnVPDValueText(&e, value, sizeof value));
    }
    XML_PrintLine("%s</VPD>", kPortIndent);
}

// Format 2 carries the port ID in the target header already.
void TargetBody(const TargetEntry *t, bool format2) {
    const bool nvme = TarnIsNVMeTarget(t) != 0;
    const bool tape = (t->TargetFlags & SD_TGTFLAG_TAPE) != 0;
    Element(kTargetIndent, "TargetID", "%u", t->DiscTargetProperty.TargetId);
    if (!format2) Element(kTargetIndent, "PortID", "%02x:%02x:%02x", t->PortId[0], t->PortId[1], t->PortId[2]);
    XML_PrintElement(kTargetIndent, "Vendor", FIELD(t->VendorId));
    XML_PrintElement(kTargetIndent, "Product", FIELD(t->ProductId));
    XML_PrintElement(kTargetIndent, "Type",
                     nvme ? "NVMe" : tape ? "Tape" : TarnPeripheralTypeText(t->PeripheralType));
    XML_PrintElement(kTargetIndent, "Status", (t->TargetFlags & SD_TGTFLAG_LOGGED_IN) ? "Online" : "Offline");
    Element(kTargetIndent, "LunCount", "%u", t->Luns.Count);
}

void LunBody(const LunEntry *l) {
    char size[32];
    const uint64_t bytes = TarnLunCapacity(l);
    XML_PrintLine("%s<LUN>", kTargetIndent);
    Element(kLunIndent, "Number", "%u", l->LunNumber);
    XML_PrintElement(kLunIndent, "Type", TarnPeripheralTypeText(l->PeripheralType));
    const std::string vp(l->VendorProduct, strnlen(l->VendorProduct, sizeof l->VendorProduct));
    XML_PrintElement(kLunIndent, "Vendor", Text(vp.c_str(), std::min<size_t>(vp.size(), 8)).c_str());
    XML_PrintElement(kLunIndent, "Product", vp.size() > 8 ? Text(vp.c_str() + 8, vp.size() - 8).c_str() : "");
    XML_PrintElement(kLunIndent, "Revision", FIELD(l->Revision));
    if (bytes != 0) {
        Element(kLunIndent, "BlockSize", "%u", l->BlockSize);
        Element(kLunIndent, "Capacity", "%" PRIu64, bytes);
    }
    XML_PrintElement(kLunIndent, "Size", TarnFormatSize(bytes, size, sizeof size));
    XML_PrintElement(kLunIndent, "OSDeviceName", FIELD(l->OSDeviceName));
    XML_PrintElement(kLunIndent, "Path", l->PassivePath ? "Passive" : "Active");
    XML_PrintLine("%s</LUN>", kTargetIndent);
}

void SummaryBody(const SDMDevice *d) {
    char status[32] = "", size[32];
    uint64_t bytes = 0;
    uint32_t online = 0;
    for (const TargetEntry *t = d->Targets.First; t; t = t->next) {
        if (t->TargetFlags & SD_TGTFLAG_LOGGED_IN) ++online;
        for (const LunEntry *l = t->Luns.First; l; l = l->next) bytes += TarnLunCapacity(l);
    }
    XML_PrintElement(kPortIndent, "Model", ModelName(d).c_str());
    XML_PrintElement(kPortIndent, "SerialNumber", GetAdapterSerialNo(d));
    Element(kPortIndent, "PortNumber", "%u", GetPhyPortNumber(d));
    XML_PrintElement(kPortIndent, "PortState", GetAdapterStatus(d, status));
    XML_PrintElement(kPortIndent, "PortSpeed", SpeedText(d->DevicePortProperty.PortSpeed).c_str());
    XML_PrintElement(kPortIndent, "DriverVersion", FIELD(d->DeviceNodeProperty.DriverVersion));
    XML_PrintElement(kPortIndent, "FirmwareVersion", FIELD(d->DeviceNodeProperty.FirmwareVersion));
    Element(kPortIndent, "TargetCount", "%u", d->Targets.Count);
    Element(kPortIndent, "OnlineTargetCount", "%u", online);
    Element(kPortIndent, "LunCount", "%u", LunCount(d));
    XML_PrintElement(kPortIndent, "TotalCapacity", TarnFormatSize(bytes, size, sizeof size));
}

}  // namespace

extern "C" {

/* ------------------------------------------------------------- printers */

VTAPI_EXPORT void XML_PrintLine(const char *format, ...) {
    if (format == nullptr) return;
    va_list args;
    va_start(args, format);
    va_list copy;
    va_copy(copy, args);
    const int n = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    std::string line(n > 0 ? static_cast<size_t>(n) : 0, '\0');
    if (n > 0) std::vsnprintf(line.data(), line.size() + 1, format, args);
    va_end(args);
    line += '\n';
    scfxPrint(line.c_str());
}

VTAPI_EXPORT void XML_PrintElement(const char *indent, const char *name, const char *value) {
    XML_PrintLine("%s<%s>%s</%s>", indent != nullptr ? indent : "", name, value != nullptr ? value : "", name);
}

/* ---------------------------------------------------------------- frame */

VTAPI_EXPORT void XML_EmitMainHeader(void) {
    if (bXmlOutPut2) {
        XML_2_EmitMainHeader();
        return;
    }
    XML_PrintLine("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>");
    XML_PrintLine("<Vantor>");
    XML_PrintLine("    <AppName>%s</AppName>", kAppName);
    XML_PrintLine("    <AppVersion>v%d.%d.%d Build %d %s</AppVersion>", kVersionMajor, kVersionMinor, kVersionSub,
                  kBuild, "");
}

VTAPI_EXPORT void XML_2_EmitMainHeader(void) {
    XML_PrintLine("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>");
    XML_PrintLine("<Vantor>");
    XML_PrintLine("    <AppName>%s</AppName>", kAppName);
    XML_PrintLine("    <AppVersion>v%d.%d.%d Build %d %s</AppVersion>", kVersionMajor, kVersionMinor, kVersionSub,
                  kBuild, "");
    XML_PrintLine("    <AppXmlVersion>2.0</AppXmlVersion>");
}

VTAPI_EXPORT void XML_EmitMainFooter(void) {
    if (bXmlOutPut2) {
        XML_2_EmitMainFooter();
        return;
    }
    XML_PrintLine("</Vantor>");
}

VTAPI_EXPORT void XML_2_EmitMainFooter(void) { XML_PrintLine("</Vantor>"); }

/* ------------------------------------------------------ status and error */

VTAPI_EXPORT void XML_EmitStatusMessage(int32_t status, const char *errorText, int32_t reboot, int32_t header,
                                        int32_t footer) {
    if (bXmlOutPut2) {
        XML_2_EmitStatusMessage(status, errorText, reboot, header, footer);
        return;
    }
    if (header) XML_EmitMainHeader();
    XML_PrintLine("    <Status> %d </Status>", status);
    if (errorText != nullptr) XML_PrintLine("    <ErrorMsg> %s </ErrorMsg>", errorText);
    XML_PrintLine("    <Reboot> %d </Reboot>", reboot);
    if (footer) XML_EmitMainFooter();
}

VTAPI_EXPORT void XML_2_EmitStatusMessage(int32_t status, const char *errorText, int32_t reboot, int32_t header,
                                          int32_t footer) {
    if (header) XML_2_EmitMainHeader();
    XML_PrintLine("    <Status> %d </Status>", status);
    if (errorText != nullptr) XML_PrintLine("    <ErrorMsg> %s </ErrorMsg>", errorText);
    XML_PrintLine("    <Reboot> %d </Reboot>", reboot);
    if (footer) XML_2_EmitMainFooter();
}

VTAPI_EXPORT void XML_EmitErrorMessage(const char *errorText) {
    if (bXmlOutPut2) {
        XML_2_EmitErrorMessage(errorText);
        return;
    }
    XML_PrintLine("    <ErrorMsg> %s </ErrorMsg>", errorText != nullptr ? errorText : "");
}

VTAPI_EXPORT void XML_2_EmitErrorMessage(const char *errorText) {
    XML_PrintLine("    <ErrorMsg> %s </ErrorMsg>", errorText != nullptr ? errorText : "");
}

// Build information: the frame header names the application and its
// version; the body adds the libraries.  With `complete` set, one call
// prints a whole document ending with status 0.
VTAPI_EXPORT void XML_EmitAppBuildInfo(int32_t complete) {
    if (bXmlOutPut2) {
        XML_2_EmitAppBuildInfo(complete);
        return;
    }
    char sdm[64] = "";
    SDGetVersion(sdm, sizeof sdm);
    if (complete) XML_EmitMainHeader();
    XML_PrintLine("    <AppBuild>%d</AppBuild>", kBuild);
    XML_PrintLine("    <DeviceLibraryVersion>%s</DeviceLibraryVersion>", sdm);
    if (complete) XML_EmitStatusMessage(0, nullptr, 0, 0, 1);
}

VTAPI_EXPORT void XML_2_EmitAppBuildInfo(int32_t complete) {
    char sdm[64] = "";
    SDGetVersion(sdm, sizeof sdm);
    if (complete) XML_2_EmitMainHeader();
    XML_PrintLine("    <AppBuild>%d</AppBuild>", kBuild);
    XML_PrintLine("    <DeviceLibraryVersion>%s</DeviceLibraryVersion>", sdm);
    if (complete) XML_2_EmitStatusMessage(0, nullptr, 0, 0, 1);
}

/* ---------------------------------------------------------- port blocks */

VTAPI_EXPORT void XML_EmitHBAHeader(const SDMDevice *device) {
    if (bXmlOutPut2) {
        XML_2_EmitHBAHeader(device);
        return;
    }
    if (device == nullptr) return;
    const uint8_t *n = device->DeviceNodeProperty.WWNN, *p = device->DevicePortProperty.WWPN;
    XML_PrintLine("     <HBA> ");
    XML_PrintLine("        <HBA Port=\"%u\" WWNN=\"" WWN_FMT "\"         WWPN=\"" WWN_FMT "\" />", device->Instance,
                  WWN_ARGS(n), WWN_ARGS(p));
}

VTAPI_EXPORT void XML_2_EmitHBAHeader(const SDMDevice *device) {
    if (device == nullptr) return;
    const uint8_t *n = device->DeviceNodeProperty.WWNN, *p = device->DevicePortProperty.WWPN;
    const std::string model = ModelName(device);
    XML_PrintLine("     <HBA> ");
    if (isVirtualPortHBA(device))
        XML_PrintLine("        <HBA Instance=\"%u\" HBAModel=\"%s\" VirtualPort=\"%d\" WWNN=\"" WWN_FMT
                      "\" WWPN=\"" WWN_FMT "\" />",
                      device->Instance, model.c_str(), device->DeviceNodeProperty.VPortId, WWN_ARGS(n), WWN_ARGS(p));
    else
        XML_PrintLine("        <HBA Instance=\"%u\" HBAModel=\"%s\" HBAPort=\"%d\" WWNN=\"" WWN_FMT "\" WWPN=\"" WWN_FMT
                      "\" />",
                      device->Instance, model.c_str(), static_cast<int>(GetPhyPortNumber(device)), WWN_ARGS(n),
                      WWN_ARGS(p));
}

VTAPI_EXPORT void XML_EmitHBAFooter(void) {
    if (bXmlOutPut2) {
        XML_2_EmitHBAFooter();
        return;
    }
    XML_PrintLine("     </HBA> ");
}

VTAPI_EXPORT void XML_2_EmitHBAFooter(void) { XML_PrintLine("     </HBA> "); }

VTAPI_EXPORT void XML_2_EmitHBAHeaderFooter(const SDMDevice *device, int32_t open, int32_t close) {
    if (open) XML_PrintLine("\t<HBA>");
    if (device != nullptr) {
        const uint8_t *n = device->DeviceNodeProperty.WWNN, *p = device->DevicePortProperty.WWPN;
        XML_PrintLine("\t<HBA Instance=\"%u\" HBAModel=\"%s\" HBAPort=\"%d\" WWNN=\"" WWN_FMT "\" WWPN=\"" WWN_FMT
                      "\" />",
                      device->Instance, ModelName(device).c_str(), static_cast<int>(GetPhyPortNumber(device)),
                      WWN_ARGS(n), WWN_ARGS(p));
    }
    if (close) XML_PrintLine("\t</HBA>");
}

/* -------------------------------------------------------- target blocks */

VTAPI_EXPORT void XML_EmitTargetHeader(const TargetEntry *target) {
    if (bXmlOutPut2) {
        XML_2_EmitTargetHeader(target);
        return;
    }
    if (target == nullptr) return;
    XML_PrintLine("\t<Target>");
    XML_PrintLine("\t\t<WWNN>" WWN_FMT "</WWNN>", WWN_ARGS(target->WWNN));
    XML_PrintLine("\t\t<WWPN>" WWN_FMT "</WWPN>", WWN_ARGS(target->WWPN));
}

VTAPI_EXPORT void XML_2_EmitTargetHeader(const TargetEntry *target) {
    if (target == nullptr) return;
    XML_PrintLine("\t<Target>");
    XML_PrintLine("\t\t<WWNN>" WWN_FMT "</WWNN>", WWN_ARGS(target->WWNN));
    XML_PrintLine("\t\t<WWPN>" WWN_FMT "</WWPN>", WWN_ARGS(target->WWPN));
    XML_PrintLine("\t\t<PortID>%02x:%02x:%02x</PortID>", target->PortId[0], target->PortId[1], target->PortId[2]);
    XML_PrintLine("\t\t<StorageType>%s</StorageType>", TarnIsNVMeTarget(target) ? "NVMe Disk" : "FCP Disk");
}

VTAPI_EXPORT void XML_EmitTargetFooter(void) {
    if (bXmlOutPut2) {
        XML_2_EmitTargetFooter();
        return;
    }
    XML_PrintLine("\t</Target>");
}

VTAPI_EXPORT void XML_2_EmitTargetFooter(void) { XML_PrintLine("\t</Target>"); }

/* -------------------------------------------------------- long emitters */

VTAPI_EXPORT void XML_EmitSystemInfo(void) {
    if (bXmlOutPut2) {
        XML_2_EmitSystemInfo();
        return;
    }
    HostInfoBody();
}

VTAPI_EXPORT void XML_2_EmitSystemInfo(void) { HostInfoBody(); }

VTAPI_EXPORT void XML_EmitHBAGeneralInfo(const SDMDevice *device) {
    if (bXmlOutPut2) {
        XML_2_EmitHBAGeneralInfo(device);
        return;
    }
    if (device != nullptr) GeneralInfoBody(device);
}

VTAPI_EXPORT void XML_2_EmitHBAGeneralInfo(const SDMDevice *device) {
    if (device != nullptr) GeneralInfoBody(device);
}

VTAPI_EXPORT void XML_EmitHBAVPDInfo(const VPDInfo *vpd) {
    if (bXmlOutPut2) {
        XML_2_EmitHBAVPDInfo(vpd);
        return;
    }
    VpdBody(vpd);
}

VTAPI_EXPORT void XML_2_EmitHBAVPDInfo(const VPDInfo *vpd) { VpdBody(vpd); }

VTAPI_EXPORT void XML_EmitTarget(const TargetEntry *target) {
    if (bXmlOutPut2) {
        XML_2_EmitTarget(target);
        return;
    }
    if (target != nullptr) TargetBody(target, false);
}

VTAPI_EXPORT void XML_2_EmitTarget(const TargetEntry *target) {
    if (target != nullptr) TargetBody(target, true);
}

VTAPI_EXPORT void XML_EmitLunInfo(const LunEntry *lun) {
    if (bXmlOutPut2) {
        XML_2_EmitLunInfo(lun);
        return;
    }
    if (lun != nullptr) LunBody(lun);
}

VTAPI_EXPORT void XML_2_EmitLunInfo(const LunEntry *lun) {
    if (lun != nullptr) LunBody(lun);
}

VTAPI_EXPORT void XML_EmitHBASummary(const SDMDevice *device) {
    if (bXmlOutPut2) {
        XML_2_EmitHBASummary(device);
        return;
    }
    if (device != nullptr) SummaryBody(device);
}

VTAPI_EXPORT void XML_2_EmitHBASummary(const SDMDevice *device) {
    if (device != nullptr) SummaryBody(device);
}

/* --------------------------------------------------------------- helpers */

VTAPI_EXPORT const char *TarnPeripheralTypeText(uint8_t type) {
    switch (type & 0x1F) {
    case 0x00: return "Disk";
    case 0x01: return "Tape";
    case 0x02: return "Printer";
    case 0x03: return "Processor";
    case 0x04: return "WORM";
    case 0x05: return "CD/DVD";
    case 0x06: return "Scanner";
    case 0x07: return "Optical";
    case 0x08: return "Changer";
    case 0x09: return "Communication";
    case 0x0C: return "Array Controller";
    case 0x0D: return "Enclosure";
    case 0x0E: return "Simplified Disk";
    case 0x11: return "Object Storage";
    default: return "Unknown";
    }
}

VTAPI_EXPORT uint64_t TarnLunCapacity(const LunEntry *lun) {
    if (lun == nullptr || lun->BlockSize == VTAPI_CAPACITY_UNKNOWN32 || lun->BlockSize == 0) return 0;
    if (lun->LastBlock64 != VTAPI_CAPACITY_UNKNOWN64)
        return (lun->LastBlock64 + 1) * static_cast<uint64_t>(lun->BlockSize);
    if (lun->LastBlock32 != VTAPI_CAPACITY_UNKNOWN32 && lun->LastBlock32 != 0xFFFFFFFFu)
        return (static_cast<uint64_t>(lun->LastBlock32) + 1) * lun->BlockSize;
    return 0;
}

VTAPI_EXPORT char *TarnFormatSize(uint64_t bytes, char *text, uint32_t size) {
    if (text == nullptr || size == 0) return text;
    if (bytes == 0) {
        std::snprintf(text, size, "-");
        return text;
    }
    static const char *const kUnits[] = {"B", "KB", "MB", "GB", "TB", "PB", "EB"};
    double value = static_cast<double>(bytes);
    size_t unit = 0;
    while (value >= 999.95 && unit + 1 < sizeof kUnits / sizeof kUnits[0]) {
        value /= 1000.0;
        ++unit;
    }
    if (unit == 0) std::snprintf(text, size, "%" PRIu64 " B", bytes);
    else std::snprintf(text, size, "%.1f %s", value, kUnits[unit]);
    return text;
}

VTAPI_EXPORT char *TarnVPDValueText(const VPDEntry *entry, char *text, uint32_t size) {
    if (text == nullptr || size == 0) return text;
    text[0] = '\0';
    if (entry == nullptr) return text;
    const size_t n = strnlen(entry->field, sizeof entry->field);
    bool printable = std::strncmp(entry->tag, "RV", 2) != 0;  // the checksum byte
    for (size_t i = 0; i < n; ++i)
        if (static_cast<unsigned char>(entry->field[i]) < 0x20 || static_cast<unsigned char>(entry->field[i]) >= 0x7F)
            printable = false;
    if (printable) {
        std::snprintf(text, size, "%.*s", static_cast<int>(n), entry->field);
        return text;
    }
    std::string hex = "0x";
    for (size_t i = 0; i < n; ++i) {
        char pair[3];
        std::snprintf(pair, sizeof pair, "%02x", static_cast<unsigned char>(entry->field[i]));
        hex += pair;
    }
    std::snprintf(text, size, "%s", hex.c_str());
    return text;
}

VTAPI_EXPORT uint32_t TarnIsNVMeTarget(const TargetEntry *target) {
    if (target == nullptr) return 0;
    return target->DiscTargetProperty.TargetType == SD_TARGETTYPE_NVME || target->PortTypeWord == 1 ? 1 : 0;
}

}  // extern "C"
