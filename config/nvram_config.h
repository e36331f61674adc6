// Adapter configuration held in NVRAM: the HBA parameters, NVRAM templates
// and saved images, and the boot devices.
//
// How a tarncli command calls this layer (the commands themselves live in
// the command-line layer):
//
//  -c [port|all]   For each port: GetHBAParamsInfo(device, &record, nullptr,
//                  0); on a non-zero status report ConfigErrorText() with it.
//                  HBAParamsReport(device, record) gives the rows (label for
//                  text, element name for XML and JSON, value text) that one
//                  walk writes to the command's sink.
//  -n port NAME VALUE [NAME VALUE ...]
//                  InitializeParamTable(), then ParseNVRAMParameter(name,
//                  value) for each pair (a failure leaves bParseErr set and
//                  the text in ConfigErrorText()), then
//                  UpdateUserNVRAMConfig(device, User_NVRam_Entry, 0).  On 0
//                  the command reports ConfigCompletionText(device), which
//                  says whether a reboot is required (RebootRequired()).
//  -n port template [OEM]     LoadHBAParametersFromTemplateFile(device,
//                  FindOEMType(oem)) (default OEM: OemOfDevice(device)), or
//                  UpdateHBAParametersFromTemplateFile(device, file, oem) for
//                  a template the user names; TemplateResultText(result, ...)
//                  is the line to show for its result.
//  -n port restore-defaults | reset-defaults | save FILE | restore FILE
//                  RestoreDefaultNVRAM(device), ResetToDefaultSettings(device),
//                  SaveSingleAdapterNVRAMToBinaryFile(device, file),
//                  UpdateAdapterNVRAMFromFile(device, file); the text to show
//                  is in ConfigErrorText().  DoGlobalNVRAMUpdateAll(file) for
//                  the global NVRAM of every port.
//  -e port [TARGET LUN [DRIVE]]
//                  Show: GetBootDeviceInfo(device, &info, 1), then
//                  BootDeviceReport(device, info) (rows) or, for text,
//                  BootSettingsLines(info) and BootDriveLines(device, info);
//                  GetNVMeBootDeviceEntries for FC-NVMe boot drives.  Set:
//                  ParseBootDeviceParameters(...) then SetBootDeviceInfo.
//
// Results follow the command-line workers' small codes (8 no adapter, 48 bad
// value, 60 unknown parameter, 61 not supported on this HBA, 66 not
// permitted, 84 template missing, 115 out of memory, 286 virtual port) or
// pass a libvtsdm status through unchanged.  Every function named here with
// C linkage is exported and called through the dynamic symbol table.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vtapi.h"
#include "vtapi_api.h"

namespace vt::config {

// Result codes of the configuration workers.
inline constexpr uint32_t kOk = 0;
inline constexpr uint32_t kOpenFailed = 1;   // template or NVRAM file cannot be opened
inline constexpr uint32_t kInvalidFile = 5;  // the file is not for this HBA
inline constexpr uint32_t kUnsupportedHba = 7;
inline constexpr uint32_t kNoAdapter = 8;
inline constexpr uint32_t kCorrupted = 13;
inline constexpr uint32_t kBadValue = 48;
inline constexpr uint32_t kUnknownParam = 60;
inline constexpr uint32_t kNotSupported = 61;
inline constexpr uint32_t kNotPermitted = 66;
inline constexpr uint32_t kRetrieveFailed = 81;
inline constexpr uint32_t kUpdateFailed = 82;
inline constexpr uint32_t kTemplateMissing = 84;
inline constexpr uint32_t kInvalidNvmeBlock = 88;
inline constexpr uint32_t kNoMemory = 115;
inline constexpr uint32_t kNvmeBootNotSupported = 121;
inline constexpr uint32_t kVirtualPort = 286;

}  // namespace vt::config

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------- HBA parameter table */
typedef struct UserNVRamEntry {
    char alias[3];
    char name[41];
    int32_t value; /* -1: not requested */
} UserNVRamEntry;

VTAPI_EXPORT extern UserNVRamEntry User_NVRam_Entry[39];

/* Case-insensitive comparison of two texts. */
VTAPI_EXPORT int32_t striscmp(const char *a, const char *b);
VTAPI_EXPORT void InitializeParamTable(void);
VTAPI_EXPORT int32_t ValidateParamName(const char *name);
VTAPI_EXPORT int32_t ValidateParamValue(int32_t index, int32_t value);
VTAPI_EXPORT int32_t CheckNumber(const char *text);
VTAPI_EXPORT int32_t ParseNVRAMParameter(char *name, char *value);
VTAPI_EXPORT void AddUserNVRAMConfig(const char *name, int32_t value);
VTAPI_EXPORT int32_t SearchUserNVRAMConfig(const char *name);

/* ------------------------------------------------- NVRAM and HBA parameters */
VTAPI_EXPORT uint32_t ComputeNVRAMDataChecksum(uint8_t *buffer, uint32_t size);
VTAPI_EXPORT uint32_t CoreIsValidNvram(const uint8_t *buffer, uint32_t size);
/* buffer: receives the image read (may be null); which: 0 reads the port's
 * NVRAM into its primary image, 1 uses its second image (PostVerify). */
VTAPI_EXPORT uint32_t GetHBAParamsInfo(SDMDevice *adapter, VTAPI_HBAParams *record, uint8_t *buffer, uint32_t which);
VTAPI_EXPORT uint32_t UpdateUserNVRAMConfig(SDMDevice *adapter, UserNVRamEntry *params, uint32_t validateOnly);
VTAPI_EXPORT uint32_t PostVerifyHBAParameter(SDMDevice *adapter);
VTAPI_EXPORT uint32_t GetSupportedDataRateSetting(const SDMDevice *adapter, uint32_t code);
VTAPI_EXPORT void SetNoRebootRequired(uint32_t noReboot);
/* Writes a whole image to NVRAM area `area`, the checksum computed first
 * when fixChecksum is set; the image becomes the port's primary image. */
VTAPI_EXPORT uint32_t updateNVRam(SDMDevice *adapter, uint8_t *image, uint32_t size, uint32_t area,
                                  uint32_t fixChecksum);
VTAPI_EXPORT uint32_t isAdapterSupported(const SDMDevice *adapter);

/* ------------------------------------------------ templates and saved images */
VTAPI_EXPORT uint32_t FindOEMType(const char *name);
/* path: 512 bytes. */
VTAPI_EXPORT uint32_t GetNVRamTemplatesDir(const SDMDevice *adapter, char *path, uint32_t oem);
VTAPI_EXPORT uint32_t LoadHBAParametersFromTemplateFile(SDMDevice *adapter, uint32_t oem);
VTAPI_EXPORT uint32_t UpdateHBAParametersFromTemplateFile(SDMDevice *adapter, const char *path, uint32_t oem);
VTAPI_EXPORT uint32_t updateRawNvramTemplateBufferFor2GbHBA(SDMDevice *adapter, const char *path, uint8_t *image,
                                                            uint32_t size);
VTAPI_EXPORT uint32_t updateRawNvramTemplateBufferFor4GbHBA(SDMDevice *adapter, const char *path, uint8_t *image,
                                                            uint32_t size);
VTAPI_EXPORT uint32_t PreserveNvramData(SDMDevice *adapter, uint8_t *image, uint32_t identityOnly);
VTAPI_EXPORT uint32_t SaveNVRAMToBinaryFile(const char *file, const uint8_t *image, uint32_t size);
VTAPI_EXPORT uint32_t SaveSingleAdapterNVRAMToBinaryFile(SDMDevice *adapter, const char *file);
VTAPI_EXPORT uint32_t UpdateAdapterNVRAMFromFile(SDMDevice *adapter, const char *file);
VTAPI_EXPORT uint32_t UpdateAdapterGlobalNVRAMFromFile(SDMDevice *adapter, const char *file);
VTAPI_EXPORT uint32_t DoGlobalNVRAMUpdateAll(const char *file);
VTAPI_EXPORT uint32_t RestoreDefaultNVRAM(SDMDevice *adapter);
VTAPI_EXPORT uint32_t ResetToDefaultSettings(SDMDevice *adapter);

/* ------------------------------------------------------------ boot devices */
/* which: NVRAM area, 1 active or 2 alternate. */
VTAPI_EXPORT uint32_t GetBootDeviceInfo(SDMDevice *adapter, VTAPI_BootDeviceInfo *record, uint32_t which);
VTAPI_EXPORT uint32_t SetBootDeviceInfo(SDMDevice *adapter, const VTAPI_BootDeviceInfo *record);
VTAPI_EXPORT uint32_t IsBootFromSANConfigured(SDMDevice *adapter, uint32_t *configured);
VTAPI_EXPORT uint32_t SetBfsConfigMode(uint32_t mode);
VTAPI_EXPORT uint32_t GetBfsConfigMode(void);
/* Command-line argument check of "-e": target (WWPN text or the target's
 * number on the port), LUN and drive (0-7, may be null for drive 0) into the
 * record; 0, or 48/60 with the text in the error buffer. */
VTAPI_EXPORT uint32_t ParseBootDeviceParameters(const SDMDevice *adapter, const char *target, const char *lun,
                                                const char *drive, VTAPI_BootDeviceInfo *record);
/* 0 when the WWPN is a discovered FCP target of the port. */
VTAPI_EXPORT uint32_t CheckBootTargetID(const SDMDevice *adapter, const uint8_t *targetWWPN);
VTAPI_EXPORT uint32_t GetNVMeBootDeviceEntries(SDMDevice *adapter, VTAPI_NVMeBootDeviceEntries *block);
VTAPI_EXPORT uint32_t SetNVMeBootDeviceEntries(SDMDevice *adapter, const VTAPI_NVMeBootDeviceEntries *block);
VTAPI_EXPORT uint32_t CheckNVMeBootParametersAndDriveMapping(const VTAPI_NVMeBootDeviceEntries *block);
/* Index of the drive with this target WWPN and namespace, or -1. */
VTAPI_EXPORT int32_t SearchNVMeBootDeviceEntryList(const VTAPI_NVMeBootDeviceEntries *block, const uint8_t *targetWWPN,
                                                   uint32_t namespaceId);
/* Puts the drive in place of the one with its target and namespace, else in
 * the first free slot; -1 when all eight are taken. */
VTAPI_EXPORT int32_t AddNVMeBootDriveMapping(VTAPI_NVMeBootDeviceEntries *block, const VTAPI_NVMeBootDrive *drive);
VTAPI_EXPORT void ClearNVMeBootDevices(VTAPI_NVMeBootDeviceEntries *block);
/* Fills the header, computes the checksum and writes the port's block. */
VTAPI_EXPORT uint32_t UpdateNVMeBootDeviceEntryList(SDMDevice *adapter, VTAPI_NVMeBootDeviceEntries *block);

#ifdef __cplusplus
}
#endif

namespace vt::config {

// The shared 256-byte error-text buffer of the configuration workers.
const char *ConfigErrorText();
void SetConfigErrorText(const char *format, ...) __attribute__((format(printf, 1, 2)));
void ClearConfigErrorText();

// Whether the changes written since the last SetNoRebootRequired(1) need a
// reboot.
bool RebootRequired();

// "HBA <instance> (<model>)": how messages name a port.
std::string PortModel(const SDMDevice *device);

// Text of a template-load result (the "Result messages" table).
std::string TemplateResultText(uint32_t result, const SDMDevice *device, const std::string &file);
// "HBA Parameters update complete. Changes have been saved to HBA <n>." or
// the variant that says a reboot is required.
std::string ConfigCompletionText(const SDMDevice *device);

// OEM code of the port's board (the maker's for an unknown vendor).
uint32_t OemOfDevice(const SDMDevice *device);

// Report rows of the -c and -e displays, one walk: `label` for text,
// `element` for XML and JSON, `value` as shown.
struct ReportRow {
    std::string label;
    std::string element;
    std::string value;
};
std::vector<ReportRow> HBAParamsReport(const SDMDevice *device, const VTAPI_HBAParams &record);
std::vector<ReportRow> BootDeviceReport(const SDMDevice *device, const VTAPI_BootDeviceInfo &info);
// Text view of the boot switches for the current boot-from-SAN mode.
std::vector<std::string> BootSettingsLines(const VTAPI_BootDeviceInfo &info);
// The FCP boot-drive table ("Drive # WWPN ... LUN" and one line a drive);
// 66 with the "does not have ROM BIOS" text for a port without BIOS.
uint32_t BootDriveLines(const SDMDevice *device, const VTAPI_BootDeviceInfo &info, std::vector<std::string> &lines);

}  // namespace vt::config
