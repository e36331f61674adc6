// Flash updates: a validated image file planned against the card's flash
// (what each region holds now and what the file brings) and written in one
// step; single regions saved to files and replaced from files.
#include "flash_update.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <map>
#include <memory>
#include <new>

#include "flash/flash_memo.h"
#include "oss/oss_file.h"
#include "core/core.h"
#include "oss/oss.h"

namespace vtflash {

namespace {

constexpr uint32_t kLayoutUnreadable = 1;

std::string Format(const char *format, ...) __attribute__((format(printf, 1, 2)));
std::string Format(const char *format, ...) {
    char text[512];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    return text;
}

const char *RegionName(uint32_t region) {
    switch (region) {
    case 0x01: return "Firmware";
    case 0x07: return "Boot code";
    case 0x11: return "Boot code expansion";
    case 0x13: return "Firmware preload area";
    case 0x2E: return "NIC boot code";
    case 0x40: return "MPI firmware";
    case 0x41: return "MPI configuration";
    case 0x45: return "EDC PHY firmware";
    case 0x4F: return "iSCSI boot code";
    case 0x66: return "Trunking PEP firmware";
    case 0x70: return "CRBinit";
    case 0x71: return "Board configuration";
    case 0x72: return "Bootloader";
    case 0x73: return "Pegtune";
    case 0x74:
    case 0x97: return "NIC firmware";
    case 0x8E: return "Image layout table";
    case 0x9E: return "Signature region";
    case 0xA2: return "FCoE boot code";
    case 0xA4: return "FCoE firmware";
    case 0xBA: return "FC board configuration";
    case 0xCF: return "PEP board configuration";
    case 0xD1: return "PEP firmware";
    case 0xD2: return "PEP SoftROM";
    case 0xD3: return "MPI firmware";
    case 0xE1: return "MPI firmware (second copy)";
    case 0x101: return "MPI SoftROM";
    case 0x102: return "PCIe SerDes table";
    case 0x103: return "FC SoftROM";
    default: return nullptr;
    }
}

std::string NameOf(uint32_t region) {
    const char *name = RegionName(region);
    return name ? name : Format("Region 0x%X", region);
}

bool IsBootCodeRegion(uint32_t region) {
    return region == VTFU_REGION_BOOT_CODE || region == VTFU_REGION_BOOT_CODE_EXP ||
           region == VTFU_REGION_NIC_BOOT_CODE || region == VTFU_REGION_ISCSI_BOOT_CODE ||
           region == VTFU_REGION_FCOE_BOOT_CODE;
}

// The card's flash layout: region -> capacity.
std::optional<std::map<uint32_t, uint32_t>> Layout(uint32_t handle) {
    uint8_t *layout = nullptr;
    uint32_t size = 0;
    if (fcVTFUGetFlashLayoutTable(handle, &layout, &size) != 0) return std::nullopt;
    std::unique_ptr<uint8_t, decltype(&std::free)> owned(layout, &std::free);
    std::map<uint32_t, uint32_t> regions;
    const uint32_t count = std::min<uint32_t>(Le32(layout + 4), (size - 8) / 8);
    for (uint32_t i = 0; i < count; ++i)
        regions.emplace(Le32(layout + 8 + size_t(i) * 8), Le32(layout + 12 + size_t(i) * 8));
    return regions;
}

// A whole region of the given capacity; the libvtsdm status otherwise.
uint32_t ReadRegion(uint32_t handle, uint32_t region, uint32_t capacity, std::vector<uint8_t> &out) {
    out.assign(capacity, 0);
    const uint32_t rc = capacity ? SDGetOptionRomEx(handle, out.data(), capacity, region, 0) : SDERR_NONE;
    if (rc != SDERR_NONE)
        TarnLogMessage(VT_MSG_DEBUG, "FlashUpdate: SDGetOptionRomEx(0x%x) failed with 0x%x", region, rc);
    return rc;
}

// Updates are refused while the port's firmware is locked down or its driver
// runs in maintenance mode.
uint32_t PortAllowsUpdates(uint32_t handle) {
    SDPortProperty port{};
    if (SDGetHbaDevicePortProperty(handle, &port) != SDERR_NONE) return VTAPI_SUCCESS;  // the write itself will tell
    if (port.StateFlags & SD_PORTFLAG_LOCKDOWN) return VTAPI_FLASH_LOCKDOWN;
    if (port.StateFlags & SD_PORTFLAG_MAINTENANCE) return VTAPI_MAINTENANCE_MODE;
    return VTAPI_SUCCESS;
}

FlashUpdatePlan Refuse(FlashUpdatePlan plan, uint32_t status, uint32_t validation, std::string message) {
    plan.status = status;
    plan.validation = validation;
    plan.message = std::move(message);
    plan.components.clear();
    plan.regions.clear();
    return plan;
}

// The regions a single boot-code file replaces: the boot code region.
FlashUpdatePlan PlanBootFile(FlashUpdatePlan plan, const AdapterFacts &facts, Bytes file, const std::string &name) {
    plan.bootFile = true;
    const std::string hw = HardwareType(facts.deviceId);
    const uint32_t valid = Validate(file.data(), uint32_t(file.size()), hw.c_str(), 0);
    if (valid == FLASH_ST_WRONG_ADAPTER)
        return Refuse(
            plan, VTAPI_OPTION_NOT_SUPPORTED, valid,
            Format("Boot code file %s is not for HBA %u (%s)!", name.c_str(), facts.instance, facts.model.c_str()));
    if (valid != 0)
        return Refuse(plan, VTAPI_FILE_CORRUPTED, valid,
                      Format("Selected file (%s) appears to be corrupted!", name.c_str()));
    // A standard file is not checksummed by the validation; a chain that
    // does not end inside the file is still refused.
    const uint8_t *end = vtfuGetBootCodeEnd(file.data(), uint32_t(file.size()));
    if (end == nullptr)
        return Refuse(plan, VTAPI_FILE_CORRUPTED, FLASH_ST_CORRUPTED,
                      Format("Selected file (%s) appears to be corrupted!", name.c_str()));
    plan.regions.push_back({VTFU_REGION_BOOT_CODE, std::vector<uint8_t>(file.data(), end)});
    return plan;
}

FlashUpdatePlan PlanImageFile(FlashUpdatePlan plan, const AdapterFacts &facts, const AdapterEntry *adapter, Bytes file,
                              const std::string &name) {
    const Bytes mbi = MultiImageOf(file);
    VTAPI_FlashImageVersion versions{};
    const ImageCheck check = CheckImageForAdapter(facts, adapter, mbi, &versions);
    if (check.stage != ImageCheck::kPassed) {
        const uint32_t status = ApiStatusOfCheck(check, mbi.size());
        std::string message =
            check.stage == ImageCheck::kCardType
                ? Format("Unable to find matching card type of flash image file %s!", name.c_str())
            : check.stage == ImageCheck::kComponents
                ? Format("Flash image file %s holds a component that failed validation (0x%x)!", name.c_str(),
                         check.status)
            : status == VTAPI_FUNCTION_NOT_APPLICABLE
                ? Format("Unsupported option with current HBA %u (%s)", facts.instance, facts.model.c_str())
                : Format("Invalid file %s. Unable to validate signature!", name.c_str());
        return Refuse(plan, status, check.status, std::move(message));
    }
    plan.cardType = check.cardType;
    char version[16] = {};
    vtfuILT_Header_GetImageVersion(reinterpret_cast<const ILT_Header_t *>(mbi.data()), version, sizeof version);
    plan.imageVersion = version;
    const uint32_t size = uint32_t(mbi.size());
    const uint32_t layout = ReadFlashImageILT(adapter, mbi.data(), size, check.cardType);
    if (layout == FLASH_LAYOUT_MISMATCH)
        return Refuse(plan, VTAPI_OPTION_NOT_SUPPORTED, layout,
                      Format("Flash image file %s is incompatible with HBA %u (%s)!", name.c_str(), facts.instance,
                             facts.model.c_str()));
    if (layout != 0)
        return Refuse(plan, VTAPI_OPTION_ROM_UPDATE_FAILED, layout,
                      Format("Unable to read the flash layout of HBA %u (%s)!", facts.instance, facts.model.c_str()));
    std::optional<std::vector<StagedRegion>> regions = SelectImageRegions(mbi, check.cardType, facts.chipRevision);
    if (!regions)
        return Refuse(plan, VTAPI_FILE_CORRUPTED, FLASH_ST_CORRUPTED,
                      Format("Selected file (%s) appears to be corrupted!", name.c_str()));
    plan.regions = std::move(*regions);
    // The file's layout table, stamped with the time of the update.
    const uint32_t tableLength = vtfuILT_Header_GetTableLength(reinterpret_cast<const ILT_Header_t *>(mbi.data()));
    std::vector<uint8_t> table(tableLength);
    if (tableLength && vtfuUdpateTimeStamp(table.data(), tableLength, mbi.data(), size) == 0)
        plan.regions.push_back({VTFU_REGION_FLASH_ILT, std::move(table)});
    return plan;
}

// Per region written: the version now in the flash and the one written.
uint32_t AddComponents(FlashUpdatePlan &plan, const AdapterFacts &facts, Bytes newTable,
                       const std::map<uint32_t, uint32_t> &layout) {
    std::vector<uint8_t> flashIlt;
    if (auto it = layout.find(VTFU_REGION_FLASH_ILT); it != layout.end())
        if (uint32_t rc = ReadRegion(facts.handle, it->first, it->second, flashIlt)) return rc;
    for (const StagedRegion &r : plan.regions) {
        ComponentPlan c;
        c.region = r.region;
        c.name = NameOf(r.region);
        c.size = uint32_t(r.bytes.size());
        const auto capacity = layout.find(r.region);
        c.capacity = capacity != layout.end() ? capacity->second : 0;
        std::vector<uint8_t> now;
        if (capacity != layout.end())
            if (uint32_t rc = ReadRegion(facts.handle, r.region, c.capacity, now)) return rc;
        c.current = VersionInFlash(r.region, now, flashIlt).value_or("");
        c.next = VersionInFlash(r.region, r.bytes, newTable).value_or("");
        plan.components.push_back(std::move(c));
    }
    return SDERR_NONE;
}

}  // namespace

std::optional<std::vector<uint8_t>> ReadWholeFile(const char *path) {
    std::unique_ptr<FILE, decltype(&std::fclose)> f(std::fopen(path, "rb"), &std::fclose);
    if (!f) return std::nullopt;
    std::vector<uint8_t> bytes;
    uint8_t chunk[65536];
    size_t n;
    while ((n = std::fread(chunk, 1, sizeof chunk, f.get())) > 0) bytes.insert(bytes.end(), chunk, chunk + n);
    if (std::ferror(f.get())) return std::nullopt;
    return bytes;
}

uint32_t ApiStatusOfCheck(const ImageCheck &check, size_t fileSize) {
    switch (check.stage) {
    case ImageCheck::kPassed: return VTAPI_SUCCESS;
    case ImageCheck::kCardType: return VTAPI_OPTION_NOT_SUPPORTED;
    case ImageCheck::kComponents: return VTAPI_UPDATE_ERROR_VALIDATE_FLASH_IMAGE_COMPONENTS;
    case ImageCheck::kHeader: break;
    }
    if (check.status == FLASH_ST_NOT_SUPPORTED) return VTAPI_FUNCTION_NOT_APPLICABLE;
    // The header checks also refuse a file without an entry for this card.
    if (check.status == FLASH_ST_ILT_TOO_SMALL && fileSize >= sizeof(ILT_Header_t)) return VTAPI_OPTION_NOT_SUPPORTED;
    if (check.status == FLASH_ST_REGION_MISSING) return VTAPI_OPTION_NOT_SUPPORTED;
    return VTAPI_INVALID_ILT_HEADER;
}

std::optional<std::string> VersionInFlash(uint32_t type, Bytes region, Bytes flashIlt) {
    // Components with a trailer end where the erased flash begins.
    if (type == VTFU_REGION_CRBINIT || type == VTFU_REGION_PEGTUNE || type == VTFU_REGION_BOOTLOADER)
        while (!region.empty() && region.back() == 0xFF) region = region.first(region.size() - 1);
    return ComponentVersionText(type, region, flashIlt);
}

FlashUpdatePlan PlanFlashUpdate(const AdapterEntry *adapter, Bytes file, const std::string &fileName) {
    FlashUpdatePlan plan;
    const std::optional<AdapterFacts> facts = FactsOf(adapter);
    if (!facts) return Refuse(plan, VTAPI_OPTION_ROM_UPDATE_FAILED, FLASH_ST_NO_ADAPTER, "No adapter to update.");
    plan.handle = facts->handle;
    if (uint32_t refused = PortAllowsUpdates(facts->handle))
        return Refuse(plan, refused, 0,
                      Format(refused == VTAPI_FLASH_LOCKDOWN ? "HBA %u (%s): flash update refused, firmware lockdown"
                                                             : "HBA %u (%s): flash update disabled in maintenance mode",
                             facts->instance, facts->model.c_str()));
    const bool bootFile = file.size() >= 2 && file[0] == 0x55 && file[1] == 0xAA;
    plan = bootFile ? PlanBootFile(plan, *facts, file, fileName) : PlanImageFile(plan, *facts, adapter, file, fileName);
    if (plan.status != VTAPI_SUCCESS) return plan;
    const std::optional<std::map<uint32_t, uint32_t>> layout = Layout(facts->handle);
    if (!layout)
        return Refuse(plan, VTAPI_OPTION_ROM_UPDATE_FAILED, kLayoutUnreadable,
                      Format("Unable to read the flash layout of HBA %u (%s)!", facts->instance, facts->model.c_str()));
    // The layout check covers the components; the table and a boot file are
    // checked here.
    for (auto it = plan.regions.begin(); it != plan.regions.end();) {
        const auto found = layout->find(it->region);
        const bool fits = found != layout->end() && found->second >= it->bytes.size();
        if (!fits && it->region == VTFU_REGION_FLASH_ILT) {
            it = plan.regions.erase(it);  // a flash without room for the table keeps its own
            continue;
        }
        if (!fits)
            return Refuse(plan, VTAPI_OPTION_NOT_SUPPORTED, FLASH_LAYOUT_MISMATCH,
                          Format("Flash image file %s is incompatible with HBA %u (%s)!", fileName.c_str(),
                                 facts->instance, facts->model.c_str()));
        ++it;
    }
    const Bytes table = bootFile ? Bytes() : MultiImageOf(file);
    if (uint32_t rc = AddComponents(plan, *facts, table, *layout))
        return Refuse(plan, rc, 0,
                      Format("Unable to read the flash of HBA %u (%s): %s", facts->instance, facts->model.c_str(),
                             SDGetErrorString(rc)));
    // A flash with a memo block records the update in it, in the same write;
    // it is bookkeeping, not a component of the file.
    if (const auto memo = layout->find(VTFU_REGION_FLASH_MEMO); memo != layout->end()) {
        std::vector<uint8_t> block = BuildMemoBlock(UpdateMemoText(fileName, plan.imageVersion, time(nullptr)));
        if (block.size() <= memo->second) {
            const auto table = std::find_if(plan.regions.begin(), plan.regions.end(),
                                            [](const StagedRegion &r) { return r.region == VTFU_REGION_FLASH_ILT; });
            plan.regions.insert(table, StagedRegion{VTFU_REGION_FLASH_MEMO, std::move(block)});
        }
    }
    return plan;
}

uint32_t WriteFlashUpdate(const FlashUpdatePlan &plan) {
    if (plan.status != VTAPI_SUCCESS) return plan.status;
    if (plan.regions.empty()) return VTAPI_OPTION_ROM_UPDATE_FAILED;
    std::vector<SDRegionImage> images;
    for (const StagedRegion &r : plan.regions) images.push_back({r.region, uint32_t(r.bytes.size()), r.bytes.data()});
    const uint32_t rc = SDUpdateOptionRomRegions(plan.handle, images.data(), uint32_t(images.size()), 0);
    if (rc != SDERR_NONE) {
        TarnLogMessage(VT_MSG_DEBUG, "WriteFlashUpdate: SDUpdateOptionRomRegions failed with 0x%x", rc);
        return rc;
    }
    TarnLogMessage(VT_MSG_DEBUG, "WriteFlashUpdate: %zu regions written, reboot required", images.size());
    return VTAPI_REBOOT_REQUIRED;
}

namespace {

// Whether a file's bytes are fit for the region (its format, where the
// region has one the library can check).
bool FitsRegionFormat(uint32_t region, Bytes bytes) {
    if (IsBootCodeRegion(region)) return CheckBootChain(bytes, nullptr, true);
    if (region == VTFU_REGION_MPI_CONFIG) {
        if (bytes.size() < VTFU_MPI_CONFIG_SUMMED || bytes.size() > VTFU_MPI_CONFIG_BUFFER ||
            Le32(bytes.data()) != VTFU_MPI_CONFIG_SIGNATURE)
            return false;
        std::vector<uint8_t> buffer(VTFU_MPI_CONFIG_BUFFER, 0);
        std::copy(bytes.begin(), bytes.end(), buffer.begin());
        return vtfuVerifyMpiCfgParamsHeaderChkSum(buffer.data(), uint32_t(buffer.size())) == 1;
    }
    if (region == VTFU_REGION_FLASH_ILT) {
        const uint32_t size = uint32_t(bytes.size());
        if (!vtfuILT_ValidateILTHeader(bytes.data(), size)) return false;
        const auto *h = reinterpret_cast<const ILT_Header_t *>(bytes.data());
        const uint32_t length = vtfuILT_Header_GetTableLength(h);
        return vtfuILT_Header_CompareSignature(h) && length <= size && vtfuHLPR_Sum16(bytes.data(), length / 2) == 0;
    }
    if (region == VTFU_REGION_SIGNATURE)
        return ValidateKiteSignatureRegion(bytes.data(), uint32_t(bytes.size()), nullptr) == 1;
    return true;
}

}  // namespace

uint32_t SaveFlashRegionToFile(const AdapterEntry *adapter, uint32_t region, const char *path) {
    const std::optional<AdapterFacts> facts = FactsOf(adapter);
    if (!facts || path == nullptr) return VTAPI_INVALID_ARGUMENT;
    const std::optional<std::map<uint32_t, uint32_t>> layout = Layout(facts->handle);
    if (!layout) return VTAPI_OPTION_ROM_UPDATE_FAILED;
    const auto found = layout->find(region);
    if (found == layout->end()) {
        TarnLogMessage(VT_MSG_DEBUG, "SaveFlashRegionToFile: no region 0x%x in the flash of HBA %u", region,
                       facts->instance);
        return VTAPI_OPTION_NOT_SUPPORTED;
    }
    std::vector<uint8_t> bytes;
    if (uint32_t rc = ReadRegion(facts->handle, region, found->second, bytes)) return rc;
    // The path is the user's own: written as given, replaced in one step.
    vt::oss::FileReplacement file;
    int err = file.Begin(path);
    if (err == 0) err = file.Write(std::string_view(reinterpret_cast<const char *>(bytes.data()), bytes.size()));
    if (err == 0) err = file.Commit();
    if (err != 0) {
        TarnLogMessage(VT_MSG_DEBUG, "SaveFlashRegionToFile: cannot write %s: %s", path, std::strerror(err));
        return VTAPI_GENERAL_FAILURE;
    }
    return VTAPI_SUCCESS;
}

uint32_t UpdateFlashRegionFromFile(const AdapterEntry *adapter, uint32_t region, const char *path) {
    const std::optional<AdapterFacts> facts = FactsOf(adapter);
    if (!facts || path == nullptr) return VTAPI_INVALID_ARGUMENT;
    if (KeptByUpdates(region)) return VTAPI_OPTION_NOT_SUPPORTED;
    if (uint32_t refused = PortAllowsUpdates(facts->handle)) return refused;
    const std::optional<std::map<uint32_t, uint32_t>> layout = Layout(facts->handle);
    if (!layout) return VTAPI_OPTION_ROM_UPDATE_FAILED;
    const auto found = layout->find(region);
    if (found == layout->end()) return VTAPI_OPTION_NOT_SUPPORTED;
    const std::optional<std::vector<uint8_t>> bytes = ReadWholeFile(path);
    if (!bytes || bytes->empty() || bytes->size() > found->second || !FitsRegionFormat(region, *bytes)) {
        TarnLogMessage(VT_MSG_DEBUG, "UpdateFlashRegionFromFile: %s does not fit region 0x%x (%u bytes)", path, region,
                       found->second);
        return VTAPI_FILE_CORRUPTED;
    }
    const SDRegionImage image{region, uint32_t(bytes->size()), bytes->data()};
    const uint32_t rc = SDUpdateOptionRomRegions(facts->handle, &image, 1, 0);
    if (rc != SDERR_NONE) {
        TarnLogMessage(VT_MSG_DEBUG, "UpdateFlashRegionFromFile: SDUpdateOptionRomRegions failed with 0x%x", rc);
        return rc;
    }
    return VTAPI_REBOOT_REQUIRED;
}

}  // namespace vtflash

namespace {

// The C view of a plan and the plan it shows.
struct PlanHolder {
    VTFU_UpdatePlan view{};
    std::vector<VTFU_UpdateComponent> components;
    vtflash::FlashUpdatePlan plan;
};

void CopyText(char *dst, size_t size, const std::string &text) { std::snprintf(dst, size, "%s", text.c_str()); }

}  // namespace

extern "C" {

VTAPI_EXPORT uint32_t vtfuPlanFlashUpdate(const AdapterEntry *adapter, const char *path, VTFU_UpdatePlan **plan) {
    if (adapter == nullptr || path == nullptr || plan == nullptr) return VTAPI_INVALID_ARGUMENT;
    const std::optional<std::vector<uint8_t>> file = vtflash::ReadWholeFile(path);
    if (!file) return VTAPI_FILE_CORRUPTED;
    auto *holder = new (std::nothrow) PlanHolder;
    if (holder == nullptr) return VTAPI_GENERAL_FAILURE;
    holder->plan = vtflash::PlanFlashUpdate(adapter, *file, path);
    const vtflash::FlashUpdatePlan &p = holder->plan;
    VTFU_UpdatePlan &v = holder->view;
    v.Status = p.status;
    v.Validation = p.validation;
    v.BootFile = p.bootFile ? 1 : 0;
    v.CardType = p.cardType;
    CopyText(v.ImageVersion, sizeof v.ImageVersion, p.imageVersion);
    CopyText(v.Message, sizeof v.Message, p.message);
    for (const vtflash::ComponentPlan &c : p.components) {
        VTFU_UpdateComponent out{c.region, c.size, c.capacity, c.changes() ? 1u : 0u, {}, {}, {}};
        CopyText(out.Name, sizeof out.Name, c.name);
        CopyText(out.Current, sizeof out.Current, c.current);
        CopyText(out.New, sizeof out.New, c.next);
        holder->components.push_back(out);
    }
    v.Count = uint32_t(holder->components.size());
    v.Components = holder->components.empty() ? nullptr : holder->components.data();
    v.Internal = holder;
    *plan = &v;
    return VTAPI_SUCCESS;
}

VTAPI_EXPORT uint32_t vtfuWriteFlashUpdate(const VTFU_UpdatePlan *plan) {
    if (plan == nullptr || plan->Internal == nullptr) return VTAPI_INVALID_ARGUMENT;
    return vtflash::WriteFlashUpdate(static_cast<const PlanHolder *>(plan->Internal)->plan);
}

VTAPI_EXPORT void vtfuFreeFlashUpdatePlan(VTFU_UpdatePlan *plan) {
    if (plan != nullptr) delete static_cast<PlanHolder *>(plan->Internal);
}

}  // extern "C"
