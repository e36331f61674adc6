// The adapter report (-i): the general information of each selected port
// and the vital product data of its card.
#include <strings.h>

#include <cstdio>
#include <string>

#include "cli/reports.h"
#include "cli/xml.h"
#include "core/core.h"

namespace vt::cli {
namespace {

constexpr int kVpdLabelWidth = 30;

Value Version(const char *text) { return text[0] != '\0' ? Value::Text(text) : Value::None(); }

std::string Hex4(uint16_t n) {
    char text[8];
    std::snprintf(text, sizeof text, "%04x", n);
    return text;
}

void GeneralInfo(Sink &sink, const SDMDevice &d) {
    const SDNodeProperty &node = d.DeviceNodeProperty;
    const SDChipProperty &chip = d.DeviceChipProperty;
    const bool vport = isVirtualPortHBA(&d) != 0;
    AdapterEntry versions{};
    GetHBAOptionROMVersions(&d, &versions);

    ObjectScope general(sink, "general");
    sink.Field("model", "Model", Value::Text(ModelName(d)));
    sink.Field("description", "Description", Value::Text(Trim(FieldText(node.ModelDescription))));
    sink.Field("serial", "Serial Number", Value::Text(GetAdapterSerialNo(&d)));
    sink.Field("wwnn", "WWNN", Value::Text(WwnText(node.WWNN)));
    sink.Field("wwpn", "WWPN", Value::Text(WwnText(d.DevicePortProperty.WWPN)));
    if (vport) {
        sink.Field("virtual_port_id", "Virtual Port ID", Value::Number(node.VPortId));
        sink.Field("parent_wwpn", "Parent WWPN", Value::Text(WwnText(node.ParentWWPN)));
    }
    sink.Field("port_id", "Port ID", Value::Text(PortIdText(d.DevicePortProperty.PortId)));
    sink.Field("state", "Port State", Value::Text(PortState(d)));
    if (!vport)
        sink.Field("reboot_required", "Reboot Required",
                   Value::Text(d.DevicePortProperty.StateFlags & SD_PORTFLAG_REBOOT_REQUIRED ? "Yes" : "No"));
    sink.Field("speed_gbps", "Port Speed", PortSpeed(d));
    sink.Field("supported_speeds_gbps", "Supported Speeds", SupportedSpeeds(d));
    const std::string driver = FieldText(d.DeviceDriverProperty.DriverName);
    const std::string driverVersion = FieldText(node.DriverVersion);
    sink.Field("driver", "Driver Version",
               Value::Text(Trim(driver + " " + driverVersion))
                   .WithParts({{"driver_name", Value::Text(driver)}, {"driver_version", Value::Text(driverVersion)}}));
    sink.Field("firmware_version", "Firmware Version", Value::Text(FieldText(node.FirmwareVersion)));
    if (versions.FlashFirmwareVersion[0])
        sink.Field("flash_firmware_version", "Flash Firmware", Value::Text(versions.FlashFirmwareVersion));
    const Value bios = Version(versions.FlashBIOSVersion), fcode = Version(versions.FCodeVersion),
                efi = Version(versions.EFIVersion);
    sink.Field("boot_code", "BIOS / FCode / EFI",
               Value::Text(bios.text() + " / " + fcode.text() + " / " + efi.text())
                   .WithParts({{"bios_version", bios}, {"fcode_version", fcode}, {"efi_version", efi}}));
    if (versions.FlashMultiBootVersion[0])
        sink.Field("multiboot_version", "Multiboot Version", Value::Text(versions.FlashMultiBootVersion));
    char location[16];
    std::snprintf(location, sizeof location, "%02x:%02x.%x", chip.PciBusNumber, (chip.PciDevFunc >> 3) & 0x1F,
                  chip.PciDevFunc & 7);
    sink.Field("pci_location", "PCI Location", Value::Text(location));
    sink.Field("pci_ids", "PCI IDs",
               Value::Text(Hex4(chip.VendorID) + ":" + Hex4(chip.DeviceID) + ", subsystem " + Hex4(chip.SubVendorID) +
                           ":" + Hex4(chip.SubSystemID) + ", revision " + std::to_string(chip.ChipRevision))
                   .WithParts({{"pci_vendor_id", Value::Number(chip.VendorID)},
                               {"pci_device_id", Value::Number(chip.DeviceID)},
                               {"pci_subsystem_vendor_id", Value::Number(chip.SubVendorID)},
                               {"pci_subsystem_id", Value::Number(chip.SubSystemID)},
                               {"chip_revision", Value::Number(chip.ChipRevision)}}));
    sink.Field("fabric_name", "Fabric Name", Value::Text(WwnText(d.DevicePortProperty.FabricName)));
    sink.Field("os_device_name", "OS Device Name", Value::Text(FieldText(d.DevicePortProperty.DeviceName)));
    sink.Field("targets", "Targets", Value::Number(d.Targets.Count));
    if (!vport) sink.Field("virtual_ports", "Virtual Ports", Value::Number(d.DevicePortProperty.NumberOfVports));
    sink.Xml([&d] { XML_EmitHBAGeneralInfo(&d); });
}

// The VPD table of the port's card; a virtual port's card keeps it with
// its physical port.
void VitalProductData(Sink &sink, const SDMDevice &d) {
    sink.Note("Vital Product Data");
    if (isVirtualPortHBA(&d)) {
        sink.Note("  (kept by the physical port)");
        sink.JsonField("vpd", Value::None());
        return;
    }
    VPDInfo info{};
    if (GetHBAVPDData2(&d, &info) != 0 || info.count == 0) {
        info = VPDInfo{};
        sink.Note("  (not available)");
        sink.JsonField("vpd", Value::None());
    } else {
        ListScope list(sink, "vpd");
        for (uint32_t i = 0; i < info.count && i < VTFU_VPD_MAX_ENTRIES; ++i) {
            const VPDEntry &e = info.entries[i];
            const std::string description = FieldText(e.description);
            const std::string label =
                description.empty() || description == "UNKNOWN" ? "Keyword " + FieldText(e.tag) : description;
            ItemScope item(sink);
            sink.JsonField("keyword", Value::Text(FieldText(e.tag)));
            sink.JsonField("label", Value::Text(label));
            sink.Field("value", ("  " + label + " (" + FieldText(e.tag) + ")").c_str(), Value::Text(VpdValueText(e)),
                       kVpdLabelWidth);
        }
    }
    sink.Xml([&info] { XmlVpdInfo(&info); });
}

}  // namespace

Result InfoReport(const TarnCommand &cmd, Sink &sink) {
    bool vpdOnly = false;
    if (cmd.SubArgCount > 0) {
        if (strcasecmp(cmd.SubArgs[0], "vpd") != 0)
            return {TARN_STATUS_BAD_VALUE, std::string("Error: Invalid argument '") + cmd.SubArgs[0] + "' for option " +
                                               cmd.Option + "! Only \"vpd\" is accepted."};
        vpdOnly = true;
    }
    Result result;
    const auto ports = SelectPorts(cmd, result);
    if (result.status != 0) return result;
    sink.Open();
    ListScope list(sink, "ports");
    for (const SDMDevice *d : ports) {
        PortScope port(sink, *d, PortStyle::Heading);
        if (!vpdOnly) {
            GeneralInfo(sink, *d);
            sink.Blank();
        }
        VitalProductData(sink, *d);
    }
    return result;
}

}  // namespace vt::cli
