// The two XML report formats.  Every line goes to the front end's scfxPrint
// with its line end; values are printed as they stand, without escaping.
// Each format-1 emitter hands over to its format-2 twin when bXmlOutPut2 is
// set (FORMAT2), so callers always use the format-1 name.
#include <algorithm>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include "cli/report.h"
#include "cli/xml.h"
#include "core/core.h"
#include "oss/oss.h"
#include "oss/oss_signal.h"
#include "oss/oss_text.h"

using vt::cli::XmlLine;

// Hands the call to the format-2 twin when format 2 is chosen.
#define FORMAT2(call)  \
    if (bXmlOutPut2) { \
        call;          \
        return;        \
    }

namespace {

constexpr const char kAppName[] = "Pallwick FCAPI";
constexpr int kVersionMajor = 3, kVersionMinor = 0, kVersionSub = 0, kBuild = 3;

// Indentation of the elements inside a port block and a target block.
constexpr const char kPortIndent[] = "\t";
constexpr const char kTargetIndent[] = "\t\t";
constexpr const char kLunIndent[] = "\t\t\t";
constexpr const char kTopIndent[] = "    ";
constexpr const char kHostIndent[] = "        ";

#define WWN_FMT     "%02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x"
#define WWN_ARGS(w) (w)[0], (w)[1], (w)[2], (w)[3], (w)[4], (w)[5], (w)[6], (w)[7]

void Element(const char *indent, const char *name, const char *format, ...) __attribute__((format(printf, 3, 4)));
void Element(const char *indent, const char *name, const char *format, ...) {
    va_list args;
    va_start(args, format);
    const std::string value = vt::oss::FormatV(format, args);
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
    XmlLine("%s<HostInformation>", kTopIndent);
    XML_PrintElement(kHostIndent, "HostName", host);
    XML_PrintElement(kHostIndent, "OSType", systemType);
    XML_PrintElement(kHostIndent, "OSVersion", osVersion);
    XML_PrintElement(kHostIndent, "Distribution", OSSGetDistributionType());
    XML_PrintElement(kHostIndent, "DeviceLibraryVersion", sdm);
    Element(kHostIndent, "HBACount", "%u", cards);
    Element(kHostIndent, "PortCount", "%u", ports);
    Element(kHostIndent, "VirtualPortCount", "%u", vports);
    XmlLine("%s</HostInformation>", kTopIndent);
}

void GeneralInfoBody(const SDMDevice *d) {
    const SDNodeProperty &node = d->DeviceNodeProperty;
    const SDPortProperty &port = d->DevicePortProperty;
    const SDChipProperty &chip = d->DeviceChipProperty;
    char status[32] = "";
    AdapterEntry versions{};
    GetHBAOptionROMVersions(d, &versions);
    const bool vport = isVirtualPortHBA(d) != 0;

    XML_PrintElement(kPortIndent, "Model", vt::cli::ModelName(*d).c_str());
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
    // A physical port's card may await a restart after a flash update.
    if (!vport)
        XML_PrintElement(kPortIndent, "RebootRequired", port.StateFlags & SD_PORTFLAG_REBOOT_REQUIRED ? "Yes" : "No");
    XML_PrintElement(kPortIndent, "PortSpeed", vt::cli::PortSpeed(*d).text().c_str());
    XML_PrintElement(kPortIndent, "SupportedSpeeds", vt::cli::SupportedSpeeds(*d).text().c_str());
    Element(kPortIndent, "MaxFrameSize", "%u", port.MaxFrameSize);
    Element(kPortIndent, "FabricName", WWN_FMT, WWN_ARGS(port.FabricName));
    XML_PrintElement(kPortIndent, "OSDeviceName", FIELD(port.DeviceName));
    Element(kPortIndent, "TargetCount", "%u", d->Targets.Count);
    if (!vport) Element(kPortIndent, "VirtualPortCount", "%u", port.NumberOfVports);
}

void VpdBody(const VPDInfo *vpd) {
    XmlLine("%s<VPD>", kPortIndent);
    for (uint32_t i = 0; vpd != nullptr && i < vpd->count && i < VTFU_VPD_MAX_ENTRIES; ++i) {
        const VPDEntry &e = vpd->entries[i];
        XmlLine("%s<VPDField Keyword=\"%s\">%s</VPDField>", kTargetIndent, FIELD(e.tag),
                vt::cli::VpdValueText(e).c_str());
    }
    XmlLine("%s</VPD>", kPortIndent);
}

// Format 2 carries the port ID in the target header already.
void TargetBody(const TargetEntry *t, bool format2) {
    const bool nvme = vt::cli::IsNVMeTarget(*t);
    const bool tape = (t->TargetFlags & SD_TGTFLAG_TAPE) != 0;
    Element(kTargetIndent, "TargetID", "%u", t->DiscTargetProperty.TargetId);
    if (!format2) Element(kTargetIndent, "PortID", "%02x:%02x:%02x", t->PortId[0], t->PortId[1], t->PortId[2]);
    XML_PrintElement(kTargetIndent, "Vendor", FIELD(t->VendorId));
    XML_PrintElement(kTargetIndent, "Product", FIELD(t->ProductId));
    XML_PrintElement(kTargetIndent, "Type",
                     nvme   ? "NVMe"
                     : tape ? "Tape"
                            : vt::cli::PeripheralTypeText(t->PeripheralType));
    XML_PrintElement(kTargetIndent, "Status", (t->TargetFlags & SD_TGTFLAG_LOGGED_IN) ? "Online" : "Offline");
    Element(kTargetIndent, "LunCount", "%u", t->Luns.Count);
}

void LunBody(const LunEntry *l) {
    const uint64_t bytes = vt::cli::LunCapacity(*l);
    XmlLine("%s<LUN>", kTargetIndent);
    Element(kLunIndent, "Number", "%u", l->LunNumber);
    XML_PrintElement(kLunIndent, "Type", vt::cli::PeripheralTypeText(l->PeripheralType));
    const std::string vp(l->VendorProduct, strnlen(l->VendorProduct, sizeof l->VendorProduct));
    XML_PrintElement(kLunIndent, "Vendor", Text(vp.c_str(), std::min<size_t>(vp.size(), 8)).c_str());
    XML_PrintElement(kLunIndent, "Product", vp.size() > 8 ? Text(vp.c_str() + 8, vp.size() - 8).c_str() : "");
    XML_PrintElement(kLunIndent, "Revision", FIELD(l->Revision));
    if (bytes != 0) {
        Element(kLunIndent, "BlockSize", "%u", l->BlockSize);
        Element(kLunIndent, "Capacity", "%" PRIu64, bytes);
    }
    XML_PrintElement(kLunIndent, "Size", vt::cli::SizeText(bytes).c_str());
    XML_PrintElement(kLunIndent, "OSDeviceName", FIELD(l->OSDeviceName));
    XML_PrintElement(kLunIndent, "Path", l->PassivePath ? "Passive" : "Active");
    XmlLine("%s</LUN>", kTargetIndent);
}

void SummaryBody(const SDMDevice *d) {
    char status[32] = "";
    uint64_t bytes = 0;
    uint32_t online = 0;
    for (const TargetEntry *t = d->Targets.First; t; t = t->next) {
        if (t->TargetFlags & SD_TGTFLAG_LOGGED_IN) ++online;
        for (const LunEntry *l = t->Luns.First; l; l = l->next) bytes += vt::cli::LunCapacity(*l);
    }
    XML_PrintElement(kPortIndent, "Model", vt::cli::ModelName(*d).c_str());
    XML_PrintElement(kPortIndent, "SerialNumber", GetAdapterSerialNo(d));
    Element(kPortIndent, "PortNumber", "%u", GetPhyPortNumber(d));
    XML_PrintElement(kPortIndent, "PortState", GetAdapterStatus(d, status));
    XML_PrintElement(kPortIndent, "PortSpeed", vt::cli::PortSpeed(*d).text().c_str());
    XML_PrintElement(kPortIndent, "DriverVersion", FIELD(d->DeviceNodeProperty.DriverVersion));
    XML_PrintElement(kPortIndent, "FirmwareVersion", FIELD(d->DeviceNodeProperty.FirmwareVersion));
    Element(kPortIndent, "TargetCount", "%u", d->Targets.Count);
    Element(kPortIndent, "OnlineTargetCount", "%u", online);
    Element(kPortIndent, "LunCount", "%u", LunCount(d));
    XML_PrintElement(kPortIndent, "TotalCapacity", vt::cli::SizeText(bytes).c_str());
}

// The lines every frame header starts with.
void FrameHeader() {
    XmlLine("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>");
    XmlLine("<Vantor>");
    XmlLine("    <AppName>%s</AppName>", kAppName);
    XmlLine("    <AppVersion>v%d.%d.%d Build %d %s</AppVersion>", kVersionMajor, kVersionMinor, kVersionSub, kBuild,
            "");
}

void StatusLines(int32_t status, const char *errorText, int32_t reboot) {
    XmlLine("    <Status> %d </Status>", status);
    if (errorText != nullptr) XmlLine("    <ErrorMsg> %s </ErrorMsg>", errorText);
    XmlLine("    <Reboot> %d </Reboot>", reboot);
}

void BuildLines() {
    char sdm[64] = "";
    SDGetVersion(sdm, sizeof sdm);
    XmlLine("    <AppBuild>%d</AppBuild>", kBuild);
    XmlLine("    <DeviceLibraryVersion>%s</DeviceLibraryVersion>", sdm);
}

void HbaLine(const char *indent, const SDMDevice *device, const char *portAttribute, int port) {
    const uint8_t *n = device->DeviceNodeProperty.WWNN, *p = device->DevicePortProperty.WWPN;
    XmlLine("%s<HBA Instance=\"%u\" HBAModel=\"%s\" %s=\"%d\" WWNN=\"" WWN_FMT "\" WWPN=\"" WWN_FMT "\" />", indent,
            device->Instance, vt::cli::ModelName(*device).c_str(), portAttribute, port, WWN_ARGS(n), WWN_ARGS(p));
}

void TargetNames(const TargetEntry *target) {
    XmlLine("\t<Target>");
    XmlLine("\t\t<WWNN>" WWN_FMT "</WWNN>", WWN_ARGS(target->WWNN));
    XmlLine("\t\t<WWPN>" WWN_FMT "</WWPN>", WWN_ARGS(target->WWPN));
}

}  // namespace

namespace vt::cli {

void XmlLine(const char *format, ...) {
    va_list args;
    va_start(args, format);
    std::string line = vt::oss::FormatV(format, args);
    va_end(args);
    line += '\n';
    vt::oss::SafePoint();  // the command thread may be stopped here
    scfxPrint(line.c_str());
}

void XmlVpdInfo(const VPDInfo *vpd) { VpdBody(vpd); }

void XmlHbaSummary(const SDMDevice *device) {
    if (device != nullptr) SummaryBody(device);
}

}  // namespace vt::cli

extern "C" {

VTAPI_EXPORT void XML_PrintElement(const char *indent, const char *name, const char *value) {
    XmlLine("%s<%s>%s</%s>", indent != nullptr ? indent : "", name, value != nullptr ? value : "", name);
}

/* ---------------------------------------------------------------- frame */

VTAPI_EXPORT void XML_EmitMainHeader(void) {
    FORMAT2(XML_2_EmitMainHeader());
    FrameHeader();
}

VTAPI_EXPORT void XML_2_EmitMainHeader(void) {
    FrameHeader();
    XmlLine("    <AppXmlVersion>2.0</AppXmlVersion>");
}

VTAPI_EXPORT void XML_EmitMainFooter(void) {
    FORMAT2(XML_2_EmitMainFooter());
    XmlLine("</Vantor>");
}

VTAPI_EXPORT void XML_2_EmitMainFooter(void) { XmlLine("</Vantor>"); }

/* ------------------------------------------------------ status and error */

VTAPI_EXPORT void XML_EmitStatusMessage(int32_t status, const char *errorText, int32_t reboot, int32_t header,
                                        int32_t footer) {
    FORMAT2(XML_2_EmitStatusMessage(status, errorText, reboot, header, footer));
    if (header) XML_EmitMainHeader();
    StatusLines(status, errorText, reboot);
    if (footer) XML_EmitMainFooter();
}

VTAPI_EXPORT void XML_2_EmitStatusMessage(int32_t status, const char *errorText, int32_t reboot, int32_t header,
                                          int32_t footer) {
    if (header) XML_2_EmitMainHeader();
    StatusLines(status, errorText, reboot);
    if (footer) XML_2_EmitMainFooter();
}

VTAPI_EXPORT void XML_EmitErrorMessage(const char *errorText) {
    FORMAT2(XML_2_EmitErrorMessage(errorText));
    XmlLine("    <ErrorMsg> %s </ErrorMsg>", errorText != nullptr ? errorText : "");
}

VTAPI_EXPORT void XML_2_EmitErrorMessage(const char *errorText) {
    XmlLine("    <ErrorMsg> %s </ErrorMsg>", errorText != nullptr ? errorText : "");
}

// Build information: the frame header names the application and its
// version; the body adds the libraries.  With `complete` set, one call
// prints a whole document ending with status 0.
VTAPI_EXPORT void XML_EmitAppBuildInfo(int32_t complete) {
    FORMAT2(XML_2_EmitAppBuildInfo(complete));
    if (complete) XML_EmitMainHeader();
    BuildLines();
    if (complete) XML_EmitStatusMessage(0, nullptr, 0, 0, 1);
}

VTAPI_EXPORT void XML_2_EmitAppBuildInfo(int32_t complete) {
    if (complete) XML_2_EmitMainHeader();
    BuildLines();
    if (complete) XML_2_EmitStatusMessage(0, nullptr, 0, 0, 1);
}

/* ---------------------------------------------------------- port blocks */

VTAPI_EXPORT void XML_EmitHBAHeader(const SDMDevice *device) {
    FORMAT2(XML_2_EmitHBAHeader(device));
    if (device == nullptr) return;
    const uint8_t *n = device->DeviceNodeProperty.WWNN, *p = device->DevicePortProperty.WWPN;
    XmlLine("     <HBA> ");
    XmlLine("        <HBA Port=\"%u\" WWNN=\"" WWN_FMT "\"         WWPN=\"" WWN_FMT "\" />", device->Instance,
            WWN_ARGS(n), WWN_ARGS(p));
}

VTAPI_EXPORT void XML_2_EmitHBAHeader(const SDMDevice *device) {
    if (device == nullptr) return;
    XmlLine("     <HBA> ");
    if (isVirtualPortHBA(device)) HbaLine("        ", device, "VirtualPort", device->DeviceNodeProperty.VPortId);
    else HbaLine("        ", device, "HBAPort", static_cast<int>(GetPhyPortNumber(device)));
}

VTAPI_EXPORT void XML_EmitHBAFooter(void) {
    FORMAT2(XML_2_EmitHBAFooter());
    XmlLine("     </HBA> ");
}

VTAPI_EXPORT void XML_2_EmitHBAFooter(void) { XmlLine("     </HBA> "); }

VTAPI_EXPORT void XML_2_EmitHBAHeaderFooter(const SDMDevice *device, int32_t open, int32_t close) {
    if (open) XmlLine("\t<HBA>");
    if (device != nullptr) HbaLine("\t", device, "HBAPort", static_cast<int>(GetPhyPortNumber(device)));
    if (close) XmlLine("\t</HBA>");
}

/* -------------------------------------------------------- target blocks */

VTAPI_EXPORT void XML_EmitTargetHeader(const TargetEntry *target) {
    FORMAT2(XML_2_EmitTargetHeader(target));
    if (target != nullptr) TargetNames(target);
}

VTAPI_EXPORT void XML_2_EmitTargetHeader(const TargetEntry *target) {
    if (target == nullptr) return;
    TargetNames(target);
    XmlLine("\t\t<PortID>%02x:%02x:%02x</PortID>", target->PortId[0], target->PortId[1], target->PortId[2]);
    XmlLine("\t\t<StorageType>%s</StorageType>", vt::cli::IsNVMeTarget(*target) ? "NVMe Disk" : "FCP Disk");
}

VTAPI_EXPORT void XML_EmitTargetFooter(void) {
    FORMAT2(XML_2_EmitTargetFooter());
    XmlLine("\t</Target>");
}

VTAPI_EXPORT void XML_2_EmitTargetFooter(void) { XmlLine("\t</Target>"); }

/* -------------------------------------------------------- long emitters */

VTAPI_EXPORT void XML_EmitSystemInfo(void) {
    FORMAT2(XML_2_EmitSystemInfo());
    HostInfoBody();
}

VTAPI_EXPORT void XML_2_EmitSystemInfo(void) { HostInfoBody(); }

VTAPI_EXPORT void XML_EmitHBAGeneralInfo(const SDMDevice *device) {
    FORMAT2(XML_2_EmitHBAGeneralInfo(device));
    if (device != nullptr) GeneralInfoBody(device);
}

VTAPI_EXPORT void XML_2_EmitHBAGeneralInfo(const SDMDevice *device) {
    if (device != nullptr) GeneralInfoBody(device);
}

VTAPI_EXPORT void XML_EmitTarget(const TargetEntry *target) {
    FORMAT2(XML_2_EmitTarget(target));
    if (target != nullptr) TargetBody(target, false);
}

VTAPI_EXPORT void XML_2_EmitTarget(const TargetEntry *target) {
    if (target != nullptr) TargetBody(target, true);
}

VTAPI_EXPORT void XML_EmitLunInfo(const LunEntry *lun) {
    FORMAT2(XML_2_EmitLunInfo(lun));
    if (lun != nullptr) LunBody(lun);
}

VTAPI_EXPORT void XML_2_EmitLunInfo(const LunEntry *lun) {
    if (lun != nullptr) LunBody(lun);
}

}  // extern "C"
