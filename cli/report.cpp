// Values shared by the reports, and the choice of sink.
#include "cli/report.h"

#include <cinttypes>
#include <cstdio>
#include <cstring>

#include "cli/sinks.h"
#include "core/core.h"
#include "vtapi_cli.h"

namespace vt::cli {

Value Value::Number(uint64_t n, std::string text) {
    Value v(Kind::Number, std::move(text));
    v.number_ = n;
    return v;
}

Value Value::Numbers(std::vector<uint64_t> numbers, std::string text) {
    Value v(Kind::Numbers, std::move(text));
    v.numbers_ = std::move(numbers);
    return v;
}

Value Value::WithParts(std::vector<std::pair<std::string, Value>> parts) && {
    parts_ = std::move(parts);
    return std::move(*this);
}

std::unique_ptr<Sink> MakeSink(int32_t output) {
    switch (output) {
    case TARN_OUTPUT_XML:
    case TARN_OUTPUT_XML2: return MakeXmlSink();
    case TARN_OUTPUT_JSON: return MakeJsonSink();
    default: return MakeTextSink();
    }
}

std::string WwnText(const uint8_t *wwn) {
    char text[24] = "";
    return GetStringWWN(wwn, text);
}

std::string PortIdText(const uint8_t *id) {
    char text[9] = "";
    return GetStringPortID(id, text);
}

std::string Trim(std::string s) {
    while (!s.empty() && s.back() == ' ') s.pop_back();
    size_t i = 0;
    while (i < s.size() && s[i] == ' ') ++i;
    return s.substr(i);
}

std::string ModelName(const SDMDevice &d) {
    std::string model = FieldText(d.DeviceNodeProperty.Model);
    while (!model.empty() && model.back() == ' ') model.pop_back();
    if (isOEMModelSuffixHBA(&d) && model.find("-S") == std::string::npos) model += "-S";
    return model;
}

std::string PortState(const SDMDevice &d) {
    char text[32] = "";
    return GetAdapterStatus(&d, text);
}

Value PortSpeed(const SDMDevice &d) {
    const uint32_t gb = ConvertPortSpeedToDecimal(d.DevicePortProperty.PortSpeed);
    return gb == 0 ? Value::None() : Value::Number(gb, std::to_string(gb) + " Gb/s");
}

Value SupportedSpeeds(const SDMDevice &d) {
    static const struct {
        uint8_t bit;
        uint64_t gb;
    } kBits[] = {
        {SD_SUPPORTED_1G, 1},   {SD_SUPPORTED_2G, 2},   {SD_SUPPORTED_4G, 4},   {SD_SUPPORTED_8G, 8},
        {SD_SUPPORTED_16G, 16}, {SD_SUPPORTED_32G, 32}, {SD_SUPPORTED_64G, 64},
    };
    std::vector<uint64_t> speeds;
    std::string text;
    for (const auto &b : kBits) {
        if ((d.DevicePortProperty.SupportedSpeed & b.bit) == 0) continue;
        speeds.push_back(b.gb);
        text += (text.empty() ? "" : ", ") + std::to_string(b.gb);
    }
    return Value::Numbers(std::move(speeds), text.empty() ? std::string("Unknown") : text + " Gb/s");
}

std::vector<Piece> PortPieces(const SDMDevice &d) {
    std::vector<Piece> pieces = {{"instance", "HBA instance ", Value::Number(d.Instance)},
                                 {"model", ": ", Value::Text(ModelName(d))}};
    if (isVirtualPortHBA(&d))
        pieces.push_back({"virtual_port_id", ", virtual port ", Value::Number(d.DeviceNodeProperty.VPortId)});
    else pieces.push_back({"port", ", port ", Value::Number(GetPhyPortNumber(&d))});
    pieces.push_back({"wwpn", ", WWPN ", Value::Text(WwnText(d.DevicePortProperty.WWPN))});
    return pieces;
}

const char *PeripheralTypeText(uint8_t type) {
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

uint64_t LunCapacity(const LunEntry &lun) {
    if (lun.BlockSize == VTAPI_CAPACITY_UNKNOWN32 || lun.BlockSize == 0) return 0;
    if (lun.LastBlock64 != VTAPI_CAPACITY_UNKNOWN64)
        return (lun.LastBlock64 + 1) * static_cast<uint64_t>(lun.BlockSize);
    if (lun.LastBlock32 != VTAPI_CAPACITY_UNKNOWN32 && lun.LastBlock32 != 0xFFFFFFFFu)
        return (static_cast<uint64_t>(lun.LastBlock32) + 1) * lun.BlockSize;
    return 0;
}

std::string SizeText(uint64_t bytes) {
    if (bytes == 0) return "-";
    static const char *const kUnits[] = {"B", "KB", "MB", "GB", "TB", "PB", "EB"};
    double value = static_cast<double>(bytes);
    size_t unit = 0;
    while (value >= 999.95 && unit + 1 < sizeof kUnits / sizeof kUnits[0]) {
        value /= 1000.0;
        ++unit;
    }
    char text[32];
    if (unit == 0) std::snprintf(text, sizeof text, "%" PRIu64 " B", bytes);
    else std::snprintf(text, sizeof text, "%.1f %s", value, kUnits[unit]);
    return text;
}

Value Size(uint64_t bytes) { return bytes == 0 ? Value::None() : Value::Number(bytes, SizeText(bytes)); }

bool IsNVMeTarget(const TargetEntry &t) {
    return t.DiscTargetProperty.TargetType == SD_TARGETTYPE_NVME || t.PortTypeWord == 1;
}

std::string VpdValueText(const VPDEntry &entry) {
    const std::string value = FieldText(entry.field);
    bool printable = std::strncmp(entry.tag, "RV", 2) != 0;  // the checksum byte
    for (char c : value)
        if (static_cast<unsigned char>(c) < 0x20 || static_cast<unsigned char>(c) >= 0x7F) printable = false;
    if (printable) return value;
    std::string hex = "0x";
    for (char c : value) {
        char pair[3];
        std::snprintf(pair, sizeof pair, "%02x", static_cast<unsigned char>(c));
        hex += pair;
    }
    return hex;
}

}  // namespace vt::cli
