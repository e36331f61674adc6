// Whole NVRAM images: loading a template (shipped, by chip and OEM, or one
// the user names), restoring the defaults, saving the image to a file and
// writing one back, and the global NVRAM of every port.  Every path keeps
// the port's identity and (unless resetting) the user's boot settings from
// the image on the adapter, so a template never gives two ports one WWN.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "config/hbaparam_table.h"
#include "config/nvram_config.h"
#include "config/nvram_image_check.h"
#include "config/nvram_internal.h"
#include "config/nvram_oem.h"
#include "config/nvram_template.h"
#include "core/core.h"
#include "oss/oss.h"

using namespace vt::config;

namespace {

const char kFile[] = __FILE__;

constexpr size_t kMaxTemplateFile = 1u << 20;
constexpr uint32_t kSubsystemVendorVar = 127;
constexpr uint32_t kSubsystemDeviceVar = 128;
constexpr uint32_t kNodeNameEnableVar = 17;
constexpr uint32_t kPortNameVar0 = 24, kNodeNameVar0 = 35;
constexpr uint32_t kGlobalNvramRegion = 0x8D;
// Numeric serial fields hold the serial's number in 21 bits.
constexpr unsigned long kSerialNumberLimit = 2097152;

// Settings whose change waits for a reset, by variable.
bool ChangeNeedsReboot(const SDMDevice *d, const std::vector<uint8_t> &before, const std::vector<uint8_t> &after) {
    for (const ParamRow &p : kParamRows)
        if (p.needsReboot && p.variable != kNoVariable &&
            Variable(d, before, uint32_t(p.variable)) != Variable(d, after, uint32_t(p.variable)))
            return true;
    return false;
}

// Reads a whole file; false when it cannot be opened or read.
bool ReadWholeFile(const char *path, std::string &out, size_t limit) {
    FILE *f = std::fopen(path, "rb");
    if (!f) return false;
    out.clear();
    char buf[8192];
    size_t n;
    bool ok = true;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) {
        out.append(buf, n);
        if (out.size() > limit) break;
    }
    if (std::ferror(f)) ok = false;
    std::fclose(f);
    return ok;
}

// Writes `data` to `path` through a temporary file beside it and a rename,
// so a crash never leaves a half-written file; an existing file's owner and
// mode are kept.  The path is the user's, taken as it stands.
bool WriteFileAtomically(const char *path, const void *data, size_t size) {
    struct stat old {};
    const bool existed = lstat(path, &old) == 0 && S_ISREG(old.st_mode);
    const std::string tmp = std::string(path) + ".tmp." + std::to_string(getpid());
    unlink(tmp.c_str());
    const int fd = open(tmp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, 0644);
    if (fd < 0) return false;
    bool ok = true;
    for (size_t done = 0; ok && done < size;) {
        const ssize_t n = write(fd, static_cast<const char *>(data) + done, size - done);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) ok = false;
        else done += size_t(n);
    }
    if (ok && existed)
        ok = fchmod(fd, old.st_mode & 07777) == 0 && (fchown(fd, old.st_uid, old.st_gid) == 0 || errno == EPERM);
    ok = ok && fsync(fd) == 0;
    ok = close(fd) == 0 && ok;
    if (ok) ok = rename(tmp.c_str(), path) == 0;
    if (!ok) unlink(tmp.c_str());
    return ok;
}

void CopyVariable(const SDMDevice *d, const std::vector<uint8_t> &from, uint8_t *to, uint32_t id) {
    const uint32_t v = SDGetVariableValue(d->DeviceHandle, from.data(), id);
    if (v != 0xFFFFFFFFu) SDSetVariableValue(d->DeviceHandle, to, id, v);
}

bool Is16GbAdapter(const SDMDevice *d) {
    return CoreGetISPType(d) == 24 || isWren16GHBA(d) || isSkiff16GHBA(d) || isMezz16GHBA(d) || is16GN4FCOnlyHBA(d);
}

// The template lines that are not copied: the subsystem IDs must be the
// adapter's, the serial number becomes the adapter's own.
uint32_t ApplySpecialFields(SDMDevice *d, const char *prefix, const NvramTemplate &t,
                            const std::vector<uint8_t> &current, std::vector<uint8_t> &image) {
    for (const TemplateField &f : t.special) {
        if (f.flags & (kTemplateSubsystemVendorId | kTemplateSubsystemDeviceId)) {
            const bool vendor = f.flags & kTemplateSubsystemVendorId;
            const uint32_t own = Variable(d, current, vendor ? kSubsystemVendorVar : kSubsystemDeviceVar);
            if (f.isString || f.value != own) {
                LogDebug(kFile, __LINE__, "%s: HBA subsystem %s id does not match the nvram file!", prefix,
                         vendor ? "vendor" : "device");
                return kInvalidFile;
            }
        } else if (f.flags & kTemplateSerialNumber) {
            const std::string serial(
                d->DeviceNodeProperty.SerialNumber,
                strnlen(d->DeviceNodeProperty.SerialNumber, sizeof d->DeviceNodeProperty.SerialNumber));
            if (f.isString) {
                std::string text = serial.substr(0, f.bitWidth / 8);
                text.resize(f.bitWidth / 8, ' ');
                std::memcpy(image.data() + f.bitOffset / 8, text.data(), text.size());
                continue;
            }
            size_t digits = 0;
            while (digits < serial.size() &&
                   std::isdigit(static_cast<unsigned char>(serial[serial.size() - 1 - digits])))
                ++digits;
            const unsigned long number =
                digits ? std::strtoul(serial.c_str() + serial.size() - digits, nullptr, 10) : 0;
            if (digits < 5 || digits > 9 || number >= kSerialNumberLimit) {
                LogDebug(kFile, __LINE__, "%s: serial number %s cannot be stored in the nvram!", prefix,
                         serial.c_str());
                return kInvalidFile;
            }
            SetTemplateBits(image, f.bitOffset, f.bitWidth, uint32_t(number));
        }
    }
    return kOk;
}

// Fills `out` from the template at `path` for the port: special fields as
// the adapter has them, then the port's identity and (unless identityOnly)
// its boot settings from the image on the adapter.
uint32_t FillFromTemplate(SDMDevice *d, const char *path, uint8_t *out, uint32_t size, const char *prefix, bool twoGb,
                          bool identityOnly) {
    if (!d) return kNoAdapter;
    if (!path || !out) return kOpenFailed;
    std::string text;
    if (!ReadWholeFile(path, text, kMaxTemplateFile)) return kOpenFailed;
    if (text.size() > kMaxTemplateFile) return kCorrupted;
    NvramTemplate t;
    std::string why;
    if (uint32_t rc = ParseNvramTemplate(text, size, t, why)) {
        LogDebug(kFile, __LINE__, "%s: %s: %s", prefix, path, why.c_str());
        return rc;
    }
    std::vector<uint8_t> current;
    if (ReadNvramImage(d, 1, current) != SDERR_NONE || current.size() != size) return kRetrieveFailed;
    std::vector<uint8_t> image = t.image;
    if (uint32_t rc = ApplySpecialFields(d, prefix, t, current, image)) return rc;
    std::memcpy(out, image.data(), size);
    if (uint32_t rc = PreserveNvramData(d, out, identityOnly ? 1 : 0)) return rc;
    if (twoGb) {
        // The 2 Gb images also take the hard-loop-ID and descending-search
        // switches the user asked for.
        for (int row : {int(kEnableHardLoopIdRow), int(kDescendingSearchRow)})
            if (User_NVRam_Entry[row].value != -1)
                SDSetVariableValue(d->DeviceHandle, out, uint32_t(kParamRows[row].variable),
                                   User_NVRam_Entry[row].value ? 1u : 0u);
    }
    return kOk;
}

// Writes a complete new image and leaves the completion text.
uint32_t WriteWholeImage(SDMDevice *d, std::vector<uint8_t> &image, bool restoreDefaults) {
    std::vector<uint8_t> before;
    ReadNvramImage(d, 1, before);
    SetNoRebootRequired(ChangeNeedsReboot(d, before, image) ? 0 : 1);
    const uint32_t rc = updateNVRam(d, image.data(), uint32_t(image.size()), 1, 1);
    if (rc != SDERR_NONE) {
        const uint32_t refused = WriteRefusal(d, rc);
        if (refused != kNotPermitted) SetConfigErrorText("Failed to program HBA parameters (HBA %u)!", d->Instance);
        return refused;
    }
    if (restoreDefaults)
        SetConfigErrorText(
            RebootRequired()
                ? "HBA Parameters Restore Defaults Complete. Changes have been saved toHBA %u and a reboot is required."
                : "HBA Parameters Restore Defaults Complete. Changes have been saved toHBA %u.",
            d->Instance);
    else SetConfigErrorText("%s", ConfigCompletionText(d).c_str());
    return kOk;
}

// Restores the defaults of the port's chip and OEM template; `identityOnly`
// also resets the boot settings.
uint32_t LoadDefaults(SDMDevice *d, bool identityOnly) {
    ClearConfigErrorText();
    if (!d) return NoAdapter();
    if (isVirtualPortHBA(d)) {
        const uint8_t *w = d->DevicePortProperty.WWPN;
        SetConfigErrorText("Option not supported with NPIV port (WWPN %02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x)!", w[0],
                           w[1], w[2], w[3], w[4], w[5], w[6], w[7]);
        return kVirtualPort;
    }
    if (uint32_t rc = CheckWritable(d)) return rc;
    const uint32_t chip = CoreGetISPType(d);
    const uint32_t oem = OemOfDevice(d);
    if (!ChipLoadsTemplates(chip)) {
        SetConfigErrorText("Operation is not supported with current HBA %u (%s)!", d->Instance, ModelOf(d).c_str());
        return kNotSupported;
    }
    char path[512];
    if (GetNVRamTemplatesDir(d, path, oem) != 0) {
        SetConfigErrorText("Unable to open NVRAM template file (%s)!", path);
        return kTemplateMissing;
    }
    std::vector<uint8_t> image(TemplateImageSize(chip));
    if (image.size() != NvramSizeOf(d)) return kNotSupported;
    InitializeParamTable();
    const uint32_t size = uint32_t(image.size());
    const uint32_t rc = identityOnly
                            ? FillFromTemplate(d, path, image.data(), size, "ResetToDefaultSettings", size == 256, true)
                        : size == 256 ? updateRawNvramTemplateBufferFor2GbHBA(d, path, image.data(), size)
                                      : updateRawNvramTemplateBufferFor4GbHBA(d, path, image.data(), size);
    if (rc == kInvalidFile) {
        SetConfigErrorText("HBA %u (%s) subsystem vendor/device id mismatched!", d->Instance, ModelOf(d).c_str());
        return rc;
    }
    if (rc != kOk) {
        SetConfigErrorText("%s", TemplateResultText(rc, d, path).c_str());
        return rc;
    }
    return WriteWholeImage(d, image, true);
}

// Size of the global NVRAM region of the port's flash, or 0 without one.
uint32_t GlobalNvramRegionSize(const SDMDevice *d) {
    std::vector<uint8_t> buffer(8 + 64 * sizeof(SDOptionRomRegion));
    auto *layout = reinterpret_cast<SDOptionRomLayout *>(buffer.data());
    layout->Count = 64;
    if (SDGetOptionRomLayout(d->DeviceHandle, 0, layout, uint32_t(buffer.size())) != SDERR_NONE) return 0;
    for (uint32_t i = 0; i < layout->Count && i < 64; ++i)
        if (layout->Region[i].Region == kGlobalNvramRegion) return layout->Region[i].Size;
    return 0;
}

}  // namespace

namespace vt::config {

uint32_t ReadInputFile(const SDMDevice *device, const char *file, std::vector<uint8_t> &data) {
    ClearConfigErrorText();
    if (!device) return NoAdapter();
    if (uint32_t rc = CheckWritable(device)) return rc;
    std::string text;
    // An image file is at most 512 bytes: reading a little more tells a
    // larger file apart.
    if (!file || !ReadWholeFile(file, text, 4096)) {
        SetConfigErrorText("Unable to open file '%s' for reading!", file ? file : "");
        return 2;
    }
    data.assign(text.begin(), text.end());
    return kOk;
}

uint32_t OemOfDevice(const SDMDevice *device) {
    const uint32_t oem = OemForSubsystemVendor(device->DeviceChipProperty.SubVendorID);
    return oem < kOemCount ? oem : kMakerOem;
}

std::string ConfigCompletionText(const SDMDevice *device) {
    char text[256];
    std::snprintf(text, sizeof text,
                  RebootRequired()
                      ? "HBA Parameters update complete. Changes have been saved to HBA %u and a reboot is required."
                      : "HBA Parameters update complete. Changes have been saved to HBA %u.",
                  device->Instance);
    return text;
}

std::string TemplateResultText(uint32_t result, const SDMDevice *d, const std::string &file) {
    char text[512];
    const unsigned hba = d ? d->Instance : 0;
    const std::string model = d ? ModelOf(d) : std::string();
    switch (result) {
    case 0: return d ? ConfigCompletionText(d) : std::string();
    case 1: std::snprintf(text, sizeof text, "Unable to open NVRAM file (%s)!", file.c_str()); break;
    case 2: std::snprintf(text, sizeof text, "Unable to open file '%s' for reading!", file.c_str()); break;
    case 5:
        std::snprintf(text, sizeof text,
                      "Update aborted (Invalid file). Please select a different file for this HBA %u (%s)!", hba,
                      model.c_str());
        break;
    case 7: std::snprintf(text, sizeof text, "Unsupported HBA %u (%s)!", hba, model.c_str()); break;
    case 8: return "No compatible HBA(s) found in current system !";
    case 9:
        std::snprintf(text, sizeof text, "Unknown adapter type (HBA %u SSVID=0x%04x SSDID=0x%04x)!", hba,
                      d ? d->DeviceChipProperty.SubVendorID : 0, d ? d->DeviceChipProperty.SubSystemID : 0);
        break;
    case 13: std::snprintf(text, sizeof text, "Selected file (%s) appears to be corrupted!", file.c_str()); break;
    case 61:
        std::snprintf(text, sizeof text, "Operation is not supported with current HBA %u (%s)!", hba, model.c_str());
        break;
    case 81:
        std::snprintf(text, sizeof text, "Unable to retrieve HBA parameters of HBA %u (%s)!", hba, model.c_str());
        break;
    case 82:
    case 83: std::snprintf(text, sizeof text, "Failed to update HBA parameters of selected HBA %u!", hba); break;
    case 84: std::snprintf(text, sizeof text, "Unable to open NVRAM template file (%s)!", file.c_str()); break;
    case 115: return "Unable to allocate memory!";
    default: std::snprintf(text, sizeof text, "Failed to program HBA parameters (HBA %u)!", hba); break;
    }
    return text;
}

}  // namespace vt::config

extern "C" {

VTAPI_EXPORT uint32_t FindOEMType(const char *name) {
    for (uint32_t i = 0; i + 1 < kOemCount; ++i)
        if (name && striscmp(name, kOemNames[i]) == 0) return i;
    return kOemCount - 1;  // deliberately: a name that matches none is the last OEM
}

VTAPI_EXPORT uint32_t GetNVRamTemplatesDir(const SDMDevice *adapter, char *path, uint32_t oem) {
    if (!adapter || !path) return 1;
    for (const char *extension : {".dat", ".DAT"}) {
        const std::string file =
            TemplatePath(TarnGetInstallationDir(), adapter->DeviceChipProperty.DeviceID, oem, extension);
        std::snprintf(path, 512, "%s", file.c_str());
        LogDebug(kFile, __LINE__, "GetNVRamTemplatesDir: Template file=%s", path);
        if (FILE *f = std::fopen(path, "r")) {
            std::fclose(f);
            return 0;
        }
    }
    return 1;
}

VTAPI_EXPORT uint32_t LoadHBAParametersFromTemplateFile(SDMDevice *adapter, uint32_t oem) {
    ClearConfigErrorText();
    if (!adapter) return NoAdapter();
    const uint32_t chip = CoreGetISPType(adapter);
    const bool allowed =
        OemAllowedForChip(chip, oem) && (oem != 0 || TarnPreferenceGetKeyValue(kOemZeroPreference, 0) != 0);
    if (!allowed) {
        SetConfigErrorText("Operation is not supported with current HBA %u (%s)!", adapter->Instance,
                           ModelOf(adapter).c_str());
        return kNotSupported;
    }
    char path[512];
    GetNVRamTemplatesDir(adapter, path, oem);
    return UpdateHBAParametersFromTemplateFile(adapter, path, oem);
}

VTAPI_EXPORT uint32_t UpdateHBAParametersFromTemplateFile(SDMDevice *adapter, const char *path, uint32_t oem) {
    ClearConfigErrorText();
    const std::string file = path ? path : "";
    auto fail = [&](uint32_t rc) {
        SetConfigErrorText("%s", TemplateResultText(rc, adapter, file).c_str());
        return rc;
    };
    if (!adapter) return fail(kNoAdapter);
    LogDebug(kFile, __LINE__, "UpdateHBAParametersFromTemplateFile: HBA %u OEM %u file %s", adapter->Instance, oem,
             file.c_str());
    if (!isAdapterSupported(adapter)) return fail(kUnsupportedHba);
    if (uint32_t rc = CheckWritable(adapter)) return rc;
    if (!path || access(path, F_OK) != 0) {
        LogDebug(kFile, __LINE__, "UpdateHBAParametersFromTemplateFile: Template file missing (%s)", file.c_str());
        return fail(kTemplateMissing);
    }
    struct stat st {};
    if (stat(path, &st) != 0 || access(path, R_OK) != 0) return fail(kOpenFailed);
    if (!S_ISREG(st.st_mode) || st.st_size == 0 || size_t(st.st_size) > kMaxTemplateFile) return fail(kCorrupted);
    const uint32_t size = NvramSizeOf(adapter);
    Progress("Updating HBA Parameters on HBA %u - %8s. Please wait...", adapter->Instance, ModelOf(adapter).c_str());
    std::vector<uint8_t> image(size);
    const uint32_t rc = size == 256 ? updateRawNvramTemplateBufferFor2GbHBA(adapter, path, image.data(), size)
                                    : updateRawNvramTemplateBufferFor4GbHBA(adapter, path, image.data(), size);
    if (rc != kOk) return fail(rc);
    return WriteWholeImage(adapter, image, false);
}

VTAPI_EXPORT uint32_t updateRawNvramTemplateBufferFor2GbHBA(SDMDevice *adapter, const char *path, uint8_t *image,
                                                            uint32_t size) {
    return FillFromTemplate(adapter, path, image, size, "updateRawNvramTemplateBufferFor2GbHBA", true, false);
}

VTAPI_EXPORT uint32_t updateRawNvramTemplateBufferFor4GbHBA(SDMDevice *adapter, const char *path, uint8_t *image,
                                                            uint32_t size) {
    return FillFromTemplate(adapter, path, image, size, "updateRawNvramTemplateBufferFor4GbHBA", false, false);
}

VTAPI_EXPORT uint32_t PreserveNvramData(SDMDevice *adapter, uint8_t *image, uint32_t identityOnly) {
    if (!adapter || !image) return kNoAdapter;
    std::vector<uint8_t> current;
    if (uint32_t rc = ReadNvramImage(adapter, 1, current)) return rc;
    auto copy = [&](uint32_t first, uint32_t last) {
        for (uint32_t id = first; id <= last; ++id) CopyVariable(adapter, current, image, id);
    };
    copy(kPortNameVar0, kPortNameVar0 + 7);
    copy(kNodeNameEnableVar, kNodeNameEnableVar);
    if (Variable(adapter, current, kNodeNameEnableVar) != 0) copy(kNodeNameVar0, kNodeNameVar0 + 7);
    if (identityOnly) return kOk;
    copy(58, 60);
    copy(92, 96);
    if (EfiHost()) copy(kBootNodeNameByte0, kBootNodeNameByte0 + 7);
    for (uint32_t drive = 0; drive < 4; ++drive)
        copy(kBootDrives[drive].portNameByte0, kBootDrives[drive].portNameByte0 + 8);
    const uint8_t mask = adapter->DevicePortProperty.SupportedSpeed;
    if (Is16GbAdapter(adapter) || !((mask & SD_SUPPORTED_32G) && (mask & SD_SUPPORTED_64G))) copy(130, 131);
    copy(63, 63);
    return kOk;
}

VTAPI_EXPORT uint32_t SaveNVRAMToBinaryFile(const char *file, const uint8_t *image, uint32_t size) {
    if (!file || !image || (size != 256 && size != 512)) return kOpenFailed;
    if (!WriteFileAtomically(file, image, size)) {
        LogDebug(kFile, __LINE__, "SaveNVRAMToBinaryFile: cannot write %s (%s)", file, std::strerror(errno));
        return kOpenFailed;
    }
    return kOk;
}

VTAPI_EXPORT uint32_t SaveSingleAdapterNVRAMToBinaryFile(SDMDevice *adapter, const char *file) {
    ClearConfigErrorText();
    if (!adapter) return NoAdapter();
    if (isVirtualPortHBA(adapter)) return CheckWritable(adapter);
    Progress("Saving current HBA Parameters of HBA %u to file %s...", adapter->Instance, file ? file : "");
    std::vector<uint8_t> image;
    uint32_t rc = ReadNvramImage(adapter, 1, image);
    if (rc == SDERR_NONE) rc = SaveNVRAMToBinaryFile(file, image.data(), uint32_t(image.size()));
    if (rc != kOk) {
        SetConfigErrorText("Unable to save current HBA Parameters of this HBA %u to %s!", adapter->Instance,
                           file ? file : "");
        return rc;
    }
    SetConfigErrorText("HBA Parameters saved successfully (HBA %u - %s).", adapter->Instance, ModelOf(adapter).c_str());
    return kOk;
}

VTAPI_EXPORT uint32_t UpdateAdapterNVRAMFromFile(SDMDevice *adapter, const char *file) {
    const std::string name = file ? file : "";
    std::vector<uint8_t> image;
    if (uint32_t rc = ReadInputFile(adapter, file, image)) return rc;
    std::vector<uint8_t> current;
    if (ReadNvramImage(adapter, 1, current) != SDERR_NONE) {
        SetConfigErrorText("%s", TemplateResultText(kRetrieveFailed, adapter, name).c_str());
        return kRetrieveFailed;
    }
    switch (CheckSavedImage(image, current,
                            [&](const std::vector<uint8_t> &i, uint32_t id) { return Variable(adapter, i, id); })) {
    case SavedImage::Ok: break;
    case SavedImage::WrongSize: SetConfigErrorText("NVRAM file must be 256 or 512 bytes"); return kCorrupted;
    case SavedImage::BadChecksum:
        SetConfigErrorText("%s", TemplateResultText(kCorrupted, adapter, name).c_str());
        return kCorrupted;
    case SavedImage::OtherPort:  // an image of another size or another board
        SetConfigErrorText("%s", TemplateResultText(kInvalidFile, adapter, name).c_str());
        return kInvalidFile;
    }
    Progress("Updating HBA Parameters on HBA %u - %8s. Please wait...", adapter->Instance, ModelOf(adapter).c_str());
    if (uint32_t rc = PreserveNvramData(adapter, image.data(), 0)) return rc;
    return WriteWholeImage(adapter, image, false);
}

VTAPI_EXPORT uint32_t UpdateAdapterGlobalNVRAMFromFile(SDMDevice *adapter, const char *file) {
    std::vector<uint8_t> image;
    if (uint32_t rc = ReadInputFile(adapter, file, image)) return rc;
    const GlobalImage check = CheckGlobalImage(image, adapter->DevicePortProperty.WWPN);
    if (check == GlobalImage::WrongSize) {
        SetConfigErrorText("Global NVRAM file must be %zu bytes (%s has %zu)!", kGlobalNvramSize, file, image.size());
        return kCorrupted;
    }
    if (check == GlobalImage::BadChecksum) {
        SetConfigErrorText("Selected file (%s) appears to be corrupted!", file);
        return kCorrupted;
    }
    const uint32_t regionSize = GlobalNvramRegionSize(adapter);
    std::vector<uint8_t> region(regionSize);
    uint32_t rc = regionSize == kGlobalNvramSize
                      ? SDGetOptionRomEx(adapter->DeviceHandle, region.data(), regionSize, kGlobalNvramRegion, 0)
                      : SDERR_NOT_SUPPORTED;
    if (rc != SDERR_NONE) {
        LogDebug(kFile, __LINE__, "UpdateAdapterGlobalNVRAMFromFile: no global NVRAM on HBA %u: 0x%x (%s)",
                 adapter->Instance, rc, SDGetErrorString(rc));
        SetConfigErrorText("Operation is not supported with current HBA %u (%s)!", adapter->Instance,
                           ModelOf(adapter).c_str());
        return rc == SDERR_NOT_SUPPORTED ? kNotSupported : rc;
    }
    if (check == GlobalImage::OtherPort) {
        const uint8_t *w = adapter->DevicePortProperty.WWPN;
        SetConfigErrorText(
            "Skipping Global NVRAM Update on HBA %u - %s.\nIncorrect Global NVRAM file for this HBA "
            "(WWPN %02x:%02x:%02x:%02x:%02x:%02x:%02x:%02x)!",
            adapter->Instance, ModelOf(adapter).c_str(), w[0], w[1], w[2], w[3], w[4], w[5], w[6], w[7]);
        return kInvalidFile;
    }
    Progress("Updating Global Nvram on HBA %u - %8s. Please wait...", adapter->Instance, ModelOf(adapter).c_str());
    rc = SDUpdateOptionRomEx2(adapter->DeviceHandle, image.data(), kGlobalNvramSize, kGlobalNvramRegion, 0, 0);
    if (rc != SDERR_NONE) {
        const uint32_t refused = WriteRefusal(adapter, rc);
        if (refused != kNotPermitted)
            SetConfigErrorText("Failed to program HBA parameters (HBA %u)!", adapter->Instance);
        return refused;
    }
    SetConfigErrorText("Global NVRAM update complete. Changes have been saved to HBA %u and a reboot is required.",
                       adapter->Instance);
    return kOk;
}

// Offers the file to every physical port; the port it was saved from takes
// it, the others are skipped.
VTAPI_EXPORT uint32_t DoGlobalNVRAMUpdateAll(const char *file) {
    SDMDeviceList *list = GetDeviceList();
    if (!list || list->Count == 0) return NoAdapter();
    uint32_t result = kInvalidFile;
    std::string messages;
    for (SDMDevice *d = list->First; d; d = d->next) {
        if (isVirtualPortHBA(d)) continue;
        const uint32_t rc = UpdateAdapterGlobalNVRAMFromFile(d, file);
        messages += (messages.empty() ? "" : "\n") + std::string(ConfigErrorText());
        if (rc == kOk) result = kOk;
        else if (rc != kInvalidFile && result != kOk) result = rc;
        if (rc == kCorrupted || rc == 2) break;  // the file itself is unusable
    }
    SetConfigErrorText("%s", messages.c_str());
    return result;
}

VTAPI_EXPORT uint32_t RestoreDefaultNVRAM(SDMDevice *adapter) { return LoadDefaults(adapter, false); }

VTAPI_EXPORT uint32_t ResetToDefaultSettings(SDMDevice *adapter) { return LoadDefaults(adapter, true); }

}  // extern "C"
