// Writing flash image files and single regions into an adapter's flash.
//
// For `tarncli -b FILE` (the command-line update): call vtfuPlanFlashUpdate
// (the exported form of PlanFlashUpdate below) with the port's card.  It validates the file against the
// card exactly as the image queries do and, when the file fits, lists per
// component the version the card's flash holds now and the one the file
// brings (FlashUpdatePlan::components).  When plan.status is not 0, print
// plan.message and end with that status; nothing was written.  Otherwise
// show the components (region, name, current -> new), ask for confirmation
// unless the user said not to ask, then call WriteFlashUpdate(plan) and
// report its status: VTAPI_REBOOT_REQUIRED means the image is in the flash
// and the card runs it after the next reboot; any other value means the
// flash is unchanged; vtfuFreeFlashUpdatePlan releases the plan.
// VTAPI_doOptionROMUpdate runs the same two steps without asking.
//
// An update replaces the regions meant for the card in one step through
// SDUpdateOptionRomRegions, so a failed or interrupted write leaves every
// region as it was.  The VPD and global NVRAM regions are never written.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "flash_image.h"

#ifdef __cplusplus
extern "C" {
#endif

#define VTFU_PLAN_TEXT 32
/* One component of a planned update. */
typedef struct VTFU_UpdateComponent {
    uint32_t Region;
    uint32_t Size;     /* bytes written */
    uint32_t Capacity; /* bytes of the region */
    uint32_t Changes;  /* 1 when the version changes */
    char Name[VTFU_PLAN_TEXT];
    char Current[VTFU_PLAN_TEXT]; /* "" when the flash shows none */
    char New[VTFU_PLAN_TEXT];
} VTFU_UpdateComponent;

/* A planned update; Internal holds the staged regions. */
typedef struct VTFU_UpdatePlan {
    uint32_t Status;     /* VTAPI_ status, 0: ready to write */
    uint32_t Validation; /* the validation's own status */
    uint32_t BootFile;   /* 1: a single boot-code file */
    uint32_t CardType;
    char ImageVersion[16];
    char Message[256]; /* why it cannot be written */
    uint32_t Count;
    VTFU_UpdateComponent *Components;
    void *Internal;
} VTFU_UpdatePlan;

/* Reads the file and plans its update into the card: 0 with *plan set (its
 * Status tells whether it can be written), 2 null argument, 13 the file
 * cannot be read, 0xFFFFFFFF no memory. */
VTAPI_EXPORT uint32_t vtfuPlanFlashUpdate(const AdapterEntry *adapter, const char *path, VTFU_UpdatePlan **plan);
/* Writes a plan whose Status is 0: 201 when written, else the status that
 * refused it (the flash unchanged). */
VTAPI_EXPORT uint32_t vtfuWriteFlashUpdate(const VTFU_UpdatePlan *plan);
VTAPI_EXPORT void vtfuFreeFlashUpdatePlan(VTFU_UpdatePlan *plan);

#ifdef __cplusplus
}  // extern "C"

#pragma GCC visibility push(hidden)
namespace vtflash {

// Contents for one region of the flash (the region is replaced, the rest of
// it reads as erased flash).
struct StagedRegion {
    uint32_t region = 0;
    std::vector<uint8_t> bytes;
};

// One component an update writes.
struct ComponentPlan {
    uint32_t region = 0;
    std::string name;     // "Firmware", "Boot code", ...
    std::string current;  // version in the card's flash now; "" when none can be read from it
    std::string next;     // version the file brings; "" likewise
    uint32_t size = 0;    // bytes written
    uint32_t capacity = 0;
    bool changes() const { return current != next; }
};

struct FlashUpdatePlan {
    uint32_t status = VTAPI_SUCCESS;  // VTAPI_ status; 0: ready to write
    uint32_t validation = 0;          // the validation's own status (FLASH_ST_..., 0x208, component code)
    std::string message;              // why the file cannot be written
    uint32_t handle = 0;              // libvtsdm handle of the card
    bool bootFile = false;            // a single boot-code file rather than a multi-image file
    std::string imageVersion;         // "%02d.%02d.%02d" of a multi-image file
    uint32_t cardType = VTFU_NONE;
    std::vector<ComponentPlan> components;  // in file order
    std::vector<StagedRegion> regions;      // everything to write, the layout table last
};

// Region type codes an update never writes.
bool KeptByUpdates(uint32_t region);

// The components of a multi-image container meant for the card type and chip
// revision, first entry of each type, in file order; VPD and NVRAM entries
// are left out.  Nothing when the table is unreadable or an entry meant for
// the card does not lie within the container.
std::optional<std::vector<StagedRegion>> SelectImageRegions(Bytes mbi, uint32_t cardType, uint32_t chipRevision);

// Validates the file (a multi-image file, bare or PLDM-wrapped, or a single
// boot-code file) against the card and plans the update.  fileName only
// goes into messages.
FlashUpdatePlan PlanFlashUpdate(const AdapterEntry *adapter, Bytes file, const std::string &fileName);

// Writes a plan whose status is 0: VTAPI_REBOOT_REQUIRED when written, else
// the device-management library's status (the flash is unchanged).
uint32_t WriteFlashUpdate(const FlashUpdatePlan &plan);

// The VTAPI_ status of a failed image check of a file of fileSize bytes.
uint32_t ApiStatusOfCheck(const ImageCheck &check, size_t fileSize);

// Version text of a component as it stands in a flash region (erased bytes
// after a component with a trailer are passed over); see
// ComponentVersionText.
std::optional<std::string> VersionInFlash(uint32_t type, Bytes region, Bytes flashIlt);

// Single regions: the region's contents into a new file at path (replaced
// atomically, owner and mode of an existing file kept), and a region
// replaced by a file's contents, checked for the region's format where it
// has one.  VTAPI_ statuses; an update answers VTAPI_REBOOT_REQUIRED when
// written.
uint32_t SaveFlashRegionToFile(const AdapterEntry *adapter, uint32_t region, const char *path);
uint32_t UpdateFlashRegionFromFile(const AdapterEntry *adapter, uint32_t region, const char *path);

// The whole file, or nothing when it cannot be read.
std::optional<std::vector<uint8_t>> ReadWholeFile(const char *path);

}  // namespace vtflash
#pragma GCC visibility pop
#endif
